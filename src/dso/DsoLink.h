#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/Outcome.h"
#include "common/RuntimeError.h"
#include "common/UiPort.h"
#include "dso/ByteTransport.h"
#include "wavefile/DsoSetup.h"

class QEventLoop;
class QElapsedTimer;
class QThread;

namespace mervasto {

// The instrument's texts as the user sees them.
inline constexpr const char* kConnectingToDso = "Connecting to the DSO.";
inline constexpr const char* kDsoNotConnected = "DSO not connected normally.";
inline constexpr const char* kDsoNotInterfaced = "DSO not interfaced normally.";
inline constexpr const char* kDsoConfirmationTitle = "Confirmation";

inline constexpr const char* kDefaultDsoAddress = "192.168.1.101";
inline constexpr const char* kDsoPortText = "5198";
inline constexpr uint16_t kDsoPort = 5198;

// The largest block the link accepts: a word-format record of the longest
// length and its line end.
inline constexpr int64_t kMaxBlockBytes = int64_t{5000011} * 2 + 1;

// After Stop, an exchange still waiting on an instrument silent this long is
// ended: Stop must never have to wait for the time-out.
inline constexpr int kStopSilenceMs = 2000;
// The acquisition wait's pause between two status polls, so that a waiting
// instrument is asked a few hundred times a second, not thousands.
inline constexpr int kStatusPollPauseMs = 5;

// What a wave block must be: the source it is for (named in messages) and
// its payload byte count.
struct BlockCheck {
    std::string source;
    int64_t bytes = -1;  // -1: any length the header declares
};

// How a block of any header length is read: its check, and where its
// progress goes. A transfer read in several blocks shows one progress over
// all of them: before is what the blocks before this one held, total the
// whole transfer (0: this block alone, hidden again at its end).
struct BlockRead {
    const BlockCheck* check = nullptr;
    UiPort* progress = nullptr;
    int64_t before = 0;
    int64_t total = 0;
    // Some instruments name the block first ("DAT2,#9..."): up to this many
    // bytes before its "#" are passed over (0: the reply is the block).
    size_t textBefore = 0;
    // The line feeds that end the block (two from some instruments).
    int lineEnds = 1;
};

// Socket states as the link reports them (the values the callers compare).
inline constexpr int16_t kLinkClosed = 0;
inline constexpr int16_t kLinkResolving = 4;
inline constexpr int16_t kLinkConnecting = 6;
inline constexpr int16_t kLinkConnected = 7;
inline constexpr int16_t kLinkClosing = 8;
inline constexpr int16_t kLinkError = 9;

// Which door to the instrument an address names: "vxi11://HOST[:PORT][/DEVICE]"
// a VXI-11 link, a path ("/dev/usbtmc0") a USBTMC device node, anything else
// the raw network socket.
enum class DsoTransport { Socket, Vxi11, Usbtmc };
DsoTransport TransportOfAddress(std::string_view addressText);

// Host and port of the address box: a host name or dotted address, port 5198;
// "host:port" names another port (the local simulator). A VXI-11 or USBTMC
// address is the host as it stands, with no port (it names its own door).
struct DsoAddress {
    std::string host;
    std::string port;
    bool portGiven = false;  // the text named the port, or the address needs none
    DsoTransport transport = DsoTransport::Socket;
    // What the link reports as its peer when it stands on this address.
    std::string peer() const { return port.empty() ? host : host + ":" + port; }
};
DsoAddress ParseDsoAddress(const std::string& addressText);

// Written by the socket's notifications, cleared by the waits.
struct DsoSocketEvents {
    bool Connected = false;
    bool DataArrived = false;
    int32_t BytesTotal = 0;
    bool SendCompleted = false;
};

// The one connection to the instrument, which is not trusted: every
// reply is bounded in size and time. Every wait runs a local event loop, so
// the window (or a QCoreApplication) keeps working meanwhile; a silent or
// vanished peer, an exchange past its deadline, a malformed block, a second
// Stop and closing the program end a wait, and an ended wait leaves the link
// closed with DsoLinked false so that the next run connects again. Failures
// throw RuntimeError after closing: ErrorCode::Canceled when Stop ended the
// exchange, ErrorCode::Link for everything else. Use from one thread (the one
// that owns the event loop); requestStop and abort may be called from anywhere.
class DsoLink {
public:
    // Over the given transport; a raw network socket when none is given.
    explicit DsoLink(std::unique_ptr<ByteTransport> transport = nullptr);
    ~DsoLink();
    DsoLink(const DsoLink&) = delete;
    DsoLink& operator=(const DsoLink&) = delete;

