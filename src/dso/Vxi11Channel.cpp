#include "dso/Vxi11Channel.h"

#include <lxi.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <mutex>
#include <vector>

#include "common/OncRpc.h"
#include "common/TextUtil.h"
#include "dso/DsoLink.h"

namespace mervasto {

namespace {

// The most a device_read asks for: the device cuts a reply into reads of
// what it likes up to this.
constexpr uint32_t kReadRequestBytes = 1024 * 1024;
// What a call may take beyond the device's own time-out before the
// connection is taken for dead.
constexpr int kCallMarginMs = 2000;
constexpr int kCloseMs = 1000;
// A time-out of 0 waits for ever; the device is given the longest it takes.
constexpr uint32_t kForeverMs = 3600 * 1000;

uint32_t DeviceTimeout(int timeoutMs) { return timeoutMs > 0 ? static_cast<uint32_t>(timeoutMs) : kForeverMs; }
// The wait for a call's reply: the device's time-out and a margin, or none.
int CallWait(int timeoutMs) { return timeoutMs > 0 ? timeoutMs + kCallMarginMs : 0; }

std::string Where(const Vxi11Address& a) {
    return a.host + " (portmapper port " + std::to_string(a.portmapPort) + ", device " + a.device + ")";
}

void IgnoreBrokenPipes() {
    static std::once_flag once;
    std::call_once(once, [] { std::signal(SIGPIPE, SIG_IGN); });
}

using Clock = std::chrono::steady_clock;

int MsLeft(Clock::time_point until) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

// A TCP connection made within the time; -1 and the reason when not.
int ConnectTcp(const std::string& host, uint16_t port, int timeoutMs, std::string& why) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (int e = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found); e != 0) {
        why = gai_strerror(e);
        return -1;
    }
    const auto until = Clock::now() + std::chrono::milliseconds(timeoutMs);
    int fd = -1;
    why = "no address";
    for (addrinfo* a = found; a && fd < 0; a = a->ai_next) {
        fd = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol);
        if (fd < 0) continue;
        int rc = ::connect(fd, a->ai_addr, a->ai_addrlen);
        if (rc < 0 && errno == EINPROGRESS) {
            pollfd p{fd, POLLOUT, 0};
            rc = poll(&p, 1, MsLeft(until)) == 1 ? 0 : -1;
            int err = rc == 0 ? 0 : ETIMEDOUT;
            socklen_t len = sizeof err;
            if (rc == 0) getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len);
            if (err != 0) {
                errno = err;
                rc = -1;
            }
        }
        if (rc < 0) {
            why = std::strerror(errno);
            ::close(fd);
            fd = -1;
        }
    }
    freeaddrinfo(found);
    if (fd >= 0) {
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
        int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    return fd;
}

// The program's own ONC RPC client of the core channel, on a blocking socket
// whose every wait is bounded by poll.
class RpcVxi11Channel : public MessageChannel {
public:
    explicit RpcVxi11Channel(Vxi11Address address) : a_(std::move(address)) {}
    ~RpcVxi11Channel() override { drop(); }

    void connect(int timeoutMs) override {
        IgnoreBrokenPipes();
        const int wait = timeoutMs > 0 ? timeoutMs : 10000;
        std::string why;
        fd_ = ConnectTcp(a_.host, a_.portmapPort, wait, why);
        if (fd_ < 0) throw ChannelError("No portmapper answered at " + Where(a_) + ": " + why + ".");
        rpc::XdrWriter q;
        q.u32(rpc::kCoreProgram);
        q.u32(rpc::kCoreVersion);
        q.u32(rpc::kProtocolTcp);
        q.u32(0);
        const std::string found =
            call(rpc::kPortmapProgram, rpc::kPortmapVersion, rpc::kPortmapGetPort, q.bytes(), wait);
        rpc::XdrReader r(found);
        const uint32_t port = r.u32();
        drop();
        if (!r.ok() || port == 0 || port > 65535)
            throw ChannelError("The instrument at " + Where(a_) + " offers no VXI-11 core channel.");
        fd_ = ConnectTcp(a_.host, static_cast<uint16_t>(port), wait, why);
        if (fd_ < 0)
            throw ChannelError("The VXI-11 core channel of " + Where(a_) + " refused the connection: " + why + ".");
        rpc::XdrWriter link;
        link.i32(static_cast<int32_t>(reinterpret_cast<uintptr_t>(this) & 0x7fffffff));
        link.u32(0);  // no lock
        link.u32(0);
        link.opaque(a_.device);
        const std::string made = call(rpc::kCoreProgram, rpc::kCoreVersion, rpc::kCreateLink, link.bytes(), wait);
        rpc::XdrReader resp(made);
        const int32_t error = resp.i32();
        lid_ = resp.i32();
        resp.u32();  // the abort channel's port: not used
        maxRecv_ = resp.u32();
        if (!resp.ok()) throw ChannelError("The instrument's reply to create_link is malformed.");
        if (error != rpc::kNoError)
            throw ChannelError("The instrument refused a link to " + a_.device + " (VXI-11 error " +
                               std::to_string(error) + ").");
        if (maxRecv_ < 16) maxRecv_ = 1024;
        linked_ = true;
    }

