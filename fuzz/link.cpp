#include "dso/DsoLink.h"
#include "dso/LinkFraming.h"

#include <cstdlib>
#include <string>
#include <string_view>

// The instrument's byte stream as the link cuts it: the input is split into
// segments (as TCP delivers them) and read alternately as a text reply and
// as a data block, the way a pass reads its setup replies and then the
// "DTWAVE?" blocks. Nothing may fault; replies never carry a line end or
// exceed their cut, and one that runs on past the cap is refused; a block
// never claims more than the longest record.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace mervasto;
    if (size < 2) return 0;
    const size_t segment = 1 + data[0] % 64;
    const int32_t maxLength = static_cast<int32_t>(data[1]) - 8;
    std::string_view stream(reinterpret_cast<const char*>(data + 2), size - 2);
    std::string pending;
    size_t fed = 0;
    auto feed = [&] {
        if (fed >= stream.size()) return false;
        size_t n = std::min(segment, stream.size() - fed);
        pending.append(stream.substr(fed, n));
        fed += n;
        return true;
    };
    bool textTurn = true;
    while (fed < stream.size() || !pending.empty()) {
        if (textTurn) {
            size_t scanned = 0;
            ReplyState state = ReplyState::NeedMore;
            while ((state = ScanReply(pending, scanned, false)) == ReplyState::NeedMore && feed()) {}
            if (scanned > pending.size()) std::abort();
            if (state == ReplyState::TooLong) {
                if (pending.size() <= kMaxReplyBytes) std::abort();
                break;  // the link closes here
            }
            if (pending.empty()) break;
            std::string reply = TakeReplyLine(pending, maxLength);
            if (reply.find_first_of("\r\n") != std::string::npos) std::abort();
            if (reply.size() > static_cast<size_t>(std::max(maxLength, 0))) std::abort();
        } else {
            BlockHeader h;
            for (;;) {
                bool more = fed < stream.size();
                h = ParseBlockHeader(pending, !more, kMaxBlockBytes - 1);
                if (h.state != BlockHeaderState::NeedMore || !feed()) break;
            }
            (void)PrintableBytes(pending, 24);
            if (h.state != BlockHeaderState::Block) {
                if (h.state == BlockHeaderState::TooLong && h.length <= kMaxBlockBytes - 1) std::abort();
                break;  // the link closes here
            }
            if (h.length < 0 || h.length > kMaxBlockBytes - 1) std::abort();
            const size_t total = kBlockHeaderBytes + static_cast<size_t>(h.length) + 1;
            while (pending.size() < total && feed()) {}
            if (pending.size() < total) break;  // cut short: the link reports it
            pending.erase(0, total);
        }
        textTurn = !textTurn;
    }
    return 0;
}
