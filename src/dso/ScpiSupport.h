#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "dso/DsoLink.h"

namespace mervasto {

// What the SCPI families share: numbers read from replies, and the error
// queue. Every failure closes the link and names the reply.

// The end of a message about a setup that cannot be measured with.
inline constexpr const char* kReadoutEnded = "; the readout was ended and the link closed.";

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

}  // namespace mervasto
