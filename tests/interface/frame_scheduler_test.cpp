// Frame scheduler: argument codes, the four-phase schedule against a reference that feeds
// contiguous blocks straight to the block step, the one-frame latency, guard and magic words.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "interface/instance_block.h"
#include "sonvel_aec.h"

namespace {

using sonvel::test::apply_frames;
using sonvel::test::default_cfg;
using sonvel::test::GuardedBlock;
using sonvel::test::test_signal;

void *init(GuardedBlock &block, const AecCfg &cfg) {
    void *h = nullptr;
    EXPECT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &cfg), 0);
    return h;
}

// What the scheduler must produce: contiguous blocks of the input through the block step, the
// processed stream delayed by one frame.
std::vector<int16_t> reference_output(const AecCfg &cfg, const std::vector<int16_t> &near,
                                      const std::vector<int16_t> &far) {
    GuardedBlock block;
    init(block, cfg);
    const size_t l = static_cast<size_t>(sonvel::test::block_len(cfg));
    const size_t f = static_cast<size_t>(sonvel::test::frame_len(cfg));
    std::vector<int16_t> processed(near.size(), 0);
    for (size_t i = 0; i + l <= near.size(); i += l) {
        EXPECT_EQ(Sonvel_AEC_SUB_Proc(block.state(), &near[i], &far[i], &processed[i]), 0);
    }
    std::vector<int16_t> out(near.size(), 0);
    std::copy(processed.begin(), processed.end() - static_cast<long>(f), out.begin() + static_cast<long>(f));
    return out;
}

class Scheduler : public ::testing::TestWithParam<uint8_t> {};

TEST_P(Scheduler, OutputIsTheBlockStreamOneFrameLate) {
    const AecCfg cfg = default_cfg(GetParam());
    const size_t f = static_cast<size_t>(sonvel::test::frame_len(cfg));
    const size_t frames = 4 * 6;  // a whole number of cycles: every block of the input is processed
    const auto far = test_signal(f * frames, 11);
    auto near = sonvel::test::echo_of(far, 40, 3);
    const auto talk = test_signal(f * frames, 12, 2000);
    for (size_t i = 0; i < near.size(); ++i) near[i] = static_cast<int16_t>(near[i] + talk[i]);

    GuardedBlock block;
    void *h = init(block, cfg);
    const auto out = apply_frames(h, near, far, static_cast<int>(f));
    const auto want = reference_output(cfg, near, far);
    for (size_t i = 0; i < f; ++i) ASSERT_EQ(out[i], 0) << "first frame is silence";
    for (size_t k = 0; k < frames; ++k) {
        ASSERT_EQ(std::memcmp(&out[k * f], &want[k * f], f * 2), 0) << "frame " << k;
    }
    EXPECT_TRUE(block.canaries_intact());
}

TEST_P(Scheduler, FourCallsMakeOneCycle) {
    const AecCfg cfg = default_cfg(GetParam());
    const int f = sonvel::test::frame_len(cfg);
    GuardedBlock block;
    void *h = init(block, cfg);
    const auto sig = test_signal(static_cast<size_t>(f), 5);
    std::vector<int16_t> out(static_cast<size_t>(f));
    const uint16_t want[] = {1, 2, 3, 4, 1, 2, 3, 4, 1};
    for (uint16_t phase : want) {
        ASSERT_EQ(Sonvel_AEC_Apply(h, sig.data(), sig.data(), out.data()), 0);
        ASSERT_EQ(block.header()->u16Phase, phase);
    }
}

INSTANTIATE_TEST_SUITE_P(BothRates, Scheduler, ::testing::Values(uint8_t{0}, uint8_t{1}));

TEST(SchedulerArguments, CodesInOrderAndNothingWritten) {
    GuardedBlock block;
    void *h = init(block, default_cfg(0));
    alignas(8) int16_t buf[3][82] = {};
    int16_t *near = buf[0];
    int16_t *far = buf[1];
    int16_t *out = buf[2];
    auto *oddNear = reinterpret_cast<int16_t *>(reinterpret_cast<uint8_t *>(near) + 1);
    auto *oddFar = reinterpret_cast<int16_t *>(reinterpret_cast<uint8_t *>(far) + 1);
    auto *oddOut = reinterpret_cast<int16_t *>(reinterpret_cast<uint8_t *>(out) + 1);
    auto *h4 = static_cast<uint8_t *>(h) + 4;

    EXPECT_EQ(Sonvel_AEC_Apply(nullptr, nullptr, nullptr, nullptr), -10);
    EXPECT_EQ(Sonvel_AEC_Apply(h4, nullptr, nullptr, nullptr), -11);
    EXPECT_EQ(Sonvel_AEC_Apply(h, nullptr, nullptr, nullptr), -12);
    EXPECT_EQ(Sonvel_AEC_Apply(h, oddNear, nullptr, nullptr), -13);
    EXPECT_EQ(Sonvel_AEC_Apply(h, near, nullptr, nullptr), -14);
    EXPECT_EQ(Sonvel_AEC_Apply(h, near, oddFar, nullptr), -15);
    EXPECT_EQ(Sonvel_AEC_Apply(h, near, far, nullptr), -16);

    std::vector<uint8_t> before(block.data(), block.data() + block.size());
    std::memset(out, 0x5C, sizeof buf[2]);
    EXPECT_EQ(Sonvel_AEC_Apply(h, near, far, oddOut), -17);
    for (size_t i = 0; i < sizeof buf[2]; ++i) {
        ASSERT_EQ(reinterpret_cast<uint8_t *>(out)[i], 0x5C);
    }
    EXPECT_EQ(std::memcmp(before.data(), block.data(), block.size()), 0) << "phase or carries moved";
}

