#include "dso/LinkFraming.h"

#include <algorithm>

#include "common/Numeric.h"
#include "common/TextUtil.h"

namespace mervasto {

namespace {
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
}  // namespace

ReplyState ScanReply(std::string_view pending, size_t& scanned, bool quietTimePassed, size_t maxBytes) {
    if (scanned > pending.size()) scanned = 0;
    const size_t end = pending.find_first_of("\r\n", scanned);
    if (end != std::string_view::npos) {
        scanned = end;
        return end > maxBytes ? ReplyState::TooLong : ReplyState::Complete;
    }
    scanned = pending.size();
    if (pending.size() > maxBytes) return ReplyState::TooLong;
    return !pending.empty() && quietTimePassed ? ReplyState::Complete : ReplyState::NeedMore;
}

std::string TakeReplyLine(std::string& pending, int32_t maxLength) {
    size_t cut = pending.find_first_of("\r\n");
    std::string text;
    if (cut == std::string::npos) {
        text.swap(pending);
    } else {
        text = pending.substr(0, cut);
        size_t used = cut + 1;
        if (pending[cut] == '\r' && used < pending.size() && pending[used] == '\n') ++used;
        pending.erase(0, used);
    }
    if (maxLength < 0) maxLength = 0;
    if (text.size() > static_cast<size_t>(maxLength)) text.resize(static_cast<size_t>(maxLength));
    return FirstLine(text);
}

BlockHeader ParseBlockHeader(std::string_view pending, bool quietTimePassed, int64_t maxPayloadBytes) {
    BlockHeader h;
    if (pending.size() < kBlockHeaderBytes) {
        if (!pending.empty() && pending[0] != '#' && (pending.find('\n') != std::string_view::npos || quietTimePassed))
            h.state = BlockHeaderState::NotBlock;
        return h;
    }
    std::string_view header = pending.substr(0, kBlockHeaderBytes);
    if (header[0] != '#' || !std::all_of(header.begin() + 1, header.end(), IsDigit)) {
        h.state = BlockHeaderState::NotBlock;
        return h;
    }
    // The second character counts the length digits; the instrument always
    // sends eight, and the link reads eight.
    h.length = static_cast<int64_t>(Val(MidText(header, 3)));
    h.state = h.length > maxPayloadBytes ? BlockHeaderState::TooLong : BlockHeaderState::Block;
    return h;
}

BlockHeader ParseDefiniteBlockHeader(std::string_view pending, bool quietTimePassed, int64_t maxPayloadBytes) {
    BlockHeader h;
    if (pending.empty()) return h;
    if (pending[0] != '#') {
        // Text, or garbage: judged once its line has ended.
        if (pending.find('\n') != std::string_view::npos || quietTimePassed) h.state = BlockHeaderState::NotBlock;
        return h;
    }
    if (pending.size() < 2) return h;
    if (pending[1] < '1' || pending[1] > '9') {
        h.state = BlockHeaderState::NotBlock;
        return h;
    }
    const size_t digits = static_cast<size_t>(pending[1] - '0');
    const size_t headerBytes = 2 + digits;
    const std::string_view lengthDigits = pending.substr(2, digits);
    if (!std::all_of(lengthDigits.begin(), lengthDigits.end(), IsDigit)) {
        h.state = BlockHeaderState::NotBlock;
        return h;
    }
    if (pending.size() < headerBytes) return h;
    int64_t length = 0;
    for (char c : lengthDigits) length = length * 10 + (c - '0');  // at most nine digits: no overflow
    h.length = length;
    h.headerBytes = headerBytes;
    h.state = length > maxPayloadBytes ? BlockHeaderState::TooLong : BlockHeaderState::Block;
    return h;
}

bool LooksNumeric(std::string_view reply) {
    size_t i = reply.find_first_not_of(" \t");
    if (i == std::string_view::npos) return true;
    if (reply[i] == '+' || reply[i] == '-') ++i;
    if (i < reply.size() && reply[i] == '.') ++i;
    return i < reply.size() && IsDigit(reply[i]);
}

bool IsNumberText(std::string_view reply) {
    const size_t first = reply.find_first_not_of(' ');
    if (first == std::string_view::npos) return false;
    const size_t last = reply.find_last_not_of(' ');
    std::string_view t = reply.substr(first, last - first + 1);
    size_t i = 0;
    if (t[i] == '+' || t[i] == '-') ++i;
    size_t digits = 0;
    while (i < t.size() && IsDigit(t[i])) ++i, ++digits;
    if (i < t.size() && t[i] == '.') {
        ++i;
        while (i < t.size() && IsDigit(t[i])) ++i, ++digits;
    }
    if (digits == 0) return false;
    if (i < t.size() && (t[i] == 'e' || t[i] == 'E')) {
        ++i;
        if (i < t.size() && (t[i] == '+' || t[i] == '-')) ++i;
        size_t expDigits = 0;
        while (i < t.size() && IsDigit(t[i])) ++i, ++expDigits;
        if (expDigits == 0) return false;
    }
    return i == t.size();
}

std::string PrintableBytes(std::string_view bytes, size_t limit) {
    std::string out;
    for (size_t i = 0; i < bytes.size() && i < limit; ++i) {
        unsigned char c = static_cast<unsigned char>(bytes[i]);
        if (c >= 32 && c < 127) {
            out += static_cast<char>(c);
        } else {
            static const char* hex = "0123456789ABCDEF";
            out += "\\x";
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

}  // namespace mervasto
