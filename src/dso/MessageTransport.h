#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "dso/ByteTransport.h"

class QObject;

namespace mervasto {

// A door to the instrument that moves whole messages and blocks while it
// does (VXI-11 calls, a USBTMC device node). Used by one worker thread at a
// time; interrupt() alone may be called from another thread.
class MessageChannel {
public:
    virtual ~MessageChannel() = default;
    // Each throws ChannelError with the reason when it fails.
    virtual void connect(int timeoutMs) = 0;
    virtual void send(const std::string& message, int timeoutMs) = 0;
    // Reads one whole reply message, handing its bytes to take as they
    // come (in one piece or in several).
    virtual void receive(const std::function<void(const char*, size_t)>& take, int timeoutMs) = 0;
    // Ends the link politely (the device frees its side).
    virtual void close() = 0;
    // Makes a blocked call return soon, with a failure; from any thread.
    virtual void interrupt() {}
};

struct ChannelError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A message channel behind the byte transport the link waits on: a worker
// thread makes the blocking calls in order (connect, each write, one read
// per reply wanted) and hands the bytes back with a notice in the link's
// thread. The link keeps every time-out, cap and block check; a link that
// gives up abandons the worker, which closes its channel once its call has
// returned, so nothing here waits for an instrument that has gone quiet.
class MessageTransport : public ByteTransport {
public:
    // Makes the channel for the address and port open() is given.
    using ChannelMaker = std::function<std::unique_ptr<MessageChannel>(const std::string& host, uint16_t port)>;
    explicit MessageTransport(ChannelMaker makeChannel);
    ~MessageTransport() override;

    void open(const std::string& host, uint16_t port) override;
    State state() const override;
    int64_t readAvailable(std::string& into) override;
    void write(const std::string& bytes) override;
    int64_t bytesToWrite() const override;
    void abort() override;
    void replyWanted() override;
    bool replyPending() const override;
    void setTimeoutMs(int ms) override { timeoutMs_ = ms; }

    std::string failure() const override;

    struct Session;

private:
    ChannelMaker makeChannel_;
    std::shared_ptr<Session> session_;
    std::unique_ptr<QObject> context_;  // lives in the link's thread; the worker's notices go through it
    uint64_t generation_ = 0;
    int timeoutMs_ = 10000;
};

}  // namespace mervasto
