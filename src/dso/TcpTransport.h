#pragma once

#include <memory>

#include "dso/ByteTransport.h"

class QTcpSocket;

namespace mervasto {

// An instrument's raw network socket (the SCPI "socket" port, or the legacy
// instrument's 5198).
class TcpTransport : public ByteTransport {
public:
    TcpTransport();
    ~TcpTransport() override;

    void open(const std::string& host, uint16_t port) override;
    State state() const override;
    int64_t readAvailable(std::string& into) override;
    void write(const std::string& bytes) override;
    int64_t bytesToWrite() const override;
    void abort() override;

private:
    void ensureSocket();
    std::unique_ptr<QTcpSocket> socket_;
};

}  // namespace mervasto
