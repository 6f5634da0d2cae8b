#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/DialectModel.h"

namespace mervasto {

// The legacy instrument (DS-5352, DS-5354): its line-oriented command set
// and "#8" blocks.
class InstrumentModel : public DialectModel {
public:
    explicit InstrumentModel(SimOptions options = {});

    std::vector<SimReply> handle(std::string_view line) override;
    int channelsOf(const std::string& model) const override;
    void acquisitionDone(std::shared_ptr<const SimRecord> record) override;

private:
    void statement(std::string_view cmd, std::vector<SimReply>& out);
    bool answer(std::string_view cmd, std::string& out);
    bool badSetupReply(std::string_view cmd, std::string& out) const;
    std::string waveBlock() const;
    std::string screenBlock() const;

    // Transfer settings as the host left them.
    bool word_ = false;
    bool lowFirst_ = false;
    int64_t points_ = 0;
    int64_t start_ = 0;
    std::string source_ = "CH1";
    bool acquired_ = false;  // bit 0 of the trigger event register
};

// Volts to instrument counts: round((v + offset) / vdiv x countsPerDiv),
// clamped to the format's range (8-bit: 32 per division, 16-bit: 8192).
int32_t SimCounts(float volts, double voltsPerDiv, double offset, bool word);

// The "DTINF?" reply for a state.
std::string SimDtinf(const SimState& state);

}  // namespace mervasto
