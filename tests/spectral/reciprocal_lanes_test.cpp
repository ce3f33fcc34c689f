// Lane equivalence of the reciprocal family (reciprocal, reciprocal square root, square root; the
// kernel is the test parameter) against the scalar functions, bit for bit: every mantissa of the
// binades where the estimate tables and the
// exponent arithmetic change behaviour, every class of special operand in every lane beside
// ordinary ones, and random bit patterns. On x86-64 only where the processor runs AVX2 and FMA.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "spectral/lanes.h"
#include "spectral/processor.h"

namespace {

uint32_t bits(float f) { return std::bit_cast<uint32_t>(f); }
float from_bits(uint32_t u) { return std::bit_cast<float>(u); }

// The family's kernels: the parameter of every test below.
enum class Kernel { kRecip, kRsqrt, kSqrt };

float scalar(Kernel k, float x) {
    return k == Kernel::kRecip ? sp::recip(x) : k == Kernel::kRsqrt ? sp::rsqrt(x) : sp::sqrt(x);
}

#if SONVEL_HAS_LANES
constexpr std::size_t kLanes = ln::kLanes;

SONVEL_LANES_TARGET void lane_results(Kernel k, const std::vector<float> &x,
                                      std::vector<float> &out) {
    for (std::size_t i = 0; i < x.size(); i += kLanes) {
        const ln::F32 v = ln::loadf(&x[i]);
        ln::storef(&out[i], k == Kernel::kRecip   ? ln::recip(v)
                            : k == Kernel::kRsqrt ? ln::rsqrt(v)
                                                  : ln::sqrt(v));
    }
}
#else
constexpr std::size_t kLanes = 4;
void lane_results(Kernel, const std::vector<float> &, std::vector<float> &) {}
#endif

// The same bits, signed zeros included. A NaN result must carry the same payload; its sign is
// left open: the last multiply r * t of the scalar function meets two NaNs of opposite sign (the
// step negates x), and which one it returns follows the operand order the compiler picks.
bool same(float got, float want) {
    const uint32_t g = bits(got), w = bits(want);
    return std::isnan(want) ? std::isnan(got) && (g & 0x7FFFFFFFu) == (w & 0x7FFFFFFFu) : g == w;
}

class ReciprocalLanes : public ::testing::TestWithParam<Kernel> {
  protected:
    void SetUp() override {
        if (sp::probe_isa() != sp::Isa::kVector) GTEST_SKIP() << "no vector unit on this processor";
    }

    // Every lane's result equals the scalar one.
    void expect_same_as_scalar(const std::vector<uint32_t> &u) {
        ASSERT_EQ(u.size() % kLanes, 0u);
        std::vector<float> x(u.size()), got(u.size());
        for (std::size_t i = 0; i < u.size(); ++i) x[i] = from_bits(u[i]);
        lane_results(GetParam(), x, got);
        for (std::size_t i = 0; i < x.size(); ++i)
            ASSERT_TRUE(same(got[i], scalar(GetParam(), x[i]))) << std::hex << u[i];
    }
};

// Whole binades, the vectors alternately positive and negative: both parities of the exponent
// around 1 (the two halves
// of the square root table) in full; a sample of every third mantissa of the denormals, the
// smallest normals, the edges of the range of ordinary operands (fields 1/2 and 250/251) and the
// top, where reciprocal estimates become denormal.
TEST_P(ReciprocalLanes, EveryMantissaOfTheBoundaryBinades) {
#if defined(__aarch64__)
    const uint32_t full = 7, sample = 61;  // under emulation
#else
    const uint32_t full = 1, sample = 3;
#endif
    const uint32_t binades[][2] = {{127, full},   {128, full},   {0, sample},   {1, sample},
                                   {2, sample},   {126, sample}, {250, sample}, {251, sample},
                                   {253, sample}, {254, sample}};
    std::vector<uint32_t> u;
    for (const auto &[e, stride] : binades) {
        u.clear();
        for (uint32_t m = 0; m < (1u << 23); m += stride)
            u.push_back(e << 23 | m | (m / stride / kLanes % 2) << 31);
        u.resize(u.size() / kLanes * kLanes);
        expect_same_as_scalar(u);
        if (HasFatalFailure()) return;
    }
}

// Each special operand in each lane position, the other lanes ordinary: a lane must neither take
// the short path wrongly nor disturb its neighbours.
TEST_P(ReciprocalLanes, SpecialOperandsInEveryLane) {
    std::vector<uint32_t> specials = {0x00000000u, 0x00000001u, 0x001FFFFFu,
                                      0x00200000u, 0x00400000u, 0x007FFFFFu,  // zero, denormals
                                      0x00800000u, 0x00FFFFFFu, 0x01000000u,  // fields 1 and 2
                                      0x7D7FFFFFu, 0x7D800000u, 0x7E800000u,
                                      0x7F000000u, 0x7F7FFFFFu,  // fields 250 .. 254
                                      0x7F800000u, 0x7F800001u, 0x7FBFFFFFu,
                                      0x7FC00000u, 0x7FC01234u, 0x7FFFFFFFu};  // infinity, NaNs
    for (std::size_t i = 0, n = specials.size(); i < n; ++i)
        specials.push_back(specials[i] | 0x80000000u);
    const uint32_t ordinary[] = {0x3F800000u, 0x40490FDBu, 0x2A3C1234u, 0xC2F60000u,
                                 0x5E000001u, 0x3EFFFFFFu, 0x01000001u, 0x7D7FFFFEu};
    std::vector<uint32_t> u;
    for (uint32_t s : specials) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            for (std::size_t k = 0; k < kLanes; ++k)
                u.push_back(k == lane ? s : ordinary[(k + lane) % 8]);
        }
    }
    for (std::size_t i = 0; i + kLanes <= specials.size(); i += kLanes)  // vectors of specials only
        u.insert(u.end(), specials.begin() + static_cast<std::ptrdiff_t>(i),
                 specials.begin() + static_cast<std::ptrdiff_t>(i + kLanes));
    expect_same_as_scalar(u);
}

// Random bit patterns, and random positive ordinary operands (every lane on the short path).
TEST_P(ReciprocalLanes, RandomOperands) {
    std::mt19937 rng(23);
    std::vector<uint32_t> u(1u << 20);
    for (uint32_t &v : u) v = rng();
    expect_same_as_scalar(u);
    for (uint32_t &v : u) v = (rng() & 0x007FFFFFu) | (2u + rng() % 249u) << 23;
    expect_same_as_scalar(u);
}

std::string kernel_name(const ::testing::TestParamInfo<Kernel> &info) {
    const char *names[] = {"Recip", "Rsqrt", "Sqrt"};
    return names[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Family, ReciprocalLanes,
                         ::testing::Values(Kernel::kRecip, Kernel::kRsqrt, Kernel::kSqrt),
                         kernel_name);

}  // namespace
