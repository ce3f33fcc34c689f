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
    // Mostly uniform bits, sometimes a boundary value or a small magnitude.
    int32_t r32() {
        static constexpr int32_t kEdges[] = {0, 1, -1, INT32_MAX, INT32_MIN, 0x40000000, -0x40000000, 0x8000};
        switch (rng_() % 8) {
            case 0: return kEdges[rng_() % 8];
            case 1: return static_cast<int32_t>(rng_()) >> (rng_() % 32);
            default: return static_cast<int32_t>(rng_());
        }
    }
    int16_t r16() {
        static constexpr int16_t kEdges[] = {0, 1, -1, 32767, -32768, 15, 16, 31, 32, -16, -32};
        switch (rng_() % 4) {
            case 0: return kEdges[rng_() % 11];
            case 1: return static_cast<int16_t>(static_cast<int16_t>(rng_()) % 40);  // shift counts
            default: return static_cast<int16_t>(rng_());
        }
    }
    int64_t r64() { return static_cast<int64_t>((uint64_t{rng_()} << 32) | rng_()) >> (rng_() % 64); }

private:
    std::mt19937 rng_{2024};
};

TEST(ExportedOperators, MatchInlineTwins) {
    Operands op;
    auto r16 = [&] { return op.r16(); };
    auto r32 = [&] { return op.r32(); };
    auto r64 = [&] { return op.r64(); };
    for (int i = 0; i < 20000; ++i) {
            {
                const auto args = std::make_tuple(r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_add, args), std::apply([](auto... v) { return fx::add(v...); }, args)) << "add";
            }
            {
                const auto args = std::make_tuple(r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_sub, args), std::apply([](auto... v) { return fx::sub(v...); }, args)) << "sub";
            }
            {
                const auto args = std::make_tuple(r16());
                ASSERT_EQ(std::apply(Sonvel_aec_abs_s, args), std::apply([](auto... v) { return fx::abs_s(v...); }, args)) << "abs_s";
            }
            {
                const auto args = std::make_tuple(r16());
                ASSERT_EQ(std::apply(Sonvel_aec_negate, args), std::apply([](auto... v) { return fx::negate(v...); }, args)) << "negate";
            }
            {
                const auto args = std::make_tuple(r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_mult, args), std::apply([](auto... v) { return fx::mult(v...); }, args)) << "mult";
            }
            {
                const auto args = std::make_tuple(r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_L_mult, args), std::apply([](auto... v) { return fx::L_mult(v...); }, args)) << "L_mult";
            }
            {
                const auto args = std::make_tuple(r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_L_mpy, args), std::apply([](auto... v) { return fx::L_mpy(v...); }, args)) << "L_mpy";
            }
            {
                const auto args = std::make_tuple(r32(), r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_L_mac, args), std::apply([](auto... v) { return fx::L_mac(v...); }, args)) << "L_mac";
            }
            {
                const auto args = std::make_tuple(r32(), r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_L_msu, args), std::apply([](auto... v) { return fx::L_msu(v...); }, args)) << "L_msu";
            }
            {
                const auto args = std::make_tuple(r32(), r32());
                ASSERT_EQ(std::apply(Sonvel_aec_L_add, args), std::apply([](auto... v) { return fx::L_add(v...); }, args)) << "L_add";
            }
            {
                const auto args = std::make_tuple(r32(), r32());
                ASSERT_EQ(std::apply(Sonvel_aec_L_sub, args), std::apply([](auto... v) { return fx::L_sub(v...); }, args)) << "L_sub";
            }
            {
                const auto args = std::make_tuple(r32());
                ASSERT_EQ(std::apply(Sonvel_aec_L_negate, args), std::apply([](auto... v) { return fx::L_negate(v...); }, args)) << "L_negate";
            }
            {
                const auto args = std::make_tuple(r32());
                ASSERT_EQ(std::apply(Sonvel_aec_L_abs, args), std::apply([](auto... v) { return fx::L_abs(v...); }, args)) << "L_abs";
            }
            {
                const auto args = std::make_tuple(r32());
                ASSERT_EQ(std::apply(Sonvel_aec_extract_h, args), std::apply([](auto... v) { return fx::extract_h(v...); }, args)) << "extract_h";
            }
            {
                const auto args = std::make_tuple(r32());
                ASSERT_EQ(std::apply(Sonvel_aec_extract_l, args), std::apply([](auto... v) { return fx::extract_l(v...); }, args)) << "extract_l";
            }
            {
                const auto args = std::make_tuple(r32());
                ASSERT_EQ(std::apply(Sonvel_aec_round, args), std::apply([](auto... v) { return fx::round(v...); }, args)) << "round";
            }
            {
                const auto args = std::make_tuple(r16());
                ASSERT_EQ(std::apply(Sonvel_aec_L_deposit_h, args), std::apply([](auto... v) { return fx::L_deposit_h(v...); }, args)) << "L_deposit_h";
            }
            {
                const auto args = std::make_tuple(r16());
                ASSERT_EQ(std::apply(Sonvel_aec_L_deposit_l, args), std::apply([](auto... v) { return fx::L_deposit_l(v...); }, args)) << "L_deposit_l";
            }
            {
                const auto args = std::make_tuple(r32());
                ASSERT_EQ(std::apply(Sonvel_aec_sature, args), std::apply([](auto... v) { return fx::sature(v...); }, args)) << "sature";
            }
            {
                const auto args = std::make_tuple(r64());
                ASSERT_EQ(std::apply(Sonvel_aec_sature_L, args), std::apply([](auto... v) { return fx::sature_L(v...); }, args)) << "sature_L";
            }
            {
                const auto args = std::make_tuple(r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_shl, args), std::apply([](auto... v) { return fx::shl(v...); }, args)) << "shl";
            }
            {
                const auto args = std::make_tuple(r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_shr, args), std::apply([](auto... v) { return fx::shr(v...); }, args)) << "shr";
            }
            {
                const auto args = std::make_tuple(r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_shr_opt2, args), std::apply([](auto... v) { return fx::shr_opt2(v...); }, args)) << "shr_opt2";
            }
            {
                const auto args = std::make_tuple(r32(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_L_shl, args), std::apply([](auto... v) { return fx::L_shl(v...); }, args)) << "L_shl";
            }
            {
                const auto args = std::make_tuple(r32(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_L_shl_opt2, args), std::apply([](auto... v) { return fx::L_shl_opt2(v...); }, args)) << "L_shl_opt2";
            }
            {
                const auto args = std::make_tuple(r32(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_L_shr, args), std::apply([](auto... v) { return fx::L_shr(v...); }, args)) << "L_shr";
            }
            {
                const auto args = std::make_tuple(r32(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_L_shl_opt, args), std::apply([](auto... v) { return fx::L_shl_opt(v...); }, args)) << "L_shl_opt";
            }
            {
                const auto args = std::make_tuple(r32(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_L_shr_opt, args), std::apply([](auto... v) { return fx::L_shr_opt(v...); }, args)) << "L_shr_opt";
            }
            {
                const auto args = std::make_tuple(r16());
                ASSERT_EQ(std::apply(Sonvel_aec_norm_s, args), std::apply([](auto... v) { return fx::norm_s(v...); }, args)) << "norm_s";
            }
            {
                const auto args = std::make_tuple(r32());
                ASSERT_EQ(std::apply(Sonvel_aec_norm_l, args), std::apply([](auto... v) { return fx::norm_l(v...); }, args)) << "norm_l";
            }
            {
                const auto args = std::make_tuple(r32());
                ASSERT_EQ(std::apply(Sonvel_aec_norm_l_opt, args), std::apply([](auto... v) { return fx::norm_l_opt(v...); }, args)) << "norm_l_opt";
            }
            {
                const auto args = std::make_tuple(r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_div_s, args), std::apply([](auto... v) { return fx::div_s(v...); }, args)) << "div_s";
            }
            {
                const auto args = std::make_tuple(r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_L_Comp, args), std::apply([](auto... v) { return fx::L_Comp(v...); }, args)) << "L_Comp";
            }
            {
                const auto args = std::make_tuple(r16(), r16(), r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_Mpy_32, args), std::apply([](auto... v) { return fx::Mpy_32(v...); }, args)) << "Mpy_32";
            }
            {
                const auto args = std::make_tuple(r16(), r16(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_Mpy_32_16, args), std::apply([](auto... v) { return fx::Mpy_32_16(v...); }, args)) << "Mpy_32_16";
            }
            {
                const auto args = std::make_tuple(r32(), r32());
                ASSERT_EQ(std::apply(Sonvel_aec_Mpy_32_opt, args), std::apply([](auto... v) { return fx::Mpy_32_opt(v...); }, args)) << "Mpy_32_opt";
            }
            {
                const auto args = std::make_tuple(r32(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_Mpy_32_16_opt, args), std::apply([](auto... v) { return fx::Mpy_32_16_opt(v...); }, args)) << "Mpy_32_16_opt";
            }
            {
                const auto args = std::make_tuple(r32(), r16());
                ASSERT_EQ(std::apply(Sonvel_aec_Mpy_32_16_opt2, args), std::apply([](auto... v) { return fx::Mpy_32_16_opt2(v...); }, args)) << "Mpy_32_16_opt2";
            }
            {
                const auto args = std::make_tuple(r32(), r32());
                ASSERT_EQ(std::apply(Sonvel_aec_Mpy_32_opt2, args), std::apply([](auto... v) { return fx::Mpy_32_opt2(v...); }, args)) << "Mpy_32_opt2";
            }
            {
                const auto args = std::make_tuple(r32(), r32());
                ASSERT_EQ(std::apply(Sonvel_aec_smulwt, args), std::apply([](auto... v) { return fx::smulwt(v...); }, args)) << "smulwt";
            }
            {
                const auto args = std::make_tuple(r16(), r16(), r32());
                ASSERT_EQ(std::apply(Sonvel_aec_smlabb, args), std::apply([](auto... v) { return fx::smlabb(v...); }, args)) << "smlabb";
            }
            {
                const auto args = std::make_tuple(r32(), r32());
                ASSERT_EQ(std::apply(Sonvel_aec_L_qdadd, args), std::apply([](auto... v) { return fx::L_qdadd(v...); }, args)) << "L_qdadd";
            }
            {
                const auto args = std::make_tuple(r32(), r32());
                ASSERT_EQ(std::apply(Sonvel_aec_L_qdsub, args), std::apply([](auto... v) { return fx::L_qdsub(v...); }, args)) << "L_qdsub";
            }
            {
                const auto args = std::make_tuple(r32(), r32());
                ASSERT_EQ(std::apply(Sonvel_aec_subc, args), std::apply([](auto... v) { return fx::subc(v...); }, args)) << "subc";
            }
            {
                const auto args = std::make_tuple(r32(), r32());
                ASSERT_EQ(std::apply(Sonvel_aec_Div_32_OP, args), std::apply([](auto... v) { return fx::Div_32_OP(v...); }, args)) << "Div_32_OP";
            }
            {
                const auto args = std::make_tuple(r32());
                ASSERT_EQ(std::apply(Sonvel_aec_Ln_OP, args), std::apply([](auto... v) { return fx::Ln_OP(v...); }, args)) << "Ln_OP";
            }
    }
}

TEST(ExportedOperators, OutputParametersMatchInlineTwins) {
    Operands op;
    for (int i = 0; i < 20000; ++i) {
        const int32_t x = op.r32();
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