    // Connects when the socket is closed and waits until it leaves the
    // connecting state. Returns the state: 0 closed, 6 connecting,
    // 7 connected, 9 error (refused, unreachable, connect time-out). Callers
    // treat only 9 as failure. Closing the program, a second Stop, or a
    // Stop once the connect has hung for kStopSilenceMs, throws.
    int16_t LinkToSLA(const std::string& address, const std::string& port);
    // Sends command + LF and waits until the bytes are written.
    void SendDsoCommand(const std::string& command);
    // Sends command + LF and returns the first line of the reply, cut at
    // maxLength characters. A reply split over several segments is joined up
    // to its line end; one without a line end is taken once nothing more has
    // arrived for the quiet time.
    std::string QueryDso(const std::string& command, int32_t maxLength);
    // Reads one "#8nnnnnnnn" block of the query just sent: data gets the N
    // payload bytes and the LF (N + 1 bytes); returns N. A block without its
    // LF, with bytes beyond the declared length, or (with check) of another
    // length than asked for closes the link and throws. Progress of a long
    // block goes to progressPort when given.
    int32_t ReadDsoBlock(std::vector<uint8_t>& data, UiPort* progressPort = nullptr, const BlockCheck* check = nullptr);
    // Reads one definite-length block "#" + n + n length digits (any n from
    // 1 to 9) of the query just sent, with the same checks: data gets the
    // payload and the LF; returns the payload length.
    int64_t ReadBlock(std::vector<uint8_t>& data, const BlockRead& how = {});
    // Arms one single acquisition and polls until it completes, pausing
    // between polls. True when it was ended by Stop (the link stays usable
    // then). The wait itself has no deadline; each poll has.
    bool WaitSingleAcquisition();
    // The acquisition wait of any dialect: polls done() (one status query)
    // until it holds, pausing between polls; true when Stop ended the wait.
    bool PollUntil(const std::function<bool()>& done);

    // Closes the socket at once; DsoLinked becomes false.
    void close();
    // The program is closing: ends any wait, closes, and refuses further use.
    void abort();
    // Stop. The first one sets StopRequested, which ends the acquisition wait;
    // an exchange in progress is let finish unless the instrument has been
    // silent for kStopSilenceMs. A second one (StopRequested still set) ends
    // the exchange in progress, or the next one when none is, at once.
    void requestStop();
    // A new run: no Stop is pending.
    void clearStop();
    // The instrument broke the protocol: closes the link (no return to local,
    // its state is unknown) and throws RuntimeError(ErrorCode::Link, text).
    [[noreturn]] void failExchange(const std::string& text);

    int16_t state() const;
    // Why the transport could not connect or broke, when it knows (VXI-11,
    // USBTMC); empty otherwise.
    std::string transportFailure() const { return transport_->failure(); }
    bool aborted() const { return aborted_.load(); }
    // "host:port" of the open connection, as LinkToSLA was given them; empty
    // when the socket is not connected.
    std::string peer() const { return state() == kLinkConnected ? peer_ : std::string(); }

