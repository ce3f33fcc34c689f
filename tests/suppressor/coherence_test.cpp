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
    st->s16XdAvgMin = 32767;
    st->s16FbMin = 32767;
    st->s16FbLocalMin = 32767;
    st->s32NotNearState = 1;
    st->s16Ovrd = 1024;
    return st;
}

// A mantissa in [2^29, 2^30) with its Q value for a positive value v.
void to_block_float(double v, int32_t &m, int16_t &q) {
    int e = 0;
    std::frexp(v, &e);  // v = f * 2^e, f in [0.5, 1)
    q = static_cast<int16_t>(30 - e);
    m = static_cast<int32_t>(std::ldexp(v, q));
}

// Fills one set of smoothed spectra (power a, near power d, cross c) with coherence values that a
// reference knows; returns the reference coherence per bin.
std::vector<double> fill_known(AecState &st, bool far, int bins, uint32_t seed) {
    int32_t *a_man = far ? st.ai32SxMan : st.ai32SeMan;
    int16_t *a_exp = far ? st.as16SxExp : st.as16SeExp;
    int32_t *c_man = far ? st.ai32SxdMan : st.ai32SedMan;
    int16_t *c_exp = far ? st.as16SxdExp : st.as16SedExp;
    Noise n(seed);
    std::vector<double> ref(bins);
    for (int k = 0; k < bins; ++k) {
        const double sa = std::ldexp(1.0 + 0.999 * std::fabs(n.next()), static_cast<int>(8 * n.next()));
        const double sd = std::ldexp(1.0 + 0.999 * std::fabs(n.next()), static_cast<int>(8 * n.next()));
        const double coh = std::fabs(n.next());
        const double theta = 3.0 * n.next();
        const double mag = std::sqrt(coh * sa * sd);
        to_block_float(sa, a_man[k], a_exp[k]);
        to_block_float(sd, st.ai32SdMan[k], st.as16SdExp[k]);
        to_block_float(std::fabs(mag * std::cos(theta)) + 1e-9, c_man[2 * k], c_exp[2 * k]);
        to_block_float(std::fabs(mag * std::sin(theta)) + 1e-9, c_man[2 * k + 1], c_exp[2 * k + 1]);
        if (theta < 0) c_man[2 * k + 1] = -c_man[2 * k + 1];
        const double re = std::ldexp(c_man[2 * k], -c_exp[2 * k]);
        const double im = std::ldexp(c_man[2 * k + 1], -c_exp[2 * k + 1]);
        ref[k] = (re * re + im * im) / (std::ldexp(a_man[k], -a_exp[k]) * std::ldexp(st.ai32SdMan[k], -st.as16SdExp[k]));
    }
    return ref;
}

TEST(CoherenceTest, MatchesReferenceForEachPairAtBothRates) {
    for (int half : {64, 128}) {
        auto st = bare_state(half);
        const int bins = half + 4;
        // The near-end power is shared: fill the far pair last so both references use its values.
        fill_known(*st, false, bins, 11);
        const std::vector<double> ref_x = fill_known(*st, true, bins, 23);
        // Recompute the error pair's reference against the final near-end power.
        std::vector<double> ref_e(bins);
        for (int k = 0; k < bins; ++k) {
            const double re = std::ldexp(st->ai32SedMan[2 * k], -st->as16SedExp[2 * k]);
            const double im = std::ldexp(st->ai32SedMan[2 * k + 1], -st->as16SedExp[2 * k + 1]);
            ref_e[k] = (re * re + im * im) / (std::ldexp(st->ai32SeMan[k], -st->as16SeExp[k]) *
                                              std::ldexp(st->ai32SdMan[k], -st->as16SdExp[k]));
        }
        int16_t out_e[132];
        int16_t out_x[132];
        Sonvel_AEC_CrossCoh(st.get(), out_e, 0);
        Sonvel_AEC_CrossCoh(st.get(), out_x, 1);
        for (int k = 0; k < bins; ++k) {
            const double want_e = std::min(32767.0, ref_e[k] * 32768.0);
            const double want_x = std::min(32767.0, ref_x[k] * 32768.0);
            EXPECT_NEAR(out_e[k], want_e, 2.0) << "error/near, L " << half << " bin " << k;
            EXPECT_NEAR(out_x[k], want_x, 2.0) << "far/near, L " << half << " bin " << k;
        }
    }
}

