// Long runs at the limits: records at the edges of what validation accepts, switched while
// running, with extreme audio (full-scale noise and squares, the most negative sample, DC,
// silence, alternating extremes). Nothing outside the 62064-byte block and the caller's output
// frame may be written, and the input frames are never written.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "interface/instance_block.h"
#include "sonvel_aec.h"

namespace {

using sonvel::test::GuardedBlock;

// Records at the limits, applied in turn.
AecCfg limit_record(int which, uint8_t rate) {
    const int16_t b = rate == 0 ? 128 : 256;
    AecCfg c = sonvel::test::default_cfg(rate);
    c.u8StartPart = 6;
    c.u8NlpLevel = static_cast<uint8_t>(which % 3);
    c.u8HighFreqMode = static_cast<uint8_t>(which & 1);
    c.u8CnEnable = static_cast<uint8_t>(which != 1);
    switch (which) {
    case 0:  // every bin field at the bound, largest shifts and threshold
        c.s16CohThr = 32767;
        c.s16HfBinLo = b, c.s16HfBinHi = b, c.s16CohBinLo = b, c.s16CohBinHi = b;
        for (int16_t &e : c.as16BandEdge) e = b;
        c.s16ClampBinLo = b, c.s16ClampBinHi = 32767;
        for (int16_t &s : c.as16BandShift) s = 31;
        break;
    case 1:  // bands covering everything, zero threshold, negative and huge shifts
        c.s16CohThr = 0;
        c.s16HfBinLo = 0, c.s16HfBinHi = b, c.s16CohBinLo = 0, c.s16CohBinHi = b;
        for (int k = 0; k < 6; ++k) c.as16BandEdge[k] = static_cast<int16_t>(k == 5 ? b : k);
        c.s16ClampBinLo = 0, c.s16ClampBinHi = 32767;
        for (int k = 0; k < 7; ++k) c.as16BandShift[k] = static_cast<int16_t>(k & 1 ? -32768 : 32767);
        break;
    default:  // everything empty at bin 0
        c.u8StartPart = 0;
        c.s16HfBinLo = 0, c.s16HfBinHi = 0, c.s16CohBinLo = 0, c.s16CohBinHi = 0;
        for (int16_t &e : c.as16BandEdge) e = 0;
        c.s16ClampBinLo = 0, c.s16ClampBinHi = 0;
        for (int16_t &s : c.as16BandShift) s = 13;
        break;
    }
    return c;
}

// Segment `kind` of extreme audio, frame `i` of it, into `dst`.
void extreme_frame(int16_t *dst, int n, int kind, int i, std::mt19937 &rng) {
    for (int t = 0; t < n; ++t) {
        const int pos = i * n + t;
        int v = 0;
        switch (kind) {
        case 0: v = static_cast<int16_t>(rng()); break;                    // full-scale noise
        case 1: v = (pos / 9) % 2 ? 32767 : -32768; break;                 // full-scale square
        case 2: v = -32768; break;                                         // DC at the most negative
        case 3: v = 0; break;                                              // silence
        case 4: v = pos % 2 ? 32767 : -32768; break;                       // alternating extremes
        case 5: v = static_cast<int16_t>(rng()) / 4096; break;             // very low level noise
        default: v = (pos % 97) < 3 ? 32767 : 0; break;                    // sparse clicks
        }
        dst[t] = static_cast<int16_t>(v);
    }
}

// Frames of F samples with canaries around each, in one buffer.
struct GuardedFrames {
    explicit GuardedFrames(int f) : f(f), buf(static_cast<size_t>(3 * (f + 2 * kPad)), kCanary) {}
    int16_t *frame(int k) { return buf.data() + k * (f + 2 * kPad) + kPad; }
    bool canaries_intact() const {
        for (int k = 0; k < 3; ++k) {
            const int16_t *b = buf.data() + k * (f + 2 * kPad);
            for (int t = 0; t < kPad; ++t) {
                if (b[t] != kCanary || b[kPad + f + t] != kCanary) return false;
            }
        }
        return true;
    }
    static constexpr int kPad = 64;
    static constexpr int16_t kCanary = 0x3C5A;
    int f;
    std::vector<int16_t> buf;
};

void long_run(uint8_t rate) {
    const int f = rate == 0 ? 80 : 160;
    GuardedBlock block;
    GuardedFrames frames(f);
    AecCfg cfg = limit_record(0, rate);
    ASSERT_EQ(Sonvel_AEC_Check(&cfg), 0);
    void *h = nullptr;
    ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &cfg), 0);

    std::mt19937 rng(rate + 1u);
    int16_t *near = frames.frame(0);
    int16_t *far = frames.frame(1);
    int16_t *out = frames.frame(2);
    std::vector<int16_t> nearCopy(static_cast<size_t>(f)), farCopy(static_cast<size_t>(f));
    constexpr int kFrames = 1800, kSegment = 40, kRecordPeriod = 300;
    for (int i = 0; i < kFrames; ++i) {
        if (i % kRecordPeriod == 0) {
            cfg = limit_record(i / kRecordPeriod % 3, rate);
            ASSERT_EQ(Sonvel_AEC_SetParams(h, &cfg), 0) << i;
        }
        // Near and far end switch between kinds independently; the near end is sometimes the
        // far end itself (a full-scale echo with no delay).
        const int seg = i / kSegment;
        extreme_frame(far, f, seg % 7, i % kSegment, rng);
        if (seg % 5 == 2) {
            std::memcpy(near, far, static_cast<size_t>(f) * 2);
        } else {
            extreme_frame(near, f, (seg * 3 + 1) % 7, i % kSegment, rng);
        }
        std::memcpy(nearCopy.data(), near, static_cast<size_t>(f) * 2);
        std::memcpy(farCopy.data(), far, static_cast<size_t>(f) * 2);
        ASSERT_EQ(Sonvel_AEC_Apply(h, near, far, out), 0) << i;
        ASSERT_EQ(std::memcmp(nearCopy.data(), near, static_cast<size_t>(f) * 2), 0) << i;
        ASSERT_EQ(std::memcmp(farCopy.data(), far, static_cast<size_t>(f) * 2), 0) << i;
        ASSERT_TRUE(frames.canaries_intact()) << i;
        if (i % 100 == 99) {
            ASSERT_TRUE(block.canaries_intact()) << i;
        }
    }
    EXPECT_TRUE(block.canaries_intact());
    const AecState *st = block.state();
    EXPECT_EQ(st->u32GuardA, 0x5A5A5A5Au);
    EXPECT_EQ(st->u32GuardB, 0x5A5A5A5Au);
    EXPECT_EQ(st->u32GuardC, 0x5A5A5A5Au);
}

TEST(MemoryBounds, LongRunsAtTheLimitsStayInsideTheBlock) {
    for (uint8_t rate : {uint8_t{0}, uint8_t{1}}) {
        long_run(rate);
        if (HasFatalFailure()) return;
    }
}

}  // namespace
