// Damaged instance memory: faults of the integrity words and of the header's state offset, rate
// byte and phase are refused with their codes before anything is written, and a block of random
// bytes that never went through Init is refused by every entry point and initialises normally.

#include <string>

#include "interface/instance_block.h"

namespace {

using sonvel::test::all_bytes;
using sonvel::test::GuardedBlock;

constexpr size_t kState = sonvel::kHeaderBytes;
constexpr int16_t kUntouched = 0x5C5C;

// A guard fault stops every block: -18 on every call, no output, state and schedule position as
// they were (the input carries may already hold the refused frame's samples). Every other fault
// is refused before anything at all is written: block, output frame and parameter record. Init
// over a block of random bytes then leaves nothing of them behind.
TEST(FaultInjection, DamagedWordsAndRandomBlocksAreRefusedBeforeAnyWrite) {
    // The damaged word's offset within the block and width; the expected codes (0: call not made).
    const struct {
        const char *what;
        size_t offset, width;
        int32_t apply, set, get;
    } faults[] = {
        {"guard A", kState + offsetof(AecState, u32GuardA), 4, -18, 0, 0},
        {"guard B", kState + offsetof(AecState, u32GuardB), 4, -18, 0, 0},
        {"guard C", kState + offsetof(AecState, u32GuardC), 4, -18, 0, 0},
        {"header magic", offsetof(sonvel::AecHeader, u16HdrMagic), 2, -51, 0, 0},
        {"state magic", kState + offsetof(AecState, u32StateMagic), 4, 0, -51, -51},
        {"init magic", kState + offsetof(AecState, u16InitMagic), 2, 0, -101, 0},
        // An offset other than 3880 is never followed (a high bit would point far outside the
        // block).
        {"state offset", offsetof(sonvel::AecHeader, u32StateOffset), 4, -51, -51, -51},
    };
    for (uint8_t rate : {uint8_t{0}, uint8_t{1}}) {
        const AecCfg cfg = sonvel::test::default_cfg(rate);
        const int f = sonvel::test::frame_len(cfg);
        const auto near = sonvel::test::test_signal(160 * 40, 5),
                   far = sonvel::test::test_signal(160 * 40, 6);
        GuardedBlock clean, block;
        std::memset(clean.data(), 0, clean.size());
        const auto want =
            sonvel::test::apply_frames(clean.init(cfg), near, far, f);  // on a zeroed block
        void *h = block.init(cfg);
        std::vector<int16_t> out(160);
        auto apply = [&] {
            std::fill(out.begin(), out.end(), kUntouched);
            return Sonvel_AEC_Apply(h, near.data(), far.data(), out.data());
        };
        for (int i = 0; i < 6; ++i) ASSERT_EQ(apply(), 0);  // carries and state hold data

        auto expect_refused = [&](const std::string &what, int32_t applyWant, int32_t setWant,
                                  int32_t getWant) {
            const auto before = block.snapshot();
            const uint16_t phase = block.header()->u16Phase;
            for (int call = 0; applyWant != 0 && call < (applyWant == -18 ? 5 : 1); ++call) {
                EXPECT_EQ(apply(), applyWant) << what;
                EXPECT_TRUE(all_bytes(out.data(), 320, 0x5C)) << what;
            }
            AecCfg got;
            std::memset(&got, 0xEE, sizeof got);
            EXPECT_EQ(setWant == 0 ? 0 : Sonvel_AEC_SetParams(h, &cfg), setWant) << what;
            EXPECT_EQ(getWant == 0 ? 0 : Sonvel_AEC_GetParams(h, &got), getWant) << what;
            EXPECT_TRUE(all_bytes(&got, sizeof got, 0xEE)) << what;
            if (applyWant != -18) {
                EXPECT_TRUE(block.unchanged_since(before)) << what;
            } else {  // a stored 4 (cycle complete) may already read 0: the same schedule position
                EXPECT_EQ(block.header()->u16Phase % 4, phase % 4) << what;
                EXPECT_EQ(std::memcmp(&before[kState], block.state(), sizeof(AecState)), 0) << what;
            }
        };
        for (const auto &x : faults) {
            for (size_t bit : {0, 1, 7, 8, 15, 16, 30, 31}) {
                if (bit >= 8 * x.width) continue;
                block.data()[x.offset + bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
                expect_refused(std::string(x.what) + " bit " + std::to_string(bit), x.apply, x.set,
                               x.get);
                block.data()[x.offset + bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
                ASSERT_EQ(apply(), 0) << x.what << " repaired";
            }
        }
        sonvel::AecHeader *hdr = block.header();
        hdr->u8HdrSampleRate = 2;
        expect_refused("rate byte 2", -25, 0, 0);
        hdr->u32StateOffset = 0;  // the rate byte is judged before the state is looked for
        expect_refused("rate byte 2, state offset 0", -25, -51, -51);
        hdr->u32StateOffset = 3880;
        hdr->u8HdrSampleRate = rate;
        const uint16_t phase = hdr->u16Phase;
        hdr->u16Phase = 5;  // never followed into the schedule tables
        expect_refused("phase 5", -51, 0, 0);
        hdr->u16Phase = phase;
        EXPECT_TRUE(apply() == 0 && Sonvel_AEC_SetParams(h, &cfg) == 0);

        for (uint32_t seed = 1; seed <= 4; ++seed) {
            std::mt19937 rng(seed);
            std::generate(block.data(), block.data() + block.size(),
                          [&] { return static_cast<uint8_t>(rng()); });
            // Seed 3 also carries a valid-looking header: then the guard words of the random
            // state stop the block.
            if (seed == 3)
                hdr->u16HdrMagic = 0x5A5A, hdr->u32StateOffset = 3880, hdr->u8HdrSampleRate = rate,
                hdr->u16Phase = 0;
            expect_refused("random bytes, seed " + std::to_string(seed), seed == 3 ? -18 : -51, -51,
                           -51);
            EXPECT_EQ(sonvel::test::apply_frames(block.init(cfg), near, far, f), want) << seed;
        }
        EXPECT_TRUE(block.canaries_intact());
    }
}

}  // namespace
