#pragma once

#include <cstdint>

namespace mervasto {

// Small, fast and reproducible: a record of millions of samples is generated
// in a blink. The salt keeps the scenarios' streams apart for one seed.
class Noise {
public:
    explicit Noise(uint64_t seed, uint64_t salt = 0x1234567ull) : s_(seed * 0x9E3779B97F4A7C15ull + salt) {}
    uint64_t next() {
        s_ ^= s_ << 13;
        s_ ^= s_ >> 7;
        s_ ^= s_ << 17;
        return s_;
    }
    double uniform() { return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0); }
    // Triangular in -1..1.
    float tri() { return static_cast<float>(uniform() + uniform() - 1.0); }

private:
    uint64_t s_;
};

}  // namespace mervasto