    void send(const std::string& message, int timeoutMs) override {
        for (size_t at = 0; at < message.size() || message.empty();) {
            const size_t n = std::min<size_t>(message.size() - at, maxRecv_);
            const bool last = at + n == message.size();
            rpc::XdrWriter w;
            w.i32(lid_);
            w.u32(DeviceTimeout(timeoutMs));
            w.u32(0);
            w.u32(last ? rpc::kFlagEnd : 0);
            w.opaque(std::string_view(message).substr(at, n));
            const std::string done =
                call(rpc::kCoreProgram, rpc::kCoreVersion, rpc::kDeviceWrite, w.bytes(), CallWait(timeoutMs));
            rpc::XdrReader r(done);
            const int32_t error = r.i32();
            const uint32_t size = r.u32();
            if (!r.ok() || error != rpc::kNoError)
                throw ChannelError("The instrument did not take a message (device_write error " +
                                   std::to_string(error) + ").");
            at += std::min<size_t>(size, n);
            if (message.empty() || (size == 0 && n > 0)) break;
        }
    }

    void receive(const std::function<void(const char*, size_t)>& take, int timeoutMs) override {
        for (;;) {
            rpc::XdrWriter w;
            w.i32(lid_);
            w.u32(kReadRequestBytes);
            w.u32(DeviceTimeout(timeoutMs));
            w.u32(0);
            w.u32(0);  // no flags: the reply ends at END, not at a character
            w.u32(0);
            const std::string got =
                call(rpc::kCoreProgram, rpc::kCoreVersion, rpc::kDeviceRead, w.bytes(), CallWait(timeoutMs));
            rpc::XdrReader r(got);
            const int32_t error = r.i32();
            const uint32_t reason = r.u32();
            const std::string_view data = r.opaque(rpc::kMaxRecordBytes);
            if (!r.ok()) throw ChannelError("The instrument's reply to device_read is malformed.");
            if (error == rpc::kIoTimeout) throw ChannelError("The instrument had no reply within its time-out.");
            if (error != rpc::kNoError)
                throw ChannelError("The instrument failed a read (device_read error " + std::to_string(error) + ").");
            if (!data.empty()) take(data.data(), data.size());
            if (reason & (rpc::kReasonEnd | rpc::kReasonTermChar)) return;
        }
    }

    void close() override {
        if (linked_ && fd_ >= 0) {
            linked_ = false;
            rpc::XdrWriter w;
            w.i32(lid_);
            try {
                call(rpc::kCoreProgram, rpc::kCoreVersion, rpc::kDestroyLink, w.bytes(), kCloseMs);
            } catch (const ChannelError&) {
                // The instrument frees the link itself when the connection drops.
            }
        }
        drop();
    }

    void interrupt() override {
        const int fd = fd_.load();
        if (fd >= 0) shutdown(fd, SHUT_RDWR);
    }

private:
    void drop() {
        const int fd = fd_.exchange(-1);
        if (fd >= 0) ::close(fd);
        stream_.clear();
    }

