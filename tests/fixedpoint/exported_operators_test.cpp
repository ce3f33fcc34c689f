// Every exported operator gives the same result as the inline operator the library uses
// internally, for random operands biased toward the boundaries.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <tuple>

#include "fixedpoint/extended_ops.h"
#include "sonvel_aec_ops.h"

namespace {

class Operands {
public:
    // Mostly uniform bits, sometimes a boundary value, a small magnitude or a small shift count.
    template <typename T>
    T next() {
        if constexpr (sizeof(T) == 2) {
            static constexpr int16_t kEdges[] = {0, 1, -1, 32767, -32768, 15, 16, 31, 32, -16, -32};
            switch (rng_() % 4) {
                case 0: return kEdges[rng_() % 11];
                case 1: return static_cast<int16_t>(static_cast<int16_t>(rng_()) % 40);
                default: return static_cast<int16_t>(rng_());
            }
        } else if constexpr (sizeof(T) == 4) {
            static constexpr int32_t kEdges[] = {0, 1, -1, INT32_MAX, INT32_MIN, 0x40000000, -0x40000000, 0x8000};
            switch (rng_() % 8) {
                case 0: return kEdges[rng_() % 8];
                case 1: return static_cast<int32_t>(rng_()) >> (rng_() % 32);
                default: return static_cast<int32_t>(rng_());
            }
        } else {
            return static_cast<int64_t>((uint64_t{rng_()} << 32) | rng_()) >> (rng_() % 64);
        }
    }

private:
    std::mt19937 rng_{2024};
};

template <typename R, typename... A, typename F>
void expect_same(const char* name, R (*exported)(A...), F twin, Operands& op) {
    for (int i = 0; i < 20000; ++i) {
        const std::tuple<A...> args{op.next<A>()...};
        ASSERT_EQ(std::apply(exported, args), std::apply(twin, args)) << name;
    }
}

#define SAME(name) expect_same(#name, Sonvel_aec_##name, [](auto... v) { return fx::name(v...); }, op)

TEST(ExportedOperators, MatchInlineTwins) {
    Operands op;
    SAME(add); SAME(sub); SAME(abs_s); SAME(negate); SAME(mult); SAME(L_mult); SAME(L_mpy);
    SAME(L_mac); SAME(L_msu); SAME(L_add); SAME(L_sub); SAME(L_negate); SAME(L_abs);
    SAME(extract_h); SAME(extract_l); SAME(round); SAME(L_deposit_h); SAME(L_deposit_l);
    SAME(sature); SAME(sature_L); SAME(shl); SAME(shr); SAME(shr_opt2); SAME(L_shl);
    SAME(L_shl_opt2); SAME(L_shr); SAME(L_shl_opt); SAME(L_shr_opt); SAME(norm_s); SAME(norm_l);
    SAME(norm_l_opt); SAME(div_s); SAME(L_Comp); SAME(Mpy_32); SAME(Mpy_32_16); SAME(Mpy_32_opt);
    SAME(Mpy_32_16_opt); SAME(Mpy_32_16_opt2); SAME(Mpy_32_opt2); SAME(smulwt); SAME(smlabb);
    SAME(L_qdadd); SAME(L_qdsub); SAME(subc); SAME(Div_32_OP); SAME(Ln_OP);
}

TEST(ExportedOperators, OutputParametersMatchInlineTwins) {
    Operands op;
    for (int i = 0; i < 20000; ++i) {
        const auto x = op.next<int32_t>();
        int16_t h1 = 0, l1 = 0, h2 = 0, l2 = 0;
        Sonvel_aec_L_Extract(x, &h1, &l1);
        fx::L_Extract(x, &h2, &l2);
        ASSERT_EQ(h1, h2);
        ASSERT_EQ(l1, l2);
        int16_t e1 = 0, f1 = 0, e2 = 0, f2 = 0;
        ASSERT_EQ(Sonvel_aec_Log2(x, &e1, &f1), fx::Log2(x, &e2, &f2));
        ASSERT_EQ(e1, e2);
        ASSERT_EQ(f1, f2);
    }
}

}  // namespace
