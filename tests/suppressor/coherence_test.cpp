// Coherence analysis: the per-bin coherence against a double-precision reference, its behaviour on
// cancelled-nothing and unrelated signals, band means and their bounds, the preferred band's order
// statistics, and the thresholds of the near-end state, the regimes and the minimum trackers.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "sonvel_aec_spectral.h"
#include "sonvel_aec_stages.h"
#include "state/aec_state.h"
#include "suppressor/coherence.h"
#include "suppressor/frame_support.h"

namespace {

using suptest::Noise;

std::unique_ptr<AecState> bare_state(int half) {
    auto st = std::make_unique<AecState>();
    st->s16HalfFftLen = static_cast<int16_t>(half);
    st->s16PrefBandLo = 6;
    st->s16PrefBandHi = 58;
    st->s16XdAvgMin = st->s16FbMin = st->s16FbLocalMin = 32767;
    st->s32NotNearState = 1;
    for (int k = 0; k < 132; ++k) st->as16SeExp[k] = st->as16SdExp[k] = st->as16SxExp[k] = 5;
    return st;
}

// Mantissa in [2^29, 2^30) and Q value of a positive value, and back.
void to_block_float(double v, int32_t &m, int16_t &q) {
    int e = 0;
    std::frexp(v, &e);
    q = static_cast<int16_t>(30 - e);
    m = static_cast<int32_t>(std::ldexp(v, q));
}
double value(int32_t m, int16_t q) { return std::ldexp(m, -q); }

TEST(CoherenceTest, MatchesReferenceForEachPairAtBothRates) {
    for (int half : {64, 128}) {
        auto st = bare_state(half);
        Noise n(11);
        const auto level = [&] {
            return std::ldexp(1.0 + 0.999 * std::fabs(n.next()), static_cast<int>(8 * n.next()));
        };
        // Random powers, and cross-spectra of random coherence and phase.
        for (int k = 0; k < half + 4; ++k) {
            to_block_float(level(), st->ai32SdMan[k], st->as16SdExp[k]);
            to_block_float(level(), st->ai32SeMan[k], st->as16SeExp[k]);
            to_block_float(level(), st->ai32SxMan[k], st->as16SxExp[k]);
            for (bool far : {false, true}) {
                const double sa = far ? value(st->ai32SxMan[k], st->as16SxExp[k])
                                      : value(st->ai32SeMan[k], st->as16SeExp[k]);
                const double mag =
                    std::sqrt(std::fabs(n.next()) * sa * value(st->ai32SdMan[k], st->as16SdExp[k]));
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
            for (int k = 0; k < half + 4; ++k) {
                const double re = value(m[2 * k], q[2 * k]);
                const double im = value(m[2 * k + 1], q[2 * k + 1]);
                const double sa = far ? value(st->ai32SxMan[k], st->as16SxExp[k])
                                      : value(st->ai32SeMan[k], st->as16SeExp[k]);
                const double coh =
                    (re * re + im * im) / (sa * value(st->ai32SdMan[k], st->as16SdExp[k]));
                EXPECT_NEAR(out[k], std::min(32767.0, coh * 32768.0), 2.0)
                    << "far " << far << " L " << half << " bin " << k;
            }
        }
    }
}

TEST(CoherenceTest, NothingCancelledIsFullyCoherentAndUnrelatedFarIsIncoherent) {
    for (int half : {64, 128}) {
        auto st = bare_state(half);
        const int16_t s = half == 64 ? 8 : 7;
        std::vector<int32_t> d(2 * half + 8, 0), x(2 * half + 8, 0);
        Noise n(5);
        for (int b = 0; b < 60;
             ++b) {  // smoothed as the frame step does; the error is the near end
            for (int i = 0; i < 2 * half + 2; ++i) {
                d[i] = static_cast<int32_t>(2e7 * n.next()) | 1;
                x[i] = static_cast<int32_t>(2e7 * n.next()) | 1;
            }
            Sonvel_AEC_Complex_Energy_Smooth_F(d.data(), st->ai32SeMan, s, st->as16SeExp, 29490,
                                               half + 4);
            Sonvel_AEC_Complex_Energy_Smooth_F(d.data(), st->ai32SdMan, s, st->as16SdExp, 29490,
                                               half + 4);
            Sonvel_AEC_Complex_Energy_Smooth_F(x.data(), st->ai32SxMan, s, st->as16SxExp, 29490,
                                               half + 4);
            Sonvel_AEC_Complex_ConjMult_Smooth_Q(x.data(), d.data(), st->ai32SxdMan, s,
                                                 st->as16SxdExp, 29490, half + 2);
            Sonvel_AEC_Complex_ConjMult_Smooth_Q(d.data(), d.data(), st->ai32SedMan, s,
                                                 st->as16SedExp, 29490, half + 2);
        }
        int16_t coh_ed[132], coh_xd[132];
        Sonvel_AEC_CrossCoh(st.get(), coh_ed, 0);
        Sonvel_AEC_CrossCoh(st.get(), coh_xd, 1);
        double incoherence = 0.0;
        for (int k = 0; k <= half; ++k) {
            EXPECT_EQ(coh_ed[k], 32767) << "L " << half << " bin " << k;
            incoherence += 32767 - coh_xd[k];
        }
        EXPECT_GT(incoherence / (half + 1), 0.85 * 32767) << "L " << half;
    }
}

TEST(CoherenceTest, BandMeanRoundsDownAndIsBoundedToTheComputedBins) {
    int16_t v[132];
    Noise n(3);
    for (int16_t &x : v) x = static_cast<int16_t>(16384 + 16383 * n.next());
    for (const auto &[lo, hi] : {std::pair{0, 1}, {6, 58}, {47, 72}, {0, 68}, {60, 132}}) {
        long sum = 0;
        for (int k = lo; k < hi; ++k) sum += v[k];
        const int16_t got = sup::band_mean(v, lo, hi, 132);
        EXPECT_GE(got, sum / (hi - lo) - 1) << lo << ".." << hi;
        EXPECT_LE(got, sum / (hi - lo)) << lo << ".." << hi;
    }
    EXPECT_EQ(sup::band_mean(v, 20, 20, 132), 0);
    EXPECT_EQ(sup::band_mean(v, 47, 256, 68), sup::band_mean(v, 47, 68, 68));
    EXPECT_EQ(sup::band_mean(v, 200, 256, 68), 0);
}

TEST(CoherenceTest, PreferredBandGivesMeansAndOrderStatistics) {
    auto st = bare_state(64);
    int16_t coh_ed[132] = {}, xd[132] = {}, hnl[132] = {};
    for (int k = 6; k < 58; ++k) {
        hnl[k] = static_cast<int16_t>(100 * ((k * 37) % 52));  // a permutation of 0, 100, ..., 5100
        coh_ed[k] = static_cast<int16_t>(30000 + (k & 1));
        xd[k] = static_cast<int16_t>(k < 32 ? 20000 : 20001);
    }
    coh_ed[5] = xd[5] = coh_ed[58] = xd[58] = -32768;  // outside the band
    const sup::PrefBand b = sup::preferred_band(st.get(), coh_ed, xd, hnl, 68);
    EXPECT_EQ(b.fb_high, 3800);
    EXPECT_EQ(b.fb_low, 2500);
    EXPECT_EQ(b.de_avg, 30000);
    EXPECT_EQ(b.xd_avg, 20000);
}

// The decisions from given preferred-band statistics; coherence 1000, incoherence 2000, gains 3000.
struct Decide {
    std::unique_ptr<AecState> st = bare_state(64);
    int16_t coh_ed[132], xd[132], hnl[132];
    int16_t run(int16_t de, int16_t xd_avg, int16_t high = 0, int16_t low = 0) {
        for (int k = 0; k < 132; ++k) {
            coh_ed[k] = 1000;
            xd[k] = 2000;
            hnl[k] = 3000;
        }
        return sup::decide(st.get(), {de, xd_avg, high, low}, coh_ed, xd, hnl);
    }
};

TEST(CoherenceTest, NearStateHysteresis) {
    Decide c;
    const auto near_after = [&](int16_t de, int16_t xd) {
        c.run(de, xd);
        EXPECT_EQ(c.st->s32NotNearState, 1 - c.st->s32NearState);
        return c.st->s32NearState;
    };
    EXPECT_EQ(near_after(32112, 29491), 0);
    EXPECT_EQ(near_after(32113, 29490), 0);
    EXPECT_EQ(near_after(32113, 29491), 1);
    EXPECT_EQ(near_after(31129, 26214), 1);  // between the thresholds: held
    EXPECT_EQ(near_after(31129, 26213), 0);
    EXPECT_EQ(near_after(31129, 26214), 0);  // held off as well
    EXPECT_EQ(near_after(32113, 29491), 1);
    EXPECT_EQ(near_after(31128, 32767), 0);
}

TEST(CoherenceTest, RegimesFollowTheIncoherenceMinimumAndTheNearState) {
    Decide c;
    EXPECT_EQ(c.run(20000, 24575), 24575);  // not admitted: echo never seen, band gain = mean
    EXPECT_EQ(c.st->s16XdAvgMin, 32767);
    EXPECT_EQ(c.st->s32EchoState, 0);
    EXPECT_EQ(c.st->s16Ovrd, 1536);
    EXPECT_EQ(c.hnl[64], 2000);  // the incoherence while the near end is not alone
    EXPECT_EQ(c.hnl[65], 3000);  // guard bins keep their gains

    c.st->s16Ovrd = 700;
    EXPECT_EQ(c.run(20000, 24574, 9000, 8000), 9000);  // admitted: echo regime at once
    EXPECT_EQ(c.st->s16XdAvgMin, 24574);
    EXPECT_EQ(c.st->s32EchoState, 1);
    EXPECT_EQ(c.st->s16Ovrd, 700);
    EXPECT_EQ(c.hnl[0], 3000);
    c.run(20000, 24574);  // not below the minimum
    c.run(20000, 24600);
    EXPECT_EQ(c.st->s16XdAvgMin, 24574);

    EXPECT_EQ(c.run(32500, 30000, 5, 6), 32500);  // near end alone: error coherence
    EXPECT_EQ(c.st->s32EchoState, 0);
    EXPECT_EQ(c.hnl[10], 1000);
    Decide d;  // the same gains while echo was never seen
    EXPECT_EQ(d.run(32500, 30000), 32500);
    EXPECT_EQ(d.hnl[10], 1000);
}

TEST(CoherenceTest, NewMinimumOfTheLowBandGain) {
    Decide c;
    c.st->s16XdAvgMin = 20000;
    c.st->s32MinHoldCnt = 1;
    c.run(0, 20000, 30000, 19660);
    EXPECT_EQ(c.st->s32NewMin, 0);
    EXPECT_EQ(c.st->s16FbMin, 32767);
    c.run(0, 20000, 30000, 19659);
    EXPECT_EQ(c.st->s32NewMin, 1);
    EXPECT_EQ(c.st->s32MinHoldCnt, 0);
    EXPECT_EQ(c.st->s16FbMin, 19659);
    EXPECT_EQ(c.st->s16FbLocalMin, 19659);
    c.st->s32NewMin = 0;
    c.run(0, 20000, 30000, 19659);  // equal to the minimum: nothing new
    EXPECT_EQ(c.st->s32NewMin, 0);
}

}  // namespace
