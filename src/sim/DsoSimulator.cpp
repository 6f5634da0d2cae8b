#include "sim/DsoSimulator.h"

#include "sim/Dialects.h"

#include <QHostAddress>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

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

class DsoSimulator::Worker : public QObject {
public:
    explicit Worker(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

    bool listen() {
        server_ = new QTcpServer(this);
        trickle_ = new QTimer(this);
        QObject::connect(trickle_, &QTimer::timeout, this, [this] { trickleOut(); });
        endless_ = new QTimer(this);
        endless_->setInterval(kEndlessPeriodMs);
        QObject::connect(endless_, &QTimer::timeout, this, [this] { endlessOut(); });
        QObject::connect(server_, &QTcpServer::newConnection, this, [this] { accept(); });
        uint16_t port;
        SimFault fault;
        {
            std::lock_guard lock(shared_->m);
            port = shared_->model->options().port;
            fault = shared_->model->options().fault;
        }
        if (!server_->listen(QHostAddress::LocalHost, port)) return false;
        {
            std::lock_guard lock(shared_->m);
            shared_->port = server_->serverPort();
        }
        applyFault(fault);
        return true;
    }

    // Refusing means not listening: the port answers connects with a reset.
    void applyFault(SimFault fault) {
        if (fault == SimFault::Refuse) {
            server_->close();
        } else if (!server_->isListening()) {
            std::lock_guard lock(shared_->m);
            server_->listen(QHostAddress::LocalHost, shared_->port);
        }
    }

    // Power off: nothing more is answered, every connection drops (once the
    // handler in progress has returned), connects are refused.
    void switchOff() {
        {
            std::lock_guard lock(shared_->m);
            shared_->model->setFault(SimFault::Refuse);
        }
        server_->close();
        QTimer::singleShot(0, this, [this] { abortAll(); });
    }

    // Aborting a socket runs its disconnect handler, which erases it from
    // the map: abort from a copy of the keys, never while iterating the map.
    void abortAll() {
        std::vector<QTcpSocket*> sockets;
        sockets.reserve(conns_.size());
        for (const auto& entry : conns_) sockets.push_back(entry.first);
        for (QTcpSocket* s : sockets)
            if (conns_.count(s)) s->abort();
    }

    void shutdown() {
        abortAll();
        conns_.clear();
        if (server_) server_->close();
    }

private:
    struct Conn {
        QByteArray in;
        QByteArray trickle;
        bool endless = false;
    };

    void accept() {
        while (QTcpSocket* s = server_->nextPendingConnection()) {
            s->setSocketOption(QAbstractSocket::LowDelayOption, 1);
            conns_[s] = Conn{};
            {
                std::lock_guard lock(shared_->m);
                ++shared_->connections;
                ++shared_->openConnections;
                shared_->logged.notify_all();
            }
            QObject::connect(s, &QTcpSocket::readyRead, this, [this, s] { readFrom(s); });
            QObject::connect(s, &QTcpSocket::disconnected, this, [this, s] {
                conns_.erase(s);
                s->deleteLater();
                std::lock_guard lock(shared_->m);
                --shared_->openConnections;
                shared_->logged.notify_all();
            });
        }
    }

    void readFrom(QTcpSocket* s) {
        auto it = conns_.find(s);
        if (it == conns_.end()) return;
        it->second.in += s->readAll();
        for (;;) {
            it = conns_.find(s);
            if (it == conns_.end()) return;
            const qsizetype lf = it->second.in.indexOf('\n');
            if (lf < 0) return;
            const std::string line = it->second.in.left(lf).toStdString();
            it->second.in.remove(0, lf + 1);
            handle(s, line);
        }
    }

    void handle(QTcpSocket* s, const std::string& line) {
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
        for (const SimReply& r : replies) deliver(s, r);
        shared_->servingNs +=
            std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - begin).count();
    }

    void deliver(QTcpSocket* s, const SimReply& reply) {
        using How = SimReply::How;
        // A connection closed by an earlier reply takes no more bytes.
        if (reply.how != How::Arm && reply.how != How::SwitchOff && !conns_.count(s)) return;
        const QByteArray bytes = QByteArray::fromStdString(reply.bytes);
        switch (reply.how) {
        case How::Now: s->write(bytes); return;
        case How::Drop: return;
        case How::SwitchOff: return switchOff();
        case How::Arm: return arm();
        case How::CloseAfter:
            s->write(bytes);
            s->disconnectFromHost();
            return;
        case How::Endless:
            conns_[s].endless = true;
            if (!endless_->isActive()) endless_->start();
            return;
        case How::Late: {
            int late;
            {
                std::lock_guard lock(shared_->m);
                late = shared_->model->options().lateMs;
            }
            QPointer<QTcpSocket> p(s);
            QTimer::singleShot(late, this, [p, bytes] {
                if (p) p->write(bytes);
            });
            return;
        }
        case How::Trickle:
            conns_[s].trickle += bytes;
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
        for (auto& [s, c] : conns_) {
            if (!c.endless) continue;
            c.endless = on;
            // Only as fast as the host takes it: the bytes are what counts, not the memory here.
            if (on && s->bytesToWrite() < 4 * kEndlessChunk) s->write(QByteArray(kEndlessChunk, 'x'));
            any = any || c.endless;
        }
        if (!any) endless_->stop();
    }

    void trickleOut() {
        bool more = false;
        for (auto& [s, c] : conns_) {
            if (c.trickle.isEmpty()) continue;
            s->write(c.trickle.left(1));
            s->flush();
            c.trickle.remove(0, 1);
            more = more || !c.trickle.isEmpty();
        }
        if (!more) trickle_->stop();
    }

    std::shared_ptr<Shared> shared_;
    QTcpServer* server_ = nullptr;
    QTimer* trickle_ = nullptr;
    QTimer* endless_ = nullptr;
    std::map<QTcpSocket*, Conn> conns_;
};

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

std::string DsoSimulator::address() const { return "127.0.0.1:" + std::to_string(port()); }

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
