// Bulk-delay estimator of the front end: a normalised cross-correlation between the microphone
// and the reference, both decimated to 2000 Hz and whitened, smoothed over the blocks in which the
// far end is active, and its peak with a confidence.
#pragma once

#include <cstdint>

namespace sonvel::frontend {

inline constexpr int kDecRate = 2000;  // rate of the correlated signals, Hz
inline constexpr int kEstBlock = 40;   // decimated samples per correlation block (20 ms)
inline constexpr int kLags = 832;      // lags searched: 0..831, i.e. 0..415.5 ms
inline constexpr int kHalfLags = kLags / 2;
inline constexpr int kRefHist = kLags + kEstBlock;

struct DelayEstimator {
    // Decimation: slow means of the decimated signals and their previous values (for the
    // whitening).
    int32_t dcNearQ8, dcFarQ8;
    int32_t prevNear, prevFar;
    int32_t decFactor, decShift;
    int32_t pending;  // decimated samples in the pending block
    int16_t pendNear[kEstBlock], pendFar[kEstBlock];
    // Block under correlation: microphone reversed (newest first), reference history reversed.
    int16_t micRev[kEstBlock];
    int16_t refRev[kRefHist];
    int64_t refEnergy;      // sum of squares over refRev
    int64_t invNorm;        // normalisation of the block under correlation (0: skip)
    int32_t half;           // which half of the lags the next frame correlates
    uint32_t activeBlocks;  // blocks that entered the average
    int32_t avgShift;       // weight of the next block in the average: 1 / 2^avgShift
    uint32_t blocks;        // blocks committed
    int64_t centroidQ8;     // the average's time, in blocks, Q8
    int32_t corr[kLags];    // smoothed normalised correlation, Q16
    // Result of the last peak search.
    int32_t peakQ8;      // peak lag in decimated samples, Q8; -1: none yet
    int32_t confidence;  // Q15
};

void delay_estimator_init(DelayEstimator &e, uint32_t rate);
// Takes one frame of the microphone and the reference (rate / 100 samples, a multiple of the
// decimation factor). Returns true when a new peak search was made.
bool delay_estimator_frame(DelayEstimator &e, const int16_t *near, const int16_t *far, int n);
// The estimate in samples at the instance rate, Q8 (-1 while there is none).
int32_t delay_estimate_q8(const DelayEstimator &e);
// Frames elapsed between the average's centroid and the block just committed.
uint32_t estimate_age_frames(const DelayEstimator &e);

}  // namespace sonvel::frontend
