#include "sim/DsoSimulator.h"

#include "sim/Dialects.h"

#include <QCoreApplication>
#include <QDir>
#include <QHostAddress>
#include <QPointer>
#include <QSocketNotifier>
#include <QTcpServer>
#include <QNetworkDatagram>
#include <QTcpSocket>
#include <QUdpSocket>
#include <QThread>
#include <QTimer>

#ifndef _WIN32
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <optional>

#include "common/OncRpc.h"

namespace mervasto {

namespace {

// An endless reply: this much every few milliseconds, never a line end.
constexpr int kEndlessChunk = 4096;
constexpr int kEndlessPeriodMs = 2;

}  // namespace

struct DsoSimulator::Shared {
    explicit Shared(SimOptions options) : model(MakeDialectModel(std::move(options))) {}

    mutable std::mutex m;
    std::condition_variable logged;  // a command was added to the log
    std::unique_ptr<DialectModel> model;
    std::vector<std::string> log;
    int connections = 0;      // accepted since the start
    int openConnections = 0;  // accepted and not yet closed
    uint16_t port = 0;
    std::function<void(const std::string&)> hook;
    std::atomic<int64_t> servingNs{0};

    // Generates outside the lock and hands the record in: a long record
    // takes a while, and the accessors must not wait for it.
    void renew(bool asAcquisition) {
        SimRecordOrder order;
        {
            std::lock_guard lock(m);
            order = model->nextRecordOrder();
        }
        auto record = std::make_shared<const SimRecord>(GenerateSimRecord(order));
        std::lock_guard lock(m);
        if (asAcquisition)
            model->acquisitionDone(std::move(record));
        else
            model->setRecord(std::move(record));
    }
};

// One host connection, however its replies travel: a raw socket's byte
// stream, a VXI-11 link's device reads, a USBTMC node's messages.
class SimPeer {
public:
    virtual ~SimPeer() = default;
    // Bytes of the reply under way; last ends the message.
    virtual void send(const QByteArray& bytes, bool last) = 0;
    virtual qint64 unsent() const = 0;
    // Closes once what was sent has gone out.
    virtual void finish() = 0;
    // Closes now.
    virtual void drop() = 0;
};

class DsoSimulator::Worker : public QObject {
public:
    explicit Worker(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

    bool listen() {
        trickle_ = new QTimer(this);
        QObject::connect(trickle_, &QTimer::timeout, this, [this] { trickleOut(); });
        endless_ = new QTimer(this);
        endless_->setInterval(kEndlessPeriodMs);
        QObject::connect(endless_, &QTimer::timeout, this, [this] { endlessOut(); });
        SimFault fault;
        {
            std::lock_guard lock(shared_->m);
            const SimOptions& o = shared_->model->options();
            port_ = o.port;
            transport_ = o.transport;
            if (o.transport == "usbtmc" && o.usbtmcPath.empty()) {
                static std::atomic<int> made{0};
                shared_->model->options().usbtmcPath = QDir::tempPath().toStdString() + "/mervasto-usbtmc-" +
                                                       std::to_string(QCoreApplication::applicationPid()) + "-" +
                                                       std::to_string(++made);
            }
            path_ = o.usbtmcPath;
            readBytes_ = std::max(o.vxi11ReadBytes, 1);
            fault = o.fault;
        }
        if (!open()) return false;
        applyFault(fault);
        return true;
    }

    // Refusing means not listening: the port answers connects with a reset.
    void applyFault(SimFault fault) {
        if (fault == SimFault::Refuse)
            closeDoors();
        else
            open();
    }

    // Power off: nothing more is answered, every connection drops (once the
    // handler in progress has returned), connects are refused.
    void switchOff() {
        {
            std::lock_guard lock(shared_->m);
            shared_->model->setFault(SimFault::Refuse);
        }
        closeDoors();
        QTimer::singleShot(0, this, [this] { abortAll(); });
    }

    // Dropping a peer runs gone(), which erases it from the map: drop from
    // a copy of the keys, never while iterating the map.
    void abortAll() {
        std::vector<SimPeer*> peers;
        peers.reserve(conns_.size());
        for (const auto& entry : conns_) peers.push_back(entry.first);
        for (SimPeer* p : peers)
            if (conns_.count(p)) conns_[p].peer->drop();
    }

    void shutdown() {
        abortAll();
        conns_.clear();
        graveyard_.clear();
        closeDoors();
    }

    // The lines of a peer's bytes, each answered in turn.
    void bytesIn(SimPeer* p, const QByteArray& bytes) {
        auto it = conns_.find(p);
        if (it == conns_.end()) return;
        it->second.in += bytes;
        for (;;) {
            it = conns_.find(p);
            if (it == conns_.end()) return;
            const qsizetype lf = it->second.in.indexOf('\n');
            if (lf < 0) return;
            const std::string line = it->second.in.left(lf).toStdString();
            it->second.in.remove(0, lf + 1);
            handle(p, line);
        }
    }

    // The peer has closed; it is deleted.
    void gone(SimPeer* p) {
        auto it = conns_.find(p);
        if (it == conns_.end()) return;
        // Deleted later: the peer may be the caller.
        graveyard_.push_back(std::move(it->second.peer));
        conns_.erase(it);
        QTimer::singleShot(0, this, [this] { graveyard_.clear(); });
        std::lock_guard lock(shared_->m);
        --shared_->openConnections;
        shared_->logged.notify_all();
    }

    uint16_t corePort() const { return corePort_; }
    int readBytes() const { return readBytes_; }

private:
    struct Conn {
        std::unique_ptr<SimPeer> peer;
        QByteArray in;
        QByteArray trickle;
        bool endless = false;
    };

    bool open();
    void closeDoors();
    void acceptTcp(QTcpServer* server, bool vxi11);
    void acceptNode();
    void portmap(QTcpSocket* s);
    void portmapDatagrams();

    void adopt(std::unique_ptr<SimPeer> peer) {
        SimPeer* p = peer.get();
        conns_[p].peer = std::move(peer);
        std::lock_guard lock(shared_->m);
        ++shared_->connections;
        ++shared_->openConnections;
        shared_->logged.notify_all();
    }

    void handle(SimPeer* p, const std::string& line) {
        std::function<void(const std::string&)> hook;
        {
            std::lock_guard lock(shared_->m);
            hook = shared_->hook;
        }
        if (hook) hook(line);
        const auto begin = std::chrono::steady_clock::now();
        std::vector<SimReply> replies;
        {
            std::lock_guard lock(shared_->m);
            shared_->log.push_back(line);
            shared_->logged.notify_all();
            replies = shared_->model->handle(line);
        }
        for (const SimReply& r : replies) deliver(p, r);
        shared_->servingNs +=
            std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - begin).count();
    }

