#include "common/OncRpc.h"

namespace mervasto::rpc {

namespace {
constexpr uint32_t kRpcVersion = 2;
constexpr uint32_t kCallType = 0;
constexpr uint32_t kReplyType = 1;
constexpr uint32_t kLastFragment = 0x80000000u;

uint32_t BigEndian(std::string_view b, size_t at) {
    return static_cast<uint32_t>(static_cast<unsigned char>(b[at])) << 24 |
           static_cast<uint32_t>(static_cast<unsigned char>(b[at + 1])) << 16 |
           static_cast<uint32_t>(static_cast<unsigned char>(b[at + 2])) << 8 |
           static_cast<uint32_t>(static_cast<unsigned char>(b[at + 3]));
}

void PutBigEndian(std::string& out, uint32_t v) {
    const char b[4] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                       static_cast<char>(v)};
    out.append(b, 4);
}
}  // namespace

void XdrWriter::u32(uint32_t v) { PutBigEndian(out_, v); }

void XdrWriter::opaque(std::string_view bytes) {
    u32(static_cast<uint32_t>(bytes.size()));
    out_.append(bytes);
    out_.append((4 - bytes.size() % 4) % 4, '\0');
}

uint32_t XdrReader::u32() {
    if (!ok_ || in_.size() - at_ < 4) {
        ok_ = false;
        return 0;
    }
    const uint32_t v = BigEndian(in_, at_);
    at_ += 4;
    return v;
}

std::string_view XdrReader::opaque(size_t maxBytes) {
    const size_t n = u32();
    const size_t padded = n + (4 - n % 4) % 4;
    if (!ok_ || n > maxBytes || in_.size() - at_ < padded) {
        ok_ = false;
        return {};
    }
    std::string_view v = in_.substr(at_, n);
    at_ += padded;
    return v;
}

std::string RecordMarked(std::string_view record) {
    std::string out;
    out.reserve(record.size() + 4);
    PutBigEndian(out, kLastFragment | static_cast<uint32_t>(record.size()));
    out.append(record);
    return out;
}

RecordState TakeRecord(std::string& stream, std::string& record, size_t maxBytes) {
    // Walk the fragment headers without copying until the last one is whole.
    size_t at = 0;
    size_t payload = 0;
    for (;;) {
        if (stream.size() - at < 4) return RecordState::NeedMore;
        const uint32_t mark = BigEndian(stream, at);
        const size_t n = mark & ~kLastFragment;
        payload += n;
        if (payload > maxBytes) return RecordState::TooLong;
        if (stream.size() - at - 4 < n) return RecordState::NeedMore;
        at += 4 + n;
        if (mark & kLastFragment) break;
    }
    record.clear();
    record.reserve(payload);
    for (size_t p = 0; p < at;) {
        const size_t n = BigEndian(stream, p) & ~kLastFragment;
        record.append(stream, p + 4, n);
        p += 4 + n;
    }
    stream.erase(0, at);
    return RecordState::Complete;
}

std::string EncodeCall(const Call& call) {
    XdrWriter w;
    w.u32(call.xid);
    w.u32(kCallType);
    w.u32(kRpcVersion);
    w.u32(call.program);
    w.u32(call.version);
    w.u32(call.procedure);
    for (int i = 0; i < 2; ++i) {  // credentials and verifier: AUTH_NONE
        w.u32(0);
        w.u32(0);
    }
    w.bytes().append(call.args);
    return std::move(w.bytes());
}

bool ParseCall(std::string_view record, Call& call) {
    XdrReader r(record);
    call.xid = r.u32();
    if (r.u32() != kCallType || r.u32() != kRpcVersion) return false;
    call.program = r.u32();
    call.version = r.u32();
    call.procedure = r.u32();
    for (int i = 0; i < 2; ++i) {  // any credentials and verifier, unread
        r.u32();
        r.opaque(400);
    }
    call.args = r.rest();
    return r.ok();
}

std::string EncodeReply(uint32_t xid, AcceptStat stat, std::string_view results) {
    XdrWriter w;
    w.u32(xid);
    w.u32(kReplyType);
    w.u32(0);  // accepted
    w.u32(0);  // verifier: AUTH_NONE
    w.u32(0);
    w.u32(static_cast<uint32_t>(stat));
    w.bytes().append(results);
    return std::move(w.bytes());
}

bool ParseReply(std::string_view record, Reply& reply) {
    XdrReader r(record);
    reply.xid = r.u32();
    if (r.u32() != kReplyType) return false;
    reply.accepted = r.u32() == 0;
    if (reply.accepted) {
        r.u32();
        r.opaque(400);
        reply.stat = static_cast<AcceptStat>(r.u32());
    }
    reply.results = r.rest();
    return r.ok();
}

}  // namespace mervasto::rpc
