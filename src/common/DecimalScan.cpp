#include "common/DecimalScan.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace mervasto {

namespace {

template <class T>
bool parseDecimal(const char* p, const char* e, char point, T& out) {
    if (p < e && *p == '+') ++p;  // from_chars takes no plus sign
    char buf[64];
    if (point != '.') {
        if (e - p > static_cast<std::ptrdiff_t>(sizeof buf)) return false;
        char* o = std::copy(p, e, buf);
        std::replace(buf, o, point, '.');
        p = buf;
        e = o;
    }
    const auto r = std::from_chars(p, e, out);
    return r.ec == std::errc() && r.ptr == e;
}

// A run of digits into d; places counts them. Up to 18 digits go into the
// mantissa; later ones are dropped (and counted).
const char* digitRun(const char* p, const char* e, Decimal& d, int& places) {
    // Eight characters at a time while the mantissa has room for eight more.
    while (e - p >= 8 && d.mantissa < 10000000000u) {
        uint64_t chunk;
        std::memcpy(&chunk, p, sizeof chunk);
        const int n = LeadingDigits(chunk);
        if (n == 0) return p;
        d.mantissa = d.mantissa * kPowersOfTen[n] + EightDigits(chunk << (8 * (8 - n)));
        places += n;
        p += n;
        if (n < 8) return p;
    }
    for (; p < e && *p >= '0' && *p <= '9'; ++p) {
        if (d.mantissa >= 1000000000000000000u)
            ++d.dropped;
        else
            d.mantissa = d.mantissa * 10 + static_cast<unsigned>(*p - '0');
        ++places;
    }
    return p;
}

}  // namespace

int Decimal::digits() const {
    if (mantissa == 0) return dropped;
    // log10 from the bit length (1233/4096 is just over log10 2), one less
    // where that overshoots.
    const int guess = (static_cast<int>(std::bit_width(mantissa)) * 1233) >> 12;
    return guess - (mantissa < kPowersOfTen[guess] ? 1 : 0) + 1 + dropped;
}

const char* ScanDecimalGeneral(const char* p, const char* e, char point, Decimal& d) {
    int places = 0;
    p = digitRun(p, e, d, places);
    int decimals = 0;
    if (p < e && *p == point) {
        const int before = places;
        p = digitRun(p + 1, e, d, places);
        decimals = places - before;
    }
    if (places == 0) return nullptr;
    int exponent = 0;
    if (p < e && (*p == 'e' || *p == 'E')) {
        ++p;
        bool negative = false;
        if (p < e && (*p == '+' || *p == '-')) negative = *p++ == '-';
        if (p == e || !(*p >= '0' && *p <= '9')) return nullptr;
        for (; p < e && *p >= '0' && *p <= '9'; ++p)
            if (exponent < 10000) exponent = exponent * 10 + (*p - '0');
        if (negative) exponent = -exponent;
    }
    d.unitExp = exponent - decimals;
    return p;
}

bool ParseDecimal(const char* p, const char* e, char point, double& out) { return parseDecimal(p, e, point, out); }

bool ParseDecimal(const char* p, const char* e, char point, float& out) { return parseDecimal(p, e, point, out); }

}  // namespace mervasto
