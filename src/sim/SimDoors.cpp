// The simulator's doors: the raw socket, the VXI-11 core channel and its
// portmapper, and the USBTMC node's stand-in.
#include "sim/SimServer.h"

namespace mervasto {

namespace {

class TcpPeer : public SimPeer {
public:
    TcpPeer(DsoSimulator::Worker& w, QTcpSocket* s) : s_(s) {
        s->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        QObject::connect(s, &QTcpSocket::readyRead, s, [this, &w] { w.bytesIn(this, s_->readAll()); });
        QObject::connect(s, &QTcpSocket::disconnected, s, [this, &w] { w.gone(this); });
    }
    ~TcpPeer() override {
        s_->disconnect();
        s_->deleteLater();
    }
    void send(const QByteArray& bytes, bool) override {
        s_->write(bytes);
        s_->flush();
    }
    qint64 unsent() const override { return s_->bytesToWrite(); }
    void finish() override { s_->disconnectFromHost(); }
    void drop() override { s_->abort(); }

private:
    QTcpSocket* s_;
};

// The VXI-11 core channel of one client: its calls in, its replies out; the
// instrument's replies wait as messages until device_read asks for them.
class RpcPeer : public SimPeer {
public:
    RpcPeer(DsoSimulator::Worker& w, QTcpSocket* s) : w_(w), s_(s) {
        s->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        QObject::connect(s, &QTcpSocket::readyRead, s, [this] { onBytes(); });
        QObject::connect(s, &QTcpSocket::disconnected, s, [this] {
            dropped_ = true;
            w_.gone(this);
        });
        io_.setSingleShot(true);
        QObject::connect(&io_, &QTimer::timeout, &io_, [this] { readTimedOut(); });
    }
    ~RpcPeer() override {
        s_->disconnect();
        s_->deleteLater();
    }
    void send(const QByteArray& bytes, bool last) override {
        out_.push_back({bytes, 0, last});
        unsent_ += bytes.size();
        answer();
    }
    qint64 unsent() const override { return unsent_; }
    void finish() override {
        closing_ = true;
        answer();
    }
    void drop() override {
        dropped_ = true;
        s_->abort();
    }

private:
    struct Chunk {
        QByteArray bytes;
        qsizetype at;
        bool last;
    };
    struct PendingRead {
        uint32_t xid;
        uint32_t requestSize;
    };

    void onBytes() {
        const QByteArray got = s_->readAll();
        stream_.append(got.constData(), static_cast<size_t>(got.size()));
        std::string record;
        for (;;) {
            if (dropped_) return;
            const rpc::RecordState st = rpc::TakeRecord(stream_, record);
            if (st == rpc::RecordState::NeedMore) return;
            if (st == rpc::RecordState::TooLong) return drop();
            call(record);
        }
    }

    void reply(uint32_t xid, rpc::AcceptStat stat, std::string_view results) {
        const std::string r = rpc::RecordMarked(rpc::EncodeReply(xid, stat, results));
        s_->write(r.data(), static_cast<qint64>(r.size()));
    }

