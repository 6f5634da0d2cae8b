#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "sim/DialectModel.h"
#include "sim/ScpiHeaders.h"

namespace mervasto {

// The models the Rigol dialect can be (DS1000Z, MSO1000Z), the default first.
const std::vector<std::string>& RigolModels();

// A Rigol DS1000Z / MSO1000Z as its programming guide describes it: SCPI
// headers in long or short form and any case, 8-bit codes with
// volts = (code - YORigin - YREFerence) x YINCrement, the memory read in RAW
// mode only while stopped and in batches of at most 250,000 points
// (BYTE), "#9" blocks, an error queue, and a single acquisition armed by
// ":SINGle" that ends with ":TRIGger:STATus?" reading STOP. What it refuses
// goes to the error queue: an unknown header gets no reply, a refused
// memory read an empty block.
class RigolModel : public DialectModel {
public:
    explicit RigolModel(SimOptions options = {});

    std::vector<SimReply> handle(std::string_view line) override;
    int channelsOf(const std::string& model) const override;
    void acquisitionDone(std::shared_ptr<const SimRecord> record) override;

    // The codes of the memory: 25 per division around 127 (and the
    // channel's offset in codes).
    static constexpr double kCodesPerDiv = 25.0;
    static constexpr int kReference = 127;
    static constexpr int64_t kBytePoints = 250000;
    static constexpr int kScreenPoints = 1200;

    const std::deque<std::string>& errorQueue() const { return errors_; }
    const std::string& runState() const { return run_; }

private:
    void command(const ScpiCommand& c, std::vector<SimReply>& out);
    bool query(const ScpiCommand& c, std::string& reply);
    bool setting(const ScpiCommand& c);
    void waveData(std::vector<SimReply>& out);
    std::string preamble() const;
    int64_t memoryPoints() const;
    double xIncrement() const;
    double yIncrement(int ch) const;
    int yOrigin(int ch) const;
    bool badSetupReply(const ScpiCommand& c, std::string& reply) const;
    void error(const std::string& entry) { errors_.push_back(entry); }

    std::deque<std::string> errors_;
    std::string run_ = "RUN";  // RUN, WAIT, TD, STOP
    std::string sweep_ = "AUTO";
    int source_ = 0;  // the channel read, from 0
    std::string mode_ = "NORM";
    std::string format_ = "BYTE";
    int64_t start_ = 1;
    int64_t stop_ = 1200;
};

}  // namespace mervasto
