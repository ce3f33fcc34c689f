// Lane equivalence of the smoothing and power loops (the kernel is the test parameter), bit for
// bit: every count
// from 0 to 136 (whole vector steps, the portable tail and the words behind the count, which stay
// untouched), operands mixing boundary values (-2^31, -1, 0, powers of two, 2^31 - 1) with random
// ones, extreme Q values, and factors 0, 32767 and negative ones (which some loops leave to the
// portable code). Skipped where the processor has no vector unit.
#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "sonvel_aec_spectral.h"
#include "spectral/fft/fft_plan.h"
#include "spectral/kernel_elements.h"
#include "spectral/kernels.h"
#include "spectral/processor.h"
#include "state/aec_state.h"

namespace {

using sp::Isa;
using Words = std::vector<int32_t>;
using Shorts = std::vector<int16_t>;

constexpr int kMaxCount = 136;
constexpr int kGuard = 8;  // words behind the largest count, which no loop may touch

bool vector_available() { return sp::probe_isa() == sp::Isa::kVector; }

// Operands where the roundings, headrooms and saturations change behaviour, and random ones.
class Operands {
  public:
    explicit Operands(uint32_t seed) : rng_(seed) {}

    int32_t word() {
        switch (rng_() % 4) {
            case 0: return kEdge[rng_() % std::size(kEdge)];
            case 1: return power_of_two();
            default: return static_cast<int32_t>(rng_());
        }
    }
    int32_t q32() { return rng_() % 3 == 0 ? word() : static_cast<int32_t>(rng_() % 80) - 40; }
    int16_t q16() {
        constexpr int16_t kQ[] = {INT16_MIN, INT16_MIN + 40, -100,     -1, 0, 31,
                                  62,        INT16_MAX - 40, INT16_MAX};
        return rng_() % 3 == 0 ? kQ[rng_() % std::size(kQ)]
                               : static_cast<int16_t>(rng_() % 80 - 40);
    }
    int16_t factor() {
        constexpr int16_t kFactor[] = {0, 1, 16384, 29490, 32766, 32767};
        return rng_() % 2 ? kFactor[rng_() % std::size(kFactor)]
                          : static_cast<int16_t>(rng_() % 32768);
    }
    Words words(std::size_t n) {
        return fill<int32_t>(n, [&] { return word(); });
    }
    Words q32s(std::size_t n) {
        return fill<int32_t>(n, [&] { return q32(); });
    }
    Shorts q16s(std::size_t n) {
        return fill<int16_t>(n, [&] { return q16(); });
    }
    Shorts factors(std::size_t n) {
        return fill<int16_t>(n, [&] { return factor(); });
    }

  private:
    static constexpr int32_t kEdge[] = {INT32_MIN, INT32_MIN + 1, -65536,        -2,       -1, 0,
                                        1,         65535,         INT32_MAX - 1, INT32_MAX};

    int32_t power_of_two() {
        const uint32_t p = 1u << (rng_() % 31);
        const uint32_t v = rng_() % 2 ? p : p - 1;
        return static_cast<int32_t>(rng_() % 2 ? v : 0u - v);
    }
    template <class T, class F>
    std::vector<T> fill(std::size_t n, F f) {
        std::vector<T> v(n);
        for (auto &x : v) x = f();
        return v;
    }

