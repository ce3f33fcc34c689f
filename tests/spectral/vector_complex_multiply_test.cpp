// The integer lane primitives against their scalar twins on boundary and random operands, then the
// vectorised complex multiply loops against the portable ones on random, boundary and saturating
// spectra for every count up to 136. On x86-64 only where the processor runs AVX2 and FMA.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "spectral/processor.h"
#include "fixedpoint/block_float.h"
#include "spectral/fft/fft_stages_simd.h"
#include "spectral/kernels.h"
#include "spectral/simd_avx2.h"
#include "spectral/simd_neon.h"

namespace {

using Words = std::vector<int32_t>;
using Longs = std::vector<int64_t>;
constexpr int32_t kMin = INT32_MIN, kMax = INT32_MAX;

// ---- One register's worth of each primitive, from and to arrays ----

#if defined(__x86_64__)
constexpr int kLanes = 8;
bool vector_available() { return (sp::probe_isa() == sp::Isa::kVector); }

#define LANES SONVEL_LANES_TARGET
using namespace sp::simd;
LANES V ld(const int32_t *p) { return load8(p); }
LANES V ld(const int64_t *p) { return _mm256_loadu_si256(reinterpret_cast<const V *>(p)); }
LANES void st(int32_t *p, V v) { store8(p, v); }
LANES void st(int64_t *p, V v) { _mm256_storeu_si256(reinterpret_cast<V *>(p), v); }

LANES void hr_lanes(const int32_t *x, int32_t *r) { st(r, hr32(ld(x))); }
LANES void add_lanes(const int32_t *a, const int32_t *b, int32_t *r) { st(r, sat_add32(ld(a), ld(b))); }
LANES void sub_lanes(const int32_t *a, const int32_t *b, int32_t *r) { st(r, sat_sub32(ld(a), ld(b))); }
LANES void shr_lanes(const int32_t *x, const int32_t *c, int32_t *r) { st(r, shr_trunc32(ld(x), ld(c))); }
LANES void shift_lanes(const int32_t *x, const int32_t *c, int32_t *r) { st(r, shift_sat32(ld(x), ld(c))); }
LANES void f2i_lanes(const float *f, int32_t *r) { st(r, f2i(_mm256_loadu_ps(f))); }
// Products in lane order: even lanes to even places, odd lanes to odd places.
LANES void mul_lanes(const int32_t *a, const int32_t *b, int64_t *r) {
    alignas(32) int64_t e[4], o[4];
    st(e, mul_even(ld(a), ld(b)));
    st(o, mul_odd(ld(a), ld(b)));
    for (int i = 0; i < 4; ++i) r[2 * i] = e[i], r[2 * i + 1] = o[i];
}
LANES void add64_lanes(const int64_t *a, const int64_t *b, int64_t *r) { st(r, sat_add64(ld(a), ld(b))); }
LANES void sub64_lanes(const int64_t *a, const int64_t *b, int64_t *r) { st(r, sat_sub64(ld(a), ld(b))); }
LANES void rnd_lanes(const int64_t *v, int k, int32_t *r) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(r), narrow_even(rnd64(ld(v), k)));
}
// The fixed counts the kernels use go through the same function.
LANES void rnd_fixed_lanes(const int64_t *v, int k, int32_t *r) { rnd_lanes(v, k, r); }

#elif defined(__aarch64__)
constexpr int kLanes = 4;
bool vector_available() { return true; }

#define LANES
using namespace sp::simd;
int32x4_t ld(const int32_t *p) { return load4(p); }
int64x2_t ld(const int64_t *p) { return vld1q_s64(p); }
void st(int32_t *p, int32x4_t v) { store4(p, v); }
void st(int64_t *p, int64x2_t v) { vst1q_s64(p, v); }

