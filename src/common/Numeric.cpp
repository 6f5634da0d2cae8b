#include "common/Numeric.h"

#include "common/RuntimeError.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace mervasto {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Length of the longest number at the start of s (sign, digits, point,
// exponent); 0 when there is none. The sign of the mantissa is included.
size_t numberExtent(std::string_view s, bool& hasDigits) {
    size_t i = 0;
    const size_t n = s.size();
    if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
    size_t digits = 0;
    while (i < n && isDigit(s[i])) {
        ++i;
        ++digits;
    }
    if (i < n && s[i] == '.') {
        ++i;
        while (i < n && isDigit(s[i])) {
            ++i;
            ++digits;
        }
    }
    hasDigits = digits > 0;
    if (!hasDigits) return 0;
    if (i < n && (s[i] == 'e' || s[i] == 'E' || s[i] == 'd' || s[i] == 'D')) {
        size_t j = i + 1;
        if (j < n && (s[j] == '+' || s[j] == '-')) ++j;
        size_t expDigits = 0;
        while (j < n && isDigit(s[j])) {
            ++j;
            ++expDigits;
        }
        if (expDigits > 0) i = j;
    }
    return i;
}

template <typename T>
T parseExtent(std::string_view num) {
    // from_chars takes neither a leading '+' nor a 'd' exponent.
    char buf[64] = {};
    std::string_view s = num;
    if (!s.empty() && s[0] == '+') s.remove_prefix(1);
    bool copy = s.size() < sizeof buf;
    std::string big;
    const char* first = s.data();
    const char* last = s.data() + s.size();
    for (char c : s) {
        if (c == 'd' || c == 'D') {
            if (copy) {
                for (size_t k = 0; k < s.size(); ++k) buf[k] = (s[k] == 'd' || s[k] == 'D') ? 'e' : s[k];
                first = buf;
                last = buf + s.size();
            } else {
                big.assign(s);
                for (char& b : big)
                    if (b == 'd' || b == 'D') b = 'e';
                first = big.data();
                last = big.data() + big.size();
            }
            break;
        }
    }
    T value{};
    auto [ptr, ec] = std::from_chars(first, last, value);
    if (ec == std::errc::result_out_of_range) {
        // Huge exponents saturate, tiny ones vanish, as the old parser did.
        bool negative = *first == '-';
        const char* e = first;
        while (e < last && *e != 'e' && *e != 'E') ++e;
        bool tiny = e < last && e + 1 < last && e[1] == '-';
        if (tiny) return negative ? -T{0} : T{0};
        return negative ? -std::numeric_limits<T>::infinity() : std::numeric_limits<T>::infinity();
    }
    return value;
}

struct Decimal {
    bool negative = false;
    char digits[32]{};
    int count = 0;
    int exponent = 0;  // value = d1.d2..dn x 10^exponent
};

// Splits the scientific text of to_chars into digits and exponent.
Decimal splitScientific(const char* first, const char* last) {
    Decimal d;
    const char* p = first;
    if (p < last && *p == '-') {
        d.negative = true;
        ++p;
    }
    for (; p < last && *p != 'e'; ++p)
        if (isDigit(*p) && d.count < 31) d.digits[d.count++] = *p;
    if (p < last && *p == 'e') {
        int exp = 0;
        std::from_chars(*(p + 1) == '+' ? p + 2 : p + 1, last, exp);
        d.exponent = exp;
    }
    while (d.count > 1 && d.digits[d.count - 1] == '0') --d.count;
    return d;
}

template <typename T>
Decimal toDecimal(T x, int maxDigits) {
    char buf[64];
    std::to_chars_result r;
    if (maxDigits > 0)
        r = std::to_chars(buf, buf + sizeof buf, x, std::chars_format::scientific, maxDigits - 1);
    else
        r = std::to_chars(buf, buf + sizeof buf, x, std::chars_format::scientific);
    return splitScientific(buf, r.ptr);
}

// Writes d in plain form when its exponent is within [-4, plainLimit), in
// exponent form (d.dddE+XX) otherwise.
void appendDecimal(std::string& out, const Decimal& d, int plainLimit, bool leadingZero) {
    if (d.negative) out.push_back('-');
    const int e = d.exponent;
    if (e < -4 || e >= plainLimit) {
        out.push_back(d.digits[0]);
        if (d.count > 1) {
            out.push_back('.');
            out.append(d.digits + 1, d.count - 1);
        }
        out.push_back('E');
        out.push_back(e < 0 ? '-' : '+');
        int a = e < 0 ? -e : e;
        if (a < 10) out.push_back('0');
        char eb[8];
        auto r = std::to_chars(eb, eb + sizeof eb, a);
        out.append(eb, r.ptr);
        return;
    }
    if (e >= 0) {
        for (int i = 0; i <= e; ++i) out.push_back(i < d.count ? d.digits[i] : '0');
        if (d.count > e + 1) {
            out.push_back('.');
            out.append(d.digits + e + 1, d.count - e - 1);
        }
    } else {
        if (leadingZero) out.push_back('0');
        out.push_back('.');
        out.append(static_cast<size_t>(-e - 1), '0');
        out.append(d.digits, d.count);
    }
}

