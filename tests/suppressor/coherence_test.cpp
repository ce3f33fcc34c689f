// Coherence analysis: the per-bin coherence against a double-precision reference and its vector
// path against the portable one, band means, the preferred band's order statistics, and the
// thresholds of the near-end state and the regimes.
#include "suppressor/coherence.h"
#include "spectral/processor.h"

#include <cstring>
#include <numeric>
#include <random>

#include "suppressor/support.h"

namespace {

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

// The vector path gives the portable bits for any spectra: ordinary block-floating-point values,
// random words, and the extremes (0, -1, -2^31, 2^31 - 1, Q values whose shifts run far beyond 32
// bits either way), at every bin count from one vector up, so that every position of the last,
// overlapping vector is met; and so does the analysis built on the coherences.
TEST(CoherenceTest, VectorPathMatchesPortable) {
    if (sp::probe_isa() != sp::Isa::kVector) GTEST_SKIP() << "no vector unit on this processor";
    auto st = suptest::make_state(true);
    std::mt19937 rng(31);
    const int32_t mant_edges[] = {0,         -1,      1,          INT32_MIN,
                                  INT32_MAX, 1 << 30, -(1 << 30), (1 << 29) + 1};
    const int16_t q_edges[] = {-32768, 32767, 0, 15, 16, 31, 32, 33, -15, -16, -31, -32, -33, 64};
    const auto mant = [&](int kind) -> int32_t {
        if (kind == 0) return mant_edges[rng() % 8];
        if (kind == 1) return static_cast<int32_t>(rng());
        const int32_t m = static_cast<int32_t>((1u << 29) + (rng() & ((1u << 29) - 1)));
        return rng() % 4 == 0 ? -m : m;
    };
    const auto q = [&](int kind) -> int16_t {
        if (kind == 0) return q_edges[rng() % 14];
        if (kind == 1) return static_cast<int16_t>(rng());
        return static_cast<int16_t>(static_cast<int>(rng() % 24) - 4);
    };
    const auto fill = [&](int32_t *m, int16_t *e, int n) {
        for (int k = 0; k < n; ++k) {
            const int kind = static_cast<int>(rng() % 8);
            m[k] = mant(kind < 2 ? 0 : (kind < 4 ? 1 : 2));
            e[k] = q(kind == 0 || kind == 5 ? 0 : (kind == 2 ? 1 : 2));
        }
    };
    for (int trial = 0; trial < 300; ++trial) {
        fill(st->ai32SdMan, st->as16SdExp, sonvel::kBinWords);
        fill(st->ai32SeMan, st->as16SeExp, sonvel::kBinWords);
        fill(st->ai32SxMan, st->as16SxExp, sonvel::kBinWords);
        fill(st->ai32SedMan, st->as16SedExp, 2 * sonvel::kBinWords);
        fill(st->ai32SxdMan, st->as16SxdExp, 2 * sonvel::kBinWords);
        st->s16HalfFftLen =
            static_cast<int16_t>(trial % 3 == 0 ? 128 : (trial % 3 == 1 ? 64 : 4 + trial % 125));
        const int bins = st->s16HalfFftLen + 4;
        for (bool far : {false, true}) {
            int16_t want[sonvel::kBinWords], got[sonvel::kBinWords];
            sup::coherence(sp::Isa::kPortable, st.get(), far, want);
            sup::coherence(sp::Isa::kVector, st.get(), far, got);
            for (int k = 0; k < bins; ++k)
                ASSERT_EQ(got[k], want[k]) << "trial " << trial << " far " << far << " bin " << k;
        }
        // Incoherence and first gains from coherences over the whole int16 range.
        int16_t coh[sonvel::kBinWords], xd_p[sonvel::kBinWords], gain_p[sonvel::kBinWords];
        for (int k = 0; k < bins; ++k) {
            coh[k] = static_cast<int16_t>(rng());
            xd_p[k] = rng() % 4 == 0 ? q_edges[rng() % 2] : static_cast<int16_t>(rng());
        }
        int16_t xd_v[sonvel::kBinWords], gain_v[sonvel::kBinWords];
        std::copy(xd_p, xd_p + bins, xd_v);
        sup::incoherence_and_gains(sp::Isa::kPortable, coh, xd_p, gain_p, bins);
        sup::incoherence_and_gains(sp::Isa::kVector, coh, xd_v, gain_v, bins);
        ASSERT_TRUE(std::equal(xd_p, xd_p + bins, xd_v)) << "trial " << trial;
        ASSERT_TRUE(std::equal(gain_p, gain_p + bins, gain_v)) << "trial " << trial;
        // The whole analysis (incoherence, gains, band sort, decisions) on an instance of each
        // path; aarch64 instances always take the lanes.
#if defined(__x86_64__)
        if (trial % 3 == 2) continue;  // the bin counts of the two rates only
        auto path = [&](int32_t vectorised, int16_t *hnl, int16_t &fb) {
            auto copy = std::make_unique<AecState>(*st);
            auto &flag = copy->s32LanePath;
            flag = vectorised;
            Sonvel_AEC_HnledCalc(copy.get(), hnl, &fb);
            flag = 0;
            return copy;
        };
        int16_t hnl_p[sonvel::kBinWords], hnl_v[sonvel::kBinWords], fb_p = 0, fb_v = 0;
        const auto portable = path(0, hnl_p, fb_p), vector = path(1, hnl_v, fb_v);
        ASSERT_EQ(fb_v, fb_p) << "trial " << trial;
        ASSERT_TRUE(std::equal(hnl_p, hnl_p + bins, hnl_v)) << "trial " << trial;
        ASSERT_EQ(std::memcmp(portable.get(), vector.get(), sizeof(AecState)), 0)
            << "trial " << trial;
#endif
    }
}

// Both paths sort every band length the preferred band can have: random words, few distinct values
// (ties), the extremes, ascending and descending runs.
TEST(CoherenceTest, BandSortOrdersAscendingOnEveryPath) {
    std::vector<sp::Isa> paths = {sp::Isa::kPortable};
    if (sp::probe_isa() == sp::Isa::kVector) paths.push_back(sp::Isa::kVector);
    std::mt19937 rng(5);
    const int16_t edges[] = {-32768, 32767, 0, -1, 1};
    for (int trial = 0; trial < 2000; ++trial) {
        const int n = trial % 53;
        std::vector<int16_t> v(n);
        for (int j = 0; j < n; ++j) {
            switch (trial / 53 % 5) {
                case 0: v[j] = static_cast<int16_t>(rng()); break;
                case 1: v[j] = static_cast<int16_t>(rng() % 4 * 1000); break;
                case 2: v[j] = edges[rng() % 5]; break;
                case 3: v[j] = static_cast<int16_t>(j * 600 - 15000); break;
                default: v[j] = static_cast<int16_t>(15000 - j * 600); break;
            }
        }
        std::vector<int16_t> want = v;
        std::sort(want.begin(), want.end());
        for (sp::Isa isa : paths) {
            int16_t got[52];
            sup::sort_band(isa, v.data(), n, got);
            ASSERT_TRUE(std::equal(want.begin(), want.end(), got))
                << "trial " << trial << " path " << static_cast<int>(isa);
        }
    }
}

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
