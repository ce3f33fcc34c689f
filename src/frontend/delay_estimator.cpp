// Bulk-delay estimator.
//
// Both signals are averaged over groups of 4 (8000 Hz) or 8 (16000 Hz) samples, giving 2000 Hz,
// freed of their slow mean (over 64 ms, so DC offsets do not count), whitened by
// x[n] - 7/8 x[n-1] and clamped to +-4095; loud passages are thus partly reduced to
// their sign, which keeps the correlation peak and bounds the arithmetic. Every 40 decimated
// samples (20 ms) form a block. The block's correlation with the reference history, for lags
// 0..831 (0..415.5 ms), is normalised by the block's microphone energy and the mean reference
// energy of the history, and enters a per-lag average: the mean of the blocks seen at first, then
// an exponential average over 64 blocks (1.3 s of far-end activity). The same weights average the
// blocks' times: the peak describes the echo at that time (the centroid), which lags the present
// when the far end pauses; the drift tracker takes its points at the centroid. Blocks whose
// reference is quiet (below about -66 dBFS after whitening) leave the average alone, so silence
// neither drags nor confirms the estimate; near-end speech raises the microphone energy and so
// weighs the block down.
//
// The cost is bounded per frame: each block's lags are correlated half in one frame and half in
// the next (416 lags x 40 samples of 16-bit products, summed with SSE2 or NEON where present),
// and the peak is searched once per block. All of it is integer arithmetic with exact sums.
//
// The peak is the lag of the largest |average| (a reversed polarity still counts), refined by a
// parabola through its neighbours; the previous peak is kept while it is still a local maximum
// and the largest value is not a quarter higher. The confidence is the smaller of two measures:
// the peak against the largest value farther than 3 ms away, 2 * (peak - second) / peak, and the
// peak against the mean |average| over all lags (see search_peak); both capped at 1, and scaled
// down until 25 active blocks (0.5 s) have been seen.
#include "frontend/delay_estimator.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace sonvel::frontend {

namespace {

constexpr int32_t kClamp = 4095;
constexpr int kExclude = 6;              // 3 ms either side of the peak
constexpr int64_t kQuietRef = 40 * 100;  // block energy of the reference below which it is quiet
constexpr int64_t kMinNorm = 1 << 12;    // smallest normalisation accepted (bounds invNorm)
constexpr uint32_t kFullBlocks = 25;
constexpr int kAvgShift = 6;

int16_t clamp12(int32_t v) {
    return static_cast<int16_t>(v > kClamp ? kClamp : (v < -kClamp ? -kClamp : v));
}

uint64_t isqrt64(uint64_t v) {
    uint64_t r = 0;
    for (uint64_t bit = uint64_t{1} << 62; bit != 0; bit >>= 2) {
        if (v >= r + bit) {
            v -= r + bit;
            r = (r >> 1) + bit;
        } else {
            r >>= 1;
        }
    }
    return r;
}

int32_t abs32(int32_t v) { return v < 0 ? -v : v; }

// Exact dot product of the 40 microphone samples with 40 reference samples (any alignment):
// 16-bit products summed in 32 bits, in pairs with SSE2, in halves with NEON, one by one
// elsewhere; integer sums, so every path gives the same value.
static_assert(kEstBlock == 40, "the vector paths take five groups of eight");
#if defined(__SSE2__)
struct Dot40 {
    __m128i m[5];
    explicit Dot40(const int16_t *mic) {
        for (int k = 0; k < 5; ++k)
            m[k] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(mic + 8 * k));
    }
    int32_t operator()(const int16_t *r) const {
        __m128i acc = _mm_madd_epi16(m[0], _mm_loadu_si128(reinterpret_cast<const __m128i *>(r)));
        for (int k = 1; k < 5; ++k) {
            acc = _mm_add_epi32(
                acc, _mm_madd_epi16(m[k],
                                    _mm_loadu_si128(reinterpret_cast<const __m128i *>(r + 8 * k))));
        }
        acc = _mm_add_epi32(acc, _mm_shuffle_epi32(acc, 0x4E));
        acc = _mm_add_epi32(acc, _mm_shuffle_epi32(acc, 0xB1));
        return _mm_cvtsi128_si32(acc);
    }
};
#elif defined(__aarch64__)
struct Dot40 {
    int16x8_t m[5];
    explicit Dot40(const int16_t *mic) {
        for (int k = 0; k < 5; ++k) m[k] = vld1q_s16(mic + 8 * k);
    }
    int32_t operator()(const int16_t *r) const {
        int32x4_t acc = vdupq_n_s32(0);
        for (int k = 0; k < 5; ++k) {
            const int16x8_t x = vld1q_s16(r + 8 * k);
            acc = vmlal_s16(acc, vget_low_s16(m[k]), vget_low_s16(x));
            acc = vmlal_high_s16(acc, m[k], x);
        }
        return vaddvq_s32(acc);
    }
};
#else
struct Dot40 {
    const int16_t *m;
    explicit Dot40(const int16_t *mic) : m(mic) {}
    int32_t operator()(const int16_t *r) const {
        int32_t acc = 0;
        for (int i = 0; i < kEstBlock; ++i) acc += int32_t{m[i]} * r[i];
        return acc;
    }
};
#endif