template <typename T>
void appendPrint(std::string& out, T x, int plainLimit) {
    if (x == 0) {
        out.append(" 0 ");
        return;
    }
    if (!std::isfinite(x)) {
        out.append(std::isnan(x) ? " NaN " : (x < 0 ? "-Inf " : " Inf "));
        return;
    }
    if (!std::signbit(x)) out.push_back(' ');
    appendDecimal(out, toDecimal(x, 0), plainLimit, false);
    out.push_back(' ');
}

template <typename T>
void appendShortest(std::string& out, T x, int maxDigits, int plainLimit) {
    if (x == 0) {
        out.push_back('0');
        return;
    }
    if (!std::isfinite(x)) {
        out.append(std::isnan(x) ? "NaN" : (x < 0 ? "-Inf" : "Inf"));
        return;
    }
    Decimal d = toDecimal(x, 0);
    if (d.count > maxDigits) d = toDecimal(x, maxDigits);
    appendDecimal(out, d, plainLimit, true);
}

// Leading blanks skipped, the longest leading number taken, 0 without one.
template <typename T>
T lenientValue(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && isBlank(text[i])) ++i;
    text.remove_prefix(i);
    bool hasDigits = false;
    const size_t n = numberExtent(text, hasDigits);
    if (n == 0) return T{0};
    return parseExtent<T>(text.substr(0, n));
}

constexpr int kSinglePlainLimit = 7;
constexpr int kDoublePlainLimit = 15;

}  // namespace

double Val(std::string_view text) { return lenientValue<double>(text); }

float ValSingle(std::string_view text) { return lenientValue<float>(text); }

double NumberText(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && isBlank(text[i])) ++i;
    text.remove_prefix(i);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    bool hasDigits = false;
    size_t n = numberExtent(text, hasDigits);
    if (n == 0 || n != text.size())
        throw RuntimeError(ErrorCode::TypeMismatch, "Type mismatch: \"" + std::string(text) + "\" is not a number.");
    return parseExtent<double>(text);
}

double RoundHalfEven(double x) { return std::nearbyint(x); }

int16_t ToInt16(double x) {
    double r = std::nearbyint(x);
    if (!(r >= -32768.0 && r <= 32767.0))
        throw RuntimeError(ErrorCode::Overflow, "Overflow: the value does not fit a 16-bit integer.");
    return static_cast<int16_t>(r);
}

int32_t ToInt32(double x) {
    double r = std::nearbyint(x);
    if (!(r >= -2147483648.0 && r <= 2147483647.0))
        throw RuntimeError(ErrorCode::Overflow, "Overflow: the value does not fit a 32-bit integer.");
    return static_cast<int32_t>(r);
}

float ToSingle(double x) {
    if (std::isfinite(x) && std::fabs(x) > static_cast<double>(std::numeric_limits<float>::max()))
        throw RuntimeError(ErrorCode::Overflow, "Overflow: the value does not fit single precision.");
    return static_cast<float>(x);
}

std::string PrintForm(float x) {
    std::string s;
    appendPrint(s, x, kSinglePlainLimit);
    return s;
}

void AppendPrintForm(std::string& out, float x) { appendPrint(out, x, kSinglePlainLimit); }

std::string PrintForm(double x) {
    std::string s;
    appendPrint(s, x, kDoublePlainLimit);
    return s;
}

std::string PrintForm(int64_t x) {
    std::string s = x < 0 ? "" : " ";
    s += std::to_string(x);
    s.push_back(' ');
    return s;
}

std::string ShortestText(float x) {
    std::string s;
    appendShortest(s, x, 7, kSinglePlainLimit);
    return s;
}

void AppendShortestText(std::string& out, float x) { appendShortest(out, x, 7, kSinglePlainLimit); }

std::string ShortestText(double x) {
    std::string s;
    appendShortest(s, x, 15, kDoublePlainLimit);
    return s;
}

std::string ExactText(double x) {
    if (!std::isfinite(x)) return std::isnan(x) ? "NaN" : (x < 0 ? "-Infinity" : "Infinity");
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, x);
    return std::string(buf, r.ptr);
}

std::string BoolText(bool b) { return b ? "True" : "False"; }

bool BoolFromText(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && (isBlank(text.back()) || text.back() == '\r' || text.back() == '\n')) text.remove_suffix(1);
    std::string lower;
    for (char c : text) lower.push_back(static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c));
    if (lower == "true" || lower == "#true#") return true;
    if (lower == "false" || lower == "#false#") return false;
    return NumberText(text) != 0.0;
}

}  // namespace mervasto