// Smooths the spectra of random blocks the way the frame step does; the error block is the near
// end (nothing cancelled) and the far end is independent of it.
void smooth_random_blocks(AecState &st, int half, int blocks) {
    const int words = 2 * half + 8;
    std::vector<int32_t> d(words), x(words);
    Noise n(5);
    for (int b = 0; b < blocks; ++b) {
        for (int i = 0; i < 2 * half + 2; ++i) {
            d[i] = static_cast<int32_t>(2e7 * n.next()) | 1;
            x[i] = static_cast<int32_t>(2e7 * n.next()) | 1;
        }
        const int16_t s = half == 64 ? 8 : 7;
        Sonvel_AEC_Complex_Energy_Smooth_F(d.data(), st.ai32SeMan, s, st.as16SeExp, 29490, half + 4);
        Sonvel_AEC_Complex_Energy_Smooth_F(d.data(), st.ai32SdMan, s, st.as16SdExp, 29490, half + 4);
        Sonvel_AEC_Complex_Energy_Smooth_F(x.data(), st.ai32SxMan, s, st.as16SxExp, 29490, half + 4);
        Sonvel_AEC_Complex_ConjMult_Smooth_Q(x.data(), d.data(), st.ai32SxdMan, s, st.as16SxdExp, 29490, half + 2);
        Sonvel_AEC_Complex_ConjMult_Smooth_Q(d.data(), d.data(), st.ai32SedMan, s, st.as16SedExp, 29490, half + 2);
    }
}