// The pending block becomes the block under correlation; its normalisation is fixed here.
void commit_block(DelayEstimator &e) {
    int64_t leaving = 0;
    for (int i = kRefHist - kEstBlock; i < kRefHist; ++i)
        leaving += int32_t{e.refRev[i]} * e.refRev[i];
    std::memmove(e.refRev + kEstBlock, e.refRev, (kRefHist - kEstBlock) * sizeof(int16_t));
    int64_t newRef = 0, mic = 0;
    for (int i = 0; i < kEstBlock; ++i) {
        const int16_t r = e.pendFar[kEstBlock - 1 - i];
        const int16_t m = e.pendNear[kEstBlock - 1 - i];
        e.refRev[i] = r;
        e.micRev[i] = m;
        newRef += int32_t{r} * r;
        mic += int32_t{m} * m;
    }
    e.refEnergy += newRef - leaving;
    ++e.blocks;
    e.invNorm = 0;
    if (newRef < kQuietRef || mic == 0) return;
    const int64_t refPerBlock = e.refEnergy * kEstBlock / kRefHist;
    const int64_t norm = static_cast<int64_t>(isqrt64(static_cast<uint64_t>(mic)) *
                                              isqrt64(static_cast<uint64_t>(refPerBlock)));
    if (norm < kMinNorm) return;
    e.invNorm = (int64_t{1} << 44) / norm;  // <= 2^32
    ++e.activeBlocks;
    // Weight 1/2^k with 2^k <= the blocks seen, up to 1/128: close to a plain mean at first,
    // then an exponential average.
    int k = 0;
    while (k < kAvgShift && (uint32_t{2} << k) <= e.activeBlocks) ++k;
    e.avgShift = k;
    e.centroidQ8 += ((static_cast<int64_t>(e.blocks) << 8) - e.centroidQ8) >> k;
}

// Correlates the block with lags [first, first + kHalfLags) and updates their average.
void correlate_half(DelayEstimator &e, int first) {
    const int64_t inv = e.invNorm;
    const Dot40 dot(e.micRev);
    for (int l = first; l < first + kHalfLags; ++l) {
        const int32_t acc = dot(e.refRev + l);  // |acc| <= 40 * 4095^2 < 2^30
        int64_t c = (acc * inv) >> 32;          // Q12 correlation coefficient
        if (c > 32767) c = 32767;
        if (c < -32767) c = -32767;
        e.corr[l] += ((static_cast<int32_t>(c) << 4) - e.corr[l]) >> e.avgShift;
    }
}

// Largest |average| over lags [lo, hi).
int argmax_abs(const DelayEstimator &e, int lo, int hi) {
    int best = lo;
    int32_t p = -1;
    for (int l = lo; l < hi; ++l) {
        const int32_t a = abs32(e.corr[l]);
        if (a > p) {
            p = a;
            best = l;
        }
    }
    return best;
}

// Largest |average| over lags [lo, hi), 0 for an empty range.
int32_t max_abs(const int32_t *a, int lo, int hi) {
    int32_t m = 0;
    for (int l = lo; l < hi; ++l) {
        const int32_t v = abs32(a[l]);
        m = v > m ? v : m;
    }
    return m;
}

