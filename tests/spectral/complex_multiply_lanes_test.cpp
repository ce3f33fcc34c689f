// The steps of the lane vocabulary against their scalar definitions on boundary and random
// operands, then the
// complex multiply lane loops against the portable ones on random, boundary and saturating
// spectra for every count up to 136. Skipped where the processor has no vector unit.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "fixedpoint/block_float.h"
#include "spectral/kernel_elements.h"
#include "spectral/kernels.h"
#include "spectral/lanes.h"
#include "spectral/processor.h"

namespace {

using Words = std::vector<int32_t>;
constexpr int32_t kMin = INT32_MIN, kMax = INT32_MAX;

// ---- One register's worth of each step of the lane vocabulary, from and to arrays ----

#if SONVEL_HAS_LANES
constexpr int kLanes = ln::kLanes;

#define LANES SONVEL_LANES_TARGET
using ln::load;
using ln::store;
LANES void hr_lanes(const int32_t *x, int32_t *r) { store(r, ln::hr(load(x))); }
LANES void add_lanes(const int32_t *a, const int32_t *b, int32_t *r) {
    store(r, ln::sat_add(load(a), load(b)));
}
LANES void sub_lanes(const int32_t *a, const int32_t *b, int32_t *r) {
    store(r, ln::sat_sub(load(a), load(b)));
}
LANES void shr_lanes(const int32_t *x, const int32_t *c, int32_t *r) {
    store(r, ln::shr_trunc(load(x), load(c)));
}
LANES void shift_lanes(const int32_t *x, const int32_t *c, int32_t *r) {
    store(r, ln::shift_sat(load(x), load(c)));
}
LANES void f2i_lanes(const float *f, int32_t *r) { store(r, ln::f2i(ln::loadf(f))); }
LANES void f2i_not_nan_lanes(const float *f, int32_t *r) {
    store(r, ln::f2i_not_nan(ln::loadf(f)));
}
// rnd(a b, K), rnd(sat_add64(a b, a c), K) and rnd(sat_sub64(a b, a c), K) for the counts the
// kernels use.
template <int K>
LANES void products_lanes(const int32_t *a, const int32_t *b, const int32_t *c, int32_t *r) {
    const ln::W64 ab = ln::mul_wide(load(a), load(b)), ac = ln::mul_wide(load(a), load(c));
    store(r, ln::rnd_narrow<K>(ab));
    store(r + kLanes, ln::rnd_narrow<K>(ln::sat_add64(ab, ac)));
    store(r + 2 * kLanes, ln::rnd_narrow<K>(ln::sat_sub64(ab, ac)));
}
LANES void mul_rnd32_lanes(const int32_t *a, const int32_t *b, int32_t *r) {
    store(r, ln::mul_rnd32(load(a), load(b)));
}
// rnd(cmul(a, b), K) per bin in the back end's complex word order, and rnd(cmul(a, conj(b)), 31).
template <int K>
LANES void cplx_products_lanes(const int32_t *a, const int32_t *b, int32_t *r) {
    const ln::Cplx x = ln::load_cplx(a), y = ln::load_cplx(b);
    ln::store_cplx(r, ln::rnd_narrow<K>(ln::cmul_wide(x, y)));
    ln::store_cplx(r + 2 * kLanes, ln::rnd_narrow<31>(ln::cmul_wide(x, ln::conj(y))));
}
#else
constexpr int kLanes = 4;
#endif
bool vector_available() { return sp::probe_isa() == sp::Isa::kVector; }

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
    while (static_cast<int>(v.size()) < n || v.size() % 8)
        v.push_back(static_cast<int32_t>(g()) >> (g() % 32));
    return v;
}

class LanePrimitives : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!vector_available()) GTEST_SKIP() << "no vector unit on this processor";
    }
};

