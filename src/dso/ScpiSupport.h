#pragma once

#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dso/DsoLink.h"
#include "dso/InstrumentDriver.h"
#include "dso/RejectRange.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

// What the SCPI families share: numbers read from replies, and the error
// queue. Every failure closes the link and names the reply.

// The end of a message about a setup that cannot be measured with.
inline constexpr const char* kReadoutEnded = "; the readout was ended and the link closed.";

// A numeric setup reply: a finite number a float holds (above 0 when
// mustBePositive), or the readout ends naming the field, the query and the
// reply. withUnit takes a unit after the number ("5.00E-01V", "1.00E+09Sa/s").
float ScpiSetupNumber(DsoLink& link, const std::string& query, const std::string& field, bool mustBePositive,
                      bool withUnit = false);

// The identified model and its channels (at most four) into the setup; an
// identification whose model channelsOf counts no channels names none of the
// family's model lines ("DS1000Z or MSO1000Z"): the link closed, the reply
// quoted.
Identity TakeIdentity(DsoLink& link, const std::string& reply, DsoSetup& setup,
                      const std::function<int(const std::string&)>& channelsOf, const std::string& lines);

// A text in upper case (headers and words compare in any case).
std::string UpperText(std::string_view s);
// The instrument's word as the program's files have always written it
// (pairs of theirs and ours); a word not listed stays as it is.
std::string WordOf(const std::string& reply, std::initializer_list<std::pair<const char*, const char*>> words);
// The readout's time, "yyyy/MM/dd hh:mm:ss".
std::string ReadoutTime();

// The number of a reply without the unit after it.
std::string_view WithoutUnit(std::string_view reply);

// The text when every channel is switched off.
inline constexpr const char* kEveryChannelOff = "The DSO has every channel switched off: there is nothing to fetch.";

// An entry of the error queue, "<code>,"<text>"": its code (0 for none),
// nullopt for a reply that is no entry at all.
std::optional<int> ErrorQueueCode(std::string_view reply);

// Reads the error queue (query, e.g. ":SYST:ERR?") after `after` (the
// commands just sent); an entry other than 0 closes the link with the
// instrument's own text. At most a few entries are read: a queue that never
// empties is a fault too.
void CheckErrorQueue(DsoLink& link, const std::string& query, const std::string& after);

// The error queue's first entry when it holds one, for a message about a
// refusal already seen; empty when it holds none.
std::string ErrorQueueEntry(DsoLink& link, const std::string& query);

// The ten fields of a SCPI waveform preamble ("<format>,<type>,<points>,
// <count>,<xincrement>,<xorigin>,<xreference>,<yincrement>,<yorigin>,
// <yreference>"). Volts and times of a code and a point are the dialect's.
struct ScpiPreamble {
    int format = 0;
    int type = 0;
    int64_t points = 0;
    int64_t count = 0;
    double xincrement = 0;  // s between points
    double xorigin = 0;     // s of the first point from the trigger
    double xreference = 0;
    double yincrement = 0;  // V per code
    double yorigin = 0;
    double yreference = 0;
};
// What a driver takes: the format and type it asked for (type -1: any) by
// number and word, and how many codes the format has.
struct PreambleRule {
    int format;
    const char* formatWord;
    int type;
    const char* typeWord;
    double codes;
};
// The preamble of a reply to `query`, or why the record cannot be made of
// it (the field, its number in the reply, and the reply) in `problem`.
std::optional<ScpiPreamble> ParseScpiPreamble(const std::string& reply, const std::string& query,
                                              const PreambleRule& rule, std::string& problem);

// Takes the first channel's preamble as the record's shape (its length and
// interval into the setup, *last the time axis); a later channel of another
// length ends the readout. length is 0 before the first channel.
void TakeRecordShape(DsoLink& link, const ScpiPreamble& p, int channel, int firstChannel, int64_t& length,
                     DsoSetup& setup, std::optional<ScpiPreamble>& last);
// The same for a dialect of its own preamble: the first channel's points and
// interval.
void TakeRecordLength(DsoLink& link, int64_t points, double interval, int channel, int firstChannel, int64_t& length,
                      DsoSetup& setup);

// The reject range from two cursor times from the trigger (fromDso), else
// the middle eight tenths, against the record's time axis (`axis`, or
// without one the memory centred on the trigger and moved by its delay).
void RangeFromCursorTimes(bool fromDso, double a, double b, const ScpiPreamble* axis, DsoSetup& setup,
                          int32_t recordLength, ZoomReadout& out);

// The screen as the block `query` returns, stored whole in fileName; *bytes
// its size.
Outcome SaveScreenBlock(DsoLink& link, UiPort& ui, const std::string& query, const std::string& fileName,
                        int32_t* bytes);

// The channels switched on (from 0), as the setup has them.
std::vector<int> ChannelsOn(const DsoSetup& setup);

// Once the volts of the channels on are in the record (setup.RecordLength of
// them, setup.SampleInterval apart): their codes for the level rules, 0 V
// and no codes for the channels off, the record's length and interval, and
// the progress hidden, "Completed wave translation."
void FinishScpiRecord(const DsoSetup& setup, const std::vector<int>& on, WaveRecord& record, UiPort& ui);

}  // namespace mervasto
