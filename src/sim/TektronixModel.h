#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "sim/DialectModel.h"
#include "sim/ScpiHeaders.h"

namespace mervasto {

// The models the Tektronix dialect can be (2, 3, 4, 5, 6 Series MSO,
// TBS2000), the default first.
const std::vector<std::string>& TektronixModels();

// A Tektronix oscilloscope as its programmer manual describes it: headers in
// long or short form and any case, several per line split at ";" (one
// without a leading ":" continues the path of the one before), every query
// of a line answered in one reply joined by ";", each with its header until
// "HEADer 0" and in long words while VERBose is on. Curves of signed or
// unsigned 8- or 16-bit codes in either byte order with
// volts = (code - YOFf) x YMUlt + YZEro, between DATa:STARt and DATa:STOP,
// in "#<n><length>" blocks of as few digits as the length needs. A single
// acquisition is armed by ACQuire:STOPAfter SEQuence and ACQuire:STATE RUN
// and has ended when ACQuire:STATE? reads 0. What it refuses is an event
// (its bit in *ESR?, its text in ALLEv? once *ESR? has been read): an
// unknown header gets no reply; a curve while acquiring or reaching past the
// record an empty block.
class TektronixModel : public DialectModel {
public:
    explicit TektronixModel(SimOptions options = {});

    std::vector<SimReply> handle(std::string_view line) override;
    int channelsOf(const std::string& model) const override;
    void acquisitionDone(std::shared_ptr<const SimRecord> record) override;

    // 8-bit codes per division (16-bit: 256 times as many) around the
    // screen's centre.
    static constexpr double kCodesPerDiv = 25.0;
    // The range a curve has until the host sets its own.
    static constexpr int64_t kDefaultStop = 1000;

    bool acquiring() const { return acquiring_; }

private:
    using Unit = ScpiCommand;
    struct Event {
        int code;
        std::string text;
    };
    void unit(const Unit& u, std::vector<std::string>& texts, std::vector<SimReply>& out);
    bool query(const Unit& u, std::string& reply);
    bool setting(const Unit& u);
    bool channelSetting(const Unit& u, int n);
    void curve(std::vector<std::string>& texts, std::vector<SimReply>& out);
    bool badSetupReply(const Unit& u, std::string& reply) const;
    // A word of the manual in the form VERBose asks for.
    std::string word(std::string_view pattern) const;
    void event(int code, const std::string& text, int statusBit);
    bool selects() const;  // SELect:CHn instead of DISplay:GLObal:CHn:STATE

    int64_t memoryPoints() const;
    int64_t curvePoints() const;
    double xIncrement() const;
    double yMult(int ch) const;
    double yOff(int ch) const;  // in codes of the curve's format
    double yZero(int ch) const;

    bool header_ = true;
    bool verbose_ = true;
    bool acquiring_ = true;  // a scope runs when it is switched on
    bool sequence_ = false;  // ACQuire:STOPAfter SEQuence
    int source_ = 0;         // from 0
    int width_ = 1;
    bool msbFirst_ = true;
    bool signed_ = true;
    bool ascii_ = false;
    int64_t start_ = 1;
    int64_t stop_ = kDefaultStop;
    std::array<double, kChannels> position_{};  // divisions
    int status_ = 0;                            // the standard event status register
    std::deque<Event> events_;
    size_t summarized_ = 0;  // the events *ESR? has made readable
};

}  // namespace mervasto
