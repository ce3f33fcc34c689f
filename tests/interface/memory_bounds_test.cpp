// Long runs at the limits: records at the edges of what validation accepts (bin fields and band
// edges up to the FFT length, any band shift, an unbounded clamp bin), switched while running,
// with extreme audio (full-scale noise and squares, the most negative sample, DC, silence,
// alternating extremes). Nothing outside the 62064-byte block and the caller's output frame may
// be written, and the input frames are never written; under the sanitizer build this also
// catches out-of-range reads inside the block. Each record's band coupling table is checked
// against a model on the way.
#include "interface/instance_block.h"

namespace {

// Bin fields of record `which` at the limits of the rate's bound b: every one at the bound; bands
// covering everything; the upper half, beyond the last bin; everything empty at bin 0.
void limit_record(AecCfg &c, int which, int16_t b) {
    const int16_t h = static_cast<int16_t>(b / 2 + 1), lo[] = {b, 0, h, 0}, hi[] = {b, b, b, 0};
    c.s16HfBinLo = c.s16CohBinLo = c.s16ClampBinLo = lo[which];
    c.s16HfBinHi = c.s16CohBinHi = hi[which];
    c.s16ClampBinHi = which < 2 ? int16_t{32767} : hi[which];
    c.s16CohThr = which == 0 ? int16_t{32767} : which == 1 ? int16_t{0} : c.s16CohThr;
    if (which == 3) c.u8StartPart = 0;
    for (int k = 0; k < 6; ++k) {
        const int16_t edges[] = {b, static_cast<int16_t>(k < 4 ? k : b - 5 + k),
                                 static_cast<int16_t>(k < 5 ? h + 5 * k : b), 0};
        c.as16BandEdge[k] = edges[which];
    }
}

// Band k covers the bins with k edges at or below them; its gain is 4 shifted left by h modulo 32,
// kept to 32 bits. Bins above the last one (M) are never written.
int32_t coupling_model(const AecCfg &c, int bin) {
    int band = 0;
    while (band < 6 && c.as16BandEdge[band] <= bin) ++band;
    return static_cast<int32_t>(4u << (static_cast<uint16_t>(c.as16BandShift[band]) & 31u));
}

// Frame `i` of segment kind `kind` of extreme audio.
void extreme_frame(int16_t *dst, int n, int kind, int i, std::mt19937 &rng) {
    for (int t = 0; t < n; ++t) {
        const int pos = i * n + t;
        const int v[] = {static_cast<int16_t>(rng()),
                         (pos / 9) % 2 ? 32767 : -32768,
                         -32768,
                         0,
                         pos % 2 ? 32767 : -32768,
                         static_cast<int16_t>(rng()) / 4096,
                         (pos % 97) < 3 ? 32767 : 0};
        dst[t] = static_cast<int16_t>(v[kind]);
    }
}

TEST(MemoryBounds, LongRunsAtTheLimitsStayInsideTheBlock) {
    const int16_t shiftSets[][7] = {{0, 1, 2, 3, 4, 5, 6},
                                    {13, 14, 15, 16, 17, 18, 19},
                                    {26, 27, 28, 29, 30, 31, 32},
                                    {33, -1, -32768, 32767, 64, 0, 31},
                                    {-13, 45, 1000, 2, 12, 29, 30}};
    constexpr int kPad = 64, kFrames = 2400, kSegment = 40;
    constexpr int16_t kCanary = 0x3C5A;
    for (uint8_t rate : {uint8_t{0}, uint8_t{1}}) {
        const int f = rate == 0 ? 80 : 160, m = rate == 0 ? 64 : 128, stride = f + 2 * kPad;
        sonvel::test::GuardedBlock block;
        void *h = block.init(sonvel::test::default_cfg(rate));
        std::vector<int16_t> frames(static_cast<size_t>(3 * stride), kCanary),
            copies;  // each between canaries
        int16_t *near = &frames[kPad], *far = near + stride, *out = far + stride;
        std::mt19937 rng(rate + 1u);
        for (int i = 0; i < kFrames; ++i) {
            const int seg = i / kSegment;  // every record with every shift set and level
            if (i % kSegment == 0) {
                AecCfg cfg = sonvel::test::default_cfg(rate);
                cfg.u8CnEnable = static_cast<uint8_t>(seg % 7 != 1), cfg.u8StartPart = 6;
                cfg.u8NlpLevel = static_cast<uint8_t>(seg % 3),
                cfg.u8HighFreqMode = static_cast<uint8_t>(seg & 1);
                limit_record(cfg, seg % 4, rate == 0 ? 128 : 256);
                std::memcpy(cfg.as16BandShift, shiftSets[seg % 5], sizeof cfg.as16BandShift);
                ASSERT_EQ(Sonvel_AEC_SetParams(h, &cfg), 0) << i;
                for (int bin = 0; bin < sonvel::kBinWords; ++bin) {
                    const int32_t want = bin <= m ? coupling_model(cfg, bin) : 0;
                    ASSERT_EQ(block.state()->ai32BandCoupling[bin], want) << i << " bin " << bin;
                }
            }
            // Near and far end switch between kinds independently; the near end is sometimes the
            // far end itself (a full-scale echo with no delay).
            extreme_frame(far, f, seg % 7, i % kSegment, rng);
            if (seg % 5 == 2) {
                std::memcpy(near, far, static_cast<size_t>(f) * 2);
            } else {
                extreme_frame(near, f, (seg * 3 + 1) % 7, i % kSegment, rng);
            }
            copies.assign(frames.begin(), frames.end());
            ASSERT_EQ(Sonvel_AEC_Apply(h, near, far, out), 0) << i;
            for (int t = 0; t < 3 * stride; ++t) {  // all but the output frame
                ASSERT_TRUE(frames[t] == copies[t] ||
                            (t >= 2 * stride + kPad && t < 2 * stride + kPad + f))
                    << i << " at " << t;
            }
            ASSERT_TRUE(i % 100 != 99 || block.canaries_intact()) << i;
        }
        EXPECT_TRUE(block.canaries_intact());
        const AecState *st = block.state();
        EXPECT_TRUE(st->u32GuardA == 0x5A5A5A5Au && st->u32GuardB == st->u32GuardA &&
                    st->u32GuardC == st->u32GuardA);
    }
}

}  // namespace
