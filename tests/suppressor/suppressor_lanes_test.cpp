// The suppressor's vectorised loops called directly against their callers' portable loops, on
// random, full-scale and zero operands for every count up to 70: each loop's part plus the
// portable rest must equal the portable loop, and words past the count stay untouched. On x86-64
// only where the processor runs AVX2 and FMA.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "fixedpoint/block_float.h"
#include "spectral/kernel_elements.h"
#include "spectral/processor.h"
#include "suppressor/gain_shaping.h"
#include "suppressor/suppressor_lanes.h"

namespace {

namespace lanes = sup::lanes;
using W32 = std::vector<int32_t>;
using W16 = std::vector<int16_t>;

constexpr int kMax = 70;
constexpr int kSlack = 16;

// Edge values a third of the time, otherwise random values of random magnitude.
W32 words32(int n, std::mt19937 &rng) {
    static constexpr int32_t kEdges[] = {INT32_MIN, INT32_MIN + 1, -1, 0, 1, INT32_MAX};
    W32 v(n + kSlack);
    for (auto &x : v) {
        x = rng() % 3 == 0 ? kEdges[rng() % 6] : static_cast<int32_t>(rng()) >> (rng() % 32);
    }
    return v;
}

W16 words16(int n, std::mt19937 &rng, int lo = INT16_MIN, int hi = INT16_MAX) {
    W16 v(n + kSlack);
    for (auto &x : v) {
        const int r = rng() % 4;
        x = static_cast<int16_t>(r == 0 ? lo : r == 1 ? hi : lo + int(rng() % (hi - lo + 1)));
        if (rng() % 8 == 0) x = 0;
    }
    return v;
}

class SuppressorLanes : public ::testing::Test {
  protected:
    void SetUp() override {
        if (sp::probe_isa() != sp::Isa::kVector) GTEST_SKIP() << "processor without AVX2 and FMA";
    }
    std::mt19937 rng{77};
};

TEST_F(SuppressorLanes, WindowsMarkingAndSynthesisGiveThePortableBits) {
    for (int n = 0; n <= kMax; ++n) {
        const W16 w = words16(n, rng), pcm = words16(n, rng), wq = words16(n, rng, 0, 32767);
        const W32 in = words32(n, rng), a = words32(n, rng), b = words32(n, rng);
        for (int shift = 0; shift < 32; shift += 5) {
            W32 ref(n + kSlack, 7), out = ref;
            for (int i = 0; i < n; ++i) ref[i] = (w[i] * pcm[i]) >> shift;
            for (int i = lanes::window_pcm(w.data(), pcm.data(), out.data(), shift, n); i < n; ++i)
                out[i] = ref[i];
            ASSERT_EQ(ref, out) << "window_pcm " << n << " shift " << shift;
        }
        W32 ref(n + kSlack, 7), out = ref;
        for (int i = 0; i < n; ++i) ref[i] = fx::rnd(int64_t{in[i]} * wq[i], 15);
        for (int i = lanes::window_q15(wq.data(), in.data(), out.data(), n); i < n; ++i)
            out[i] = ref[i];
        ASSERT_EQ(ref, out) << "window_q15 " << n;

        W32 marked = in, ref_marked = in;
        for (int i = 0; i < n; ++i) ref_marked[i] |= int32_t{in[i] == 0};
        for (int i = lanes::mark_zero_words(marked.data(), n); i < n; ++i)
            marked[i] = ref_marked[i];
        ASSERT_EQ(ref_marked, marked) << "mark_zero_words " << n;

        for (int t = -48; t <= 17; ++t) {
            W32 r(n + kSlack, 7), o = r;
            for (int i = 0; i < n; ++i)
                r[i] = fx::rnd(fx::shift_sat64(int64_t{in[i]} * w[i], t), 16);
            for (int i = lanes::unwindow(in.data(), w.data(), t, o.data(), n); i < n; ++i)
                o[i] = r[i];
            ASSERT_EQ(r, o) << "unwindow " << n << " t " << t;
        }
        W16 r16(n + kSlack, 7), o16 = r16;
        for (int i = 0; i < n; ++i) r16[i] = fx::sat16(fx::sat_add(a[i], b[i]));
        for (int i = lanes::overlap_add(a.data(), b.data(), o16.data(), n); i < n; ++i)
            o16[i] = r16[i];
        ASSERT_EQ(r16, o16) << "overlap_add " << n;
    }
}

TEST_F(SuppressorLanes, PowersMinimaAndSumsGiveThePortableBits) {
    for (int n = 0; n <= kMax; ++n) {
        const W32 x = words32(2 * n, rng), man = words32(n, rng);
        const W16 p = words16(n, rng), q = words16(n, rng), e = words16(n, rng, 0, 80);
        const int qoff = int(rng() % 40) - 33, toff = int(rng() % 40) - 20;
        W32 rm(n + kSlack, 7), om = rm;
        W16 re(n + kSlack, 7), oe = re;
        int64_t rs = 5, os = 5, os_alone = 5;
        for (int k = 0; k < n; ++k) {
            const sp::BinPower bp = sp::bin_power_f(x[2 * k], x[2 * k + 1]);
            rm[k] = bp.e;
            re[k] = static_cast<int16_t>(2 * bp.h + qoff);
            rs += fx::shift_sat(bp.e, toff - 2 * bp.h);
        }
        int k = lanes::bin_powers(x.data(), om.data(), oe.data(), qoff, toff, &os, n);
        const int k_alone = lanes::bin_powers(x.data(), nullptr, nullptr, 0, toff, &os_alone, n);
        ASSERT_EQ(k, k_alone);
        for (; k < n; ++k) {
            om[k] = rm[k], oe[k] = re[k];
            const int sh = toff + qoff - re[k];
            os += fx::shift_sat(rm[k], sh);
            os_alone += fx::shift_sat(rm[k], sh);
        }
        ASSERT_EQ(rm, om) << "bin_powers " << n;
        ASSERT_EQ(re, oe) << "bin_powers " << n;
        ASSERT_EQ(rs, os) << "bin_powers sum " << n;
        ASSERT_EQ(rs, os_alone) << "bin_powers sum alone " << n;

        int16_t rl = static_cast<int16_t>(rng()), ol = rl;
        for (int i = 0; i < n; ++i) rl = std::min({rl, p[i], q[i]});
        for (int i = lanes::min_q2(p.data(), q.data(), &ol, n); i < n; ++i)
            ol = std::min({ol, p[i], q[i]});
        ASSERT_EQ(rl, ol) << "min_q2 " << n;

        const int c = int(rng() % 40);
        W16 ec = e;  // exponents of at least c
        for (auto &s : ec) s = static_cast<int16_t>(std::max<int>(s, c));
        int64_t rb = -3, ob = -3;
        for (int i = 0; i < n; ++i) rb += fx::shr_trunc(man[i], ec[i] - c);
        for (int i = lanes::band_sum(man.data(), ec.data(), c, &ob, n); i < n; ++i)
            ob += fx::shr_trunc(man[i], ec[i] - c);
        ASSERT_EQ(rb, ob) << "band_sum " << n;
    }
}

TEST_F(SuppressorLanes, GainShapingAndApplicationGiveThePortableBits) {
    for (int n = 0; n <= kMax; ++n) {
        const W16 g = words16(n, rng), wc = words16(n, rng, 0, 32767), ov = words16(n, rng),
                  oc = words16(n, rng);
        const W32 E = words32(2 * n, rng);
        const int32_t fbs[] = {INT16_MIN, -1, 0, 1234, INT16_MAX, INT16_MAX + 1};
        const int lo = int(rng() % (n + 2)) - 1;
        const lanes::OverdriveCaps caps{lo, lo + 1, lo + int(rng() % 20),
                                        static_cast<int16_t>(rng()), static_cast<int16_t>(rng())};
        for (const int32_t fb : fbs) {
            W16 r = g, o = g;
            const auto step = [&](W16 &v, int k) {
                int16_t od = fx::sat16((int32_t{ov[k]} * oc[k]) >> 14);
                if (k <= caps.lo) od = std::min(od, caps.cap_lo);
                if (k >= caps.hi_from && k <= caps.hi_to) od = std::min(od, caps.cap_hi);
                const int16_t wg = sup::shaping::weigh_toward_band(v[k], fb, wc[k]);
                v[k] = sup::shaping::overdrive_power(wg, od);
            };
            for (int k = 0; k < n; ++k) step(r, k);
            for (int k = lanes::shape_gains(o.data(), fb, wc.data(), ov.data(), oc.data(), caps, n);
                 k < n; ++k)
                step(o, k);
            ASSERT_EQ(r, o) << "shape_gains " << n << " fb " << fb;
        }
        W32 r = E, o = E;
        const auto apply = [&](W32 &v, int w) {
            v[w] = fx::f2i(fx::i2f(g[w / 2]) * fx::i2f(v[w]) * sp::kTwoPowM15);
        };
        for (int w = 0; w < 2 * n; ++w) apply(r, w);
        for (int w = lanes::apply_gains(g.data(), o.data(), 2 * n); w < 2 * n; ++w) apply(o, w);
        ASSERT_EQ(r, o) << "apply_gains " << n;
    }
}

}  // namespace