    void call(const std::string& record) {
        rpc::Call c;
        if (!rpc::ParseCall(record, c)) return drop();
        if (c.program != rpc::kCoreProgram) return reply(c.xid, rpc::AcceptStat::ProgramUnavailable, {});
        rpc::XdrWriter out;
        if (c.version != rpc::kCoreVersion) {
            out.u32(rpc::kCoreVersion);
            out.u32(rpc::kCoreVersion);
            return reply(c.xid, rpc::AcceptStat::ProgramMismatch, out.bytes());
        }
        rpc::XdrReader r(c.args);
        switch (c.procedure) {
        case 0: break;
        case rpc::kCreateLink: {
            r.i32();
            r.u32();
            r.u32();
            const std::string_view device = r.opaque(256);
            if (!r.ok()) return reply(c.xid, rpc::AcceptStat::GarbageArgs, {});
            const bool known = device == "inst0";
            if (known) lid_ = ++links_;
            out.i32(known ? rpc::kNoError : rpc::kDeviceNotAccessible);
            out.i32(known ? lid_ : 0);
            out.u32(0);               // no abort channel
            out.u32(kMaxWriteBytes);  // the most one device_write may carry
            break;
        }
        case rpc::kDeviceWrite: {
            const int32_t lid = r.i32();
            r.u32();
            r.u32();
            r.u32();
            const std::string_view data = r.opaque();
            if (!r.ok()) return reply(c.xid, rpc::AcceptStat::GarbageArgs, {});
            if (lid == 0 || lid != lid_) {
                out.i32(rpc::kInvalidLink);
                out.u32(0);
                break;
            }
            w_.bytesIn(this, QByteArray(data.data(), static_cast<qsizetype>(data.size())));
            if (dropped_) return;
            out.i32(rpc::kNoError);
            out.u32(static_cast<uint32_t>(data.size()));
            break;
        }
        case rpc::kDeviceRead: {
            const int32_t lid = r.i32();
            const uint32_t request = r.u32();
            const uint32_t ioTimeout = r.u32();
            if (!r.ok()) return reply(c.xid, rpc::AcceptStat::GarbageArgs, {});
            if (lid == 0 || lid != lid_) {
                out.i32(rpc::kInvalidLink);
                out.u32(0);
                out.opaque({});
                break;
            }
            pending_ = PendingRead{c.xid, std::max<uint32_t>(request, 1)};
            answer();
            if (pending_) io_.start(static_cast<int>(std::min<uint32_t>(ioTimeout, 3600000)));
            return;
        }
        case rpc::kDestroyLink: {
            const int32_t lid = r.i32();
            out.i32(lid != 0 && lid == lid_ ? rpc::kNoError : rpc::kInvalidLink);
            if (lid == lid_) lid_ = 0;
            break;
        }
        default: return reply(c.xid, rpc::AcceptStat::ProcedureUnavailable, {});
        }
        reply(c.xid, rpc::AcceptStat::Success, out.bytes());
    }

    // Answers the waiting device_read with what the instrument has sent, up
    // to the end of its message, the size asked for or the device's read size.
    void answer() {
        if (dropped_) return;
        if (pending_ && !out_.empty()) {
            const qsizetype cap = std::min<qsizetype>(pending_->requestSize, w_.readBytes());
            QByteArray data;
            uint32_t reason = 0;
            while (!out_.empty() && data.size() < cap) {
                Chunk& c = out_.front();
                const qsizetype take = std::min(cap - data.size(), c.bytes.size() - c.at);
                data.append(c.bytes.constData() + c.at, take);
                c.at += take;
                if (c.at < c.bytes.size()) break;
                const bool last = c.last;
                out_.pop_front();
                if (last) {
                    reason = rpc::kReasonEnd;
                    break;
                }
            }
            if (reason == 0 && data.size() == static_cast<qsizetype>(pending_->requestSize))
                reason = rpc::kReasonRequestCount;
            unsent_ -= data.size();
            const uint32_t xid = pending_->xid;
            pending_.reset();
            io_.stop();
            rpc::XdrWriter w;
            w.i32(rpc::kNoError);
            w.u32(reason);
            w.opaque(std::string_view(data.constData(), static_cast<size_t>(data.size())));
            reply(xid, rpc::AcceptStat::Success, w.bytes());
        }
        if (closing_ && out_.empty()) s_->disconnectFromHost();
    }

    void readTimedOut() {
        if (!pending_ || dropped_) return;
        rpc::XdrWriter w;
        w.i32(rpc::kIoTimeout);
        w.u32(0);
        w.opaque({});
        reply(pending_->xid, rpc::AcceptStat::Success, w.bytes());
        pending_.reset();
    }

    static constexpr uint32_t kMaxWriteBytes = 1024 * 1024;

