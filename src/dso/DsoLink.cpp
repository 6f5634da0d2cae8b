#include "dso/DsoLink.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cctype>

#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextUtil.h"
#include "dso/LinkFraming.h"

namespace mervasto {

namespace {

// How often a wait looks at its flags when no socket event wakes it.
constexpr int kTickMs = 10;
// A Stop that arrives while a status poll of the acquisition wait is in
// flight lets that reply come in first, for at most this long.
constexpr int kStopGraceMs = 1000;

}  // namespace

DsoAddress ParseDsoAddress(const std::string& addressText) {
    std::string text{TrimBlanks(addressText)};
    DsoAddress a{text, kDsoPortText};
    auto colon = text.find(':');
    if (colon != std::string::npos && text.find(':', colon + 1) == std::string::npos) {
        a.host = std::string{TrimBlanks(text.substr(0, colon))};
        std::string port{TrimBlanks(text.substr(colon + 1))};
        if (!port.empty()) a.port = port;
    }
    if (a.host.empty()) a.host = kDefaultDsoAddress;
    return a;
}

int16_t ChannelCountOfModel(const std::string& model) {
    if (model.size() < 7) return 0;
    return ToInt16(Val(MidText(model, 7, 1)));
}

DsoLink::DsoLink() : ownerThread_(QThread::currentThread()), clock_(std::make_unique<QElapsedTimer>()) {
    clock_->start();
}

DsoLink::~DsoLink() {
    if (socket_) socket_->abort();
}

void DsoLink::ensureSocket() {
    if (socket_) return;
    socket_ = std::make_unique<QTcpSocket>();
    QTcpSocket* s = socket_.get();
    QObject::connect(s, &QTcpSocket::connected, s, [this] {
        events.Connected = true;
        socket_->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    });
    QObject::connect(s, &QTcpSocket::readyRead, s, [this] {
        events.DataArrived = true;
        events.BytesTotal = static_cast<int32_t>(std::min<qint64>(socket_->bytesAvailable(), INT32_MAX));
    });
    QObject::connect(s, &QTcpSocket::bytesWritten, s, [this](qint64) {
        if (socket_->bytesToWrite() == 0) events.SendCompleted = true;
    });
    QObject::connect(s, &QTcpSocket::errorOccurred, s, [this](QAbstractSocket::SocketError) {
        if (!DsoLinked && socket_->state() != QAbstractSocket::ConnectedState) socketError_ = true;
    });
}

bool DsoLink::socketOpen() const { return socket_ && socket_->state() == QAbstractSocket::ConnectedState; }

int16_t DsoLink::state() const {
    if (socketError_) return kLinkError;
    if (!socket_) return kLinkClosed;
    switch (socket_->state()) {
    case QAbstractSocket::UnconnectedState: return kLinkClosed;
    case QAbstractSocket::HostLookupState: return kLinkResolving;
    case QAbstractSocket::ConnectingState: return kLinkConnecting;
    case QAbstractSocket::ConnectedState: return kLinkConnected;
    case QAbstractSocket::ClosingState: return kLinkClosing;
    default: return kLinkClosed;
    }
}

void DsoLink::pullSocket() {
    if (!socket_) return;
    qint64 n = socket_->bytesAvailable();
    if (n <= 0) return;
    size_t old = pending_.size();
    pending_.resize(old + static_cast<size_t>(n));
    qint64 got = socket_->read(pending_.data() + old, n);
    pending_.resize(old + static_cast<size_t>(std::max<qint64>(got, 0)));
    if (got > 0) lastDataMs_ = clock_->elapsed();
}

int64_t DsoLink::sinceDataMs() const { return clock_->elapsed() - lastDataMs_; }

void DsoLink::close() {
    if (socket_) socket_->abort();
    pending_.clear();
    socketError_ = false;
    DsoLinked = false;
}

void DsoLink::fail(const std::string& text) {
    close();
    throw RuntimeError(ErrorCode::Link, text);
}

void DsoLink::abort() {
    aborted_ = true;
    if (QThread::currentThread() != ownerThread_) return;  // the wait notices on its next tick
    if (loop_)
        loop_->quit();
    else
        close();
}

void DsoLink::requestStop() {
    StopRequested = true;
    ++stopSerial_;
    if (loop_ && QThread::currentThread() == ownerThread_) loop_->quit();
}

void DsoLink::checkUsable(const std::string& what) {
    if (aborted_) fail("The link to the DSO is closed: the program is ending.");
    if (!socketOpen()) fail("The link to the DSO is not open (" + what + ").");
}

DsoLink::WaitEnd DsoLink::waitFor(const std::function<bool()>& done, const std::string& what, bool needOpen,
                                  int timeoutMs) {
    const uint32_t serial = stopSerial_.load();
    QEventLoop loop;
    QTimer tick;
    tick.setInterval(kTickMs);
    QObject::connect(&tick, &QTimer::timeout, &loop, &QEventLoop::quit);
    std::vector<QMetaObject::Connection> links;
    if (socket_) {
        QTcpSocket* s = socket_.get();
        links.push_back(QObject::connect(s, &QTcpSocket::readyRead, &loop, &QEventLoop::quit));
        links.push_back(QObject::connect(s, &QTcpSocket::bytesWritten, &loop, &QEventLoop::quit));
        links.push_back(QObject::connect(s, &QTcpSocket::stateChanged, &loop, &QEventLoop::quit));
        links.push_back(QObject::connect(s, &QTcpSocket::errorOccurred, &loop, &QEventLoop::quit));
    }
    QEventLoop* outer = loop_;
    loop_ = &loop;
    struct Restore {
        DsoLink* self;
        QEventLoop* outer;
        std::vector<QMetaObject::Connection>& links;
        ~Restore() {
            self->loop_ = outer;
            for (auto& c : links) QObject::disconnect(c);
        }
    } restore{this, outer, links};
    tick.start();

    lastDataMs_ = clock_->elapsed();
    int64_t stopSeenMs = -1;
    for (;;) {
        pullSocket();
        if (done()) return WaitEnd::Done;
        if (aborted_) fail("The link to the DSO was closed while " + what + ": the program is ending.");
        if (stopSerial_.load() != serial) {
            if (stopSeenMs < 0) stopSeenMs = clock_->elapsed();
            if (!inAcquisition_ || clock_->elapsed() - stopSeenMs > kStopGraceMs)
                fail("Stopped while " + what + "; the link to the DSO was closed.");
        }
        if (needOpen && !socketOpen()) {
            pullSocket();
            if (done()) return WaitEnd::Done;
            fail("The DSO closed the connection while " + what + ".");
        }
        if (timeoutMs > 0 && sinceDataMs() > timeoutMs) return WaitEnd::TimedOut;
        loop.exec();
    }
}

int16_t DsoLink::LinkToSLA(const std::string& address, const std::string& port) {
    if (aborted_) throw RuntimeError(ErrorCode::Link, "The link to the DSO is closed: the program is ending.");
    ensureSocket();
    if (socket_->state() == QAbstractSocket::UnconnectedState) {
        socketError_ = false;
        pending_.clear();
        double p = Val(port);
        if (!(p >= 1 && p <= 65535)) {
            socketError_ = true;
            return state();
        }
        events.Connected = false;
        socket_->connectToHost(QString::fromStdString(address), static_cast<quint16>(ToInt32(p)));
        auto end = waitFor(
            [this] {
                auto st = socket_->state();
                return socketError_ ||
                       (st != QAbstractSocket::ConnectingState && st != QAbstractSocket::HostLookupState);
            },
            "connecting to the DSO", false, replyTimeoutMs_);
        if (end == WaitEnd::TimedOut) {
            socket_->abort();
            socketError_ = true;
        } else if (!socketError_ && socket_->state() != QAbstractSocket::ConnectedState) {
            socketError_ = true;
        }
    }
    return state();
}

void DsoLink::SendDsoCommand(const std::string& command) {
    checkUsable("sending \"" + command + "\"");
    events.SendCompleted = false;
    std::string line = command + '\n';
    socket_->write(line.data(), static_cast<qint64>(line.size()));
    const std::string what = "sending \"" + command + "\"";
    if (waitFor([this] { return events.SendCompleted || socket_->bytesToWrite() == 0; }, what, true, replyTimeoutMs_) ==
        WaitEnd::TimedOut)
        fail("The DSO did not take the command \"" + command + "\" in time; the link was closed.");
}

std::string DsoLink::QueryDso(const std::string& command, int32_t maxLength) {
    checkUsable("sending \"" + command + "\"");
    // Whatever is left of an earlier reply belongs to no one now.
    pullSocket();
    pending_.clear();
    events.DataArrived = false;
    std::string line = command + '\n';
    socket_->write(line.data(), static_cast<qint64>(line.size()));
    const std::string what = "waiting for the reply to \"" + command + "\"";
    auto end =
        waitFor([this] { return ReplyComplete(pending_, sinceDataMs() >= quietMs_); }, what, true, replyTimeoutMs_);
    if (end == WaitEnd::TimedOut && pending_.empty())
        fail("The DSO did not answer \"" + command + "\" within " +
             std::to_string(replyTimeoutMs_ / 1000.0).substr(0, 4) + " s; the link was closed.");
    return TakeReplyLine(pending_, maxLength);
}

int32_t DsoLink::ReadDsoBlock(std::vector<uint8_t>& data, UiPort* progressPort) {
    checkUsable("reading a data block");
    constexpr size_t kHeader = kBlockHeaderBytes;
    BlockHeader header;
    auto end = waitFor(
        [&] {
            header = ParseBlockHeader(pending_, sinceDataMs() >= quietMs_, kMaxBlockBytes - 1);
            return header.state != BlockHeaderState::NeedMore;
        },
        "waiting for a data block", true, replyTimeoutMs_);
    if (end == WaitEnd::TimedOut)
        fail("The DSO did not send the data block (no header within " + std::to_string(replyTimeoutMs_) +
             " ms); the link was closed.");
    if (header.state == BlockHeaderState::NotBlock)
        fail("The DSO's reply is not a data block: it begins \"" + PrintableBytes(pending_, 24) +
             "\" instead of \"#\", a digit and eight length digits.");
    const int64_t n = header.length;
    if (header.state == BlockHeaderState::TooLong)
        fail("The DSO announced a data block of " + std::to_string(n) + " bytes, more than the " +
             std::to_string(kMaxBlockBytes - 1) + " bytes of the longest record; the link was closed.");
    const size_t total = kHeader + static_cast<size_t>(n) + 1;
    pending_.reserve(total);
    int64_t lastShown = -1;
    end = waitFor(
        [&] {
            if (progressPort) {
                int64_t got = std::min<int64_t>(static_cast<int64_t>(pending_.size()) - kHeader, n + 1);
                if (got != lastShown) {
                    progressPort->progress(got, n + 1);
                    lastShown = got;
                }
            }
            return pending_.size() >= total;
        },
        "reading a data block of " + std::to_string(n) + " bytes", true, replyTimeoutMs_);
    if (end == WaitEnd::TimedOut)
        fail("The DSO stopped sending the data block after " + std::to_string(pending_.size() - kHeader) + " of " +
             std::to_string(n + 1) + " bytes; the link was closed.");
    data.resize(static_cast<size_t>(n) + 1);
    std::copy(pending_.begin() + kHeader, pending_.begin() + static_cast<std::ptrdiff_t>(total), data.begin());
    pending_.erase(0, total);
    if (progressPort) progressPort->progress(0, 0);
    return static_cast<int32_t>(n);
}

bool DsoLink::WaitSingleAcquisition() {
    StopRequested = false;
    inAcquisition_ = true;
    struct Reset {
        bool& flag;
        ~Reset() { flag = false; }
    } reset{inAcquisition_};
    SendDsoCommand("*ESE 255");
    (void)QueryDso("TESR?", 256);
    SendDsoCommand("WSGL");
    for (;;) {
        QEventLoop yield;
        yield.processEvents(QEventLoop::AllEvents);
        if (aborted_) fail("The acquisition wait was ended: the program is ending.");
        if (StopRequested) return true;
        std::string reply = QueryDso("TESR?", 256);
        // Garbage instead of the event register would be read as 0 for ever.
        if (!LooksNumeric(reply))
            fail("The DSO's reply to \"TESR?\" is not a number: \"" + PrintableBytes(reply, 24) +
                 "\"; the link was closed.");
        if (ToInt32(Val(reply)) & 1) return false;
    }
}

}  // namespace mervasto