void hr_lanes(const int32_t *x, int32_t *r) { st(r, hr32(ld(x))); }
void add_lanes(const int32_t *a, const int32_t *b, int32_t *r) { st(r, sat_add32(ld(a), ld(b))); }
void sub_lanes(const int32_t *a, const int32_t *b, int32_t *r) { st(r, sat_sub32(ld(a), ld(b))); }
void shr_lanes(const int32_t *x, const int32_t *c, int32_t *r) { st(r, shr_trunc32(ld(x), ld(c))); }
void shift_lanes(const int32_t *x, const int32_t *c, int32_t *r) { st(r, shift_sat32(ld(x), ld(c))); }
void f2i_lanes(const float *f, int32_t *r) { st(r, f2i(vld1q_f32(f))); }
void mul_lanes(const int32_t *a, const int32_t *b, int64_t *r) {
    st(r, mul_low(ld(a), ld(b)));
    st(r + 2, mul_high(ld(a), ld(b)));
}
void add64_lanes(const int64_t *a, const int64_t *b, int64_t *r) { st(r, sat_add64(ld(a), ld(b))); }
void sub64_lanes(const int64_t *a, const int64_t *b, int64_t *r) { st(r, sat_sub64(ld(a), ld(b))); }
void rnd_lanes(const int64_t *v, int k, int32_t *r) {
    vst1q_s32(r, vcombine_s32(rnd64(ld(v), k), rnd64(ld(v + 2), k)));
}
void rnd_fixed_lanes(const int64_t *v, int k, int32_t *r) {
    int32x4_t x;
    switch (k) {
        case 1: x = rnd64x2<1>(ld(v), ld(v + 2)); break;
        case 15: x = rnd64x2<15>(ld(v), ld(v + 2)); break;
        case 31: x = rnd64x2<31>(ld(v), ld(v + 2)); break;
        default: x = rnd64x2<32>(ld(v), ld(v + 2)); break;
    }
    vst1q_s32(r, x);
}

#else
constexpr int kLanes = 4;
bool vector_available() { return false; }
#endif

// ---- Operands ----

// Boundary int32 values: the extremes and their neighbours, -1, 0, 1, and +-2^k, +-2^k - 1.
Words edges32() {
    Words v{kMin, kMin + 1, -1, 0, 1, kMax - 1, kMax};
    for (int k = 1; k < 31; ++k) {
        const int32_t p = int32_t{1} << k;
        v.insert(v.end(), {p, p - 1, -p, 1 - p});
    }
    return v;
}

// n random values of every magnitude, following the boundary values, padded to whole registers.
Words operands32(uint32_t seed, int n) {
    std::mt19937 g(seed);
    Words v = edges32();
    std::shuffle(v.begin(), v.end(), g);
    while (static_cast<int>(v.size()) < n || v.size() % 8) v.push_back(static_cast<int32_t>(g()) >> (g() % 32));
    return v;
}

// 64-bit operands: the extremes, the rounding and saturation thresholds of every count, sums of
// products and random values of every magnitude.
Longs operands64(uint32_t seed) {
    std::mt19937_64 g(seed);
    Longs v{INT64_MIN, INT64_MIN + 1, -1, 0, 1, INT64_MAX - 1, INT64_MAX, int64_t{1} << 62,
            -(int64_t{1} << 62)};
    for (int k = 1; k <= 32; ++k) {
        const int64_t half = int64_t{1} << (k - 1);
        for (const int64_t t : {int64_t{0}, static_cast<int64_t>(uint64_t{1} << (31 + k))})
            for (const int64_t d : {-half - 1, -half, -half + 1, half - 1, half, half + 1}) {
                v.push_back(static_cast<int64_t>(static_cast<uint64_t>(t) + static_cast<uint64_t>(d)));
                v.push_back(static_cast<int64_t>(0 - static_cast<uint64_t>(t) + static_cast<uint64_t>(d)));
            }
    }
    while (v.size() < 4000 || v.size() % 8) v.push_back(static_cast<int64_t>(g()) >> (g() % 64));
    return v;
}

class LanePrimitives : public ::testing::Test {
protected:
    void SetUp() override {
        if (!vector_available()) GTEST_SKIP() << "no vector unit on this processor";
    }
};

#if defined(__x86_64__) || defined(__aarch64__)

