// Comfort noise: a per-bin floor of the near-end power (a slow average, a floor that follows the
// average down quickly and rises only slowly in quiet blocks, and a persistence counter per bin),
// and the generator that adds to each bin of the suppressed error spectrum a component of power
// floor * (1 - g^2) with a pseudo-random phase.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "suppressor/comfort_noise.h"

#include "sonvel_aec_stages.h"

#include "fixedpoint/basic_ops.h"
#include "fixedpoint/block_float.h"
#include "fixedpoint/extended_ops.h"
#include "spectral/kernel_elements.h"
#include "spectral/lane_check.h"
#include "spectral/reciprocal.h"
#include "state/aec_state.h"
#include "suppressor/comfort_noise_lanes.h"

namespace {

using namespace sup::comfort_noise;  // the shared weights and the Pow / Power pairs

constexpr int kBins = sonvel::kBinWords;
constexpr float kTwoPowM15 = 1.0f / 32768.0f;
constexpr float kTwoPow30 = 1073741824.0f;
constexpr int kFloorCopyBlocks = 19;  // the floor copies the average while K <= 19
constexpr int kFloorRiseBlocks = 201;
constexpr int kQuietBlocks = 6;
constexpr int32_t kStartBlock = 251;

// int(float(m) * w * 2^-16), truncating and saturating.
int32_t weighted_half(int32_t m, float w) {
    const float p = fx::i2f(m) * w;
    return fx::f2i(p * kTwoPowM16);
}

// Stores S normalised, with the Q value qm + hr(S) + adjust.
void store_normalised(Pow x, int k, int32_t s, int qm, int adjust) {
    const sp::Mant n = sp::normalise(s, qm + adjust);
    x.man[k] = n.m;
    x.exp[k] = static_cast<int16_t>(n.q);
}

// 1. A = 0.9 A + 0.1 P (products carry half the weights; the Q value one lower doubles them).
void average(sp::Isa isa, Pow a, Power p, int bins) {
    if (sp::lanes_checked(isa, {{a.man, 4u * bins}, {a.exp, 2u * bins}},
                          [&](sp::Isa i) { average(i, a, p, bins); }))
        return;
    const int32_t *pm = p.man;
    const int16_t *pq = p.exp;
    for (int k = sp::lanes_on(isa) ? sup::lanes::average(a, p, bins) : 0; k < bins; ++k) {
        const int qm = std::min(pq[k], a.exp[k]);
        const int32_t x = sp::align_to(weighted_half(pm[k], kTenth), pq[k], qm);
        const int32_t y = sp::align_to(weighted_half(a.man[k], kNineTenths), a.exp[k], qm);
        store_normalised(a, k, fx::sat_add(x, y), qm, -1);
    }
}

// 2. F follows A down: F = 0.9 F + 0.1 A where F is above A.
void floor_down(sp::Isa isa, Pow f, Pow a, int bins) {
    if (sp::lanes_checked(isa, {{f.man, 4u * bins}, {f.exp, 2u * bins}},
                          [&](sp::Isa i) { floor_down(i, f, a, bins); }))
        return;
    for (int k = sp::lanes_on(isa) ? sup::lanes::floor_down(f, a, bins) : 0; k < bins; ++k) {
        const int qm = std::min(a.exp[k], f.exp[k]);
        const int32_t av = sp::align_to(a.man[k], a.exp[k], qm);
        const int32_t fl = sp::align_to(f.man[k], f.exp[k], qm);
        if (fl <= av) continue;
        const float x = fx::i2f(av) * kTenth * kTwoPowM16;
        const float y = fx::i2f(fl) * kNineTenths * kTwoPowM16;
        store_normalised(f, k, fx::f2i(x + y), qm, -1);
    }
}

// 3. Persistence counter: +7 where P is above 4 F, -6 elsewhere, within 0..32760.
void count_persistence(sp::Isa isa, int16_t *t, int16_t *above, Power p, Pow f, int bins) {
    if (sp::lanes_checked(isa, {{t, 2u * bins}, {above, 2u * bins}},
                          [&](sp::Isa i) { count_persistence(i, t, above, p, f, bins); }))
        return;
    const int32_t *pm = p.man;
    const int16_t *pq = p.exp;
    int k = sp::lanes_on(isa) ? sup::lanes::count_persistence(t, above, p, f, bins) : 0;
    for (; k < bins; ++k) {
        const int qf4 = f.exp[k] - 2;
        const int qm = std::min<int>(pq[k], qf4);
        const bool up = sp::align_to(pm[k], pq[k], qm) > sp::align_to(f.man[k], qf4, qm);
        above[k] = up ? 1 : 0;
        const int16_t next = fx::add(t[k], up ? kRiseStep : static_cast<int16_t>(-kFallStep));
        t[k] = std::clamp(next, int16_t{0}, kRiseCntMax);
    }
}

// 4.1 Slow rise of the floor, F = 0.99 F + 0.01 P, where the power stayed near the floor or has
// been well above it for long. Every bin is independent: the vectorised loop does the leading ones.
void floor_up(sp::Isa isa, Pow f, Power p, const int16_t *t, const int16_t *above, int bins) {
    if (sp::lanes_checked(isa, {{f.man, 4u * bins}, {f.exp, 2u * bins}},
                          [&](sp::Isa i) { floor_up(i, f, p, t, above, bins); }))
        return;
    const int32_t *pm = p.man;
    const int16_t *pq = p.exp;
    const int done = sp::lanes_on(isa) ? sup::lanes::floor_up(f, p, t, above, bins) : 0;
    for (int k = bins - 1; k >= done; --k) {
        if (t[k] <= kRiseCntLong && above[k] != 0) continue;
        const int16_t qm = std::min(pq[k], f.exp[k]);
        const int32_t a =
            fx::L_shr_opt(fx::Mpy_32_16_opt2(pm[k], kRiseSlow), static_cast<int16_t>(pq[k] - qm));
        const int32_t b = fx::L_shr_opt(fx::Mpy_32_16_opt2(f.man[k], kKeepSlow),
                                        static_cast<int16_t>(f.exp[k] - qm));
        const int32_t v = fx::L_add(a, b);
        const int16_t n = fx::norm_l_opt(v);
        f.man[k] = fx::L_shl(v, n);
        f.exp[k] = fx::add(static_cast<int16_t>(n - 1), qm);
    }
}

// 4.2 Early quiet blocks: A = A + P where A is above 2 P.
void average_catch_up(sp::Isa isa, Pow a, Power p, int bins) {
    if (sp::lanes_checked(isa, {{a.man, 4u * bins}, {a.exp, 2u * bins}},
                          [&](sp::Isa i) { average_catch_up(i, a, p, bins); }))
        return;
    const int32_t *pm = p.man;
    const int16_t *pq = p.exp;
    for (int k = sp::lanes_on(isa) ? sup::lanes::average_catch_up(a, p, bins) : 0; k < bins; ++k) {
        const int qp2 = pq[k] - 1;
        const int qm = std::min<int>(qp2, a.exp[k]);
        const int32_t p2 = sp::align_to(pm[k], qp2, qm);
        const int32_t av = sp::align_to(a.man[k], a.exp[k], qm);
        if (av <= p2) continue;
        store_normalised(a, k, fx::sat_add(p2 >> 1, av), qm, 0);
    }
}

int32_t next_block_count(int32_t k) {
    const int64_t next = int64_t{k} + 1;
    return next == fx::kMax32 ? kStartBlock : static_cast<int32_t>(next);
}

// Noise component of one bin: sqrt(F) * sqrt(2^30 - g^2) on the phasor (cos, -sin), brought to
// the scale of the spectra.
struct Noise {
    int32_t re;
    int32_t im;
};

Noise noise_component(int32_t m, int q, int16_t g, int16_t cs, int16_t sn, int s) {
    // F = m' / 4^e2 with m' a non-negative 31-bit value.
    const int n = fx::hr(m);
    const int e = q + n;
    const int odd = e & 1;
    const int32_t mm = sp::shl_low(m, n) >> odd;
    const int e2 = (e - odd) >> 1;

    const float root = sp::sqrt(fx::i2f(mm));
    const float gf = fx::i2f(g);
    const float g2 = gf * gf;
    const float amp = sp::sqrt(kTwoPow30 - g2);

    const float nr0 = root * fx::i2f(cs);
    const float nr1 = nr0 * amp;
    const float ni0 = root * fx::i2f(sn);
    const float ni1 = ni0 * amp;
    const int32_t nr = fx::f2i(nr1 * kTwoPowM15);
    const int32_t ni = fx::f2i(ni1 * -kTwoPowM15);

    const int sh = (s - 15) - e2;
    return {fx::shift_sat(nr, sh), fx::shift_sat(ni, sh)};
}

}  // namespace