    // A silent instrument ends an exchange after this long without a byte
    // (0 = wait for ever). Also bounds connecting and sending.
    void setReplyTimeoutMs(int ms) {
        replyTimeoutMs_ = ms;
        transport_->setTimeoutMs(ms);
    }
    int replyTimeoutMs() const { return replyTimeoutMs_; }
    // Every exchange (a command, a query and its reply, one block) ends after
    // this long however steadily bytes trickle in (0 = no deadline).
    void setExchangeDeadlineMs(int ms) { exchangeDeadlineMs_ = ms; }
    int exchangeDeadlineMs() const { return exchangeDeadlineMs_; }
    // A reply without a line end is complete after this long without data.
    void setQuietMs(int ms) { quietMs_ = ms; }
    // Connecting gives up after this long (0: the reply time-out): short
    // while ports are tried one after another.
    void setConnectTimeoutMs(int ms) { connectTimeoutMs_ = ms; }

    DsoSocketEvents events;
    bool DsoLinked = false;
    std::atomic<bool> StopRequested{false};

    // The transfer byte buffer, kept between transfers.
    std::vector<uint8_t> transferBuffer;

private:
    enum class WaitEnd { Done, Silent, PastDeadline };
    enum class Framing { Legacy, Definite };
    void onNotice(ByteTransport::Notice n);
    int64_t readFramed(std::vector<uint8_t>& data, Framing framing, const BlockRead& how);
    bool socketOpen() const;
    [[noreturn]] void fail(const std::string& text, ErrorCode code = ErrorCode::Link);
    // Runs a local event loop until done() holds. Throws (after closing) on
    // a hard Stop, on abort and, when needOpen, on a closed peer; reports
    // silence (timeoutMs without a byte) and the deadline (deadlineAtMs on
    // clock_, < 0 for none) instead of throwing so that connecting can answer 9.
    WaitEnd waitFor(const std::function<bool()>& done, const std::string& what, bool needOpen, int timeoutMs,
                    int64_t deadlineAtMs = -1);
    int64_t deadlineFromNow() const;
    void pauseBetweenPolls();
    // A block still short of bytes after its message ended (a device that
    // cuts long replies into several): the next part is asked for.
    void askAgainIfDone();
    void pullSocket();
    int64_t sinceDataMs() const;
    void checkUsable(const std::string& what);

    std::unique_ptr<ByteTransport> transport_;
    QEventLoop* loop_ = nullptr;
    QEventLoop* waitLoop_ = nullptr;  // the wait that the transport's notices end
    QThread* ownerThread_ = nullptr;
    std::string pending_;  // bytes read from the socket, not yet consumed
    std::string peer_;
    std::atomic<bool> aborted_{false};
    std::atomic<bool> hardStop_{false};
    bool socketError_ = false;
    int replyTimeoutMs_ = 10000;
    int exchangeDeadlineMs_ = 10000;
    int quietMs_ = 200;
    int connectTimeoutMs_ = 0;
    std::unique_ptr<QElapsedTimer> clock_;
    int64_t lastDataMs_ = 0;
};

// Connects and identifies when DsoLinked is false: "Connecting to the DSO."
// in status panel 1, LinkToSLA, and when it answers 9 the outcome
// "DSO not connected normally." (ErrorCode::Link). Otherwise "*IDN?" gives
// the model and the channel count and DsoLinked is set; a reply that names
// no model of 2 or 4 channels closes the link (ErrorCode::Link, naming the
// reply) and leaves the setup as it was. Ok when linked.
Outcome ConnectAndIdentify(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText);

// The legacy instrument's identification: field 1 of the reply is the model,
// its 7th character the channel count, 2 or 4; anything else closes the link
// (ErrorCode::Link, naming the reply) and leaves the setup as it was.
void TakeLegacyIdentity(DsoLink& link, const std::string& reply, DsoSetup& setup);

// The box the window shows for an outcome of the instrument layer: the two
// link texts get their "Confirmation" box with the buttons they always had
// (Cancel / Try Again / Continue for connecting, OK / Cancel for the setup
// readout and the screen); any other outcome has none here.
struct LinkBox {
    MsgButtons buttons;
    const char* title;
};
std::optional<LinkBox> LinkBoxOf(const Outcome& outcome);

// The channel count of a model text: its 7th character as a number.
int16_t ChannelCountOfModel(const std::string& model);

}  // namespace mervasto