    DsoSimulator::Worker& w_;
    QTcpSocket* s_;
    QTimer io_;
    std::string stream_;
    std::deque<Chunk> out_;
    qint64 unsent_ = 0;
    std::optional<PendingRead> pending_;
    int32_t lid_ = 0;
    int32_t links_ = 0;
    bool closing_ = false;
    bool dropped_ = false;
};

#ifndef _WIN32
// A USBTMC device node's stand-in: each packet from the host is a write,
// each reply goes out as one packet, read whole by one read.
class NodePeer : public SimPeer {
public:
    NodePeer(DsoSimulator::Worker& w, int fd) : w_(w), fd_(fd), notifier_(fd, QSocketNotifier::Read) {
        QObject::connect(&notifier_, &QSocketNotifier::activated, &notifier_, [this] { onReadable(); });
    }
    ~NodePeer() override { closeFd(); }
    void send(const QByteArray& bytes, bool last) override {
        message_ += bytes;
        if (last) sendMessage();
    }
    qint64 unsent() const override { return message_.size(); }
    void finish() override {
        if (!message_.isEmpty()) sendMessage();
        drop();
    }
    void drop() override {
        if (fd_ < 0) return;
        closeFd();
        w_.gone(this);
    }

private:
    void onReadable() {
        std::vector<char> buffer(1024 * 1024);
        const ssize_t n = ::recv(fd_, buffer.data(), buffer.size(), 0);
        if (n <= 0) return drop();
        w_.bytesIn(this, QByteArray(buffer.data(), static_cast<qsizetype>(n)));
    }
    void sendMessage() {
        const ssize_t n = ::send(fd_, message_.constData(), static_cast<size_t>(message_.size()), MSG_NOSIGNAL);
        message_.clear();
        if (n < 0) drop();
    }
    void closeFd() {
        if (fd_ < 0) return;
        notifier_.setEnabled(false);
        ::close(fd_);
        fd_ = -1;
    }

    DsoSimulator::Worker& w_;
    int fd_;
    QSocketNotifier notifier_;
    QByteArray message_;
};

// A packet socket whose packets may carry the longest block in one.
void WidenSendBuffer(int fd) {
    const int want = 32 * 1024 * 1024;
    if (setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &want, sizeof want) != 0)
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &want, sizeof want);
}

#endif

}  // namespace

bool DsoSimulator::Worker::open() {
    if (transport_ == "usbtmc") {
#ifdef _WIN32
        return false;  // the stand-in is a local packet socket, which Windows lacks
#else
        if (nodeFd_ >= 0) return true;
        sockaddr_un a{};
        a.sun_family = AF_UNIX;
        if (path_.empty() || path_.size() >= sizeof a.sun_path) return false;
        std::memcpy(a.sun_path, path_.c_str(), path_.size() + 1);
        ::unlink(path_.c_str());
        const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        if (fd < 0) return false;
        if (bind(fd, reinterpret_cast<const sockaddr*>(&a), sizeof a) != 0 || ::listen(fd, 8) != 0) {
            ::close(fd);
            return false;
        }
        nodeFd_ = fd;
        nodeNotifier_ = new QSocketNotifier(fd, QSocketNotifier::Read, this);
        QObject::connect(nodeNotifier_, &QSocketNotifier::activated, this, [this] { acceptNode(); });
        return true;
#endif
    }
    const bool vxi11 = transport_ == "vxi11";
    if (!server_) {
        server_ = new QTcpServer(this);
        QObject::connect(server_, &QTcpServer::newConnection, this, [this] { acceptTcp(server_, false); });
    }
    if (!server_->isListening() && !server_->listen(QHostAddress::LocalHost, port_)) return false;
    port_ = server_->serverPort();
    {
        std::lock_guard lock(shared_->m);
        shared_->port = port_;
    }
    if (!vxi11) return true;
    if (!core_) {
        core_ = new QTcpServer(this);
        QObject::connect(core_, &QTcpServer::newConnection, this, [this] { acceptTcp(core_, true); });
    }
    if (!core_->isListening() && !core_->listen(QHostAddress::LocalHost, corePort_)) return false;
    corePort_ = core_->serverPort();
    if (!udp_) {
        udp_ = new QUdpSocket(this);
        QObject::connect(udp_, &QUdpSocket::readyRead, this, [this] { portmapDatagrams(); });
    }
    if (udp_->state() != QAbstractSocket::BoundState) udp_->bind(QHostAddress::LocalHost, port_);
    return true;
}

