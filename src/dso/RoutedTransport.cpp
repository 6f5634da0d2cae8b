#include "dso/RoutedTransport.h"

#include "common/TextUtil.h"
#include "dso/MessageTransport.h"
#include "dso/TcpTransport.h"
#include "dso/UsbtmcChannel.h"
#include "dso/Vxi11Channel.h"

namespace mervasto {

bool ParseVxi11Address(std::string_view text, Vxi11Address& out) {
    text = TrimBlanks(text);
    if (TransportOfAddress(text) != DsoTransport::Vxi11) return false;
    text.remove_prefix(std::string_view(kVxi11Scheme).size());
    Vxi11Address a;
    if (const size_t slash = text.find('/'); slash != std::string_view::npos) {
        a.device = std::string(text.substr(slash + 1));
        text = text.substr(0, slash);
        if (a.device.empty()) a.device = kVxi11DefaultDevice;
    }
    // A port after the host; an IPv6 host is written in brackets.
    std::string_view port;
    if (!text.empty() && text.front() == '[') {
        const size_t close = text.find(']');
        if (close == std::string_view::npos) return false;
        if (close + 1 < text.size()) {
            if (text[close + 1] != ':') return false;
            port = text.substr(close + 2);
            if (port.empty()) return false;
        }
        text = text.substr(1, close - 1);
    } else if (const size_t colon = text.find(':'); colon != std::string_view::npos) {
        port = text.substr(colon + 1);
        text = text.substr(0, colon);
        if (port.empty()) return false;
    }
    if (!port.empty()) {
        if (port.size() > 5 || port.find_first_not_of("0123456789") != std::string_view::npos) return false;
        const int p = std::stoi(std::string(port));
        if (p < 1 || p > 65535) return false;
        a.portmapPort = static_cast<uint16_t>(p);
    }
    if (text.empty()) return false;
    a.host = std::string(text);
    out = std::move(a);
    return true;
}

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
