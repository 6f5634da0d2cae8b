#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/DialectModel.h"

namespace mervasto {

// The models the Siglent dialect can be (SDS1000X-E, SDS2000X), the default first.
const std::vector<std::string>& SiglentModels();

// A Siglent SDS1000X-E / SDS2000X in its older command set, as its
// programming guide describes it: headers in short or long form and any
// case, a channel named before them ("C1:VDIV?"), replies with their header
// and units until "CHDR OFF"; signed 8-bit codes, 25 a division, with
// volts = code x VDIV / 25 - OFST; "WF? DAT2" answered with the block named
// before its "#9" and ended by two line feeds; "WFSU" choosing the points;
// "ARM" starting an acquisition that sets bit 0 of "INR?". Errors go to the
// command error register ("CMR?") and the execution error register
// ("EXR?"), each cleared when read: an unknown header gets no reply.
class SiglentModel : public DialectModel {
public:
    explicit SiglentModel(SimOptions options = {});

    std::vector<SimReply> handle(std::string_view line) override;
    int channelsOf(const std::string& model) const override;
    void acquisitionDone(std::shared_ptr<const SimRecord> record) override;

    static constexpr double kCodesPerDiv = 25.0;
    // The memory spans this many divisions of the time base.
    static constexpr int kDivisions = 14;
    // The most points one "WF?" sends; a read of more is refused.
    static constexpr int64_t kMostPoints = 1000000;

    int commandError() const { return cmr_; }
    int executionError() const { return exr_; }

private:
    struct Command {
        int channel = 0;   // "C2:..." names channel 2; 0 for none
        std::string name;  // the header's short form, upper case
        bool query = false;
        std::string argument;
    };
    bool parse(std::string_view text, Command& c) const;
    void command(const Command& c, std::vector<SimReply>& out);
    bool query(const Command& c, std::string& value, std::string& unit);
    bool setting(const Command& c);
    void waveform(const Command& c, std::vector<SimReply>& out);
    bool badSetupReply(const Command& c, std::string& value) const;
    // The reply as the header setting has it.
    std::string reply(const Command& c, const std::string& value, const std::string& unit) const;
    double sampleRate() const;

    std::string header_ = "SHORT";   // CHDR: SHORT, LONG or OFF
    std::string mode_ = "AUTO";      // TRMD
    std::string status_ = "Trig'd";  // SAST
    int inr_ = 0;
    int cmr_ = 0;
    int exr_ = 0;
    int64_t sparsing_ = 0;  // WFSU SP, NP, FP
    int64_t number_ = 0;
    int64_t first_ = 0;
};

}  // namespace mervasto
