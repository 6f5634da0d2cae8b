#pragma once

#include <memory>

#include "dso/ByteTransport.h"
#include "dso/DsoLink.h"

namespace mervasto {

// The transport the address names (TransportOfAddress), chosen afresh each
// time the link opens: the raw socket, a VXI-11 link or a USBTMC node.
class RoutedTransport : public ByteTransport {
public:
    void open(const std::string& host, uint16_t port) override;
    State state() const override { return door_ ? door_->state() : State::Closed; }
    int64_t readAvailable(std::string& into) override { return door_ ? door_->readAvailable(into) : 0; }
    void write(const std::string& bytes) override {
        if (door_) door_->write(bytes);
    }
    int64_t bytesToWrite() const override { return door_ ? door_->bytesToWrite() : 0; }
    void abort() override {
        if (door_) door_->abort();
    }
    void replyWanted() override {
        if (door_) door_->replyWanted();
    }
    bool replyPending() const override { return door_ ? door_->replyPending() : true; }
    void setTimeoutMs(int ms) override;
    std::string failure() const override { return door_ ? door_->failure() : std::string(); }

private:
    std::unique_ptr<ByteTransport> door_;
    DsoTransport kind_ = DsoTransport::Socket;
    int timeoutMs_ = 10000;
};

// The transport of one kind, on its own (tests pick theirs).
std::unique_ptr<ByteTransport> MakeTransport(DsoTransport kind);

}  // namespace mervasto
