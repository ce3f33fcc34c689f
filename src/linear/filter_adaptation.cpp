// Filter update: a constrained frequency-domain gradient step whose per-bin gradient is the error
// spectrum divided by the smoothed far-end power and scaled to one fixed magnitude. Each of the six
// partitions receives that gradient times the conjugate of its far-end spectrum, constrained in
// the time domain to the first half of the block, added with saturation. Per-bin values are
// mantissas with one Q value per part until the gradient is brought to a common Q.
#include <cstring>

#include "linear/linear_internal.h"
#include "sonvel_aec_spectral.h"
#include "sonvel_aec_stages.h"
#include "spectral/kernels.h"
#include "spectral/reciprocal.h"

namespace {

// Work arrays are sized for the largest transform: N + 8 words, L + 4 bins.
constexpr int kWords = lin::kMaxFft + 8;
constexpr int kBins = lin::kMaxFft / 2 + 4;

// Gain constant 429 normalised by 2^22; the gain shift undoes those 22 bits plus 12 more.
constexpr int32_t kGain = 429 << 22;
constexpr int kGainShift = 34;
constexpr int kQCap = 100;
constexpr int kShiftBase = 90;

constexpr float kTwoPow31 = 2147483648.0f;
constexpr float kTwoPow14 = 16384.0f;
constexpr float kTwoPowM32 = 1.0f / 4294967296.0f;

// Per-bin reciprocal of 0.75 times the far-end power, normalised: mantissa and Q value.
struct Recip {
    int32_t man[kBins];
    int32_t q[kBins];
};

struct Work {
    int32_t g[kWords];   // gradient (complex)
    int32_t qg[kWords];  // Q value of every part of the gradient
    int32_t e2[kBins];   // gradient power, then the per-bin gain
    int32_t qe2[kBins];  // Q value of the gradient power
    Recip r;
    int32_t t[kWords];  // gradient of one partition
};

// 2. Reciprocal of t = P - P/4 + 1 (about 0.75 P) for bins 0..L+3: 2^31 / t, normalised to full
// scale, with the Q value of its normalisation shift plus s + 16.
void reciprocal_far_power(const int32_t *pow, int bins, int s, Recip &r) {
    for (int k = 0; k < bins; ++k) {
        const int32_t t = fx::sat_add(pow[k] - (pow[k] >> 2), 1);
        const float inv = sp::recip(fx::i2f(t));
        const int32_t man = fx::f2i(inv * kTwoPow31);
        const int c = fx::hr(man);
        r.man[k] = fx::shift_wrap(man, c);
        r.q[k] = c + s + 16;
    }
}

// 3. G = E * R per part, each part of E normalised first; bins 0..L+1.
void normalised_error(const int32_t *e, const Recip &r, int bins, int32_t *g, int32_t *qg) {
    for (int k = 0; k < bins; ++k) {
        for (int part = 0; part < 2; ++part) {
            const int32_t x = e[2 * k + part];
            const int c = fx::hr(x);
            const int64_t prod = static_cast<int64_t>(r.man[k]) * fx::shift_wrap(x, c);
            g[2 * k + part] = fx::rnd(prod, 32);
            qg[2 * k + part] = c + r.q[k];
        }
    }
}

// 5. Gain that brings every bin of the gradient to the magnitude 1716 * 2^-32: about 1716 / |G|.
void constant_magnitude_gain(int32_t *e2, const int32_t *qe2, int bins) {
    for (int k = 0; k < bins; ++k) {
        const int32_t m = std::max(e2[k], 1);
        const int c = fx::hr(m) & ~1;
        const int32_t mn = fx::shift_wrap(m, c);
        const float r = sp::rsqrt(fx::i2f(mn));
        const float kr = fx::i2f(kGain) * r;
        const int32_t v = fx::f2i(kr * kTwoPow14);
        e2[k] = fx::shift_sat(v, ((qe2[k] + c) >> 1) - kGainShift);
    }
}

// 6. G *= gain in single precision, truncating; the Q values stay.
void apply_gain(int32_t *g, const int32_t *gain, int bins) {
    for (int k = 0; k < bins; ++k) {
        const float gk = fx::i2f(gain[k]);
        for (int part = 0; part < 2; ++part) {
            const float prod = fx::i2f(g[2 * k + part]) * gk;
            g[2 * k + part] = fx::f2i(prod * kTwoPowM32);
        }
    }
}

// 7. Smallest Q among the non-zero parts of the spectrum words, capped at 100.
int common_q(const int32_t *g, const int32_t *qg, int words) {
    int q = kQCap;
    for (int w = 0; w < words; ++w) {
        if (g[w] != 0) q = std::min<int>(q, qg[w]);
    }
    return q;
}

// 8. Bring every part to the common Q.
void align_to_q(int32_t *g, const int32_t *qg, int words, int q) {
    for (int w = 0; w < words; ++w) {
        g[w] = fx::shift_wrap(g[w], q - qg[w]);
    }
}

// 10.8. W += Phi shifted by S, saturating, words 0..N+1. The direction of the shift is decided
// once per partition so that each loop is a plain saturating sum.
// fx::sat_add without a branch, so that the loop below vectorises: the wrapped sum overflowed when
// it differs in sign from both operands, and then saturates toward the sign of a.
inline int32_t sat_add_select(int32_t a, int32_t b) {
    const auto r = static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
    const int32_t sat = (a >> 31) ^ fx::kMax32;
    return ((a ^ r) & (b ^ r)) < 0 ? sat : r;
}

void accumulate_into_filter(int32_t *__restrict w, const int32_t *__restrict phi, int words,
                            int shift) {
    if (shift <= 0) {
        const int r = std::min(-shift, 31);
        for (int i = 0; i < words; ++i) w[i] = sat_add_select(w[i], phi[i] >> r);
    } else {
        for (int i = 0; i < words; ++i) w[i] = fx::sat_add(w[i], fx::shift_sat(phi[i], shift));
    }
}

}  // namespace