void DsoSimulator::Worker::closeDoors() {
    if (server_) server_->close();
    if (core_) core_->close();
    if (udp_) udp_->close();
#ifndef _WIN32
    if (nodeFd_ >= 0) {
        delete nodeNotifier_;
        nodeNotifier_ = nullptr;
        ::close(nodeFd_);
        nodeFd_ = -1;
        ::unlink(path_.c_str());
    }
#endif
}

void DsoSimulator::Worker::acceptTcp(QTcpServer* server, bool core) {
    while (QTcpSocket* s = server->nextPendingConnection()) {
        if (core)
            adopt(std::make_unique<RpcPeer>(*this, s));
        else if (transport_ == "vxi11")
            portmap(s);
        else
            adopt(std::make_unique<TcpPeer>(*this, s));
    }
}

void DsoSimulator::Worker::acceptNode() {
#ifndef _WIN32
    const int fd = ::accept4(nodeFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) return;
    WidenSendBuffer(fd);
    adopt(std::make_unique<NodePeer>(*this, fd));
#endif
}

// The portmapper's answer to one call: where the core channel listens
// (GETPORT), nothing else; empty when the record is no call.
std::string PortmapReply(std::string_view record, uint16_t corePort) {
    rpc::Call c;
    if (!rpc::ParseCall(record, c)) return {};
    rpc::XdrWriter out;
    rpc::AcceptStat stat = rpc::AcceptStat::Success;
    if (c.program != rpc::kPortmapProgram) {
        stat = rpc::AcceptStat::ProgramUnavailable;
    } else if (c.version != rpc::kPortmapVersion) {
        stat = rpc::AcceptStat::ProgramMismatch;
        out.u32(rpc::kPortmapVersion);
        out.u32(rpc::kPortmapVersion);
    } else if (c.procedure == rpc::kPortmapGetPort) {
        rpc::XdrReader r(c.args);
        const uint32_t program = r.u32();
        r.u32();
        const uint32_t protocol = r.u32();
        out.u32(program == rpc::kCoreProgram && protocol == rpc::kProtocolTcp ? corePort : 0);
    } else if (c.procedure != 0) {
        stat = rpc::AcceptStat::ProcedureUnavailable;
    }
    return rpc::EncodeReply(c.xid, stat, out.bytes());
}

// The portmapper over TCP (record marked) and over UDP (one call a
// datagram, as the usual RPC libraries ask it).
void DsoSimulator::Worker::portmap(QTcpSocket* s) {
    auto stream = std::make_shared<std::string>();
    QObject::connect(s, &QTcpSocket::disconnected, s, &QObject::deleteLater);
    QObject::connect(s, &QTcpSocket::readyRead, s, [this, s, stream] {
        const QByteArray got = s->readAll();
        stream->append(got.constData(), static_cast<size_t>(got.size()));
        std::string record;
        while (rpc::TakeRecord(*stream, record) == rpc::RecordState::Complete) {
            const std::string reply = PortmapReply(record, corePort());
            if (reply.empty()) return s->abort();
            const std::string marked = rpc::RecordMarked(reply);
            s->write(marked.data(), static_cast<qint64>(marked.size()));
        }
    });
}

void DsoSimulator::Worker::portmapDatagrams() {
    while (udp_->hasPendingDatagrams()) {
        const QNetworkDatagram d = udp_->receiveDatagram();
        const QByteArray call = d.data();
        const std::string reply =
            PortmapReply(std::string_view(call.constData(), static_cast<size_t>(call.size())), corePort());
        if (!reply.empty()) udp_->writeDatagram(d.makeReply(QByteArray::fromStdString(reply)));
    }
}

}  // namespace mervasto
