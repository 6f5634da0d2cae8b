#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/Channels.h"
#include "sim/SimFaults.h"

namespace mervasto {

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
    std::array<SimChannel, kChannels> ch;
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
    // BadSetup: which reply is spoilt (SimBadSetupFields): "TDIV", "VDIV",
    // "OFST" (not a number; VDIV and OFST of every channel), "DTINF" (too few
    // fields), "IDN" (an empty identification), "LENGTH" (a record length of
    // -70000), "TRDL", "TLVL" (beyond a float), "INTERVAL" (a time base
    // that leaves a sample interval too small for a float), "VOLTS" (a
    // volts/div too small for the volts of a count, every channel).
    std::string badSetupField = "TDIV";
    uint32_t seed = 1;
};

// Volts per channel, as the instrument holds them.
using SimRecord = std::vector<std::vector<float>>;

// What to generate for a record: the scenario, its shape and its seed.
struct SimRecordOrder {
    std::string scenario;
    int channels = 4;
    int32_t length = 0;
    uint32_t seed = 1;
};
SimRecord GenerateSimRecord(const SimRecordOrder& order);

// The instrument without its socket: each line from the host goes in, the
// replies come out in order, with how the socket side must deliver them.
// Not thread-safe; the simulator's server serialises the calls. Records are
// generated outside it and handed in, so that nothing slow runs while the
// server holds its lock.
class InstrumentModel {
public:
    explicit InstrumentModel(SimOptions options = {});

    std::vector<SimReply> handle(std::string_view line);

    SimOptions& options() { return opt_; }
    const SimOptions& options() const { return opt_; }
    // The fault from now on; one still waiting for its block is dropped.
    void setFault(SimFault fault);
    // The fault starts when block number blocksSent() + blocks + 1 is asked for.
    void setFaultAfter(SimFault fault, int blocks);
    // Sets the state; true when the record must be generated again (the
    // scenario, the length or the channel count changed).
    bool setState(const SimState& state);

    // The record now held, and a fresh one's order (each order a new seed).
    std::shared_ptr<const SimRecord> recordShared() const { return record_; }
    SimRecordOrder nextRecordOrder();
    SimRecordOrder recordOrder() const;
    void setRecord(std::shared_ptr<const SimRecord> record);
    // An acquisition armed by "WSGL" completed with this record.
    void acquisitionDone(std::shared_ptr<const SimRecord> record);

    void setReplyOverride(const std::string& query, const std::string& reply, bool raw);
    void clearReplyOverrides() { overrides_.clear(); }

    int blocksSent() const { return blocksSent_; }
    int statusPolls() const { return statusPolls_; }

private:
    void statement(std::string_view cmd, std::vector<SimReply>& out);
    bool answer(std::string_view cmd, std::string& out);
    bool badSetupReply(std::string_view cmd, std::string& out) const;
    void block(const std::string& payload, std::vector<SimReply>& out);
    std::string waveBlock() const;
    std::string screenBlock() const;

    SimOptions opt_;
    std::shared_ptr<const SimRecord> record_;
    std::map<std::string, std::pair<std::string, bool>> overrides_;
    int blocksSent_ = 0;
    int faultAt_ = 0;  // the block count at which laterFault_ starts (0 = never)
    SimFault laterFault_ = SimFault::None;
    // Transfer settings as the host left them.
    bool word_ = false;
    bool lowFirst_ = false;
    int64_t points_ = 0;
    int64_t start_ = 0;
    std::string source_ = "CH1";
    bool acquired_ = false;  // bit 0 of the trigger event register
    uint32_t generation_ = 0;
    int statusPolls_ = 0;
};

// Volts to instrument counts: round((v + offset) / vdiv x countsPerDiv),
// clamped to the format's range (8-bit: 32 per division, 16-bit: 8192).
int32_t SimCounts(float volts, double voltsPerDiv, double offset, bool word);

// A PNG of the simulated screen (grid and traces of the record).
std::vector<uint8_t> SimScreenPng(const SimRecord& record, const SimState& state);

// The "DTINF?" reply for a state.
std::string SimDtinf(const SimState& state);

}  // namespace mervasto
