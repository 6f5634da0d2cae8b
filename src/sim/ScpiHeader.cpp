#include "sim/ScpiHeader.h"

#include <cctype>

namespace mervasto {

std::string ScpiUpper(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

std::string ScpiShortForm(std::string_view pattern) {
    size_t n = 0;
    while (n < pattern.size() && !std::islower(static_cast<unsigned char>(pattern[n]))) ++n;
    return std::string(pattern.substr(0, n));
}

bool ScpiNodeIs(std::string_view node, std::string_view pattern, int* number) {
    if (!pattern.empty() && pattern.back() == '#') {
        pattern.remove_suffix(1);
        size_t digits = 0;
        while (digits < node.size() && std::isdigit(static_cast<unsigned char>(node[node.size() - 1 - digits])))
            ++digits;
        if (digits == 0 || digits > 2) return false;
        if (number) *number = std::stoi(std::string(node.substr(node.size() - digits)));
        node.remove_suffix(digits);
    }
    return node == ScpiShortForm(pattern) || node == ScpiUpper(pattern);
}

bool ScpiMatches(const std::vector<std::string>& nodes, size_t i, const std::vector<std::string_view>& pattern,
                 size_t j, int* number) {
    if (j == pattern.size()) return i == nodes.size();
    std::string_view p = pattern[j];
    const bool optional = p.front() == '[';
    if (optional) p = p.substr(1, p.size() - 2);
    if (i < nodes.size() && ScpiNodeIs(nodes[i], p, number) && ScpiMatches(nodes, i + 1, pattern, j + 1, number))
        return true;
    return optional && ScpiMatches(nodes, i, pattern, j + 1, number);
}

}  // namespace mervasto