// Headroom, saturating sums and differences of 32-bit lanes: every pair of boundary values meets
// in some lane, then random pairs.
TEST_F(LanePrimitives, HeadroomAndSaturatingSums) {
    const Words e = edges32();
    Words a, b;
    for (int32_t x : e)
        for (int32_t y : e) a.push_back(x), b.push_back(y);
    const Words ra = operands32(1, 20000), rb = operands32(2, 20000);
    a.insert(a.end(), ra.begin(), ra.begin() + 20000);
    b.insert(b.end(), rb.begin(), rb.begin() + 20000);
    while (a.size() % kLanes) a.push_back(0), b.push_back(0);
    int32_t h[kLanes], s[kLanes], d[kLanes];
    for (std::size_t i = 0; i < a.size(); i += kLanes) {
        hr_lanes(&a[i], h);
        add_lanes(&a[i], &b[i], s);
        sub_lanes(&a[i], &b[i], d);
        for (int l = 0; l < kLanes; ++l) {
            ASSERT_EQ(h[l], fx::hr(a[i + l])) << a[i + l];
            ASSERT_EQ(s[l], fx::sat_add(a[i + l], b[i + l])) << a[i + l] << " + " << b[i + l];
            ASSERT_EQ(d[l], fx::sat_sub(a[i + l], b[i + l])) << a[i + l] << " - " << b[i + l];
        }
    }
}

// Truncating right shifts by 0..40 and saturating shifts by -40..40, every count in every lane.
TEST_F(LanePrimitives, ShiftsByCountsPerLane) {
    const Words x = operands32(3, 4000);
    Words c(x.size());
    for (std::size_t i = 0; i < c.size(); ++i) c[i] = static_cast<int32_t>((i * 7 + i / 81) % 81) - 40;
    Words cpos(c.size());
    for (std::size_t i = 0; i < c.size(); ++i) cpos[i] = c[i] < 0 ? -c[i] : c[i];
    int32_t r[kLanes], s[kLanes];
    for (std::size_t i = 0; i < x.size(); i += kLanes) {
        shr_lanes(&x[i], &cpos[i], r);
        shift_lanes(&x[i], &c[i], s);
        for (int l = 0; l < kLanes; ++l) {
            ASSERT_EQ(r[l], fx::shr_trunc(x[i + l], cpos[i + l])) << x[i + l] << " >> " << cpos[i + l];
            ASSERT_EQ(s[l], fx::shift_sat(x[i + l], c[i + l])) << x[i + l] << " << " << c[i + l];
        }
    }
}

// Float to int: exact powers of two and their neighbours around the int32 range, infinities,
// NaNs, signed zeros, fractions, and random bit patterns.
TEST_F(LanePrimitives, SaturatingFloatToInt) {
    std::vector<float> f{0.0f, -0.0f, 0.5f, -0.5f, 0.99999994f, -1.5f, 2147483648.0f, -2147483648.0f,
                         2147483520.0f, -2147483520.0f, 4294967296.0f, -4294967296.0f,
                         std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                         std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::quiet_NaN(),
                         std::numeric_limits<float>::denorm_min(), 3e38f, -3e38f};
    std::mt19937 g(4);
    while (f.size() < 40000) f.push_back(std::bit_cast<float>(static_cast<uint32_t>(g())));
    int32_t r[kLanes];
    for (std::size_t i = 0; i < f.size(); i += kLanes) {
        f2i_lanes(&f[i], r);
        for (int l = 0; l < kLanes; ++l) ASSERT_EQ(r[l], fx::f2i(f[i + l])) << f[i + l];
    }
}