extern "C" SONVEL_API void Sonvel_AEC_UpdateFilterParameter(AecState *state, int32_t *eblock) {
    const lin::Geometry geo = lin::geometry(*state);
    const void *plan = state->au8FftPlan;
    const sp::Isa isa = sp::instance_isa(state);
    const int guard = 16 - geo.s;
    Work wk;
    std::memset(&wk, 0, sizeof wk);

    // 1. Error spectrum E; words N+2, N+3 (the guard bin) keep what the echo estimate left.
    Sonvel_AEC_Realfft(eblock, geo.n, plan);

    // 2. Reciprocal of the far-end power.
    reciprocal_far_power(state->aiFarPow, geo.l + 4, geo.s, wk.r);

    // 3. Normalised error G with one Q value per part.
    normalised_error(eblock, wk.r, geo.l + 2, wk.g, wk.qg);

    // 4. Gradient power with a common Q per bin.
    sp::energy_dq_f(isa, wk.g, wk.qg, wk.e2, wk.qe2, geo.l + 4);

    // 5.-6. Constant-magnitude gain, applied to G.
    constant_magnitude_gain(wk.e2, wk.qe2, geo.l + 4);
    apply_gain(wk.g, wk.e2, geo.l + 4);

    // 7.-8. One Q value for the whole gradient.
    const int minQ = common_q(wk.g, wk.qg, geo.n + 2);
    align_to_q(wk.g, wk.qg, geo.n + 4, minQ);

    // 9. Normalise G to full scale.
    const int hG = Sonvel_AEC_VetorNorm(wk.g, 0, geo.n + 2);

    // 10. Constrained gradient of each partition, added into the filter.
    for (int p = geo.start; p < geo.start + lin::kParts; ++p) {
        int32_t *t = wk.t;
        sp::complex_conj_mult(isa, wk.g, state->aiFarSpecHist[p], t, geo.l + 2);
        const int h1 = Sonvel_AEC_VetorNorm(t, guard, geo.n + 2);
        Sonvel_AEC_Realifft(t, geo.n, plan);
        std::memset(t + geo.l, 0, sizeof(int32_t) * static_cast<size_t>(geo.n - geo.l));
        const int h2 = lin::block_headroom(t, geo.l);
        lin::shift_block(t, geo.l, h2 - guard);
        Sonvel_AEC_Realfft(t, geo.n, plan);
        const auto shift =
            static_cast<int16_t>(kShiftBase - 3 * geo.s - h1 - h2 - hG - minQ);
        accumulate_into_filter(state->aiFiltPart[p], t, geo.n + 2, shift);
    }
}