TEST(CoherenceTest, NothingCancelledIsFullyCoherentAndUnrelatedFarIsIncoherent) {
    for (int half : {64, 128}) {
        auto st = bare_state(half);
        for (int k = 0; k < 132; ++k) st->as16SeExp[k] = st->as16SdExp[k] = st->as16SxExp[k] = 5;
        smooth_random_blocks(*st, half, 60);
        int16_t coh_ed[132];
        int16_t coh_xd[132];
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
    for (int lo : {0, 6, 47}) {
        for (int hi : {lo + 1, lo + 7, lo + 52, 68}) {
            if (hi <= lo) continue;
            long sum = 0;
            for (int k = lo; k < hi; ++k) sum += v[k];
            const long exact = sum / (hi - lo);
            const int16_t got = sup::band_mean(v, lo, hi, 132);
            EXPECT_GE(got, exact - 1) << lo << ".." << hi;
            EXPECT_LE(got, exact) << lo << ".." << hi;
        }
    }
    EXPECT_EQ(sup::band_mean(v, 20, 20, 132), 0);
    EXPECT_EQ(sup::band_mean(v, 30, 20, 132), 0);
    EXPECT_EQ(sup::band_mean(v, 47, 256, 68), sup::band_mean(v, 47, 68, 68));
    EXPECT_EQ(sup::band_mean(v, 200, 256, 68), 0);
}

TEST(CoherenceTest, ConfiguredBandAtItsLargestStaysInsideTheBins) {
    for (int half : {64, 128}) {
        auto st = bare_state(half);
        for (int k = 0; k < 132; ++k) st->as16SeExp[k] = st->as16SdExp[k] = st->as16SxExp[k] = 5;
        smooth_random_blocks(*st, half, 10);
        int16_t hnl[132] = {};
        int16_t fb = 0;
        st->s16CohBinLo = static_cast<int16_t>(2 * half - 1);
        st->s16CohBinHi = static_cast<int16_t>(2 * half);
        Sonvel_AEC_HnledCalc(st.get(), hnl, &fb);
        EXPECT_EQ(st->s16XdAvg, 0);
        st->s16CohBinLo = 0;
        Sonvel_AEC_HnledCalc(st.get(), hnl, &fb);
        EXPECT_GT(st->s16XdAvg, 0);
        st->s16CohBinLo = st->s16CohBinHi = 10;
        Sonvel_AEC_HnledCalc(st.get(), hnl, &fb);
        EXPECT_EQ(st->s16XdAvg, 0);
    }
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

struct DecideCase {
    std::unique_ptr<AecState> st = bare_state(64);
    int16_t coh_ed[132], xd[132], hnl[132];
    DecideCase() {
        for (int k = 0; k < 132; ++k) {
            coh_ed[k] = 1000;
            xd[k] = 2000;
            hnl[k] = 3000;
        }
    }
    int16_t run(int16_t de, int16_t xd_avg, int16_t high = 0, int16_t low = 0) {
        return sup::decide(st.get(), {de, xd_avg, high, low}, coh_ed, xd, hnl);
    }
};

TEST(CoherenceTest, NearStateHysteresis) {
    DecideCase c;
    c.run(32112, 29491);
    EXPECT_EQ(c.st->s32NearState, 0);
    c.run(32113, 29490);
    EXPECT_EQ(c.st->s32NearState, 0);
    c.run(32113, 29491);
    EXPECT_EQ(c.st->s32NearState, 1);
    EXPECT_EQ(c.st->s32NotNearState, 0);
    c.run(31129, 26214);  // between the thresholds: held
    EXPECT_EQ(c.st->s32NearState, 1);
    c.run(31129, 26213);
    EXPECT_EQ(c.st->s32NearState, 0);
    EXPECT_EQ(c.st->s32NotNearState, 1);
    c.run(31129, 26214);  // held off as well
    EXPECT_EQ(c.st->s32NearState, 0);
    c.run(32113, 29491);
    c.run(31128, 32767);
    EXPECT_EQ(c.st->s32NearState, 0);
}

TEST(CoherenceTest, EchoNeverSeenRegimeUntilAnIncoherenceMinimumIsAdmitted) {
    DecideCase c;
    EXPECT_EQ(c.run(20000, 24575), 24575);  // not admitted: regime stays, band gain is the mean
    EXPECT_EQ(c.st->s16XdAvgMin, 32767);
    EXPECT_EQ(c.st->s32EchoState, 0);
    EXPECT_EQ(c.st->s16Ovrd, 1536);
    EXPECT_EQ(c.hnl[0], 2000);    // incoherence while the near end is not alone
    EXPECT_EQ(c.hnl[64], 2000);
    EXPECT_EQ(c.hnl[65], 3000);   // guard bins keep their gains
    EXPECT_EQ(c.st->s32NewMin, 0);  // 24575 is above the admitted low gain

    c.st->s16Ovrd = 700;
    c.hnl[0] = 3000;
    EXPECT_EQ(c.run(20000, 24574, 9000, 8000), 9000);  // admitted: echo regime at once
    EXPECT_EQ(c.st->s16XdAvgMin, 24574);
    EXPECT_EQ(c.st->s32EchoState, 1);
    EXPECT_EQ(c.st->s16Ovrd, 700);
    EXPECT_EQ(c.hnl[0], 3000);  // gains of the echo regime stay as given
    EXPECT_EQ(c.st->s16FbLocalMin, 8000);

    c.run(20000, 24574);  // not below the current minimum
    EXPECT_EQ(c.st->s16XdAvgMin, 24574);
    c.run(20000, 24000);
    EXPECT_EQ(c.st->s16XdAvgMin, 24000);
}

TEST(CoherenceTest, NearAloneUsesTheErrorCoherence) {
    DecideCase c;
    c.st->s16XdAvgMin = 20000;
    EXPECT_EQ(c.run(32500, 30000, 5, 6), 32500);
    EXPECT_EQ(c.st->s32EchoState, 0);
    EXPECT_EQ(c.hnl[10], 1000);
    // While echo was never seen the near end alone takes the same gains.
    DecideCase d;
    EXPECT_EQ(d.run(32500, 30000), 32500);
    EXPECT_EQ(d.hnl[10], 1000);
    EXPECT_EQ(d.st->s16Ovrd, 1536);
}

TEST(CoherenceTest, NewMinimumOfTheLowBandGain) {
    DecideCase c;
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
