#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "sim/DialectModel.h"
#include "sim/ScpiHeaders.h"

namespace mervasto {

// The models the Keysight dialect can be (InfiniiVision 1000 X to 4000 X),
// the default first.
const std::vector<std::string>& KeysightModels();

// A Keysight InfiniiVision 1000 X / 2000 X / 3000 X / 4000 X as its
// programmer's guide describes it: SCPI headers in long or short form and
// any case; a preamble of ten fields with volts = (code - YREFerence) x
// YINCrement + YORigin, YORigin the volts at the screen's centre and
// YREFerence half the codes (128 BYTE, 32768 WORD, unsigned); WORD data in
// either byte order (MSBFirst unless told); "#8" blocks, the whole record in
// one. The raw acquisition record is there only once stopped: while running,
// RAW and MAXimum give the measurement record of at most 62,500 points.
// ":SINGle" arms one acquisition; the trigger event register (":TER?") and
// the run bit (8) of ":OPERegister:CONDition?" tell its end. What it does not
// know goes to the error queue without a reply.
class KeysightModel : public DialectModel {
public:
    explicit KeysightModel(SimOptions options = {});

    std::vector<SimReply> handle(std::string_view line) override;
    int channelsOf(const std::string& model) const override;
    void acquisitionDone(std::shared_ptr<const SimRecord> record) override;

    // The screen spans this many divisions of the time base.
    static constexpr int kDivisions = 10;
    static constexpr int64_t kMeasurementPoints = 62500;

    const std::deque<std::string>& errorQueue() const { return errors_; }
    bool running() const { return running_; }

private:
    void command(const ScpiCommand& c, std::vector<SimReply>& out);
    bool query(const ScpiCommand& c, std::string& reply);
    bool setting(const ScpiCommand& c);
    void waveData(std::vector<SimReply>& out);
    std::string preamble() const;
    int64_t points() const;
    double yIncrement() const;
    double yReference() const;
    bool badSetupReply(const ScpiCommand& c, std::string& reply) const;
    void error(const std::string& entry) { errors_.push_back(entry); }

    std::deque<std::string> errors_;
    bool running_ = true;
    bool triggered_ = false;  // the trigger event register
    int source_ = 0;          // the channel read, from 0
    std::string pointsMode_ = "NORM";
    int64_t pointsAsked_ = 1000;  // 0: MAXimum
    std::string format_ = "BYTE";
    std::string byteOrder_ = "MSBF";
};

}  // namespace mervasto
