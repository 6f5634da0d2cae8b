#include "wavefile/SampleText.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "common/DecimalScan.h"
#include "common/Numeric.h"

namespace mervasto {

namespace {

constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
// 10^e for e = -4 .. 7, to place the first digit.
constexpr double kPlace[] = {1e-4, 1e-3, 1e-2, 1e-1, 1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7};

// Round half to even for |v| < 2^51 in the default rounding mode.
inline double roundEven(double v) {
    constexpr double kMagic = 6755399441055744.0;  // 1.5 x 2^52
    const double t = v + kMagic;                   // no fast-math here: the sum must round
    return t - kMagic;
}

inline double powerOfTwo(int n) {
    uint64_t b = static_cast<uint64_t>(n + 1023) << 52;
    double d;
    std::memcpy(&d, &b, sizeof d);
    return d;
}

constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// The print form of the decimal digits[0..count) x 10^e (first digit's place).
char* writeDigits(char* o, const char* digits, int count, int e) {
    if (e < -4 || e >= 7) {
        *o++ = digits[0];
        if (count > 1) {
            *o++ = '.';
            std::memcpy(o, digits + 1, static_cast<size_t>(count - 1));
            o += count - 1;
        }
        *o++ = 'E';
        *o++ = e < 0 ? '-' : '+';
        int a = e < 0 ? -e : e;
        *o++ = static_cast<char>('0' + a / 10);
        *o++ = static_cast<char>('0' + a % 10);
        return o;
    }
    if (e >= 0) {
        for (int i = 0; i <= e; ++i) *o++ = i < count ? digits[i] : '0';
        if (count > e + 1) {
            *o++ = '.';
            std::memcpy(o, digits + e + 1, static_cast<size_t>(count - e - 1));
            o += count - e - 1;
        }
    } else {
        *o++ = '.';
        for (int i = 0; i < -e - 1; ++i) *o++ = '0';
        std::memcpy(o, digits, static_cast<size_t>(count));
        o += count;
    }
    return o;
}

// The float a = M x 2^E (M odd or even decides the boundary) with its first
// digit at 10^e. For 1e-4 <= a < 1e7 every quantity below is an exact double:
// a x 10^k needs at most 24 + 28 bits (k <= 12), m x 10^j stays below 10^7.
struct Shortest {
    double a;
    double halfUlp;
    bool mEven;
    int e;

    // The nearest decimal of p digits, and whether it reads back to a.
    bool nearest(int p, uint64_t& m) const {
        const int k = p - 1 - e;
        if (k >= 0) {
            const double scaled = a * kPow10[k];
            const double r = roundEven(scaled);
            m = static_cast<uint64_t>(r);
            const double diff = std::fabs(r - scaled);
            const double half = halfUlp * kPow10[k];
            return diff < half || (diff == half && mEven);
        }
        const double p10 = kPow10[-k];
        const double r = roundEven(a / p10);
        m = static_cast<uint64_t>(r);
        const double diff = std::fabs(r * p10 - a);
        return diff < halfUlp || (diff == halfUlp && mEven);
    }
};

// False when the case needs the general routine: a power of two (its rounding
// interval is lopsided), magnitudes where the scaling is not exact.
char* writeFast(char* o, float x) {
    uint32_t bits;
    std::memcpy(&bits, &x, sizeof bits);
    const uint32_t fraction = bits & 0x7FFFFFu;
    const int biased = static_cast<int>((bits >> 23) & 0xFFu);
    if (fraction == 0 || biased == 0 || biased == 0xFF) return nullptr;
    Shortest s;
    s.a = std::fabs(static_cast<double>(x));
    if (!(s.a >= 1e-4 && s.a < 1e7)) return nullptr;
    s.mEven = (fraction & 1u) == 0;
    s.halfUlp = powerOfTwo(biased - 150 - 1);
    // a lies in [2^(b-127), 2^(b-126)); the first digit's place is one of two.
    int e = ((biased - 127) * 1233) >> 12;
    if (e + 1 <= 7 && s.a >= kPlace[e + 1 + 4]) ++e;
    if (e < -4 || s.a < kPlace[e + 4]) return nullptr;
    s.e = e;

    // Reading back is monotone in the digit count; most samples need 7 or 8
    // digits, so the search starts there.
    uint64_t m = 0;
    int p = 8;
    if (s.nearest(8, m)) {
        uint64_t shorter = 0;
        while (p > 1 && s.nearest(p - 1, shorter)) {
            --p;
            m = shorter;
        }
    } else {
        p = 9;
        if (!s.nearest(9, m)) return nullptr;
    }
    if (m < kPowersOfTen[p - 1] || m >= kPowersOfTen[p]) return nullptr;

    char digits[10];
    auto v = static_cast<uint32_t>(m);
    int i = p;
    while (i >= 2) {
        const uint32_t pair = (v % 100) * 2;
        v /= 100;
        digits[--i] = kDigitPairs[pair + 1];
        digits[--i] = kDigitPairs[pair];
    }
    if (i == 1) digits[0] = static_cast<char>('0' + v);
    int count = p;
    while (count > 1 && digits[count - 1] == '0') --count;
    *o++ = (bits >> 31) ? '-' : ' ';
    o = writeDigits(o, digits, count, e);
    *o++ = ' ';
    return o;
}

}  // namespace

void AppendSampleText(std::string& out, float x) {
    char buf[kSampleTextMax];
    char* end = WriteSampleText(buf, x);
    out.append(buf, static_cast<size_t>(end - buf));
}

char* WriteSampleText(char* out, float x) {
    if (x == 0) {
        std::memcpy(out, " 0 ", 3);
        return out + 3;
    }
    if (char* end = writeFast(out, x)) return end;
    std::string general = PrintForm(x);
    std::memcpy(out, general.data(), general.size());
    return out + general.size();
}

float SampleValue(std::string_view text) {
    const char* p = text.data();
    const char* const end = p + text.size();
    while (p < end && (*p == ' ' || *p == '\t')) ++p;
    Decimal d;
    const char* q = ScanDecimal(p, end, '.', d);
    float v = 0;
    // No digits, an exponent mark without digits or as 'd', or a value one
    // exact operation cannot give: as Val reads it.
    if (q == nullptr || (q < end && (*q == 'd' || *q == 'D')) || !NearestSingle(d, v)) return ValSingle(text);
    return v;
}

namespace {
constexpr int kCacheBits = 17;
}  // namespace

SampleTextCache::SampleTextCache() : entries_(size_t{1} << kCacheBits) {
    for (Entry& e : entries_) e.length = 0;
}

char* SampleTextCache::write(char* out, float x) {
    uint32_t bits;
    std::memcpy(&bits, &x, sizeof bits);
    Entry& e = entries_[(bits * 0x9E3779B1u) >> (32 - kCacheBits)];
    if (e.length != 0 && e.bits == bits) {
        std::memcpy(out, e.text, sizeof e.text);  // the room allows the whole slot
        return out + e.length;
    }
    char* end = WriteSampleText(out, x);
    const auto length = static_cast<size_t>(end - out);
    if (length <= sizeof e.text) {
        e.bits = bits;
        e.length = static_cast<uint8_t>(length);
        std::memcpy(e.text, out, length);
    }
    return end;
}

}  // namespace mervasto
