// First-order smoothing kernels in block floating point: y = a*y + (32767 - a)*x per element with
// per-element or common factors, the smoothed single-precision power of a spectrum, and the
// smoothed, per-part normalised cross-spectrum a * conj(b). The vectorised loops take the whole
// steps where the caller's instance allows them; the loops here do the rest.
#include "sonvel_aec_spectral.h"

#include "spectral/kernel_elements.h"
#include "spectral/kernels.h"
#include "spectral/power_smoothing_vec.h"

namespace {

// Smooth x (Q qx) into y (Q qy) in place.
inline void smooth_into(int32_t x, int qx, int32_t &y, int16_t &qy, int32_t a) {
    const sp::Mant m = sp::smooth_element(x, qx, y, qy, a);
    y = m.m;
    qy = static_cast<int16_t>(m.q);
}

}  // namespace

void sp::smooth_dg_f(Isa isa, const int32_t *x, int32_t *y, const int16_t *qx, int16_t *qy,
                     const int16_t *a, int16_t n) {
    const int32_t count = sp::stepped_count(n, 4);
    const int32_t done = isa == Isa::kVector ? vec::smooth_dg_f(x, y, qx, qy, a, count) : 0;
    for (int32_t i = done; i < count; ++i) smooth_into(x[i], qx[i], y[i], qy[i], a[i]);
}

extern "C" SONVEL_API void Sonvel_AEC_Smooth_F(const int32_t *x, int32_t *y, const int16_t *qx,
                                               int16_t *qy, int16_t a, int16_t n) {
    const int32_t count = sp::stepped_count(n, 4);
    for (int32_t i = 0; i < count; ++i) smooth_into(x[i], qx[i], y[i], qy[i], a);
}

void sp::energy_smooth_f(Isa isa, const int32_t *x, int32_t *y, int16_t q, int16_t *qy,
                         int16_t a, int32_t n) {
    const int32_t bins = sp::stepped_count(n, 4);
    const int qoff = 2 * q - 32;
    const int32_t done = isa == Isa::kVector ? vec::energy_smooth_f(x, y, qoff, qy, a, bins) : 0;
    for (int32_t k = done; k < bins; ++k) {
        const sp::BinPower bp = sp::bin_power_f(x[2 * k], x[2 * k + 1]);
        smooth_into(bp.e, 2 * bp.h + qoff, y[k], qy[k], a);
    }
}

void sp::conj_mult_smooth_q(Isa isa, const int32_t *a, const int32_t *b, int32_t *y, int16_t q,
                            int16_t *qy, int16_t s, int32_t n) {
    const int32_t words = 2 * sp::stepped_count(n, 2);
    const int qoff = 2 * q - 32;
    const int32_t done =
        isa == Isa::kVector ? vec::conj_mult_smooth_q(a, b, y, qoff, qy, s, words) : 0;
    for (int32_t w = done; w < words; w += 2) {
        const sp::ConjQ c = sp::conj_mult_q(a[w], a[w + 1], b[w], b[w + 1]);
        smooth_into(c.re, c.hr_re + qoff, y[w], qy[w], s);
        smooth_into(c.im, c.hr_im + qoff, y[w + 1], qy[w + 1], s);
    }
}

extern "C" SONVEL_API void Sonvel_AEC_Smooth_DG_F(const int32_t *x, int32_t *y, const int16_t *qx,
                                                  int16_t *qy, const int16_t *a, int16_t n) {
    sp::smooth_dg_f(sp::kStatelessIsa, x, y, qx, qy, a, n);
}

extern "C" SONVEL_API void Sonvel_AEC_Complex_Energy_Smooth_F(const int32_t *x, int32_t *y,
                                                              int16_t q, int16_t *qy, int16_t a,
                                                              int32_t n) {
    sp::energy_smooth_f(sp::kStatelessIsa, x, y, q, qy, a, n);
}

extern "C" SONVEL_API void Sonvel_AEC_Complex_ConjMult_Smooth_Q(const int32_t *a, const int32_t *b,
                                                                int32_t *y, int16_t q, int16_t *qy,
                                                                int16_t s, int32_t n) {
    sp::conj_mult_smooth_q(sp::kStatelessIsa, a, b, y, q, qy, s, n);
}
