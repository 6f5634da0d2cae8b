#include "sim/ScpiHeaders.h"

#include <cctype>
#include <cstdio>

#include "sim/DialectModel.h"

namespace mervasto {

namespace {

bool MatchesFrom(const std::vector<std::string>& nodes, size_t i, const std::vector<std::string_view>& pattern,
                 size_t j, int* number) {
    if (j == pattern.size()) return i == nodes.size();
    std::string_view p = pattern[j];
    const bool optional = p.front() == '[';
    if (optional) p = p.substr(1, p.size() - 2);
    if (i < nodes.size() && NodeIs(nodes[i], p, number) && MatchesFrom(nodes, i + 1, pattern, j + 1, number))
        return true;
    return optional && MatchesFrom(nodes, i, pattern, j + 1, number);
}

}  // namespace

ScpiCommand ParseScpiCommand(std::string_view text) {
    ScpiCommand c;
    const size_t blank = text.find(' ');
    std::string header = UpperCase(text.substr(0, blank));
    if (blank != std::string_view::npos) c.argument = std::string(TrimCommand(text.substr(blank + 1)));
    if (!header.empty() && header.back() == '?') {
        c.query = true;
        header.pop_back();
    }
    size_t from = header.empty() || header.front() != ':' ? 0 : 1;
    while (from <= header.size()) {
        const size_t colon = header.find(':', from);
        c.nodes.push_back(header.substr(from, colon == std::string::npos ? std::string::npos : colon - from));
        if (colon == std::string::npos) break;
        from = colon + 1;
    }
    return c;
}

void ForEachScpiCommand(std::string_view line, const std::function<void(const ScpiCommand&)>& each) {
    while (!line.empty()) {
        const size_t semi = line.find(';');
        const std::string_view one = TrimCommand(line.substr(0, semi));
        if (!one.empty()) each(ParseScpiCommand(one));
        if (semi == std::string_view::npos) break;
        line.remove_prefix(semi + 1);
    }
}

std::string ShortForm(std::string_view pattern) {
    size_t n = 0;
    while (n < pattern.size() && !std::islower(static_cast<unsigned char>(pattern[n]))) ++n;
    return std::string(pattern.substr(0, n));
}

bool NodeIs(std::string_view node, std::string_view pattern, int* number) {
    if (!pattern.empty() && pattern.back() == '#') {
        pattern.remove_suffix(1);
        size_t digits = 0;
        while (digits < node.size() && std::isdigit(static_cast<unsigned char>(node[node.size() - 1 - digits])))
            ++digits;
        if (digits == 0 || digits > 2) return false;
        if (number) *number = std::stoi(std::string(node.substr(node.size() - digits)));
        node.remove_suffix(digits);
    }
    return node == ShortForm(pattern) || node == UpperCase(pattern);
}

bool Matches(const std::vector<std::string>& nodes, const std::vector<std::string_view>& pattern, int* number) {
    return MatchesFrom(nodes, 0, pattern, 0, number);
}

std::string SciNumber(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%e", v);
    return buf;
}

}  // namespace mervasto
