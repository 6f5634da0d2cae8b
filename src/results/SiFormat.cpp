#include "results/SiFormat.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "common/Numeric.h"
#include "common/RuntimeError.h"
#include "common/TextUtil.h"

namespace mervasto {

namespace {

constexpr size_t kSiDigits = 6;

std::string cut(std::string text, const char* suffix) {
    if (text.size() > kSiDigits) text.resize(kSiDigits);
    text += suffix;
    return text;
}

// The float's shortest text read back, so 1234567 divides as 1234567 and not
// as its binary neighbour.
std::string scaledFromText(float x, double divisor, const char* suffix) {
    const double readBack = Val(ShortestText(x));
    return cut(ShortestText(readBack / divisor), suffix);
}

}  // namespace

std::string SiText(double value, std::string_view unit, int digits) {
    char buf[48];
    if (unit == "%") {
        std::snprintf(buf, sizeof buf, "%.*g %%", digits, value);
        return buf;
    }
    if (value == 0 || !std::isfinite(value)) return "0 " + std::string(unit);
    // Rounded to its digits before the prefix is chosen, so 999.7 becomes
    // "1 k", not "1000".
    std::snprintf(buf, sizeof buf, "%.*e", digits - 1, value);
    char* e = std::strchr(buf, 'e');
    const int exponent = e ? std::atoi(e + 1) : 0;
    if (e) *e = '\0';
    const double mantissa = std::atof(buf);
    const int group = std::clamp(static_cast<int>(std::floor(exponent / 3.0)) * 3, -12, 9);
    const double scaled = mantissa * std::pow(10.0, exponent - group);
    if (exponent < group)  // below 1 p: still significant digits, not a rounded 0
        std::snprintf(buf, sizeof buf, "%.*g", digits, scaled);
    else
        std::snprintf(buf, sizeof buf, "%.*f", std::clamp(digits - 1 - (exponent - group), 0, digits - 1), scaled);
    std::string text(buf);
    if (text.find('.') != std::string::npos && text.find('e') == std::string::npos) {
        while (text.back() == '0') text.pop_back();
        if (text.back() == '.') text.pop_back();
    }
    static const char* const kPrefix[] = {"p", "n", "u", "m", "", "k", "M", "G"};
    return text + " " + kPrefix[(group + 12) / 3] + std::string(unit);
}

std::optional<double> ReadSiText(std::string_view text, std::string_view unit) {
    static constexpr std::pair<std::string_view, double> kPrefixes[] = {
        {"p", 1e-12}, {"n", 1e-9}, {"u", 1e-6}, {"\u00b5", 1e-6}, {"m", 1e-3}, {"k", 1e3}, {"M", 1e6}, {"G", 1e9}};
    std::string_view t = TrimBlanks(text);
    if (!unit.empty() && t.ends_with(unit)) t = TrimBlanks(t.substr(0, t.size() - unit.size()));
    double scale = 1;
    for (const auto& [prefix, factor] : kPrefixes)
        if (t.size() > prefix.size() && t.ends_with(prefix)) {
            t = TrimBlanks(t.substr(0, t.size() - prefix.size()));
            scale = factor;
            break;
        }
    try {
        const double v = NumberText(t) * scale;
        return std::isfinite(v) ? std::optional<double>(v) : std::nullopt;
    } catch (const RuntimeError&) {
        return std::nullopt;
    }
}

std::string FormatSiValue(float x) {
    const double a = std::fabs(static_cast<double>(x));
    if (a < 1e-30) return "0.0";
    if (a > 1e6) return scaledFromText(x, 1e6, "M");
    if (a > 1000) return scaledFromText(x, 1000, "k");
    if (a > 1) return cut(ShortestText(x), "");
    const double exact = x;
    if (a > 1e-3) return cut(ShortestText(exact * 1e3), "m");
    if (a > 1e-9) return cut(ShortestText(exact * 1e6), "u");
    return cut(ShortestText(exact * 1e9), "n");
}

void GetValUnit(std::string_view cellText, std::string& val1, std::string& unit1) {
    if (cellText.empty()) return;
    if (cellText.size() < 3) {
        val1.assign(cellText);
        unit1.clear();
    } else {
        const char last = cellText.back();
        if (last == '%' || last == 's' || last == 'V' || last == 'A') {
            val1.assign(cellText.substr(0, cellText.size() - 2));
            unit1.assign(1, last);
        } else {
            val1.assign(cellText);
            unit1.clear();
        }
    }
    if (val1.empty()) return;
    const std::string_view m = cellText.substr(0, cellText.size() - 1);
    const char* exponent = nullptr;
    switch (val1.back()) {
    case 'm': exponent = "e-3"; break;
    case 'u': exponent = "e-6"; break;
    case 'n': exponent = "e-9"; break;
    case 'k':
    case 'K': exponent = "e3"; break;
    case 'M': exponent = "e6"; break;
    default: break;
    }
    if (exponent != nullptr) {
        val1.assign(m);
        val1 += exponent;
    }
}

void GetValUnit(const Grid& grid, int32_t row1, int32_t col1, std::string& val1, std::string& unit1) {
    GetValUnit(GetGridCell(grid, row1, col1), val1, unit1);
}

}  // namespace mervasto