    void deliver(SimPeer* p, const SimReply& reply) {
        using How = SimReply::How;
        // A connection closed by an earlier reply takes no more bytes.
        if (reply.how != How::Arm && reply.how != How::SwitchOff && !conns_.count(p)) return;
        const QByteArray bytes = QByteArray::fromStdString(reply.bytes);
        switch (reply.how) {
        case How::Now: p->send(bytes, true); return;
        case How::Drop: return;
        case How::SwitchOff: return switchOff();
        case How::Arm: return arm();
        case How::CloseAfter:
            p->send(bytes, false);
            p->finish();
            return;
        case How::Endless:
            conns_[p].endless = true;
            if (!endless_->isActive()) endless_->start();
            return;
        case How::Late: {
            int late;
            {
                std::lock_guard lock(shared_->m);
                late = shared_->model->options().lateMs;
            }
            QTimer::singleShot(late, this, [this, p, bytes] {
                if (conns_.count(p)) p->send(bytes, true);
            });
            return;
        }
        case How::Trickle:
            conns_[p].trickle += bytes;
            if (!trickle_->isActive()) {
                std::lock_guard lock(shared_->m);
                trickle_->setInterval(std::max(shared_->model->options().tricklePeriodMs, 0));
                trickle_->start();
            }
            return;
        }
    }

