#include "dso/MessageTransport.h"

#include <QObject>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace mervasto {

namespace {
// The device's own time-out runs this much longer than the link's, so that
// the link's message, which names the exchange, is the one the user sees.
constexpr int kDeviceGraceMs = 1000;
}  // namespace

// What the link's thread and the worker share. The worker holds it as long
// as it runs, so an abandoned session outlives the transport.
struct MessageTransport::Session {
    enum class Job { Connect, Write, Read };

    std::mutex m;
    std::condition_variable wake;
    std::deque<std::pair<Job, std::string>> jobs;
    std::unique_ptr<MessageChannel> channel;
    std::string inbox;
    int64_t unsent = 0;
    int reads = 0;  // reads asked for and not yet done
    State state = State::Connecting;
    std::string failure;
    bool abandoned = false;
    bool dataNoticed = false;  // a Data notice is on its way and not yet handled
    int timeoutMs = 10000;
    // Where notices go; cleared under the lock when the session is abandoned.
    QObject* context = nullptr;
    MessageTransport* owner = nullptr;
    uint64_t generation = 0;

    // Called with the lock held.
    void tell(Notice n) {
        if (!context) return;
        if (n == Notice::Data) {
            if (dataNoticed) return;
            dataNoticed = true;
        }
        MessageTransport* self = owner;
        const uint64_t of = generation;
        QMetaObject::invokeMethod(
            context,
            [self, of, n] {
                // A notice of a session given up since belongs to no one.
                if (!self->session_ || self->session_->generation != of) return;
                if (n == Notice::Data) {
                    std::lock_guard lock(self->session_->m);
                    self->session_->dataNoticed = false;
                }
                if (self->notice) self->notice(n);
            },
            Qt::QueuedConnection);
    }

    void work() {
        bool connected = false;
        for (;;) {
            std::pair<Job, std::string> job;
            int timeout;
            {
                std::unique_lock lock(m);
                wake.wait(lock, [this] { return abandoned || !jobs.empty(); });
                if (abandoned) break;
                job = std::move(jobs.front());
                jobs.pop_front();
                timeout = timeoutMs > 0 ? timeoutMs + kDeviceGraceMs : 0;
            }
            try {
                switch (job.first) {
                case Job::Connect: {
                    channel->connect(timeout);
                    connected = true;
                    std::lock_guard lock(m);
                    state = State::Connected;
                    tell(Notice::Connected);
                    tell(Notice::Changed);
                    break;
                }
                case Job::Write: {
                    channel->send(job.second, timeout);
                    std::lock_guard lock(m);
                    unsent -= static_cast<int64_t>(job.second.size());
                    tell(Notice::Written);
                    break;
                }
                case Job::Read: {
                    channel->receive(
                        [this](const char* bytes, size_t n) {
                            std::lock_guard lock(m);
                            inbox.append(bytes, n);
                            tell(Notice::Data);
                        },
                        timeout);
                    std::lock_guard lock(m);
                    --reads;
                    tell(Notice::Changed);
                    break;
                }
                }
            } catch (const std::exception& e) {
                std::lock_guard lock(m);
                if (!abandoned) failure = e.what();
                state = State::Closed;
                jobs.clear();
                tell(Notice::Failed);
                tell(Notice::Changed);
                break;
            }
        }
        if (connected) channel->close();
    }
};

MessageTransport::MessageTransport(ChannelMaker makeChannel)
    : makeChannel_(std::move(makeChannel)), context_(std::make_unique<QObject>()) {}

MessageTransport::~MessageTransport() { abort(); }

void MessageTransport::open(const std::string& host, uint16_t port) {
    abort();
    auto s = std::make_shared<Session>();
    s->context = context_.get();
    s->owner = this;
    s->generation = ++generation_;
    s->timeoutMs = timeoutMs_;
    try {
        s->channel = makeChannel_(host, port);
    } catch (const std::exception& e) {
        s->failure = e.what();
    }
    session_ = s;
    if (!s->channel) {
        s->state = State::Closed;
        std::lock_guard lock(s->m);
        s->tell(Notice::Failed);
        return;
    }
    s->jobs.emplace_back(Session::Job::Connect, std::string());
    std::thread([s] { s->work(); }).detach();
}

ByteTransport::State MessageTransport::state() const {
    if (!session_) return State::Closed;
    std::lock_guard lock(session_->m);
    return session_->state;
}

int64_t MessageTransport::readAvailable(std::string& into) {
    if (!session_) return 0;
    std::lock_guard lock(session_->m);
    const auto n = static_cast<int64_t>(session_->inbox.size());
    if (into.empty())
        into.swap(session_->inbox);
    else
        into.append(session_->inbox);
    session_->inbox.clear();
    return n;
}

void MessageTransport::write(const std::string& bytes) {
    if (!session_) return;
    std::lock_guard lock(session_->m);
    if (session_->state != State::Connected) return;
    session_->unsent += static_cast<int64_t>(bytes.size());
    session_->jobs.emplace_back(Session::Job::Write, bytes);
    session_->wake.notify_one();
}

void MessageTransport::replyWanted() {
    if (!session_) return;
    std::lock_guard lock(session_->m);
    if (session_->state != State::Connected) return;
    session_->jobs.emplace_back(Session::Job::Read, std::string());
    ++session_->reads;
    session_->wake.notify_one();
}

bool MessageTransport::replyPending() const {
    if (!session_) return false;
    std::lock_guard lock(session_->m);
    return session_->reads > 0 || !session_->inbox.empty();
}

int64_t MessageTransport::bytesToWrite() const {
    if (!session_) return 0;
    std::lock_guard lock(session_->m);
    return session_->unsent;
}

void MessageTransport::abort() {
    if (!session_) return;
    {
        std::lock_guard lock(session_->m);
        session_->abandoned = true;
        session_->context = nullptr;
        session_->jobs.clear();
        session_->state = State::Closed;
        if (session_->channel) session_->channel->interrupt();
        session_->wake.notify_one();
    }
    session_.reset();
}

std::string MessageTransport::failure() const {
    if (!session_) return {};
    std::lock_guard lock(session_->m);
    return session_->failure;
}

}  // namespace mervasto
