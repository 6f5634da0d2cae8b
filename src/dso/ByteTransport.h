#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace mervasto {

// The bytes between the program and an instrument, however they travel: a
// raw network socket, a VXI-11 link or a USB device node. The link keeps
// every wait, time-out, cap and check above it, so a transport only moves
// bytes and says when something happened. Used from the thread that owns the
// link; notice() is called in that thread.
class ByteTransport {
public:
    enum class State { Closed, Resolving, Connecting, Connected, Closing };
    enum class Notice {
        Connected,  // the connection is up
        Data,       // bytes arrived
        Written,    // bytes went out
        Changed,    // the state changed
        Failed,     // connecting failed, or the connection broke
    };

    virtual ~ByteTransport() = default;

    // Starts connecting; the state says when it is done.
    virtual void open(const std::string& host, uint16_t port) = 0;
    virtual State state() const = 0;
    // Appends what has arrived to `into`; the count taken.
    virtual int64_t readAvailable(std::string& into) = 0;
    virtual void write(const std::string& bytes) = 0;
    // Bytes handed to write() and not yet sent.
    virtual int64_t bytesToWrite() const = 0;
    // Drops the connection at once and discards what is in flight.
    virtual void abort() = 0;
    // A reply is expected now. A message-based transport (VXI-11, USBTMC)
    // asks the device for it here; a byte stream needs nothing.
    virtual void replyWanted() {}
    // A read asked for is still under way, or bytes of it wait to be taken:
    // false tells the link that a block it still needs bytes of must be
    // asked for again (a device may cut a message). A stream always reads.
    virtual bool replyPending() const { return true; }
    // The link's reply time-out, for a transport whose calls block and carry
    // their own (VXI-11's io_timeout).
    virtual void setTimeoutMs(int ms) {}
    // Why the connection failed or broke, when the transport knows more
    // than that it did (empty otherwise).
    virtual std::string failure() const { return {}; }

    std::function<void(Notice)> notice;
};

}  // namespace mervasto
