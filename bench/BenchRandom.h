#pragma once

#include <cmath>
#include <cstdint>

// splitmix64: small, fast, and the same numbers on every machine, so generated trees and
// scans are the same from run to run.
struct BenchRandom {
    std::uint64_t state;
    std::uint64_t next()
    {
        std::uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    double unit() { return double(next() >> 11) * 0x1.0p-53; }
    std::uint64_t below(std::uint64_t n) { return n ? next() % n : 0; }
    double normal()
    {
        const double u = std::max(unit(), 1e-12), v = unit();
        return std::sqrt(-2 * std::log(u)) * std::cos(2 * M_PI * v);
    }
};
