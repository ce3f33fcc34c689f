// Damaged instance memory: every single-bit fault of every integrity word and of the header's state
// offset is refused with its code before anything is written, and a block of random bytes that
// never went through Init is refused by every entry point and initialises normally afterwards.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "interface/instance_block.h"
#include "sonvel_aec.h"

namespace {

using sonvel::test::default_cfg;
using sonvel::test::frame_len;
using sonvel::test::GuardedBlock;

constexpr int16_t kUntouched = 0x1234;

// An initialised instance that has run a few frames, so that carries and state hold data.
struct Running {
    explicit Running(uint8_t rate) : cfg(default_cfg(rate)), f(frame_len(cfg)) {
        EXPECT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &cfg), 0);
        near = sonvel::test::test_signal(static_cast<size_t>(f), 5);
        far = sonvel::test::test_signal(static_cast<size_t>(f), 6);
        out.assign(static_cast<size_t>(f), 0);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(apply(), 0);
    }
    int32_t apply() {
        std::fill(out.begin(), out.end(), kUntouched);
        return Sonvel_AEC_Apply(h, near.data(), far.data(), out.data());
    }
    bool out_untouched() const {
        for (int16_t v : out) {
            if (v != kUntouched) return false;
        }
        return true;
    }
    std::vector<uint8_t> snapshot() { return {block.data(), block.data() + block.size()}; }
    bool unchanged_since(const std::vector<uint8_t> &s) {
        return std::memcmp(s.data(), block.data(), s.size()) == 0;
    }

    GuardedBlock block;
    AecCfg cfg;
    int f;
    void *h = nullptr;
    std::vector<int16_t> near, far, out;
};

template <typename Word>
void flip_bit(Word &w, int bit) {
    w = static_cast<Word>(w ^ (Word{1} << bit));
}

class IntegrityBits : public ::testing::TestWithParam<uint8_t> {};

// A guard fault stops every block: -18 on every call, no output, state and schedule position as
// they were (the input carries may already hold the refused frame's samples).
TEST_P(IntegrityBits, GuardWordFaultsStopEveryCall) {
    Running r(GetParam());
    AecState *st = r.block.state();
    uint32_t *guards[] = {&st->u32GuardA, &st->u32GuardB, &st->u32GuardC};
    for (int g = 0; g < 3; ++g) {
        for (int bit = 0; bit < 32; ++bit) {
            flip_bit(*guards[g], bit);
            std::vector<uint8_t> stateBefore(reinterpret_cast<uint8_t *>(st),
                                             reinterpret_cast<uint8_t *>(st) + sizeof(AecState));
            const uint16_t phase = r.block.header()->u16Phase;
            for (int call = 0; call < 5; ++call) {
                ASSERT_EQ(r.apply(), -18) << "guard " << g << " bit " << bit;
                ASSERT_TRUE(r.out_untouched()) << "guard " << g << " bit " << bit;
            }
            // A stored 4 (cycle complete) may already read 0: the same schedule position.
            ASSERT_EQ(r.block.header()->u16Phase % 4, phase % 4);
            ASSERT_EQ(std::memcmp(stateBefore.data(), st, sizeof(AecState)), 0);
            flip_bit(*guards[g], bit);
            ASSERT_EQ(r.apply(), 0) << "repaired guard " << g << " bit " << bit;
        }
    }
    EXPECT_TRUE(r.block.canaries_intact());
}

