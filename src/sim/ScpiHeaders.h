#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace mervasto {

// SCPI headers as the makers' guides write their syntax: "WAVeform" takes
// "WAV" and "WAVEFORM" in any case, "CHANnel#" a channel number, a node in
// brackets may be left out (":TIMebase[:MAIN]:SCALe").

// One command of a line: its header's nodes (upper case), whether it asks,
// and what follows the header.
struct ScpiCommand {
    std::vector<std::string> nodes;
    bool query = false;
    std::string argument;
};
ScpiCommand ParseScpiCommand(std::string_view text);
// Each command of a line, split at ";".
void ForEachScpiCommand(std::string_view line, const std::function<void(const ScpiCommand&)>& each);

// The short form of a word of the syntax: "ASCii" is "ASC".
std::string ShortForm(std::string_view pattern);
// One node against one word of the syntax; *number takes the "#".
bool NodeIs(std::string_view node, std::string_view pattern, int* number);
// A header against the syntax.
bool Matches(const std::vector<std::string>& nodes, const std::vector<std::string_view>& pattern, int* number);

// "%e" as the instruments write their numbers: 1.000000e-03.
std::string SciNumber(double v);

}  // namespace mervasto