TEST(SchedulerIntegrity, HeaderFaults) {
    GuardedBlock block;
    void *h = init(block, default_cfg(1));
    int16_t in[160] = {};
    int16_t out[160];
    sonvel::AecHeader *hdr = block.header();

    hdr->u16HdrMagic = 0x5A5B;
    EXPECT_EQ(Sonvel_AEC_Apply(h, in, in, out), -51);
    hdr->u16HdrMagic = 0x5A5A;

    hdr->u8HdrSampleRate = 2;
    EXPECT_EQ(Sonvel_AEC_Apply(h, in, in, out), -25);
    hdr->u8HdrSampleRate = 1;

    // A damaged offset or phase is never followed into the state or the tables.
    hdr->u32StateOffset = 3884;
    EXPECT_EQ(Sonvel_AEC_Apply(h, in, in, out), -51);
    hdr->u32StateOffset = 3880;
    hdr->u16Phase = 5;
    EXPECT_EQ(Sonvel_AEC_Apply(h, in, in, out), -51);
    hdr->u16Phase = 0;

    EXPECT_EQ(Sonvel_AEC_Apply(h, in, in, out), 0);
    EXPECT_TRUE(block.canaries_intact());
}

TEST(SchedulerIntegrity, DamagedGuardStopsEveryCall) {
    for (int which = 0; which < 3; ++which) {
        GuardedBlock block;
        void *h = init(block, default_cfg(0));
        const auto sig = test_signal(80 * 3, 9);
        std::vector<int16_t> out(80);
        ASSERT_EQ(Sonvel_AEC_Apply(h, &sig[0], &sig[0], out.data()), 0);
        ASSERT_EQ(Sonvel_AEC_Apply(h, &sig[80], &sig[80], out.data()), 0);

        AecState *st = block.state();
        uint32_t *guard = which == 0 ? &st->u32GuardA : which == 1 ? &st->u32GuardB : &st->u32GuardC;
        *guard ^= 1u << (which * 9);
        std::vector<uint8_t> stateBefore(reinterpret_cast<uint8_t *>(st),
                                         reinterpret_cast<uint8_t *>(st) + sizeof(AecState));
        const uint16_t phase = block.header()->u16Phase;
        for (int call = 0; call < 5; ++call) {
            std::fill(out.begin(), out.end(), int16_t{0x1234});
            ASSERT_EQ(Sonvel_AEC_Apply(h, &sig[160], &sig[160], out.data()), -18) << which;
            for (int16_t v : out) ASSERT_EQ(v, 0x1234);
        }
        EXPECT_EQ(block.header()->u16Phase, phase);
        EXPECT_EQ(std::memcmp(stateBefore.data(), st, sizeof(AecState)), 0);
    }
}

TEST(BlockStep, AgesHistoriesAndSlidesTimeBuffers) {
    for (uint8_t rate : {uint8_t{0}, uint8_t{1}}) {
        GuardedBlock block;
        init(block, default_cfg(rate));
        AecState *st = block.state();
        const int n = st->s16FftLen;
        const int l = st->s16BlockLen;
        // Slot k of both histories holds marker 1000 * (k + 1) + word in every word.
        for (int k = 0; k < 12; ++k) {
            for (int w = 0; w < 260; ++w) {
                st->aiFarSpecHist[k][w] = 1000 * (k + 1) + w;
                st->aiNlpSpecHist[k][w] = -(1000 * (k + 1) + w);
            }
        }
        const auto near = test_signal(static_cast<size_t>(l), 21);
        const auto far = test_signal(static_cast<size_t>(l), 22);
        std::vector<int16_t> out(static_cast<size_t>(l));
        ASSERT_EQ(Sonvel_AEC_SUB_Proc(st, near.data(), far.data(), out.data()), 0);

        for (int k = 1; k <= 6; ++k) {
            for (int w = 0; w < 260; ++w) {
                // Words 0..N+1 come from slot k-1 (slot 0 as the stages left it); the rest stay.
                const int32_t farWant = w <= n + 1 ? (k == 1 ? st->aiFarSpecHist[0][w] : 1000 * k + w)
                                                   : 1000 * (k + 1) + w;
                ASSERT_EQ(st->aiFarSpecHist[k][w], farWant) << int(rate) << " slot " << k << " word " << w;
                if (k >= 2) {
                    const int32_t nlpWant = w <= n + 1 ? -(1000 * k + w) : -(1000 * (k + 1) + w);
                    ASSERT_EQ(st->aiNlpSpecHist[k][w], nlpWant) << int(rate) << " slot " << k;
                }
            }
        }
        for (int k = 7; k < 12; ++k) {
            for (int w = 0; w < 260; ++w) ASSERT_EQ(st->aiFarSpecHist[k][w], 1000 * (k + 1) + w);
        }
        // The block just processed is now the previous block of both time buffers.
        EXPECT_EQ(std::memcmp(st->as16NearTimeBuf, near.data(), static_cast<size_t>(l) * 2), 0);
        EXPECT_EQ(std::memcmp(st->as16FarTimeBuf, far.data(), static_cast<size_t>(l) * 2), 0);
        EXPECT_TRUE(block.canaries_intact());
    }
}

}  // namespace
