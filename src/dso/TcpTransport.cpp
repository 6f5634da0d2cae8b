#include "dso/TcpTransport.h"

#include <QTcpSocket>

#include <algorithm>

namespace mervasto {

TcpTransport::TcpTransport() = default;

TcpTransport::~TcpTransport() {
    if (socket_) socket_->abort();
}

// The socket is made on first use, in the thread that uses it.
void TcpTransport::ensureSocket() {
    if (socket_) return;
    socket_ = std::make_unique<QTcpSocket>();
    QTcpSocket* s = socket_.get();
    auto tell = [this](Notice n) {
        if (notice) notice(n);
    };
    QObject::connect(s, &QTcpSocket::connected, s, [s, tell] {
        // Replies are short and each waits for the one before: no batching.
        s->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        tell(Notice::Connected);
    });
    QObject::connect(s, &QTcpSocket::readyRead, s, [tell] { tell(Notice::Data); });
    QObject::connect(s, &QTcpSocket::bytesWritten, s, [tell](qint64) { tell(Notice::Written); });
    QObject::connect(s, &QTcpSocket::stateChanged, s, [tell](QAbstractSocket::SocketState) { tell(Notice::Changed); });
    QObject::connect(s, &QTcpSocket::errorOccurred, s, [tell](QAbstractSocket::SocketError) { tell(Notice::Failed); });
}

void TcpTransport::open(const std::string& host, uint16_t port) {
    ensureSocket();
    socket_->connectToHost(QString::fromStdString(host), port);
}

ByteTransport::State TcpTransport::state() const {
    if (!socket_) return State::Closed;
    switch (socket_->state()) {
    case QAbstractSocket::HostLookupState: return State::Resolving;
    case QAbstractSocket::ConnectingState: return State::Connecting;
    case QAbstractSocket::ConnectedState: return State::Connected;
    case QAbstractSocket::ClosingState: return State::Closing;
    default: return State::Closed;
    }
}

int64_t TcpTransport::readAvailable(std::string& into) {
    if (!socket_) return 0;
    const qint64 n = socket_->bytesAvailable();
    if (n <= 0) return 0;
    const size_t old = into.size();
    into.resize(old + static_cast<size_t>(n));
    const qint64 got = socket_->read(into.data() + old, n);
    into.resize(old + static_cast<size_t>(std::max<qint64>(got, 0)));
    return std::max<qint64>(got, 0);
}

void TcpTransport::write(const std::string& bytes) {
    ensureSocket();
    socket_->write(bytes.data(), static_cast<qint64>(bytes.size()));
}

int64_t TcpTransport::bytesToWrite() const { return socket_ ? socket_->bytesToWrite() : 0; }

void TcpTransport::abort() {
    if (socket_) socket_->abort();
}

}  // namespace mervasto