// The vectorised loop does the leading bins; the per-bin steps do the rest and the whole portable
// path.
void sup::comfort_noise::add_noise(sp::Isa isa, const Bins &b, const int32_t *e, int32_t *out,
                                   int n) {
    if (sp::lanes_checked(isa, {{out, 8u * n}}, [&](sp::Isa i) { add_noise(i, b, e, out, n); }))
        return;
    for (int k = sp::lanes_on(isa) ? sup::lanes::add_noise(b, e, out, n) : 0; k < n; ++k) {
        const Noise c =
            noise_component(b.floor_man[k], b.floor_exp[k], b.gain[k], b.cos[k], b.sin[k], b.s);
        out[2 * k] = fx::sat_add(e[2 * k], c.re);
        out[2 * k + 1] = fx::sat_add(e[2 * k + 1], c.im);
    }
}

// One block of the floor estimate; the vectorised loops do the leading bins of each step on that
// path.
void sup::comfort_noise::estimate(sp::Isa isa, AecState *st) {
    const int bins = st->s16HalfFftLen;  // bins 0..L-1
    const int32_t blocks = st->s32CnBlockCnt;
    const Power pw{st->ai32DPowMan, st->as16DPowExp};
    const Pow avg{st->ai32CnAvgMan, st->as16CnAvgExp};
    const Pow flr{st->ai32CnFloorMan, st->as16CnFloorExp};

    // 1. Slow average of the near-end power.
    average(isa, avg, pw, bins);

    // 2. Floor: a copy of the average in the first 20 blocks, then following it down.
    if (blocks <= kFloorCopyBlocks) {
        std::memcpy(flr.man, avg.man, sizeof(int32_t) * static_cast<size_t>(bins));
        std::memcpy(flr.exp, avg.exp, sizeof(int16_t) * static_cast<size_t>(bins));
    } else {
        floor_down(isa, flr, avg, bins);
    }

    // 3. Persistence counter.
    int16_t above[kBins];
    count_persistence(isa, st->as16CnRiseCnt, above, pw, flr, bins);

    // 4. Quiet near end: slow rise of the floor, or the average catching up in early quiet blocks.
    if (st->s16NearActive == 0) {
        const int quiet = st->as16NearVadSt[0];
        if (st->s32NotNearState == 0 && quiet > kQuietBlocks && blocks >= kFloorRiseBlocks) {
            floor_up(isa, flr, pw, st->as16CnRiseCnt, above, bins);
        }
        if (quiet < kQuietBlocks) average_catch_up(isa, avg, pw, bins);
    }

    // 5. Block count.
    st->s32CnBlockCnt = next_block_count(blocks);
}