    void arm() {
        int delay;
        {
            std::lock_guard lock(shared_->m);
            delay = shared_->model->options().acqDelayMs;
        }
        std::shared_ptr<Shared> shared = shared_;
        QTimer::singleShot(std::max(delay, 0), this, [shared] { shared->renew(true); });
    }

    void endlessOut() {
        bool on;
        {
            std::lock_guard lock(shared_->m);
            on = shared_->model->options().fault == SimFault::EndlessReply;
        }
        bool any = false;
        for (auto& [p, c] : conns_) {
            if (!c.endless) continue;
            c.endless = on;
            // Only as fast as the host takes it: the bytes are what counts, not the memory here.
            if (on && p->unsent() < 4 * kEndlessChunk) p->send(QByteArray(kEndlessChunk, 'x'), false);
            any = any || c.endless;
        }
        if (!any) endless_->stop();
    }

    void trickleOut() {
        bool more = false;
        for (auto& [p, c] : conns_) {
            if (c.trickle.isEmpty()) continue;
            const QByteArray one = c.trickle.left(1);
            c.trickle.remove(0, 1);
            p->send(one, c.trickle.isEmpty());
            more = more || !c.trickle.isEmpty();
        }
        if (!more) trickle_->stop();
    }

    std::shared_ptr<Shared> shared_;
    uint16_t port_ = 0;
    uint16_t corePort_ = 0;
    std::string transport_;
    std::string path_;
    int readBytes_ = 1;
    QTcpServer* server_ = nullptr;  // the raw socket, or the portmapper
    QTcpServer* core_ = nullptr;    // the VXI-11 core channel
    QUdpSocket* udp_ = nullptr;     // the portmapper's datagrams
    int nodeFd_ = -1;               // the USBTMC stand-in's listening socket
    QSocketNotifier* nodeNotifier_ = nullptr;
    QTimer* trickle_ = nullptr;
    QTimer* endless_ = nullptr;
    std::map<SimPeer*, Conn> conns_;
    std::vector<std::unique_ptr<SimPeer>> graveyard_;
};

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

DsoSimulator::DsoSimulator(SimOptions options) : shared_(std::make_shared<Shared>(std::move(options))) {}

DsoSimulator::~DsoSimulator() { stop(); }

bool DsoSimulator::start() {
    if (thread_) return true;
    thread_ = std::make_unique<QThread>();
    worker_ = new Worker(shared_);
    worker_->moveToThread(thread_.get());
    thread_->start();
    bool ok = false;
    Worker* w = worker_;
    QMetaObject::invokeMethod(
        w, [w, &ok] { ok = w->listen(); }, Qt::BlockingQueuedConnection);
    if (!ok) stop();
    return ok;
}

void DsoSimulator::stop() {
    if (!thread_) return;
    Worker* w = worker_;
    QMetaObject::invokeMethod(
        w,
        [w] {
            w->shutdown();
            delete w;
        },
        Qt::BlockingQueuedConnection);
    worker_ = nullptr;
    thread_->quit();
    thread_->wait();
    thread_.reset();
}

uint16_t DsoSimulator::port() const {
    std::lock_guard lock(shared_->m);
    return shared_->port;
}

std::string DsoSimulator::address() const {
    std::string transport;
    std::string path;
    {
        std::lock_guard lock(shared_->m);
        transport = shared_->model->options().transport;
        path = shared_->model->options().usbtmcPath;
    }
    if (transport == "usbtmc") return path;
    if (transport == "vxi11") return "vxi11://127.0.0.1:" + std::to_string(port()) + "/inst0";
    return "127.0.0.1:" + std::to_string(port());
}

std::vector<std::string> DsoSimulator::commandLog() const {
    std::lock_guard lock(shared_->m);
    return shared_->log;
}

bool DsoSimulator::waitForLastCommand(const std::string& command, int timeoutMs) const {
    return waitUntil([&](const std::vector<std::string>& log, int) { return !log.empty() && log.back() == command; },
                     timeoutMs);
}

bool DsoSimulator::waitUntil(const std::function<bool(const std::vector<std::string>& log, int open)>& done,
                             int timeoutMs) const {
    std::unique_lock lock(shared_->m);
    return shared_->logged.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                    [&] { return done(shared_->log, shared_->openConnections); });
}

