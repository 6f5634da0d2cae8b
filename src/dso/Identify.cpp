#include "common/Numeric.h"
#include "common/TextUtil.h"
#include "dso/DsoLink.h"

namespace mervasto {

Outcome ConnectAndIdentify(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText) {
    if (link.DsoLinked) return Outcome::Ok();
    return Guarded([&]() -> Outcome {
        ui.setStatus(1, kConnectingToDso);
        const DsoAddress address = ParseDsoAddress(addressText);
        if (link.LinkToSLA(address.host, address.port) == kLinkError) return {ErrorCode::Link, kDsoNotConnected};
        const std::vector<std::string> fields = SplitFields(link.QueryDso("*IDN?", 256));
        setup.Model = fields.size() > 1 ? fields[1] : std::string();
        setup.ChannelCount = ChannelCountOfModel(setup.Model);
        link.DsoLinked = true;
        return Outcome::Ok();
    });
}

std::optional<LinkBox> LinkBoxOf(const Outcome& outcome) {
    if (outcome.code() != ErrorCode::Link) return std::nullopt;
    if (outcome.text() == kDsoNotConnected) return LinkBox{MsgButtons::CancelTryContinue, kDsoConfirmationTitle};
    if (outcome.text() == kDsoNotInterfaced) return LinkBox{MsgButtons::OkCancel, kDsoConfirmationTitle};
    return std::nullopt;
}

}  // namespace mervasto