// 32x32 -> 64 products, 64-bit saturating sums, and rounding to saturated int32 by every count.
TEST_F(LanePrimitives, ProductsSumsAndRounding) {
    const Words a = operands32(5, 8000), b = operands32(6, 8000);
    int64_t p[kLanes];
    for (std::size_t i = 0; i + kLanes <= a.size(); i += kLanes) {
        mul_lanes(&a[i], &b[i], p);
        for (int l = 0; l < kLanes; ++l) ASSERT_EQ(p[l], int64_t{a[i + l]} * b[i + l]);
    }
    const Longs u = operands64(7), v = operands64(8);
    int64_t s[4], d[4];
    int32_t r[4], rf[4];
    for (std::size_t i = 0; i + 4 <= u.size(); i += 4) {
        for (std::size_t j = 0; j < 4; j += kLanes / 2) {
            add64_lanes(&u[i + j], &v[i + j], s + j);
            sub64_lanes(&u[i + j], &v[i + j], d + j);
        }
        for (int l = 0; l < 4; ++l) {
            ASSERT_EQ(s[l], fx::sat_add64(u[i + l], v[i + l])) << u[i + l] << " + " << v[i + l];
            ASSERT_EQ(d[l], fx::sat_sub64(u[i + l], v[i + l])) << u[i + l] << " - " << v[i + l];
        }
        for (int k = 1; k <= 32; ++k) {
            rnd_lanes(&u[i], k, r);
            for (int l = 0; l < 4; ++l) ASSERT_EQ(r[l], fx::rnd(u[i + l], k)) << u[i + l] << " k " << k;
        }
        for (const int k : {1, 15, 31, 32}) {
            rnd_fixed_lanes(&u[i], k, rf);
            for (int l = 0; l < 4; ++l) ASSERT_EQ(rf[l], fx::rnd(u[i + l], k)) << u[i + l] << " k " << k;
        }
    }
}

#endif

// ---- The complex multiply loops ----

class VectorComplexMultiply : public LanePrimitives {};

// Spectra for one case: mode 0 random of every magnitude, 1 boundary values only, 2 every word
// -2^31 (the products whose 64-bit sum saturates) with an accumulator at the bounds.
Words spectrum(std::mt19937 &g, int words, int mode) {
    const Words e{kMin, kMin + 1, -65536, -1, 0, 1, 65535, kMax - 1, kMax};
    Words v(words);
    for (int32_t &x : v) {
        if (mode == 0) x = static_cast<int32_t>(g()) >> (g() % 32);
        if (mode == 1) x = e[g() % e.size()];
        if (mode == 2) x = g() % 4 ? kMin : e[g() % e.size()];
    }
    return v;
}

// Both loops on the same operands for counts -3..136: identical words, the words beyond the last
// whole step untouched (the buffers reach past every count), and the accumulator of the
// multiply-accumulate saturating at both bounds on the way.
TEST_F(VectorComplexMultiply, SameWordsAsThePortableLoops) {
    std::mt19937 g(9);
    constexpr int kWords = 2 * 140;
    for (int mode = 0; mode < 3; ++mode)
        for (int n = -3; n <= 136; ++n)
            for (int rep = 0; rep < 3; ++rep) {
                const Words a = spectrum(g, kWords, mode), b = spectrum(g, kWords, mode);
                const Words acc0 = spectrum(g, kWords, mode == 0 ? 0 : 1);
                Words pa = acc0, va = acc0;
                for (int pass = 0; pass < 3; ++pass) {
                    sp::complex_mla(sp::Isa::kPortable, a.data(), b.data(), pa.data(), n);
                    sp::complex_mla(sp::Isa::kVector, a.data(), b.data(), va.data(), n);
                }
                ASSERT_EQ(va, pa) << "complex_mla n " << n << " mode " << mode;
                Words pc = acc0, vc = acc0;
                sp::complex_conj_mult(sp::Isa::kPortable, a.data(), b.data(), pc.data(), n);
                sp::complex_conj_mult(sp::Isa::kVector, a.data(), b.data(), vc.data(), n);
                ASSERT_EQ(vc, pc) << "complex_conj_mult n " << n << " mode " << mode;
            }
}

// In-place use as the stages do it: the output is one of the operands.
TEST_F(VectorComplexMultiply, OutputAliasingAnOperand) {
    std::mt19937 g(10);
    for (int n : {2, 6, 8, 66, 130}) {
        const Words a = spectrum(g, 2 * n, 0), b = spectrum(g, 2 * n, 0);
        Words pa = a, va = a;
        sp::complex_conj_mult(sp::Isa::kPortable, pa.data(), b.data(), pa.data(), n);
        sp::complex_conj_mult(sp::Isa::kVector, va.data(), b.data(), va.data(), n);
        ASSERT_EQ(va, pa) << n;
    }
}

}  // namespace
