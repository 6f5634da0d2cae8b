#include "dso/RoutedTransport.h"

#include "dso/MessageTransport.h"
#include "dso/TcpTransport.h"
#include "dso/UsbtmcChannel.h"
#include "dso/Vxi11Channel.h"

namespace mervasto {

std::unique_ptr<ByteTransport> MakeTransport(DsoTransport kind) {
    switch (kind) {
    case DsoTransport::Vxi11:
        return std::make_unique<MessageTransport>([](const std::string& host, uint16_t) {
            Vxi11Address a;
            if (!ParseVxi11Address(host, a))
                throw ChannelError("\"" + host + "\" is not a VXI-11 address (vxi11://HOST[:PORT][/DEVICE]).");
            return MakeVxi11Channel(a);
        });
    case DsoTransport::Usbtmc:
        return std::make_unique<MessageTransport>(
            [](const std::string& host, uint16_t) { return MakeUsbtmcChannel(host); });
    case DsoTransport::Socket: break;
    }
    return std::make_unique<TcpTransport>();
}

void RoutedTransport::open(const std::string& host, uint16_t port) {
    const DsoTransport kind = TransportOfAddress(host);
    if (!door_ || kind != kind_) {
        if (door_) {
            door_->notice = nullptr;
            door_->abort();
        }
        door_ = MakeTransport(kind);
        kind_ = kind;
        door_->setTimeoutMs(timeoutMs_);
        door_->notice = [this](Notice n) {
            if (notice) notice(n);
        };
    }
    door_->open(host, port);
}

void RoutedTransport::setTimeoutMs(int ms) {
    timeoutMs_ = ms;
    if (door_) door_->setTimeoutMs(ms);
}

}  // namespace mervasto