#if SONVEL_HAS_LANES

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
    for (std::size_t i = 0; i < c.size(); ++i)
        c[i] = static_cast<int32_t>((i * 7 + i / 81) % 81) - 40;
    Words cpos(c.size());
    for (std::size_t i = 0; i < c.size(); ++i) cpos[i] = c[i] < 0 ? -c[i] : c[i];
    int32_t r[kLanes], s[kLanes];
    for (std::size_t i = 0; i < x.size(); i += kLanes) {
        shr_lanes(&x[i], &cpos[i], r);
        shift_lanes(&x[i], &c[i], s);
        for (int l = 0; l < kLanes; ++l) {
            ASSERT_EQ(r[l], fx::shr_trunc(x[i + l], cpos[i + l]))
                << x[i + l] << " >> " << cpos[i + l];
            ASSERT_EQ(s[l], fx::shift_sat(x[i + l], c[i + l])) << x[i + l] << " << " << c[i + l];
        }
    }
}

// Float to int: exact powers of two and their neighbours around the int32 range, infinities,
// NaNs, signed zeros, fractions, and random bit patterns (the conversion for lanes that are not
// NaN checked on the others).
TEST_F(LanePrimitives, SaturatingFloatToInt) {
    std::vector<float> f{0.0f,
                         -0.0f,
                         0.5f,
                         -0.5f,
                         0.99999994f,
                         -1.5f,
                         2147483648.0f,
                         -2147483648.0f,
                         2147483520.0f,
                         -2147483520.0f,
                         4294967296.0f,
                         -4294967296.0f,
                         std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity(),
                         std::numeric_limits<float>::quiet_NaN(),
                         -std::numeric_limits<float>::quiet_NaN(),
                         std::numeric_limits<float>::denorm_min(),
                         3e38f,
                         -3e38f};
    std::mt19937 g(4);
    while (f.size() < 40000) f.push_back(std::bit_cast<float>(static_cast<uint32_t>(g())));
    int32_t r[kLanes];
    for (std::size_t i = 0; i < f.size(); i += kLanes) {
        f2i_lanes(&f[i], r);
        for (int l = 0; l < kLanes; ++l) ASSERT_EQ(r[l], fx::f2i(f[i + l])) << f[i + l];
        f2i_not_nan_lanes(&f[i], r);
        for (int l = 0; l < kLanes; ++l)
            if (!std::isnan(f[i + l])) ASSERT_EQ(r[l], fx::f2i(f[i + l])) << f[i + l];
    }
}

// 32x32 -> 64 products, their 64-bit saturating sums and differences, rounded to saturated int32
// by the counts the kernels use; and the rounded high half of the products.
template <int K>
void check_products(const Words &a, const Words &b, const Words &c) {
    int32_t r[3 * kLanes];
    for (std::size_t i = 0; i + kLanes <= a.size(); i += kLanes) {
        products_lanes<K>(&a[i], &b[i], &c[i], r);
        for (int l = 0; l < kLanes; ++l) {
            const int64_t ab = int64_t{a[i + l]} * b[i + l], ac = int64_t{a[i + l]} * c[i + l];
            ASSERT_EQ(r[l], fx::rnd(ab, K)) << a[i + l] << " * " << b[i + l];
            ASSERT_EQ(r[kLanes + l], fx::rnd(fx::sat_add64(ab, ac), K)) << ab << " + " << ac;
            ASSERT_EQ(r[2 * kLanes + l], fx::rnd(fx::sat_sub64(ab, ac), K)) << ab << " - " << ac;
        }
    }
}

TEST_F(LanePrimitives, ProductsSumsAndRounding) {
    const Words a = operands32(5, 8000), b = operands32(6, 8000), c = operands32(7, 8000);
    check_products<1>(a, b, c);
    check_products<15>(a, b, c);
    check_products<31>(a, b, c);
    check_products<32>(a, b, c);
    int32_t r[kLanes];
    for (std::size_t i = 0; i + kLanes <= a.size(); i += kLanes) {
        mul_rnd32_lanes(&a[i], &b[i], r);
        for (int l = 0; l < kLanes; ++l)
            ASSERT_EQ(r[l], fx::rnd(int64_t{a[i + l]} * b[i + l], 32))
                << a[i + l] << " * " << b[i + l];
    }
}

