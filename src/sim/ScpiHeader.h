#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mervasto {

// Headers of the SCPI dialects as their guides write them: "WAVeform" is
// the short form "WAV" or the long "WAVEFORM"; a trailing "#" takes a
// number ("CHANnel#": "CHAN2", "CHANNEL2"); a node in brackets may be left
// out (":TIMebase[:MAIN]:SCALe"). The nodes of a header are upper case.

std::string ScpiUpper(std::string_view s);
// The short form of a word of the guide's syntax: "ASCii" is "ASC".
std::string ScpiShortForm(std::string_view pattern);
// One node against one word of the syntax; the number of a "#" word into *number.
bool ScpiNodeIs(std::string_view node, std::string_view pattern, int* number);
// The nodes from i on against the syntax from j on.
bool ScpiMatches(const std::vector<std::string>& nodes, size_t i, const std::vector<std::string_view>& pattern,
                 size_t j, int* number);

}  // namespace mervasto