    std::mt19937 rng_;
};

// The buffers of a kernel (what it reads and writes; unused ones stay empty), and the scalar
// arguments of one round: a smoothing factor and a Q value.
struct Buffers {
    Words x, y, z, qw;
    Shorts qx, qy, a;
    bool operator==(const Buffers &) const = default;
};
constexpr std::size_t kWords = 2 * (kMaxCount + kGuard);
constexpr int16_t kFactors[] = {0, 29490, 32767, -1, -2, INT16_MIN};
constexpr int16_t kQs[] = {INT16_MIN, -3, 0, 15, INT16_MAX};

// A kernel of the family: its operands, and its call on a path with factor a and Q value q.
struct Kernel {
    const char *name;
    Buffers (*make)(Operands &);
    void (*run)(Isa, Buffers &, int n, int16_t a, int16_t q);
};

const Kernel kKernels[] = {
    // Factors per element, some steps with a negative one.
    {"PerElementFactors",
     [](Operands &ops) {
         Buffers s{ops.words(kWords), ops.words(kWords),  {}, {}, ops.q16s(kWords),
                   ops.q16s(kWords),  ops.factors(kWords)};
         if (ops.word() % 5 == 0)
             s.a[static_cast<uint32_t>(ops.word()) % kWords] = ops.word() % 2 ? -1 : INT16_MIN;
         return s;
     },
     [](Isa isa, Buffers &s, int n, int16_t, int16_t) {
         sp::smooth_dg_f(isa, s.x.data(), s.y.data(), s.qx.data(), s.qy.data(), s.a.data(),
                         static_cast<int16_t>(n));
     }},
    {"SmoothedPower",
     [](Operands &ops) {
         return Buffers{ops.words(kWords), ops.words(kWords), {}, {}, {}, ops.q16s(kWords), {}};
     },
     [](Isa isa, Buffers &s, int n, int16_t a, int16_t q) {
         sp::energy_smooth_f(isa, s.x.data(), s.y.data(), q, s.qy.data(), a, n);
     }},
    {"SmoothedCrossSpectrum",
     [](Operands &ops) {
         return Buffers{
             ops.words(kWords), ops.words(kWords), ops.words(kWords), {}, {}, ops.q16s(kWords), {}};
     },
     [](Isa isa, Buffers &c, int n, int16_t a, int16_t q) {
         sp::conj_mult_smooth_q(isa, c.x.data(), c.y.data(), c.z.data(), q, c.qy.data(), a, n);
     }},
    {"NormalisedPower",
     [](Operands &ops) {
         return Buffers{ops.words(kWords), ops.words(kWords), {}, {}, {}, ops.q16s(kWords), {}};
     },
     [](Isa isa, Buffers &p, int n, int16_t, int16_t q) {
         sp::energy_f(isa, p.x.data(), p.y.data(), q, p.qy.data(), n);
     }},
    {"PowerWithPartQValues",
     [](Operands &ops) {
         return Buffers{
             ops.words(kWords), ops.words(kWords), ops.words(kWords), ops.q32s(kWords), {}, {}, {}};
     },
     [](Isa isa, Buffers &p, int n, int16_t, int16_t) {
         sp::energy_dq_f(isa, p.x.data(), p.qw.data(), p.y.data(), p.z.data(), n);
     }},
};

class SmoothingLanes : public ::testing::TestWithParam<Kernel> {};

// Both paths for every count over the same operands, factors and Q values; what each path wrote
// must be identical.
TEST_P(SmoothingLanes, LanePathGivesThePortableBits) {
    if (!vector_available()) GTEST_SKIP() << "no vector unit on this processor";
    const Kernel &kernel = GetParam();
    Operands ops(12345);
    for (int n = 0; n <= kMaxCount; ++n) {
        for (int round = 0; round < 30; ++round) {
            const int16_t a = kFactors[round % std::size(kFactors)],
                          q = kQs[round % std::size(kQs)];
            Buffers portable = kernel.make(ops), lanes = portable;
            kernel.run(Isa::kPortable, portable, n, a, q);
            kernel.run(Isa::kVector, lanes, n, a, q);
            ASSERT_TRUE(portable == lanes) << "count " << n << ", factor " << a << ", q " << q;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Family, SmoothingLanes, ::testing::ValuesIn(kKernels),
                         [](const ::testing::TestParamInfo<Kernel> &info) {
                             return std::string(info.param.name);
                         });

// Every combination of boundary values over the four parts of a bin, where the 64-bit products,
// their saturating sums and the scaling by the headroom reach their limits.
TEST(SmoothingLanesBoundary, CrossSpectrumOfBoundaryBinsGivesThePortableBits) {
    if (!vector_available()) GTEST_SKIP() << "no vector unit on this processor";
    constexpr int32_t kEdge[] = {INT32_MIN, INT32_MIN + 1, -(1 << 30), -(1 << 30) - 1, -1, 0,
                                 1,         1 << 30,       INT32_MAX};
    constexpr int kE = static_cast<int>(std::size(kEdge));
    const int bins = kE * kE * kE * kE;
    Buffers in{Words(2 * bins), Words(2 * bins), Words(2 * bins), {}, {}, Shorts(2 * bins), {}};
    for (int k = 0; k < bins; ++k) {
        in.x[2 * k] = kEdge[k % kE];
        in.x[2 * k + 1] = kEdge[k / kE % kE];
        in.y[2 * k] = kEdge[k / (kE * kE) % kE];
        in.y[2 * k + 1] = kEdge[k / (kE * kE * kE)];
        in.z[2 * k] = kEdge[(k + 3) % kE];
        in.z[2 * k + 1] = kEdge[(k + 5) % kE];
        in.qy[2 * k] = static_cast<int16_t>(k % 70 - 35);
        in.qy[2 * k + 1] = static_cast<int16_t>(k % 90 - 30);
    }
    for (const int16_t s : {int16_t{0}, int16_t{32767}}) {
        Buffers portable = in, vectorised = in;
        sp::conj_mult_smooth_q(Isa::kPortable, portable.x.data(), portable.y.data(),
                               portable.z.data(), 1, portable.qy.data(), s, bins);
        sp::conj_mult_smooth_q(Isa::kVector, vectorised.x.data(), vectorised.y.data(),
                               vectorised.z.data(), 1, vectorised.qy.data(), s, bins);
        for (int w = 0; w < 2 * bins; ++w) {
            ASSERT_EQ(portable.z[w], vectorised.z[w]) << "factor " << s << ", word " << w;
            ASSERT_EQ(portable.qy[w], vectorised.qy[w]) << "factor " << s << ", word " << w;
        }
    }
}

// The far-end power update takes its path from the instance; it is compared with the per-bin
// definition, with rate shifts from the usual ones to extreme ones.
TEST(SmoothingLanesBoundary, FarPowerUpdateMatchesPerBinDefinition) {
    if (!vector_available()) GTEST_SKIP() << "no vector unit on this processor";
    auto state = std::make_unique<AecState>();
    state->s32LanePath = 1;
    Operands ops(777);
    for (int half = 0; half + 4 <= sonvel::kBinWords; ++half) {
        for (const int16_t shift :
             {int16_t{0}, int16_t{1}, int16_t{-40}, int16_t{9}, int16_t{40}}) {
            state->s16HalfFftLen = static_cast<int16_t>(half);
            state->s16RateShift = shift;
            const Words x = ops.words(2 * sonvel::kBinWords);
            Words p = ops.words(sonvel::kBinWords);
            Words expected = p;
            const int32_t bins = sp::stepped_count(half + 4, 4);
            for (int k = 0; k < bins; ++k)
                expected[k] = sp::far_power_element(x[2 * k], x[2 * k + 1], shift, p[k]);
            Sonvel_AEC_Energy(state.get(), x.data(), p.data());
            ASSERT_EQ(p, expected) << "half length " << half << ", shift " << shift;
        }
    }
}

}  // namespace
