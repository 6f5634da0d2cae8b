#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "dso/DsoLink.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

// What the SCPI families share: numbers read from replies, and the error
// queue. Every failure closes the link and names the reply.

// The end of a message about a setup that cannot be measured with.
inline constexpr const char* kReadoutEnded = "; the readout was ended and the link closed.";

// A fetch when the instrument shows no channel.
inline constexpr const char* kNothingToFetch = "The DSO has every channel switched off: there is nothing to fetch.";

// A numeric setup reply: a finite number a float holds (above 0 when
// mustBePositive), or the readout ends naming the field, the query and the
// reply.
float ScpiSetupNumber(DsoLink& link, const std::string& query, const std::string& field, bool mustBePositive);

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

// The end of a fetch whose channels `on` (from 0) hold `length` volts each:
// their raw codes for the level rules from the setup's scale, the record's
// length and interval from the setup, and the channels switched off left
// without codes and at 0 V.
void FinishScpiRecord(const DsoSetup& setup, WaveRecord& record, const std::vector<int>& on, int32_t length);

}  // namespace mervasto
