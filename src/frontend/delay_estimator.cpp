// Bulk-delay estimator.
//
// Both signals are averaged over groups of 4 (8000 Hz) or 8 (16000 Hz) samples, giving 2000 Hz,
// whitened by x[n] - 7/8 x[n-1] and clamped to +-4095; loud passages are thus partly reduced to
// their sign, which keeps the correlation peak and bounds the arithmetic. Every 40 decimated
// samples (20 ms) form a block. The block's correlation with the reference history, for lags
// 0..831 (0..415.5 ms), is normalised by the block's microphone energy and the mean reference
// energy of the history, and enters a per-lag average: the mean of the blocks seen at first, then
// an exponential average over 64 blocks (1.3 s of far-end activity). The same weights average the
// blocks' times: the peak describes the echo at that time (the centroid), which lags the present
// when the far end pauses; the drift tracker takes its points at the centroid. Blocks whose reference is
// quiet (below about -66 dBFS after whitening) leave the average alone, so silence neither drags
// nor confirms the estimate; near-end speech raises the microphone energy and so weighs the block
// down.
//
// The cost is bounded per frame: each block's lags are correlated half in one frame and half in
// the next (416 lags x 40 samples of 16-bit products, which compilers vectorise), and the peak is
// searched once per block. All of it is integer arithmetic with exact sums.
//
// The peak is the lag of the largest |average| (a reversed polarity still counts), refined by a
// parabola through its neighbours; the previous peak is kept while it is still a local maximum
// and the largest value is not a quarter higher. The confidence is the smaller of two measures:
// the peak against the largest value farther than 3 ms away, 2 * (peak - second) / peak, and the
// peak against the RMS over all lags (see search_peak); both capped at 1, and scaled down until
// 25 active blocks (0.5 s) have been seen.
#include "frontend/delay_estimator.h"

#include <cstring>

namespace sonvel::frontend {

namespace {

constexpr int32_t kClamp = 4095;
constexpr int kExclude = 6;               // 3 ms either side of the peak
constexpr int64_t kQuietRef = 40 * 100;   // block energy of the reference below which it is quiet
constexpr int64_t kMinNorm = 1 << 12;     // smallest normalisation accepted (bounds invNorm)
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

// The pending block becomes the block under correlation; its normalisation is fixed here.
void commit_block(DelayEstimator &e) {
    int64_t leaving = 0;
    for (int i = kRefHist - kEstBlock; i < kRefHist; ++i) leaving += int32_t{e.refRev[i]} * e.refRev[i];
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
    for (int l = first; l < first + kHalfLags; ++l) {
        const int16_t *r = e.refRev + l;
        int32_t acc = 0;  // |acc| <= 40 * 4095^2 < 2^30
        for (int i = 0; i < kEstBlock; ++i) acc += int32_t{e.micRev[i]} * r[i];
        int64_t c = (acc * inv) >> 32;  // Q12 correlation coefficient
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

void search_peak(DelayEstimator &e) {
    int best = argmax_abs(e, 0, kLags);
    // Continuity: a peak near the previous one is kept unless the new maximum is clearly
    // higher (a quarter), so that a side peak (a pitch period away, say) does not take over
    // while the true one is smeared by drift or double talk.
    if (e.peakQ8 >= 0) {
        const int prev = (e.peakQ8 + 128) >> 8;
        const int lo = prev - kExclude < 0 ? 0 : prev - kExclude;
        const int hi = prev + kExclude + 1 > kLags ? kLags : prev + kExclude + 1;
        const int near = argmax_abs(e, lo, hi);
        const int64_t pn = abs32(e.corr[near]), pb = abs32(e.corr[best]);
        if (near != lo && near != hi - 1 && pb * 4 < pn * 5) best = near;
    }
    const int32_t p = abs32(e.corr[best]);
    int32_t s = 0;
    for (int l = 0; l < kLags; ++l) {
        if (l >= best - kExclude && l <= best + kExclude) continue;
        const int32_t a = abs32(e.corr[l]);
        if (a > s) s = a;
    }
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
    // Significance: the peak against the RMS of all lags, z = p / rms. The largest of 832 lags of
    // pure noise lies near z = 3.5; full confidence from z = 10, none below z = 6.
    int64_t sq = 0;
    for (int l = 0; l < kLags; ++l) sq += int64_t{e.corr[l]} * e.corr[l];  // < 2^31 * 2^10 * 2^10
    const int64_t rms = static_cast<int64_t>(isqrt64(static_cast<uint64_t>(sq / kLags)));
    int64_t sig = 0;
    if (rms > 0) {
        sig = ((int64_t{p} * 32767) / rms - 6 * 32767) / 4;  // (z - 6) / 4 in Q15
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
    for (int i = 0; i < n; ++i) {
        e.sumNear += near[i];
        e.sumFar += far[i];
        if (++e.decCount < e.decFactor) continue;
        const int32_t dn = e.sumNear >> e.decShift, df = e.sumFar >> e.decShift;
        e.pendNear[e.pending] = clamp12(dn - ((7 * e.prevNear) >> 3));
        e.pendFar[e.pending] = clamp12(df - ((7 * e.prevFar) >> 3));
        e.prevNear = dn;
        e.prevFar = df;
        e.sumNear = e.sumFar = 0;
        e.decCount = 0;
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
