#include "common/Numeric.h"
#include "common/TextUtil.h"
#include "dso/DsoLink.h"

namespace mervasto {

bool ConnectAndIdentify(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText) {
    if (link.DsoLinked) return true;
    ui.setStatus(1, kConnectingToDso);
    const DsoAddress address = ParseDsoAddress(addressText);
    if (link.LinkToSLA(address.host, address.port) == kLinkError) {
        ui.messageBox(kDsoNotConnected, MsgButtons::CancelTryContinue, kDsoConfirmationTitle);
        return false;
    }
    const std::vector<std::string> fields = SplitFields(link.QueryDso("*IDN?", 256));
    setup.Model = fields.size() > 1 ? fields[1] : std::string();
    setup.ChannelCount = ChannelCountOfModel(setup.Model);
    link.DsoLinked = true;
    return true;
}

}  // namespace mervasto
