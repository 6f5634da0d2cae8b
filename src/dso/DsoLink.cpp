#include "dso/DsoLink.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cctype>
#include <sstream>

#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextUtil.h"
#include "dso/LinkFraming.h"
#include "dso/RoutedTransport.h"

namespace mervasto {

namespace {

// How often a wait looks at its flags when no socket event wakes it.
constexpr int kTickMs = 10;

std::string SecondsText(int ms) {
    std::ostringstream out;
    out << ms / 1000.0 << " s";
    return out.str();
}

}  // namespace

DsoTransport TransportOfAddress(std::string_view addressText) {
    const std::string_view text = TrimBlanks(addressText);
    const std::string_view scheme = "vxi11://";
    if (text.size() >= scheme.size() && std::equal(scheme.begin(), scheme.end(), text.begin(), [](char a, char b) {
            return a == std::tolower(static_cast<unsigned char>(b));
        }))
        return DsoTransport::Vxi11;
    if (!text.empty() && text.front() == '/') return DsoTransport::Usbtmc;
    return DsoTransport::Socket;
}

DsoAddress ParseDsoAddress(const std::string& addressText) {
    std::string text{TrimBlanks(addressText)};
    if (const DsoTransport t = TransportOfAddress(text); t != DsoTransport::Socket) return {text, "", true, t};
    DsoAddress a{text, kDsoPortText};
    auto colon = text.find(':');
    if (colon != std::string::npos && text.find(':', colon + 1) == std::string::npos) {
        a.host = std::string{TrimBlanks(text.substr(0, colon))};
        std::string port{TrimBlanks(text.substr(colon + 1))};
        if (!port.empty()) {
            a.port = port;
            a.portGiven = true;
        }
    }
    if (a.host.empty()) a.host = kDefaultDsoAddress;
    return a;
}

int16_t ChannelCountOfModel(const std::string& model) {
    if (model.size() < 7) return 0;
    return ToInt16(Val(MidText(model, 7, 1)));
}

DsoLink::DsoLink(std::unique_ptr<ByteTransport> transport)
    : transport_(transport ? std::move(transport) : std::make_unique<RoutedTransport>()),
      ownerThread_(QThread::currentThread()),
      clock_(std::make_unique<QElapsedTimer>()) {
    clock_->start();
    transport_->notice = [this](ByteTransport::Notice n) { onNotice(n); };
}

DsoLink::~DsoLink() {
    transport_->notice = nullptr;
    transport_->abort();
}

void DsoLink::onNotice(ByteTransport::Notice n) {
    using Notice = ByteTransport::Notice;
    switch (n) {
    case Notice::Connected: events.Connected = true; break;
    case Notice::Data:
        events.DataArrived = true;
        events.BytesTotal = static_cast<int32_t>(std::min<int64_t>(static_cast<int64_t>(pending_.size()), INT32_MAX));
        break;
    case Notice::Written:
        if (transport_->bytesToWrite() == 0) events.SendCompleted = true;
        break;
    case Notice::Failed:
        if (!DsoLinked && transport_->state() != ByteTransport::State::Connected) socketError_ = true;
        break;
    case Notice::Changed: break;
    }
    if (waitLoop_) waitLoop_->quit();
}

bool DsoLink::socketOpen() const { return transport_->state() == ByteTransport::State::Connected; }

int16_t DsoLink::state() const {
    if (socketError_) return kLinkError;
    switch (transport_->state()) {
    case ByteTransport::State::Closed: return kLinkClosed;
    case ByteTransport::State::Resolving: return kLinkResolving;
    case ByteTransport::State::Connecting: return kLinkConnecting;
    case ByteTransport::State::Connected: return kLinkConnected;
    case ByteTransport::State::Closing: return kLinkClosing;
    }
    return kLinkClosed;
}

void DsoLink::pullSocket() {
    if (transport_->readAvailable(pending_) > 0) lastDataMs_ = clock_->elapsed();
}

int64_t DsoLink::sinceDataMs() const { return clock_->elapsed() - lastDataMs_; }

void DsoLink::close() {
    transport_->abort();
    pending_.clear();
    socketError_ = false;
    DsoLinked = false;
}

void DsoLink::fail(const std::string& text, ErrorCode code) {
    close();
    throw RuntimeError(code, text);
}

void DsoLink::failExchange(const std::string& text) { fail(text); }

int64_t DsoLink::deadlineFromNow() const {
    return exchangeDeadlineMs_ > 0 ? clock_->elapsed() + exchangeDeadlineMs_ : -1;
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
    if (StopRequested.exchange(true)) hardStop_ = true;
    if (QThread::currentThread() == ownerThread_ && loop_) loop_->quit();
}

void DsoLink::clearStop() {
    StopRequested = false;
    hardStop_ = false;
}

void DsoLink::checkUsable(const std::string& what) {
    if (aborted_) fail("The link to the DSO is closed: the program is ending.");
    if (!socketOpen()) fail("The link to the DSO is not open (" + what + ").");
}

DsoLink::WaitEnd DsoLink::waitFor(const std::function<bool()>& done, const std::string& what, bool needOpen,
                                  int timeoutMs, int64_t deadlineAtMs) {
    QEventLoop loop;
    QTimer tick;
    tick.setInterval(kTickMs);
    QObject::connect(&tick, &QTimer::timeout, &loop, &QEventLoop::quit);
    struct Restore {
        DsoLink* self;
        QEventLoop* outer;
        QEventLoop* outerWait;
        ~Restore() {
            self->loop_ = outer;
            self->waitLoop_ = outerWait;
        }
    } restore{this, loop_, waitLoop_};
    loop_ = &loop;
    waitLoop_ = &loop;
    tick.start();

    lastDataMs_ = clock_->elapsed();
    for (;;) {
        pullSocket();
        if (done()) return WaitEnd::Done;
        if (aborted_) fail("The link to the DSO was closed while " + what + ": the program is ending.");
        if (hardStop_.exchange(false))
            fail("Stopped while " + what + "; the link to the DSO was closed.", ErrorCode::Canceled);
        if (StopRequested && sinceDataMs() > kStopSilenceMs)
            fail("Stopped while " + what + " (the DSO was silent for " + SecondsText(kStopSilenceMs) +
                     "); the link to the DSO was closed.",
                 ErrorCode::Canceled);
        if (needOpen && !socketOpen()) {
            pullSocket();
            if (done()) return WaitEnd::Done;
            const std::string why = transport_->failure();
            fail("The DSO closed the connection while " + what + (why.empty() ? "." : ": " + why));
        }
        if (timeoutMs > 0 && sinceDataMs() > timeoutMs) return WaitEnd::Silent;
        if (deadlineAtMs >= 0 && clock_->elapsed() > deadlineAtMs) return WaitEnd::PastDeadline;
        loop.exec();
    }
}

int16_t DsoLink::LinkToSLA(const std::string& address, const std::string& port) {
    if (aborted_) throw RuntimeError(ErrorCode::Link, "The link to the DSO is closed: the program is ending.");
    if (transport_->state() == ByteTransport::State::Closed) {
        socketError_ = false;
        pending_.clear();
        // A VXI-11 or USBTMC address names its own door and has no port.
        const bool ownDoor = TransportOfAddress(address) != DsoTransport::Socket;
        double p = ownDoor ? 0 : Val(port);
        if (!ownDoor && !(p >= 1 && p <= 65535)) {
            socketError_ = true;
            return state();
        }
        events.Connected = false;
        peer_ = ownDoor ? address : address + ":" + port;
        transport_->open(address, static_cast<uint16_t>(ToInt32(p)));
        auto end = waitFor(
            [this] {
                auto st = transport_->state();
                return socketError_ ||
                       (st != ByteTransport::State::Connecting && st != ByteTransport::State::Resolving);
            },
            "connecting to the DSO", false, connectTimeoutMs_ > 0 ? connectTimeoutMs_ : replyTimeoutMs_);
        if (end != WaitEnd::Done) {
            transport_->abort();
            socketError_ = true;
        } else if (!socketError_ && transport_->state() != ByteTransport::State::Connected) {
            socketError_ = true;
        }
    }
    return state();
}

void DsoLink::SendDsoCommand(const std::string& command) {
    checkUsable("sending \"" + command + "\"");
    events.SendCompleted = false;
    transport_->write(command + '\n');
    const std::string what = "sending \"" + command + "\"";
    if (waitFor([this] { return events.SendCompleted || transport_->bytesToWrite() == 0; }, what, true, replyTimeoutMs_,
                deadlineFromNow()) != WaitEnd::Done)
        fail("The DSO did not take the command \"" + command + "\" in time; the link was closed.");
}

std::string DsoLink::QueryDso(const std::string& command, int32_t maxLength) {
    checkUsable("sending \"" + command + "\"");
    // Whatever is left of an earlier reply belongs to no one now.
    pullSocket();
    pending_.clear();
    events.DataArrived = false;
    transport_->write(command + '\n');
    transport_->replyWanted();
    const std::string what = "waiting for the reply to \"" + command + "\"";
    size_t scanned = 0;
    ReplyState reply = ReplyState::NeedMore;
    auto end = waitFor(
        [&] {
            reply = ScanReply(pending_, scanned, sinceDataMs() >= quietMs_);
            return reply != ReplyState::NeedMore;
        },
        what, true, replyTimeoutMs_, deadlineFromNow());
    if (reply == ReplyState::TooLong)
        fail("The DSO's reply to \"" + command + "\" runs on past " + std::to_string(kMaxReplyBytes) +
             " bytes without a line end; the link was closed.");
    if (end == WaitEnd::PastDeadline)
        fail("The DSO's reply to \"" + command + "\" did not end within " + SecondsText(exchangeDeadlineMs_) +
             "; the link was closed.");
    if (end == WaitEnd::Silent)
        fail("The DSO did not answer \"" + command + "\" within " + SecondsText(replyTimeoutMs_) +
             "; the link was closed.");
    return TakeReplyLine(pending_, maxLength);
}

int32_t DsoLink::ReadDsoBlock(std::vector<uint8_t>& data, UiPort* progressPort, const BlockCheck* check) {
    return static_cast<int32_t>(readFramed(data, Framing::Legacy, BlockRead{check, progressPort}));
}

int64_t DsoLink::ReadBlock(std::vector<uint8_t>& data, const BlockRead& how) {
    return readFramed(data, Framing::Definite, how);
}

int64_t DsoLink::readFramed(std::vector<uint8_t>& data, Framing framing, const BlockRead& how) {
    checkUsable("reading a data block");
    const BlockCheck* check = how.check;
    UiPort* progressPort = how.progress;
    const std::string of = check && !check->source.empty() ? " for " + check->source : std::string();
    const int64_t deadline = deadlineFromNow();
    transport_->replyWanted();
    BlockHeader header;
    size_t skip = 0;  // the bytes before the "#"
    auto end = waitFor(
        [&] {
            const bool quiet = sinceDataMs() >= quietMs_;
            std::string_view view = pending_;
            if (how.textBefore > 0) {
                skip = view.substr(0, how.textBefore + 1).find('#');
                if (skip == std::string_view::npos) {
                    skip = 0;
                    const bool over = view.size() > how.textBefore || view.find('\n') != std::string_view::npos;
                    header.state = over || quiet ? BlockHeaderState::NotBlock : BlockHeaderState::NeedMore;
                    if (header.state != BlockHeaderState::NeedMore) return true;
                    if (!view.empty() && view[0] == '#') askAgainIfDone();
                    return false;
                }
                view.remove_prefix(skip);
            }
            header = framing == Framing::Legacy ? ParseBlockHeader(view, quiet, kMaxBlockBytes - 1)
                                                : ParseDefiniteBlockHeader(view, quiet, kMaxBlockBytes - 1);
            if (header.state != BlockHeaderState::NeedMore) return true;
            if (!view.empty() && view[0] == '#') askAgainIfDone();
            return false;
        },
        "waiting for a data block" + of, true, replyTimeoutMs_, deadline);
    if (end == WaitEnd::PastDeadline)
        fail("The DSO did not send the data block" + of + " within " + SecondsText(exchangeDeadlineMs_) +
             "; the link was closed.");
    if (end == WaitEnd::Silent)
        fail("The DSO did not send the data block" + of + " (no header within " + std::to_string(replyTimeoutMs_) +
             " ms); the link was closed.");
    if (header.state == BlockHeaderState::NotBlock)
        fail("The DSO's reply" + of + " is not a data block: it begins \"" + PrintableBytes(pending_, 24) +
             (framing == Framing::Legacy ? "\" instead of \"#\", a digit and eight length digits."
                                         : "\" instead of \"#\", a digit n and n length digits."));
    const int64_t n = header.length;
    if (header.state == BlockHeaderState::TooLong)
        fail("The DSO announced a data block" + of + " of " + std::to_string(n) + " bytes, more than the " +
             std::to_string(kMaxBlockBytes - 1) + " bytes of the longest record; the link was closed.");
    // Checked before the payload is waited for: a block of the wrong size is
    // never taken, neither padded nor cut.
    if (check && check->bytes >= 0 && n != check->bytes)
        fail("The DSO's block" + of + " holds " + std::to_string(n) + " bytes, not the " +
             std::to_string(check->bytes) + " asked for; the pass was ended and the link closed.");
    const size_t headerBytes = skip + header.headerBytes;
    const auto lineEnds = static_cast<size_t>(std::max(how.lineEnds, 1));
    const size_t total = headerBytes + static_cast<size_t>(n) + lineEnds;
    pending_.reserve(total);
    const int64_t shownTotal = how.total > 0 ? how.total : n + 1;
    int64_t lastShown = -1;
    bool noTerminator = false;
    end = waitFor(
        [&] {
            if (progressPort) {
                int64_t got =
                    std::min<int64_t>(static_cast<int64_t>(pending_.size()) - static_cast<int64_t>(headerBytes), n + 1);
                if (got != lastShown) {
                    progressPort->progress(how.before + got, shownTotal);
                    lastShown = got;
                }
            }
            if (pending_.size() >= total) return true;
            // The payload is all there and nothing more comes: the LF is missing.
            noTerminator = pending_.size() >= total - lineEnds && sinceDataMs() >= quietMs_;
            if (pending_.size() < total - lineEnds) askAgainIfDone();
            return noTerminator;
        },
        "reading a data block" + of + " of " + std::to_string(n) + " bytes", true, replyTimeoutMs_, deadline);
    if (noTerminator)
        fail("The DSO's block" + of + " has no line feed after its " + std::to_string(n) +
             " bytes; the pass was ended and the link closed.");
    if (end == WaitEnd::PastDeadline)
        fail("The DSO did not send the data block" + of + " within " + SecondsText(exchangeDeadlineMs_) + " (" +
             std::to_string(pending_.size() - headerBytes) + " of " + std::to_string(n + 1) +
             " bytes); the link was closed.");
    if (end == WaitEnd::Silent)
        fail("The DSO stopped sending the data block" + of + " after " + std::to_string(pending_.size() - headerBytes) +
             " of " + std::to_string(n + 1) + " bytes; the link was closed.");
    // A byte other than LF after the payload, or bytes already behind the LF,
    // mean the block is longer than its header says.
    const bool ended =
        std::all_of(pending_.begin() + static_cast<std::ptrdiff_t>(total - lineEnds),
                    pending_.begin() + static_cast<std::ptrdiff_t>(total), [](char c) { return c == '\n'; });
    if (!ended || pending_.size() > total)
        fail("The DSO's block" + of + " has more bytes than its header declares (" + std::to_string(n) +
             "); the pass was ended and the link closed.");
    data.resize(static_cast<size_t>(n) + 1);
    std::copy(pending_.begin() + static_cast<std::ptrdiff_t>(headerBytes),
              pending_.begin() + static_cast<std::ptrdiff_t>(headerBytes + static_cast<size_t>(n) + 1), data.begin());
    pending_.erase(0, total);
    if (progressPort && how.total <= 0) progressPort->progress(0, 0);
    return n;
}

void DsoLink::askAgainIfDone() {
    if (!transport_->replyPending()) transport_->replyWanted();
}

void DsoLink::pauseBetweenPolls() {
    QEventLoop pause;
    QTimer::singleShot(kStatusPollPauseMs, &pause, &QEventLoop::quit);
    QEventLoop* outer = loop_;
    loop_ = &pause;  // Stop and abort end the pause at once
    if (!StopRequested && !aborted_) pause.exec();
    loop_ = outer;
}

bool DsoLink::WaitSingleAcquisition() {
    clearStop();
    SendDsoCommand("*ESE 255");
    (void)QueryDso("TESR?", 256);
    SendDsoCommand("WSGL");
    return PollUntil([this] {
        std::string reply = QueryDso("TESR?", 256);
        // Garbage instead of the event register would be read as 0 for ever.
        if (!LooksNumeric(reply))
            fail("The DSO's reply to \"TESR?\" is not a number: \"" + PrintableBytes(reply, 24) +
                 "\"; the link was closed.");
        return (ToInt32(Val(reply)) & 1) != 0;
    });
}

bool DsoLink::PollUntil(const std::function<bool()>& done) {
    for (bool first = true;; first = false) {
        if (!first) pauseBetweenPolls();
        QEventLoop yield;
        yield.processEvents(QEventLoop::AllEvents);
        if (aborted_) fail("The acquisition wait was ended: the program is ending.");
        if (StopRequested) return true;
        if (done()) return false;
    }
}

}  // namespace mervasto