    // One call and its reply; timeoutMs 0 waits for ever (until interrupted).
    std::string call(uint32_t program, uint32_t version, uint32_t procedure, std::string_view args, int timeoutMs) {
        const uint32_t xid = ++xid_;
        const std::string out = rpc::RecordMarked(rpc::EncodeCall({xid, program, version, procedure, args}));
        const int fd = fd_.load();
        for (size_t at = 0; at < out.size();) {
            const ssize_t n = ::send(fd, out.data() + at, out.size() - at, MSG_NOSIGNAL);
            if (n <= 0) {
                if (n < 0 && errno == EINTR) continue;
                throw ChannelError("The connection to the instrument broke while sending.");
            }
            at += static_cast<size_t>(n);
        }
        const auto until = Clock::now() + std::chrono::milliseconds(timeoutMs);
        std::string record;
        for (;;) {
            const rpc::RecordState st = rpc::TakeRecord(stream_, record);
            if (st == rpc::RecordState::TooLong) throw ChannelError("The instrument's reply is too long.");
            if (st == rpc::RecordState::Complete) {
                rpc::Reply reply;
                if (!rpc::ParseReply(record, reply)) throw ChannelError("The instrument's reply is not an RPC reply.");
                if (reply.xid != xid) continue;  // a late reply to a call given up on
                if (!reply.accepted || reply.stat != rpc::AcceptStat::Success)
                    throw ChannelError("The instrument refused the call (RPC program " + std::to_string(program) +
                                       ", procedure " + std::to_string(procedure) + ").");
                last_ = std::move(record);
                return std::string(reply.results);
            }
            pollfd p{fd, POLLIN, 0};
            const int ready = poll(&p, 1, timeoutMs > 0 ? MsLeft(until) : -1);
            if (ready == 0) throw ChannelError("The instrument did not answer the call in time.");
            if (ready < 0) {
                if (errno == EINTR) continue;
                throw ChannelError(std::strerror(errno));
            }
            char buffer[64 * 1024];
            const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) throw ChannelError("The instrument closed the connection.");
            stream_.append(buffer, static_cast<size_t>(n));
        }
    }

    Vxi11Address a_;
    std::atomic<int> fd_{-1};
    std::string stream_;
    std::string last_;
    uint32_t xid_ = 0;
    int32_t lid_ = 0;
    uint32_t maxRecv_ = 1024;
    bool linked_ = false;
};

// Through liblxi. Its calls cannot be interrupted: an abandoned call ends
// with the RPC client's own time-out, and the worker closes then.
class LxiChannel : public MessageChannel {
public:
    explicit LxiChannel(Vxi11Address address) : a_(std::move(address)) {}

    void connect(int timeoutMs) override {
        IgnoreBrokenPipes();
        static std::once_flag once;
        std::call_once(once, [] { lxi_init(); });
        // Whole seconds: the library turns milliseconds into its deadline badly otherwise.
        const int wait = ((std::max(timeoutMs, 1000) + 999) / 1000) * 1000;
        device_ = lxi_connect(a_.host.c_str(), 0, a_.device.c_str(), wait, VXI11);
        if (device_ < 0) throw ChannelError("No VXI-11 instrument answered at " + Where(a_) + ".");
    }

    void send(const std::string& message, int timeoutMs) override {
        if (lxi_send(device_, message.data(), static_cast<int>(message.size()),
                     static_cast<int>(DeviceTimeout(timeoutMs))) < 0)
            throw ChannelError("The instrument did not take a message (device_write failed).");
    }

    void receive(const std::function<void(const char*, size_t)>& take, int timeoutMs) override {
        // The library joins the device reads of one reply up to END into the buffer.
        if (buffer_.empty()) buffer_.resize(static_cast<size_t>(kMaxBlockBytes) + 4096);
        const int n = lxi_receive(device_, buffer_.data(), static_cast<int>(buffer_.size()),
                                  static_cast<int>(DeviceTimeout(timeoutMs)));
        if (n < 0) throw ChannelError("The instrument failed a read (device_read failed or timed out).");
        take(buffer_.data(), static_cast<size_t>(n));
    }

    void close() override {
        if (device_ >= 0) lxi_disconnect(device_);
        device_ = -1;
    }

private:
    Vxi11Address a_;
    int device_ = -1;
    std::vector<char> buffer_;
};

}  // namespace

std::unique_ptr<MessageChannel> MakeVxi11Channel(const Vxi11Address& address) {
    if (address.portmapPort == rpc::kPortmapPort) return std::make_unique<LxiChannel>(address);
    return MakeRpcVxi11Channel(address);
}

std::unique_ptr<MessageChannel> MakeRpcVxi11Channel(const Vxi11Address& address) {
    return std::make_unique<RpcVxi11Channel>(address);
}

}  // namespace mervasto
