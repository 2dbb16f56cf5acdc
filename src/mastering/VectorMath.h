#pragma once
// Natural logarithm and exponential over arrays, written so the compiler vectorises them: the
// per-frame detectors need one of each per frame, and the library calls would cost more than
// the rest of a stage. Relative error about 1e-15; no call allocates.
#include <cstddef>

namespace velmora::vmath {

// out[i] = ln(in[i]) for normal positive inputs (callers floor their levels well above zero).
// `in` and `out` may be the same array.
void log(const double* in, double* out, std::size_t n) noexcept;

// out[i] = e^in[i], inputs clamped to ±700 so the result stays a normal double.
// `in` and `out` may be the same array.
void exp(const double* in, double* out, std::size_t n) noexcept;

inline constexpr double ln10 = 2.302585092994045684;
// dB = dbPerNeper · ln(amplitude ratio), and back.
inline constexpr double dbPerNeper = 20.0 / ln10;
inline constexpr double neperPerDb = ln10 / 20.0;

}  // namespace velmora::vmath
