#include "wavefile/SampleText.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "common/Numeric.h"

namespace mervasto {

namespace {

constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr double kNegPow10[] = {1e0,   1e-1,  1e-2,  1e-3,  1e-4,  1e-5,  1e-6,  1e-7,  1e-8,  1e-9,  1e-10, 1e-11,
                                1e-12, 1e-13, 1e-14, 1e-15, 1e-16, 1e-17, 1e-18, 1e-19, 1e-20, 1e-21, 1e-22};
// 10^e for e = -4 .. 7, to place the first digit.
constexpr double kPlace[] = {1e-4, 1e-3, 1e-2, 1e-1, 1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7};
constexpr uint64_t kPow10i[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};

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
    if (m < kPow10i[p - 1] || m >= kPow10i[p]) return nullptr;

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

bool isDigit(char c) { return c >= '0' && c <= '9'; }

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

namespace {

// m x 10^-scale as the nearest float (m < 2^53, |scale| <= 22). m is exact;
// one multiplication by a rounded power of ten leaves the double within a few
// units of its last place, so the float from it is the correctly rounded one
// unless the double lies that close to a midpoint between two floats.
float toSingle(uint64_t m, int scale, bool negative, std::string_view text) {
    const double d = scale >= 0 ? static_cast<double>(m) * kNegPow10[scale] : static_cast<double>(m) * kPow10[-scale];
    if (!(d >= 1.1754943508222875e-38 && d < 3.4028234663852886e38)) return ValSingle(text);
    uint64_t b;
    std::memcpy(&b, &d, sizeof b);
    const uint64_t low = b & ((uint64_t{1} << 29) - 1);
    const uint64_t mid = uint64_t{1} << 28;
    if (low + 8 >= mid && low <= mid + 8) return ValSingle(text);
    const float v = static_cast<float>(d);
    return negative ? -v : v;
}

}  // namespace

float SampleValue(std::string_view text) {
    const char* p = text.data();
    const char* end = p + text.size();
    while (p < end && (*p == ' ' || *p == '\t')) ++p;
    bool negative = false;
    if (p < end && (*p == '-' || *p == '+')) negative = *p++ == '-';
    // The usual sample, ".dddddddd" or "d.ddddddd" with up to eight digits
    // after the point and no exponent, in one go.
    if (end - p >= 10) {
        uint64_t lead = 0;
        const char* point = p;
        if (isDigit(*p) && p[1] == '.') {
            lead = static_cast<uint64_t>(*p - '0');
            point = p + 1;
        }
        if (*point == '.') {
            uint64_t chunk;
            std::memcpy(&chunk, point + 1, sizeof chunk);
            const int n = LeadingDigits(chunk);
            const char* after = point + 1 + n;
            const char c = after < end ? *after : ' ';
            if (n > 0 && !isDigit(c) && c != 'e' && c != 'E' && c != 'd' && c != 'D') {
                const uint64_t m = lead * kPow10i[n] + EightDigits(chunk << (8 * (8 - n)));
                if (m == 0) return negative ? -0.0f : 0.0f;
                return toSingle(m, n, negative, text);
            }
        }
    }
    // Leading zeros carry no digits; after them at most 15 digits are taken
    // here (exact in a double), longer numbers go to the general parse.
    bool any = false;
    while (p < end && *p == '0') {
        ++p;
        any = true;
    }
    uint64_t m = 0;
    int scale = 0;  // digits after the point
    const char* first = p;
    const char* limit = end - p > 15 ? p + 15 : end;
    while (p < limit && isDigit(*p)) m = m * 10 + static_cast<uint64_t>(*p++ - '0');
    int taken = static_cast<int>(p - first);
    if (p < end && isDigit(*p)) return ValSingle(text);
    any = any || taken > 0;
    if (p < end && *p == '.') {
        ++p;
        if (m == 0) {
            const char* zeros = p;
            while (p < end && *p == '0') ++p;
            scale = static_cast<int>(p - zeros);
            any = any || scale > 0;
        }
        const char* frac = p;
        if (end - p >= 8) {
            // Up to eight digits at once; most samples have seven or eight.
            uint64_t chunk;
            std::memcpy(&chunk, p, sizeof chunk);
            const int n = LeadingDigits(chunk);
            if (n > 0 && n <= 15 - taken) {
                m = m * kPow10i[n] + EightDigits(chunk << (8 * (8 - n)));
                p += n;
            }
        }
        const int room = 15 - taken - static_cast<int>(p - frac);
        const char* fracLimit = end - p > room ? p + room : end;
        while (p < fracLimit && isDigit(*p)) m = m * 10 + static_cast<uint64_t>(*p++ - '0');
        if (p < end && isDigit(*p)) return ValSingle(text);
        scale += static_cast<int>(p - frac);
        any = any || p > frac;
    }
    if (!any) return 0.0f;
    if (p < end && (*p == 'e' || *p == 'E' || *p == 'd' || *p == 'D')) {
        const char* q = p + 1;
        bool expNegative = false;
        if (q < end && (*q == '-' || *q == '+')) expNegative = *q++ == '-';
        if (q >= end || !isDigit(*q) || *p == 'd' || *p == 'D') return ValSingle(text);
        int ex = 0;
        while (q < end && isDigit(*q)) {
            ex = ex * 10 + (*q++ - '0');
            if (ex > 100) return ValSingle(text);
        }
        scale -= expNegative ? -ex : ex;
    }
    if (m == 0) return negative ? -0.0f : 0.0f;
    if (m >= (uint64_t{1} << 53) || scale > 22 || scale < -22) return ValSingle(text);
    return toSingle(m, scale, negative, text);
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
