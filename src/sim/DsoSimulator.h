#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/InstrumentModel.h"

class QThread;

namespace mervasto {

// The instrument on a loopback port: the socket server around the model of
// its dialect (SimOptions::dialect), answering in its own thread so that a client waiting with
// nested event loops in the caller's thread is served. Every accessor is
// thread-safe.
class DsoSimulator {
public:
    explicit DsoSimulator(SimOptions options = {});
    ~DsoSimulator();
    DsoSimulator(const DsoSimulator&) = delete;
    DsoSimulator& operator=(const DsoSimulator&) = delete;

    // Starts the thread and listens; false when the port cannot be opened.
    bool start();
    bool started() const { return thread_ != nullptr; }
    void stop();
    uint16_t port() const;
    // What the address box takes: "127.0.0.1:<port>", "vxi11://127.0.0.1:<port>/inst0"
    // or the USBTMC stand-in's path.
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
    // Completion queries received so far (the polls of an acquisition wait:
    // "TESR?", ":TRIG:STAT?").
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
    SimRecord record() const;
    // Time spent answering so far: making the replies and handing them to
    // the socket (what a benchmark of the host leaves out).
    double servingSeconds() const;

    struct Shared;
    class Worker;

private:
    std::shared_ptr<Shared> shared_;
    std::unique_ptr<QThread> thread_;
    Worker* worker_ = nullptr;
};

}  // namespace mervasto
