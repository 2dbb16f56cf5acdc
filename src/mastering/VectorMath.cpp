#include "mastering/VectorMath.h"

#include <cstdint>
#include <cstring>

namespace velmora::vmath {

namespace {
inline std::uint64_t bitsOf(double x) {
    std::uint64_t u;
    std::memcpy(&u, &x, sizeof u);
    return u;
}
inline double fromBits(std::uint64_t u) {
    double x;
    std::memcpy(&x, &u, sizeof x);
    return x;
}

constexpr double ln2Hi = 6.93147180369123816490e-01;  // ln 2 in two parts: n·ln2Hi is exact
constexpr double ln2Lo = 1.90821492927058770002e-10;
constexpr double log2e = 1.44269504088896338700;
constexpr double sqrt2 = 1.41421356237309504880;
// Adding 1.5·2^52 rounds to an integer and leaves it in the low bits of the mantissa.
constexpr double roundMagic = 6755399441055744.0;
}  // namespace

__attribute__((target_clones("arch=x86-64-v3", "default")))
void log(const double* in, double* out, std::size_t n) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint64_t u = bitsOf(in[i]);
        // The biased exponent as a double without an integer conversion (none in AVX2).
        double e = fromBits((u >> 52) | 0x4330000000000000ull) - (4503599627370496.0 + 1023.0);
        double m = fromBits((u & 0x000fffffffffffffull) | 0x3ff0000000000000ull);  // [1, 2)
        // Selects of constants rather than conditional arithmetic, so the loop stays branch-free.
        const bool high = m > sqrt2;
        m *= high ? 0.5 : 1.0;
        e += high ? 1.0 : 0.0;
        // ln m = 2·atanh(f) with |f| ≤ 0.1716, so f² ≤ 0.0295 and nine terms reach 1e-16.
        const double f = (m - 1.0) / (m + 1.0);
        const double s = f * f;
        double p = 1.0 / 19.0;
        p = p * s + 1.0 / 17.0;
        p = p * s + 1.0 / 15.0;
        p = p * s + 1.0 / 13.0;
        p = p * s + 1.0 / 11.0;
        p = p * s + 1.0 / 9.0;
        p = p * s + 1.0 / 7.0;
        p = p * s + 1.0 / 5.0;
        p = p * s + 1.0 / 3.0;
        const double lnm = 2.0 * f + 2.0 * f * s * p;
        out[i] = e * ln2Hi + (e * ln2Lo + lnm);
    }
}

__attribute__((target_clones("arch=x86-64-v3", "default")))
void exp(const double* in, double* out, std::size_t n) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
        double x = in[i];
        x = x < -700.0 ? -700.0 : x;
        x = x > 700.0 ? 700.0 : x;
        const double shifted = x * log2e + roundMagic;
        const double k = shifted - roundMagic;
        // |r| ≤ 0.35: thirteen Taylor terms are exact to about 2e-16.
        const double r = (x - k * ln2Hi) - k * ln2Lo;
        double p = 1.0 / 6227020800.0;
        p = p * r + 1.0 / 479001600.0;
        p = p * r + 1.0 / 39916800.0;
        p = p * r + 1.0 / 3628800.0;
        p = p * r + 1.0 / 362880.0;
        p = p * r + 1.0 / 40320.0;
        p = p * r + 1.0 / 5040.0;
        p = p * r + 1.0 / 720.0;
        p = p * r + 1.0 / 120.0;
        p = p * r + 1.0 / 24.0;
        p = p * r + 1.0 / 6.0;
        p = p * r + 0.5;
        p = p * r + 1.0;
        p = p * r + 1.0;
        // 2^k joins the exponent field directly; k sits in the low bits of `shifted`.
        out[i] = fromBits(bitsOf(p) + (bitsOf(shifted) << 52));
    }
}

}  // namespace velmora::vmath