void DsoSimulator::clearLog() {
    std::lock_guard lock(shared_->m);
    shared_->log.clear();
}

int DsoSimulator::connectionCount() const {
    std::lock_guard lock(shared_->m);
    return shared_->connections;
}

SimState DsoSimulator::state() const {
    std::lock_guard lock(shared_->m);
    return shared_->model->options().state;
}

void DsoSimulator::setState(const SimState& state) {
    bool fresh;
    {
        std::lock_guard lock(shared_->m);
        fresh = shared_->model->setState(state);
    }
    if (fresh) shared_->renew(false);
}

void DsoSimulator::setFault(SimFault fault) {
    {
        std::lock_guard lock(shared_->m);
        shared_->model->setFault(fault);
    }
    if (worker_) {
        Worker* w = worker_;
        // From a command hook the call is already in the simulator's thread.
        if (QThread::currentThread() == thread_.get())
            w->applyFault(fault);
        else
            QMetaObject::invokeMethod(
                w, [w, fault] { w->applyFault(fault); }, Qt::BlockingQueuedConnection);
    }
}

void DsoSimulator::setFaultAfter(SimFault fault, int blocks) {
    if (blocks <= 0) return setFault(fault);
    std::lock_guard lock(shared_->m);
    shared_->model->setFaultAfter(fault, blocks);
}

void DsoSimulator::switchOff() {
    if (!worker_) return setFault(SimFault::Refuse);
    Worker* w = worker_;
    QMetaObject::invokeMethod(
        w, [w] { w->switchOff(); }, Qt::BlockingQueuedConnection);
}

int DsoSimulator::blocksSent() const {
    std::lock_guard lock(shared_->m);
    return shared_->model->blocksSent();
}

SimFault DsoSimulator::fault() const {
    std::lock_guard lock(shared_->m);
    return shared_->model->options().fault;
}

void DsoSimulator::setAcqDelayMs(int ms) {
    std::lock_guard lock(shared_->m);
    shared_->model->options().acqDelayMs = ms;
}

void DsoSimulator::setLateMs(int ms) {
    std::lock_guard lock(shared_->m);
    shared_->model->options().lateMs = ms;
}

void DsoSimulator::setScreenBytes(int bytes) {
    std::lock_guard lock(shared_->m);
    shared_->model->options().screenBytes = bytes;
}

void DsoSimulator::setTricklePeriodMs(int ms) {
    std::lock_guard lock(shared_->m);
    shared_->model->options().tricklePeriodMs = ms;
}

void DsoSimulator::setBadSetupField(const std::string& field) {
    std::lock_guard lock(shared_->m);
    shared_->model->options().badSetupField = field;
}

int DsoSimulator::statusPolls() const {
    std::lock_guard lock(shared_->m);
    return shared_->model->statusPolls();
}

void DsoSimulator::setCommandHook(std::function<void(const std::string&)> hook) {
    std::lock_guard lock(shared_->m);
    shared_->hook = std::move(hook);
}

void DsoSimulator::setReplyOverride(const std::string& query, const std::string& reply, bool raw) {
    std::lock_guard lock(shared_->m);
    shared_->model->setReplyOverride(query, reply, raw);
}

void DsoSimulator::clearReplyOverrides() {
    std::lock_guard lock(shared_->m);
    shared_->model->clearReplyOverrides();
}

void DsoSimulator::regenerate() { shared_->renew(false); }

double DsoSimulator::servingSeconds() const { return static_cast<double>(shared_->servingNs.load()) * 1e-9; }

SimRecord DsoSimulator::record() const {
    std::shared_ptr<const SimRecord> held;
    {
        std::lock_guard lock(shared_->m);
        held = shared_->model->recordShared();
    }
    return *held;
}

}  // namespace mervasto
