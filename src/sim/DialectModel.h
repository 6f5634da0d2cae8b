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
    uint16_t port = 0;  // 0 = any free port (with VXI-11: the portmapper's)
    // How the host reaches it: "raw" (the instrument's socket), "vxi11" (a
    // portmapper on port and the core channel on a free port, both on
    // loopback) or "usbtmc" (a local packet socket at usbtmcPath standing in
    // for the device node: one packet, one message).
    std::string transport = "raw";
    std::string usbtmcPath;
    // The most one VXI-11 device_read returns: a longer reply takes several.
    int vxi11ReadBytes = 64 * 1024;
    // The command set spoken (sim/Dialects.h): "legacy", "rigol", "siglent", "keysight",
    // "tektronix".
    std::string dialect = "legacy";
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

// One simulated instrument without its socket: each line from the host goes
// in, the replies come out in order, with how the socket side must deliver
// them. A dialect is one subclass that parses its own commands and builds
// its own blocks, written from the maker's guide and not from the driver,
// so that a misreading in one is not mirrored in the other. This base keeps
// what every dialect shares: the state, the record, the faults (from the
// start or from a chosen block on) and fixed replies for tests. Not
// thread-safe; the simulator's server serialises the calls. Records are
// generated outside it and handed in, so that nothing slow runs while the
// server holds its lock.
class DialectModel {
public:
    explicit DialectModel(SimOptions options);
    virtual ~DialectModel() = default;
    DialectModel(const DialectModel&) = delete;
    DialectModel& operator=(const DialectModel&) = delete;

    virtual std::vector<SimReply> handle(std::string_view line) = 0;
    // The channels a model of this dialect has.
    virtual int channelsOf(const std::string& model) const = 0;
    int channels() const { return channelsOf(opt_.state.model); }

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
    // An acquisition armed by the dialect's command completed with this record.
    virtual void acquisitionDone(std::shared_ptr<const SimRecord> record);

    void setReplyOverride(const std::string& query, const std::string& reply, bool raw);
    void clearReplyOverrides() { overrides_.clear(); }

    int blocksSent() const { return blocksSent_; }
    // The polls of an acquisition wait (the dialect's completion query).
    int statusPolls() const { return statusPolls_; }

protected:
    // Generates the first record; the subclass's constructor calls it, once
    // its channel count can be asked.
    void generateFirstRecord();
    // The fixed reply a test set for this exact line, as the fault delivers it.
    bool overridden(std::string_view line, std::vector<SimReply>& out) const;
    // A text reply (its line end added) as the fault delivers it.
    void text(const std::string& reply, std::vector<SimReply>& out) const;
    // A block of the payload with the dialect's count of length digits, as
    // the fault shapes it; the fault set to start at this block starts. A
    // dialect that names its blocks puts `before` ahead of the "#", one that
    // ends them with more than a line feed `after` behind it.
    void block(const std::string& payload, int lengthDigits, std::vector<SimReply>& out, const std::string& before = {},
               const std::string& after = {});
    // The screen as a PNG block (of screenBytes bytes when set).
    void screenBlock(int lengthDigits, std::vector<SimReply>& out);

    SimOptions opt_;
    std::shared_ptr<const SimRecord> record_;
    int statusPolls_ = 0;

private:
    std::map<std::string, std::pair<std::string, bool>> overrides_;
    int blocksSent_ = 0;
    int faultAt_ = 0;  // the block count at which laterFault_ starts (0 = never)
    SimFault laterFault_ = SimFault::None;
    uint32_t generation_ = 0;
};

// Trims blanks and carriage returns from both ends of a command.
std::string_view TrimCommand(std::string_view s);
// A header or word in upper case: the dialects take them in any case.
std::string UpperCase(std::string_view s);

// A PNG of the simulated screen (grid and traces of the record).
std::vector<uint8_t> SimScreenPng(const SimRecord& record, const SimState& state);

}  // namespace mervasto
