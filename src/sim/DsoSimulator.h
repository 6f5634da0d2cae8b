#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class QThread;

namespace mervasto {

// Faults the simulated instrument can show.
enum class SimFault {
    None,
    Refuse,         // connections are refused
    Silent,         // nothing is ever answered
    Late,           // every reply comes lateMs late
    OneByte,        // replies trickle in one byte at a time
    CloseMidBlock,  // the connection closes halfway through a block
    BadHeader,      // blocks start with a malformed header
    HugeBlock,      // blocks announce 99,999,999 bytes
    Garbage,        // text replies (and blocks) are garbage text
    ShortBlock,     // blocks carry half the points asked for (the header says so)
    LongBlock,      // more bytes than the header declares follow the payload
    NoTerminator,   // blocks end without their line feed
    EndlessReply,   // text replies never end: bytes without a line end, steadily
    BadSetup,       // one setup reply is malformed (SimOptions::badSetupField)
};

// "none", "refuse", "silent", "late", "one-byte", "close-mid-block",
// "bad-header", "huge-block", "garbage", "short-block", "long-block",
// "no-terminator", "endless-reply", "bad-setup".
const char* SimFaultName(SimFault fault);
bool SimFaultFromName(const std::string& name, SimFault& fault);
const std::vector<std::string>& SimFaultNames();

struct SimChannel {
    double voltsPerDiv = 1.0;
    double offset = 0.0;
    std::string coupling = "DC1M";
    std::string bandwidth = "OFF";
    std::string trace = "ON";
    std::string inverted = "OFF";
};

// Everything the instrument reports and the host may set.
struct SimState {
    std::string model = "DS-5354";
    std::string scenario = "pulses";
    int32_t recordLength = 10000;
    double timePerDiv = 1e-3;
    double triggerDelay = 0.0;
    std::string acqMode = "NORMAL";  // "AVERAGE" and "HIGH_RES" make the host ask for words
    std::string triggerSource = "CH1";
    double triggerLevel = 1.5;
    std::string triggerMode = "SINGLE";
    std::array<SimChannel, 4> ch;
    std::string cursorMode = "OFF";  // "DH" / "DHDV" are horizontal-cursor modes
    double cursor1 = -2.5;           // divisions from the screen centre
    double cursor2 = 2.5;
};

struct SimOptions {
    uint16_t port = 0;  // 0 = any free port
    SimState state;
    SimFault fault = SimFault::None;
    int acqDelayMs = 50;  // WSGL to completed acquisition
    int lateMs = 500;     // delay of the Late fault
    int screenBytes = 0;  // 0 = the natural PNG size; otherwise exactly this many bytes
    // When more than 0, the fault starts only when block number n + 1 is
    // asked for (a series that goes wrong halfway).
    int faultAfterBlocks = 0;
    // OneByte: one byte every tricklePeriodMs (0 = as fast as the loop runs).
    int tricklePeriodMs = 0;
    // BadSetup: "TDIV", "VDIV", "OFST" (a non-numeric reply; VDIV and OFST of
    // every channel) or "DTINF" (a reply with too few fields).
    std::string badSetupField = "TDIV";
    uint32_t seed = 1;
};

// The instrument on a loopback port, answering in its own thread so that a
// client waiting with nested event loops in the caller's thread is served.
// Every accessor is thread-safe.
class DsoSimulator {
public:
    explicit DsoSimulator(SimOptions options = {});
    ~DsoSimulator();
    DsoSimulator(const DsoSimulator&) = delete;
    DsoSimulator& operator=(const DsoSimulator&) = delete;

    // Starts the thread and listens; false when the port cannot be opened.
    bool start();
    void stop();
    uint16_t port() const;
    // "127.0.0.1:<port>", what the address box takes.
    std::string address() const;

    // Every line received, without its LF.
    std::vector<std::string> commandLog() const;
    // Waits until the last command logged is this one (the client's last
    // command may still be on its way when the client returns). False when
    // it did not come within the time.
    bool waitForLastCommand(const std::string& command, int timeoutMs = 5000) const;
    // Waits until done(command log, connections open) holds; it is asked
    // again whenever a command arrives or a connection opens or closes.
    bool waitUntil(const std::function<bool(const std::vector<std::string>& log, int open)>& done,
                   int timeoutMs = 5000) const;
    void clearLog();
    int connectionCount() const;

    SimState state() const;
    void setState(const SimState& state);
    // Sets the fault from now on and drops one still waiting (setFaultAfter).
    void setFault(SimFault fault);
    SimFault fault() const;
    void setAcqDelayMs(int ms);
    void setLateMs(int ms);
    void setScreenBytes(int bytes);
    void setTricklePeriodMs(int ms);
    void setBadSetupField(const std::string& field);
    // "TESR?" queries received so far (the polls of an acquisition wait).
    int statusPolls() const;
    // Called in the simulator's thread with every line received, before it is
    // answered: lets a test act at an exact point of an exchange.
    void setCommandHook(std::function<void(const std::string&)> hook);
    // The fault starts when block number blocksSent() + blocks + 1 is asked
    // for; SimFault::Refuse then switches the instrument off.
    void setFaultAfter(SimFault fault, int blocks);
    // Switched off now: connections drop, connects are refused (the Refuse
    // fault); setFault(SimFault::None) switches it on again.
    void switchOff();
    int blocksSent() const;
    // A fixed reply for one exact query text (tests of odd replies), sent
    // with a LF, or byte for byte as given when raw.
    void setReplyOverride(const std::string& query, const std::string& reply, bool raw = false);
    void clearReplyOverrides();
    // Generates a fresh record now (as a completed acquisition does).
    void regenerate();
    // The record the instrument holds, volts per channel.
    std::vector<std::vector<float>> record() const;

    struct Shared;
    class Worker;

private:
    std::shared_ptr<Shared> shared_;
    std::unique_ptr<QThread> thread_;
    Worker* worker_ = nullptr;
};

// Volts to instrument counts: round((v + offset) / vdiv x countsPerDiv),
// clamped to the format's range (8-bit: 32 per division, 16-bit: 8192).
int32_t SimCounts(float volts, double voltsPerDiv, double offset, bool word);

// A PNG of the simulated screen (grid and traces of the record).
std::vector<uint8_t> SimScreenPng(const std::vector<std::vector<float>>& record, const SimState& state);

// The "DTINF?" reply for a state.
std::string SimDtinf(const SimState& state);

}  // namespace mervasto
