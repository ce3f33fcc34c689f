// Coherence analysis: the per-bin coherence against a double-precision reference, the lane
// equivalence of its loops, of the band sort and of the whole analysis, band means, the preferred
// band's order statistics, and the thresholds of the near-end state and the regimes.
#include "suppressor/coherence.h"
#include "spectral/processor.h"

#include <cstring>
#include <numeric>
#include <random>

#include "lane_equivalence.h"
#include "suppressor/support.h"

namespace {

using lanetest::Buffers;
using lanetest::Operands;
using lanetest::Shorts;

// Mantissa in [2^29, 2^30) and Q value of a positive value, and back.
void to_block_float(double v, int32_t &m, int16_t &q) {
    int e = 0;
    std::frexp(v, &e);
    q = static_cast<int16_t>(30 - e);
    m = static_cast<int32_t>(std::ldexp(v, q));
}
double value(int32_t m, int16_t q) { return std::ldexp(m, -q); }

// Random powers, and cross-spectra of random phase and of squared coherence up to 1.2: beyond 1
// the result saturates to exactly 32767.
TEST(CoherenceTest, MatchesReferenceForEachPairAtBothRates) {
    for (bool wide : {false, true}) {
        auto st = suptest::make_state(wide);
        const int bins = st->s16HalfFftLen + 4;
        suptest::Noise n(11);
        const auto level = [&] {
            return std::ldexp(1.0 + 0.999 * std::fabs(n.next()), static_cast<int>(8 * n.next()));
        };
        const auto auto_power = [&](bool far, int k) {  // Sx or Se, times Sd
            return (far ? value(st->ai32SxMan[k], st->as16SxExp[k])
                        : value(st->ai32SeMan[k], st->as16SeExp[k])) *
                   value(st->ai32SdMan[k], st->as16SdExp[k]);
        };
        for (int k = 0; k < bins; ++k) {
            to_block_float(level(), st->ai32SdMan[k], st->as16SdExp[k]);
            to_block_float(level(), st->ai32SeMan[k], st->as16SeExp[k]);
            to_block_float(level(), st->ai32SxMan[k], st->as16SxExp[k]);
            for (bool far : {false, true}) {
                const double mag = std::sqrt(1.2 * std::fabs(n.next()) * auto_power(far, k));
                const double theta = 3.0 * n.next();
                int32_t *m = far ? st->ai32SxdMan : st->ai32SedMan;
                int16_t *q = far ? st->as16SxdExp : st->as16SedExp;
                to_block_float(std::fabs(mag * std::cos(theta)) + 1e-9, m[2 * k], q[2 * k]);
                to_block_float(std::fabs(mag * std::sin(theta)) + 1e-9, m[2 * k + 1], q[2 * k + 1]);
                if (theta < 0) m[2 * k + 1] = -m[2 * k + 1];
            }
        }
        for (bool far : {false, true}) {
            int16_t out[132];
            Sonvel_AEC_CrossCoh(st.get(), out, far ? 1 : 0);
            const int32_t *m = far ? st->ai32SxdMan : st->ai32SedMan;
            const int16_t *q = far ? st->as16SxdExp : st->as16SedExp;
            for (int k = 0; k < bins; ++k) {
                const double re = value(m[2 * k], q[2 * k]), im = value(m[2 * k + 1], q[2 * k + 1]);
                const double coh = (re * re + im * im) / auto_power(far, k);
                if (coh >= 1.0) {
                    EXPECT_EQ(out[k], 32767) << far << " bin " << k;
                }
                EXPECT_NEAR(out[k], std::min(32767.0, coh * 32768.0), 2.0) << far << " bin " << k;
            }
        }
    }
}

// The family's lane loops. Their instance (at 16000 Hz if wide) holds spectra of ordinary
// block-floating-point values, random words and the extremes (0, -1, -2^31, 2^31 - 1, Q values
// whose shifts run far beyond 32 bits either way).
AecState *with_spectra(Buffers &b, Operands &ops, bool wide) {
    AecState *st = b.hold(*suptest::make_state(wide));
    const auto fill = [&](int32_t *m, int16_t *q, int n) {
        for (int k = 0; k < n; ++k) m[k] = ops.mantissa(), q[k] = ops.q();
    };
    fill(st->ai32SdMan, st->as16SdExp, sonvel::kBinWords);
    fill(st->ai32SeMan, st->as16SeExp, sonvel::kBinWords);
    fill(st->ai32SxMan, st->as16SxExp, sonvel::kBinWords);
    fill(st->ai32SedMan, st->as16SedExp, 2 * sonvel::kBinWords);
    fill(st->ai32SxdMan, st->as16SxdExp, 2 * sonvel::kBinWords);
    return st;
}

const lanetest::Kernel kKernels[] = {
    // Coherences of both pairs at every bin count (half length + 4) from one vector up.
    {"Coherence",
     [](Operands &ops, int half) {
         Buffers b{{}, {Shorts(sonvel::kBinWords, 7), {static_cast<int16_t>(ops.round() % 2)}}};
         with_spectra(b, ops, true)->s16HalfFftLen = static_cast<int16_t>(half);
         return b;
     },
     [](sp::Isa isa, Buffers &b, int) {
         sup::coherence(isa, b.held<AecState>(), b.s[1][0] != 0, b.s[0].data());
     },
     lanetest::counts_upto(128), false, 6},
    // Incoherences and first gains from coherences over the whole int16 range.
    {"IncoherenceAndGains",
     [](Operands &ops, int n) {
         const int m = n + lanetest::kSlack;
         return Buffers{{},
                        {ops.many(m, &Operands::half), ops.many(m, &Operands::half),
                         ops.many(m, &Operands::half)}};
     },
     [](sp::Isa isa, Buffers &b, int n) {
         sup::incoherence_and_gains(isa, b.s[0].data(), b.s[1].data(), b.s[2].data(), n);
     },
     lanetest::counts_upto(140), false, 8},
    // The whole analysis (incoherence, gains, band sort, decisions) of an instance at both rates.
    {"Analysis",
     [](Operands &ops, int half) {
         Buffers b{{}, {Shorts(sonvel::kBinWords), {0}}};
         with_spectra(b, ops, half == 128);
         return b;
     },
     [](sp::Isa isa, Buffers &b, int) {
         AecState *st = b.held<AecState>();
         suptest::on_path(isa, st, [&] { Sonvel_AEC_HnledCalc(st, b.s[0].data(), b.s[1].data()); });
     },
     suptest::kHalfLengths, false, 100, true},
    // The preferred band's sort (the portable one is the exchange sort) at every length the band
    // can have: boundary and random values, few distinct ones (ties), ascending and descending
    // runs.
    {"BandSort",
     [](Operands &ops, int n) {
         Buffers b{{}, {ops.many(n, &Operands::half), Shorts(64, 7)}};
         const int round = ops.round();
         for (int j = 0; j < n; ++j) {
             if (round % 4 == 1) b.s[0][j] = static_cast<int16_t>(ops.next() % 4 * 1000);
             if (round % 4 >= 2) b.s[0][j] = static_cast<int16_t>((round % 4 == 2 ? j : -j) * 600);
         }
         return b;
     },
     [](sp::Isa isa, Buffers &b, int n) { sup::sort_band(isa, b.s[0].data(), n, b.s[1].data()); },
     lanetest::counts_upto(52), false, 20},
};

class CoherenceLanes : public lanetest::LaneFamily {};

TEST_P(CoherenceLanes, LanePathGivesThePortableBits) { expect_same_bits(); }

INSTANTIATE_TEST_SUITE_P(Family, CoherenceLanes, ::testing::ValuesIn(kKernels),
                         lanetest::kernel_name);

TEST(CoherenceTest, BandMeanRoundsDownAndPreferredBandGivesMeansAndOrderStatistics) {
    int16_t v[132];
    suptest::Noise n(3);
    for (int16_t &x : v) x = static_cast<int16_t>(16384 + 16383 * n.next());
    for (const auto &[lo, hi] : {std::pair{0, 1}, {6, 58}, {47, 72}, {0, 68}, {60, 132}}) {
        const long mean = std::accumulate(v + lo, v + hi, 0L) / (hi - lo);
        const int16_t got = sup::band_mean(v, lo, hi, 132);
        EXPECT_TRUE(got == mean || got == mean - 1) << lo << ".." << hi;
    }
    EXPECT_EQ(sup::band_mean(v, 20, 20, 132), 0);
    EXPECT_EQ(sup::band_mean(v, 47, 256, 68), sup::band_mean(v, 47, 68, 68));
    EXPECT_EQ(sup::band_mean(v, 200, 256, 68), 0);

    int16_t coh_ed[132] = {}, xd[132] = {}, hnl[132] = {};
    for (int k = 6; k < 58; ++k) {                             // the preferred band 6..57
        hnl[k] = static_cast<int16_t>(100 * ((k * 37) % 52));  // a permutation of 0, 100, ..., 5100
        coh_ed[k] = static_cast<int16_t>(30000 + (k & 1));
        xd[k] = static_cast<int16_t>(k < 32 ? 20000 : 20001);
    }
    coh_ed[5] = xd[5] = coh_ed[58] = xd[58] = -32768;
    const sup::PrefBand b =
        sup::preferred_band(suptest::make_state(false).get(), coh_ed, xd, hnl, 68);
    EXPECT_EQ(std::tuple(b.fb_high, b.fb_low, b.de_avg, b.xd_avg),
              std::tuple(3800, 2500, 30000, 20000));
}

// The decisions from given preferred-band statistics; coherence 1000, incoherence 2000, gains 3000.
struct Decide {
    std::unique_ptr<AecState> st = suptest::make_state(false);
    int16_t hnl[132];
    int16_t run(int16_t de, int16_t xd_avg, int16_t high = 0, int16_t low = 0) {
        int16_t coh_ed[132], xd[132];
        std::fill_n(coh_ed, 132, 1000);
        std::fill_n(xd, 132, 2000);
        std::fill_n(hnl, 132, 3000);
        return sup::decide(st.get(), {de, xd_avg, high, low}, coh_ed, xd, hnl);
    }
};

TEST(CoherenceTest, NearStateHysteresis) {
    Decide c;
    const int steps[][3] = {{32112, 29491, 0}, {32113, 29490, 0},
                            {32113, 29491, 1}, {31129, 26214, 1},  // between the thresholds: held
                            {31129, 26213, 0}, {31129, 26214, 0},  // held off as well
                            {32113, 29491, 1}, {31128, 32767, 0}};
    for (const auto &[de, xd, near] : steps) {
        c.run(static_cast<int16_t>(de), static_cast<int16_t>(xd));
        EXPECT_EQ(std::tuple(c.st->s32NearState, c.st->s32NotNearState), std::tuple(near, 1 - near))
            << de << " " << xd;
    }
}

TEST(CoherenceTest, RegimesFollowTheIncoherenceMinimumAndTheNearState) {
    Decide c;  // (band gain, incoherence minimum, echo state, overdrive)
    const auto state = [&](int gain) {
        return std::tuple(gain, c.st->s16XdAvgMin, c.st->s32EchoState, c.st->s16Ovrd);
    };
    // Not admitted: echo never seen, band gain = mean, the incoherence while the near end is not
    // alone up to bin L, guard bins keep their gains.
    EXPECT_EQ(state(c.run(20000, 24575)), std::tuple(24575, 32767, 0, 1536));
    EXPECT_EQ(std::tuple(c.hnl[64], c.hnl[65]), std::tuple(2000, 3000));
    c.st->s16Ovrd = 700;  // admitted: echo regime at once
    EXPECT_EQ(state(c.run(20000, 24574, 9000, 8000)), std::tuple(9000, 24574, 1, 700));
    EXPECT_EQ(c.hnl[0], 3000);
    c.run(20000, 24574);  // not below the minimum
    c.run(20000, 24600);
    EXPECT_EQ(c.st->s16XdAvgMin, 24574);
    // Near end alone: the error coherence, with or without echo seen before.
    EXPECT_EQ(c.run(32500, 30000, 5, 6), 32500);
    EXPECT_EQ(std::tuple(c.st->s32EchoState, c.hnl[10]), std::tuple(0, 1000));
    Decide d;
    EXPECT_EQ(d.run(32500, 30000), 32500);
    EXPECT_EQ(d.hnl[10], 1000);
}

}  // namespace