// Magic and offset faults are refused before anything is read beyond the header (offset) or
// written anywhere: block, output frame and parameter record stay as they were.
TEST_P(IntegrityBits, MagicAndOffsetFaultsAreRefusedBeforeAnyWrite) {
    Running r(GetParam());
    sonvel::AecHeader *hdr = r.block.header();
    AecState *st = r.block.state();
    AecCfg got;
    auto refused = [&](int32_t applyWant, int32_t setWant, int32_t getWant, const char *what,
                       int bit) {
        const std::vector<uint8_t> before = r.snapshot();
        std::memset(&got, 0xEE, sizeof got);
        const AecCfg gotBefore = got;
        if (applyWant != 0) {
            EXPECT_EQ(r.apply(), applyWant) << what << " bit " << bit;
            EXPECT_TRUE(r.out_untouched()) << what << " bit " << bit;
        }
        EXPECT_EQ(Sonvel_AEC_SetParams(r.h, &r.cfg), setWant) << what << " bit " << bit;
        if (getWant != 0) {
            EXPECT_EQ(Sonvel_AEC_GetParams(r.h, &got), getWant) << what << " bit " << bit;
            EXPECT_EQ(std::memcmp(&got, &gotBefore, sizeof got), 0) << what << " bit " << bit;
        }
        EXPECT_TRUE(r.unchanged_since(before)) << what << " bit " << bit;
    };
    for (int bit = 0; bit < 16; ++bit) {
        flip_bit(hdr->u16HdrMagic, bit);
        EXPECT_EQ(r.apply(), -51) << "header magic bit " << bit;
        EXPECT_TRUE(r.out_untouched());
        flip_bit(hdr->u16HdrMagic, bit);
    }
    for (int bit = 0; bit < 32; ++bit) {
        flip_bit(st->u32StateMagic, bit);
        refused(0, -51, -51, "state magic", bit);
        flip_bit(st->u32StateMagic, bit);
    }
    for (int bit = 0; bit < 16; ++bit) {
        flip_bit(st->u16InitMagic, bit);
        refused(0, -101, 0, "init magic", bit);
        flip_bit(st->u16InitMagic, bit);
    }
    // An offset other than 3880 is never followed (a high bit would point far outside the block).
    for (int bit = 0; bit < 32; ++bit) {
        flip_bit(hdr->u32StateOffset, bit);
        refused(-51, -51, -51, "state offset", bit);
        flip_bit(hdr->u32StateOffset, bit);
    }
    EXPECT_EQ(r.apply(), 0);
    EXPECT_EQ(Sonvel_AEC_SetParams(r.h, &r.cfg), 0);
    EXPECT_TRUE(r.block.canaries_intact());
}

INSTANTIATE_TEST_SUITE_P(BothRates, IntegrityBits, ::testing::Values(uint8_t{0}, uint8_t{1}));

void fill_random(GuardedBlock &block, uint32_t seed) {
    std::mt19937 rng(seed);
    for (size_t i = 0; i < block.size(); ++i) block.data()[i] = static_cast<uint8_t>(rng());
}

TEST(UninitialisedBlock, RandomBytesAreRefusedAndInitStartsAfresh) {
    // The reference: the same audio through an instance on a zeroed block.
    const AecCfg cfg = default_cfg(1);
    const auto near = sonvel::test::test_signal(160 * 40, 21);
    const auto far = sonvel::test::test_signal(160 * 40, 22);
    GuardedBlock clean;
    std::memset(clean.data(), 0, clean.size());
    void *hc = nullptr;
    ASSERT_EQ(Sonvel_AEC_Init(&hc, clean.data(), 62064, &cfg), 0);
    const auto want = sonvel::test::apply_frames(hc, near, far, 160);

    for (uint32_t seed = 1; seed <= 4; ++seed) {
        GuardedBlock block;
        fill_random(block, seed);
        // Seed 3 also carries a valid-looking header: then the guard words of the random state
        // stop the block, still without output.
        if (seed == 3) {
            block.header()->u16HdrMagic = 0x5A5A;
            block.header()->u32StateOffset = 3880;
            block.header()->u8HdrSampleRate = 1;
            block.header()->u16Phase = 0;
        }
        const std::vector<uint8_t> before(block.data(), block.data() + block.size());
        std::vector<int16_t> out(160, kUntouched);
        AecCfg got;
        std::memset(&got, 0xEE, sizeof got);
        EXPECT_EQ(Sonvel_AEC_Apply(block.data(), near.data(), far.data(), out.data()),
                  seed == 3 ? -18 : -51)
            << seed;
        for (int16_t v : out) ASSERT_EQ(v, kUntouched) << seed;
        EXPECT_EQ(Sonvel_AEC_SetParams(block.data(), &cfg), -51) << seed;
        EXPECT_EQ(Sonvel_AEC_GetParams(block.data(), &got), -51) << seed;
        for (size_t i = 0; i < sizeof got; ++i) {
            ASSERT_EQ(reinterpret_cast<const uint8_t *>(&got)[i], 0xEE) << seed;
        }
        if (seed != 3) {
            EXPECT_EQ(std::memcmp(before.data(), block.data(), block.size()), 0) << seed;
        }

        // Init over the random bytes leaves nothing of them behind.
        void *h = nullptr;
        ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &cfg), 0) << seed;
        EXPECT_EQ(sonvel::test::apply_frames(h, near, far, 160), want) << seed;
        EXPECT_TRUE(block.canaries_intact()) << seed;
    }
}

}  // namespace
