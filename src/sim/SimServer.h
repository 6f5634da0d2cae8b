#pragma once

// The simulator's server side, shared by its files: the state every
// connection sees, one host connection however its replies travel, and the
// worker thread's object that owns the sockets.
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
#include "sim/Dialects.h"
#include "sim/DsoSimulator.h"

namespace mervasto {

// An endless reply: this much every few milliseconds, never a line end.
inline constexpr int kEndlessChunk = 4096;
inline constexpr int kEndlessPeriodMs = 2;

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

// The portmapper's answer to one call: where the core channel listens
// (GETPORT), nothing else; empty when the record is no call.
std::string PortmapReply(std::string_view record, uint16_t corePort);

}  // namespace mervasto
