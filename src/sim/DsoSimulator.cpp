#include "sim/DsoSimulator.h"

#include "sim/SimServer.h"

namespace mervasto {

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
