#include "common/Numeric.h"
#include "common/TextUtil.h"
#include "dso/DsoLink.h"
#include "dso/LinkFraming.h"

namespace mervasto {

void TakeLegacyIdentity(DsoLink& link, const std::string& reply, DsoSetup& setup) {
    const std::vector<std::string> fields = SplitFields(reply);
    const std::string model = fields.size() > 1 ? fields[1] : std::string();
    const int16_t channels = ChannelCountOfModel(model);
    // Every later step reads as many channels as this says: a reply that
    // names no known model would give records of nothing at all.
    if (channels != 2 && channels != 4)
        link.failExchange("The DSO's identification (\"*IDN?\") names no model with 2 or 4 channels: \"" +
                          PrintableBytes(reply, 60) + "\"; the link was closed.");
    setup.Model = model;
    setup.ChannelCount = channels;
}

Outcome ConnectAndIdentify(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText) {
    if (link.DsoLinked) return Outcome::Ok();
    return Guarded([&]() -> Outcome {
        ui.setStatus(1, kConnectingToDso);
        const DsoAddress address = ParseDsoAddress(addressText);
        if (link.LinkToSLA(address.host, address.port) == kLinkError) return {ErrorCode::Link, kDsoNotConnected};
        TakeLegacyIdentity(link, link.QueryDso("*IDN?", 256), setup);
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
