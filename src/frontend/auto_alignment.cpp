// Alignment of the reference: what the delay line applies in each mode, and the automatic mode.
//
// Automatic mode: a confident estimate (confidence >= 0.5) locks the delay line to the estimate
// less a 4 ms lead, so that the echo's first arrival falls just inside the adaptive filter's span
// even if the estimate is a little late; the filter keeps its whole span (start partition 0).
// Once locked, the alignment moves only when 25 consecutive confident estimates (0.5 s of
// far-end activity) lie more than 4 ms from the one it follows: a new device or echo path, or a
// drift that has added up. With drift following on, as soon as the drift line spans 8 s the delay
// line instead follows the line's current value (with a sample of slack), one sample per frame at
// most, so the echo stays put inside the filter's span without jumps; a moved echo path then
// shows as points off the line, which restart the line (see the drift tracker) and so the
// locking. Confident estimates also feed the drift tracker, one point per 25 estimates (0.5 s),
// in every mode.
#include "frontend/frontend_state.h"

namespace sonvel::frontend {

namespace {

constexpr int32_t kConfLock = 16384;
constexpr int32_t kAwayBlocks = 25;
constexpr int32_t kBlocksPerPoint = 25;

int32_t ms_to_samples(const FrontendState &fe, int32_t ms) {
    return static_cast<int32_t>(ms * static_cast<int32_t>(fe.rate) / 1000);
}

int32_t max_delay(const FrontendState &fe) {
    return ms_to_samples(fe, SONVEL_AEC_FRONTEND_MAX_DELAY_MS);
}

int32_t clamp_delay(const FrontendState &fe, int32_t d) {
    if (d < 0) return 0;
    const int32_t hi = max_delay(fe);
    return d > hi ? hi : d;
}

void align_to(FrontendState &fe, int32_t estQ8) {
    const int32_t lead = ms_to_samples(fe, 4);
    fe.align.applied = clamp_delay(fe, ((estQ8 + 128) >> 8) - lead);
    fe.align.lockedEstQ8 = estQ8;
    fe.align.locked = 1;
    fe.align.awayBlocks = 0;
}

}  // namespace

void alignment_set_mode(FrontendState &fe, const AecFrontendCfg &next) {
    const AecFrontendCfg prev = fe.cfg;
    fe.cfg = next;
    switch (next.u8DelayMode) {
        case SONVEL_AEC_DELAY_FIXED:
            fe.align.applied = clamp_delay(fe, ms_to_samples(fe, next.u16DelayMs));
            fe.align.locked = 0;
            break;
        case SONVEL_AEC_DELAY_AUTO:
            if (prev.u8DelayMode != SONVEL_AEC_DELAY_AUTO) {
                fe.align.applied = clamp_delay(fe, ms_to_samples(fe, next.u16DelayMs));
                fe.align.locked = 0;
                fe.align.awayBlocks = 0;
            }
            break;
        default:
            fe.align.applied = 0;
            fe.align.locked = 0;
            break;
    }
    fe.align.startPart = 0;
}

void alignment_after_frame(FrontendState &fe, bool searched) {
    Alignment &a = fe.align;
    const bool automatic = fe.cfg.u8DelayMode == SONVEL_AEC_DELAY_AUTO;
    const int32_t estQ8 = delay_estimate_q8(fe.est);
    if (searched && estQ8 >= 0 && fe.est.confidence >= kConfLock) {
        if (--a.blocksToPoint <= 0) {
            drift_tracker_add(fe.drift, fe.frames - estimate_age_frames(fe.est), estQ8, fe.frameLen,
                              ms_to_samples(fe, 3) * 256);
            a.blocksToPoint = kBlocksPerPoint;
        }
        const bool following = fe.cfg.u8Drift != 0 && fe.drift.valid;
        if (automatic && !following) {
            const int32_t hyst = ms_to_samples(fe, 4) * 256;
            const int32_t off = estQ8 - a.lockedEstQ8;
            if (!a.locked) {
                align_to(fe, estQ8);
            } else if (off > hyst || off < -hyst) {
                if (++a.awayBlocks >= kAwayBlocks) align_to(fe, estQ8);
            } else {
                a.awayBlocks = 0;
            }
        }
    }
    if (automatic && a.locked && fe.cfg.u8Drift != 0 && fe.drift.valid) {
        const int32_t lineQ8 = drift_tracker_at(fe.drift, fe.frames);
        const int32_t target = clamp_delay(fe, ((lineQ8 + 128) >> 8) - ms_to_samples(fe, 4));
        // A sample of slack: a refitted line that wavers around a sample boundary does not make
        // the delay line step back and forth.
        if (target > a.applied + 1) ++a.applied;
        if (target < a.applied - 1) --a.applied;
        a.lockedEstQ8 = lineQ8;
    }
}

}  // namespace sonvel::frontend