// Complex products of interleaved bins rounded by the counts the kernels use: boundary parts in
// every combination of the four (all four -2^31 gives the im sum 2^63), then random ones.
template <int K>
void check_cplx_products(const Words &a, const Words &b) {
    int32_t r[4 * kLanes];
    for (std::size_t i = 0; i + 2 * kLanes <= a.size(); i += 2 * kLanes) {
        cplx_products_lanes<K>(&a[i], &b[i], r);
        for (int w = 0; w < 2 * kLanes; w += 2) {
            const sp::Prod64 p = sp::cmul(a[i + w], a[i + w + 1], b[i + w], b[i + w + 1]);
            const sp::Prod64 c = sp::cmul_conj(a[i + w], a[i + w + 1], b[i + w], b[i + w + 1]);
            ASSERT_EQ(r[w], fx::rnd(p.re, K)) << a[i + w] << ' ' << a[i + w + 1] << ' ' << b[i + w];
            ASSERT_EQ(r[w + 1], fx::rnd(p.im, K)) << a[i + w] << ' ' << a[i + w + 1];
            ASSERT_EQ(r[2 * kLanes + w], fx::rnd(c.re, 31));
            ASSERT_EQ(r[2 * kLanes + w + 1], fx::rnd(c.im, 31));
        }
    }
}

TEST_F(LanePrimitives, ComplexProductsInWordOrder) {
    const Words e{kMin, kMin + 1, -65536, -1, 0, 1, 65535, kMax - 1, kMax};
    Words a, b;
    for (int32_t ar : e)
        for (int32_t ai : e)
            for (int32_t br : e)
                for (int32_t bi : e) a.insert(a.end(), {ar, ai}), b.insert(b.end(), {br, bi});
    const Words ra = operands32(11, 20000), rb = operands32(12, 20000);
    a.insert(a.end(), ra.begin(), ra.begin() + 20000);
    b.insert(b.end(), rb.begin(), rb.begin() + 20000);
    check_cplx_products<1>(a, b);
    check_cplx_products<15>(a, b);
    check_cplx_products<31>(a, b);
}

#endif

// ---- The complex multiply loops ----

class ComplexMultiplyLanes : public LanePrimitives {};

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
TEST_F(ComplexMultiplyLanes, SameWordsAsThePortableLoops) {
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

// The partitions summed in one pass give the words of one multiply-accumulate per partition in
// turn, on either path, also where the sum saturates on the way.
TEST_F(ComplexMultiplyLanes, PartitionsSummedInOnePass) {
    std::mt19937 g(11);
    constexpr int kParts = 6, kStride = 2 * 140 + 6;
    for (int mode = 0; mode < 3; ++mode)
        for (int n : {-1, 0, 2, 6, 8, 10, 64, 66, 128, 130, 136}) {
            const Words a = spectrum(g, kParts * kStride, mode);
            const Words b = spectrum(g, kParts * kStride, mode);
            const Words acc0 = spectrum(g, 2 * 140, mode == 0 ? 0 : 1);
            Words want = acc0, portable = acc0, lanes = acc0;
            for (int p = 0; p < kParts; ++p)
                sp::complex_mla(sp::Isa::kPortable, &a[p * kStride], &b[p * kStride], want.data(),
                                n);
            sp::complex_mla_sum(sp::Isa::kPortable, a.data(), b.data(), kStride, kParts,
                                portable.data(), n);
            sp::complex_mla_sum(sp::Isa::kVector, a.data(), b.data(), kStride, kParts, lanes.data(),
                                n);
            ASSERT_EQ(portable, want) << n << " mode " << mode;
            ASSERT_EQ(lanes, want) << n << " mode " << mode;
        }
}

// In-place use as the stages do it: the output is one of the operands.
TEST_F(ComplexMultiplyLanes, OutputAliasingAnOperand) {
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