void search_peak(DelayEstimator &e) {
    // Vectorisable passes: the mean |average| (the floor for the significance below), the
    // largest |average| and where it first occurs.
    int32_t total = 0;  // <= 832 * 2^19 < 2^31
    for (int l = 0; l < kLags; ++l) total += abs32(e.corr[l]);
    const int32_t top = max_abs(e.corr, 0, kLags);
    int best = 0;
    while (best < kLags - 1 && abs32(e.corr[best]) != top) ++best;
    // Continuity: a peak near the previous one is kept unless the new maximum is clearly
    // higher (a quarter), so that a side peak (a pitch period away, say) does not take over
    // while the true one is smeared by drift or double talk.
    if (e.peakQ8 >= 0) {
        const int prev = (e.peakQ8 + 128) >> 8;
        const int lo = prev - kExclude < 0 ? 0 : prev - kExclude;
        const int hi = prev + kExclude + 1 > kLags ? kLags : prev + kExclude + 1;
        const int near = argmax_abs(e, lo, hi);
        const int64_t pn = abs32(e.corr[near]), pb = top;
        if (near != lo && near != hi - 1 && pb * 4 < pn * 5) best = near;
    }
    const int32_t p = abs32(e.corr[best]);
    const int32_t s1 = max_abs(e.corr, 0, best - kExclude > 0 ? best - kExclude : 0);
    const int32_t s2 =
        max_abs(e.corr, best + kExclude + 1 < kLags ? best + kExclude + 1 : kLags, kLags);
    const int32_t s = s1 > s2 ? s1 : s2;
    int32_t frac = 0;  // Q8
    if (best > 0 && best < kLags - 1) {
        const int64_t a = abs32(e.corr[best - 1]), b = p, c = abs32(e.corr[best + 1]);
        const int64_t den = 2 * (a - 2 * b + c);
        if (den < 0) {
            frac = static_cast<int32_t>(((a - c) * 256) / den);
            if (frac > 128) frac = 128;
            if (frac < -128) frac = -128;
        }
    }
    e.peakQ8 = best * 256 + frac;
    int64_t conf = 0;
    if (p > s) {
        conf = (int64_t{p - s} * 2 * 32767) / p;
        if (conf > 32767) conf = 32767;
    }
    // Significance: the peak against the mean |average| over all lags, z = p / mean. The largest
    // of 832 lags of pure noise lies near z = 4.4; full confidence from z = 12, none below z = 7.
    int64_t sig = 0;
    if (total > 0) {
        sig = ((int64_t{p} * kLags * 32767) / total - 7 * 32767) / 5;  // (z - 7) / 5 in Q15
        if (sig < 0) sig = 0;
        if (sig > 32767) sig = 32767;
    } else if (p > 0) {
        sig = 32767;
    }
    if (sig < conf) conf = sig;
    if (e.activeBlocks < kFullBlocks) conf = conf * e.activeBlocks / kFullBlocks;
    e.confidence = static_cast<int32_t>(conf);
}

}  // namespace

void delay_estimator_init(DelayEstimator &e, uint32_t rate) {
    std::memset(&e, 0, sizeof e);
    e.decFactor = rate == 16000 ? 8 : 4;
    e.decShift = rate == 16000 ? 3 : 2;
    e.peakQ8 = -1;
}

bool delay_estimator_frame(DelayEstimator &e, const int16_t *near, const int16_t *far, int n) {
    const int d = e.decFactor;
    for (int g = 0; g + d <= n; g += d) {
        int32_t sn = 0, sf = 0;
        for (int i = 0; i < d; ++i) {
            sn += near[g + i];
            sf += far[g + i];
        }
        // Group means, less their slow means (64 ms), then whitened.
        const int32_t mn = sn >> e.decShift, mf = sf >> e.decShift;
        e.dcNearQ8 += ((mn * 256) - e.dcNearQ8) >> 7;
        e.dcFarQ8 += ((mf * 256) - e.dcFarQ8) >> 7;
        const int32_t dn = mn - (e.dcNearQ8 >> 8), df = mf - (e.dcFarQ8 >> 8);
        e.pendNear[e.pending] = clamp12(dn - ((7 * e.prevNear) >> 3));
        e.pendFar[e.pending] = clamp12(df - ((7 * e.prevFar) >> 3));
        e.prevNear = dn;
        e.prevFar = df;
        ++e.pending;
    }
    // Frames of 10 ms bring 20 decimated samples: a block completes every second frame.
    bool searched = false;
    if (e.half == 1) {
        if (e.invNorm != 0) {
            correlate_half(e, kHalfLags);
            search_peak(e);
            searched = true;
        }
        e.half = 0;
    }
    if (e.pending == kEstBlock) {
        commit_block(e);
        e.pending = 0;
        if (e.invNorm != 0) correlate_half(e, 0);
        e.half = 1;
    }
    return searched;
}

uint32_t estimate_age_frames(const DelayEstimator &e) {
    const int64_t age = (static_cast<int64_t>(e.blocks) << 8) - e.centroidQ8;  // blocks, Q8
    return age <= 0 ? 0 : static_cast<uint32_t>((age * 2) >> 8);  // a block is two frames
}

int32_t delay_estimate_q8(const DelayEstimator &e) {
    if (e.peakQ8 < 0 || e.activeBlocks < kFullBlocks / 2) return -1;
    return e.peakQ8 * e.decFactor;
}

}  // namespace sonvel::frontend
