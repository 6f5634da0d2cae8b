#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

// Decimal numbers scanned straight from the bytes of a line, for the sample
// columns of wave files where millions of them pass. A scan keeps every digit
// and the power of ten exactly; the conversions below give the correctly
// rounded double or float whenever one exact operation does, and leave the
// few other texts to the general parse (std::from_chars, Val), so a number
// reads the same whichever way it takes.
namespace mervasto {

// How many of the eight characters in chunk (first character in the lowest
// byte) are digits before the first that is not.
inline int LeadingDigits(uint64_t chunk) {
    constexpr uint64_t kHigh = 0xF0F0F0F0F0F0F0F0u;
    constexpr uint64_t kZeros = 0x3030303030303030u;
    constexpr uint64_t kSix = 0x0606060606060606u;
    // A byte is a digit when its high nibble is 3 both before and after
    // adding 6; a carry out of a non-digit only disturbs later bytes.
    const uint64_t notDigit = ((chunk & kHigh) ^ kZeros) | (((chunk + kSix) & kHigh) ^ kZeros);
    return std::countr_zero(notDigit) >> 3;  // 8 when all are digits
}

// The number of eight digit characters, the first in the lowest byte; zero
// bytes count as leading zeros.
inline uint64_t EightDigits(uint64_t chunk) {
    uint64_t v = chunk & 0x0F0F0F0F0F0F0F0Fu;
    v = (v * 10 + (v >> 8)) & 0x00FF00FF00FF00FFu;
    v = (v * 100 + (v >> 16)) & 0x0000FFFF0000FFFFu;
    v = (v * 10000 + (v >> 32)) & 0x00000000FFFFFFFFu;
    return v;
}

// 10^n for n = 0 .. 19, every power of ten a uint64_t holds.
inline constexpr uint64_t kPowersOfTen[20] = {1u,
                                              10u,
                                              100u,
                                              1000u,
                                              10000u,
                                              100000u,
                                              1000000u,
                                              10000000u,
                                              100000000u,
                                              1000000000u,
                                              10000000000u,
                                              100000000000u,
                                              1000000000000u,
                                              10000000000000u,
                                              100000000000000u,
                                              1000000000000000u,
                                              10000000000000000u,
                                              100000000000000000u,
                                              1000000000000000000u,
                                              10000000000000000000u};

// One decimal number as written: [sign] digits [point digits] [e [sign]
// digits]. Its value is mantissa x 10^unitExp when no digit was dropped.
struct Decimal {
    uint64_t mantissa = 0;
    int unitExp = 0;  // the power of ten of the last digit
    int dropped = 0;  // digits beyond the 18 the mantissa holds
    bool negative = false;

    bool exact() const { return dropped == 0; }
    // Significant digits printed: leading zeros are never in the mantissa.
    int digits() const;
};

// The general case of ScanDecimal.
const char* ScanDecimalGeneral(const char* p, const char* e, char point, Decimal& d);

// The number at the start of [p, e) into d, point being the decimal mark:
// where it ends, or nullptr when there is none (no digit, or an exponent mark
// without digits). Reads nothing outside [p, e); the more of the line it may
// look at, the more numbers take the quick way.
inline const char* ScanDecimal(const char* p, const char* e, char point, Decimal& d) {
    if (p < e && (*p == '+' || *p == '-')) d.negative = *p++ == '-';
    // The usual sample, ".dddd" or "d.dddd" with up to sixteen decimals and
    // no exponent, eight characters at a time.
    const char* q = p;
    uint64_t m = 0;
    if (e - p >= 2 && static_cast<unsigned>(*p - '0') <= 9 && p[1] == point) {
        m = static_cast<uint64_t>(*p - '0');
        q = p + 2;
    } else if (p < e && *p == point) {
        q = p + 1;
    }
    if (q != p && e - q >= 8) {
        uint64_t chunk;
        std::memcpy(&chunk, q, sizeof chunk);
        int n = LeadingDigits(chunk);
        if (n > 0) {
            m = m * kPowersOfTen[n] + EightDigits(chunk << (8 * (8 - n)));
            int decimals = n;
            q += n;
            if (n == 8 && e - q >= 8) {
                std::memcpy(&chunk, q, sizeof chunk);
                n = LeadingDigits(chunk);
                if (n > 0 && n < 8) {
                    m = m * kPowersOfTen[n] + EightDigits(chunk << (8 * (8 - n)));
                    decimals += n;
                    q += n;
                }
            }
            // More digits or an exponent: the general scan.
            if (!(q < e && (static_cast<unsigned>(*q - '0') <= 9 || *q == 'e' || *q == 'E'))) {
                d.mantissa = m;
                d.unitExp = -decimals;
                return q;
            }
        }
    }
    return ScanDecimalGeneral(p, e, point, d);
}

namespace detail {

// Both the mantissa and the power of ten exact in T: one operation, rounded once.
template <class T>
inline bool exactValue(const Decimal& d, T& out) {
    constexpr uint64_t kMaxMantissa = std::is_same_v<T, float> ? (uint64_t{1} << 24) : (uint64_t{1} << 53);
    constexpr int kMaxPower = std::is_same_v<T, float> ? 10 : 22;
    static constexpr T kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                    1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    if (!d.exact() || d.mantissa > kMaxMantissa || d.unitExp < -kMaxPower || d.unitExp > kMaxPower) return false;
    T v = static_cast<T>(d.mantissa);
    v = d.unitExp < 0 ? v / kPowers[-d.unitExp] : v * kPowers[d.unitExp];
    out = d.negative ? -v : v;
    return true;
}

}  // namespace detail

// The nearest double to d when one exact operation gives it; false leaves
// the text to the general parse.
inline bool NearestDouble(const Decimal& d, double& out) { return detail::exactValue(d, out); }

// The same for a float. Up to 16 digits (most exports print 8 or 9, beyond
// the float's exact range) go through the nearest double, rounded once more
// to float. That second rounding can only go wrong when the double lies on or
// next to a point halfway between two floats; those few are left over too.
inline bool NearestSingle(const Decimal& d, float& out) {
    if (detail::exactValue(d, out)) return true;
    double x = 0;
    if (!detail::exactValue(d, x)) return false;
    const double a = x < 0 ? -x : x;
    if (!(a >= 1.1754943508222875e-38 && a < 3.4028234663852886e38)) return false;
    uint64_t bits;
    std::memcpy(&bits, &a, sizeof bits);
    const uint64_t low = bits & ((uint64_t{1} << 29) - 1);
    constexpr uint64_t kHalf = uint64_t{1} << 28;
    if (low + 8 >= kHalf && low <= kHalf + 8) return false;
    out = static_cast<float>(x);
    return true;
}

// 10^n, correctly rounded for |n| <= 22 (one exact operation): std::pow is
// not on every runtime, and a digit's unit compared with an interval of the
// same power of ten must not come out a hair apart.
inline double PowerOfTen(int n) {
    static constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                         1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    if (n >= 0 && n <= 22) return kPowers[n];
    if (n < 0 && n >= -22) return 1.0 / kPowers[-n];
    return std::pow(10.0, n);
}

// [p, e) as one whole number by the general parse (std::from_chars), a plus
// sign allowed in front and point as the decimal mark: false when it is not.
// Texts of more than 64 characters with a decimal comma are refused.
bool ParseDecimal(const char* p, const char* e, char point, double& out);
bool ParseDecimal(const char* p, const char* e, char point, float& out);

}  // namespace mervasto