extern "C" SONVEL_API void Sonvel_AEC_ComfortNoiseEstimate(AecState *state) {
    sup::comfort_noise::estimate(sp::instance_isa(state), state);
}

extern "C" SONVEL_API void Sonvel_AEC_ComfortNoise(AecState *state, const int16_t *g,
                                                   const int32_t *E, int32_t *OUT) {
    AecState *st = state;
    const int last = st->s16HalfFftLen;

    // 1. Off, or not yet started: the output is the suppressed error spectrum.
    if (st->u32CnEnable == 0 || st->s32CnBlockCnt < kStartBlock) {
        std::memcpy(OUT, E, sizeof(int32_t) * static_cast<size_t>(2 * last + 2));
        return;
    }

    // 2. Next seed; its low 7 bits offset the phasor tables.
    const uint32_t seed = static_cast<uint32_t>(st->s16CnSeed) * 31821u + 13849u;
    st->s16CnSeed = static_cast<int16_t>(static_cast<uint16_t>(seed));
    const int r = st->s16CnSeed & 127;

    // 3. Bin 0 receives no noise.
    OUT[0] = E[0];
    OUT[1] = E[1];

    // 4. Bins 1..L.
    const sup::comfort_noise::Bins bins{st->ai32CnFloorMan + 1,
                                        st->as16CnFloorExp + 1,
                                        g + 1,
                                        Sonvel_AEC_gasAecCnCos_650 + r + 1,
                                        Sonvel_AEC_gasAecCnSin_650 + r + 1,
                                        st->s16RateShift};
    sup::comfort_noise::add_noise(sp::instance_isa(st), bins, E + 2, OUT + 2, last);
}
