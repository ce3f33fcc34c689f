// The core entry points: status codes of every argument fault in the order they are examined,
// with nothing written on failure; the parameter record's rules, the last failing rule deciding,
// each named with its range in its status text;
// initialisation of larger blocks, again over a used one and after a failed attempt; the frame
// schedule against a reference that feeds contiguous blocks straight to the block step.

#include <functional>
#include <string>

#include "interface/instance_block.h"

namespace {

using sonvel::test::default_cfg;
using sonvel::test::GuardedBlock;

int16_t *odd(int16_t *p) { return reinterpret_cast<int16_t *>(reinterpret_cast<uint8_t *>(p) + 1); }

TEST(StatusCodes, ArgumentFaultsInPrecedenceOrderWriteNothing) {
    GuardedBlock fresh, live;
    const AecCfg cfg = default_cfg(0);
    void *h = live.init(cfg);
    void *h4 = static_cast<uint8_t *>(h) + 4;
    uint8_t *m = fresh.data();
    AecCfg bad = cfg;
    bad.s16CohThr = -1;
    alignas(8) int16_t n[80] = {}, f[80] = {}, o[82];
    std::memset(o, 0x5C, sizeof o);
    void *hOut = nullptr;
    uint32_t size = 7, reserved = 9;
    const struct {
        const char *what;
        std::function<int32_t()> call;
        int32_t want;
    } cases[] = {
        {"size null", [&] { return Sonvel_AEC_GetSize(nullptr, &reserved); }, -60},
        {"size reserved null", [&] { return Sonvel_AEC_GetSize(&size, nullptr); }, -61},
        {"init handle null", [&] { return Sonvel_AEC_Init(nullptr, nullptr, 0, nullptr); }, -1},
        {"init memory null", [&] { return Sonvel_AEC_Init(&hOut, nullptr, 0, nullptr); }, -2},
        {"init misaligned", [&] { return Sonvel_AEC_Init(&hOut, m + 4, 62064, nullptr); }, -3},
        {"init 62063 bytes", [&] { return Sonvel_AEC_Init(&hOut, m, 62063, nullptr); }, -4},
        {"init record null", [&] { return Sonvel_AEC_Init(&hOut, m, 62064, nullptr); }, -5},
        {"init invalid record", [&] { return Sonvel_AEC_Init(&hOut, m, 62064, &bad); }, -26},
        {"apply handle null", [&] { return Sonvel_AEC_Apply(nullptr, nullptr, nullptr, nullptr); },
         -10},
        {"apply misaligned", [&] { return Sonvel_AEC_Apply(h4, nullptr, nullptr, nullptr); }, -11},
        {"apply near null", [&] { return Sonvel_AEC_Apply(h, nullptr, nullptr, nullptr); }, -12},
        {"apply near odd", [&] { return Sonvel_AEC_Apply(h, odd(n), nullptr, nullptr); }, -13},
        {"apply far null", [&] { return Sonvel_AEC_Apply(h, n, nullptr, nullptr); }, -14},
        {"apply far odd", [&] { return Sonvel_AEC_Apply(h, n, odd(f), nullptr); }, -15},
        {"apply out null", [&] { return Sonvel_AEC_Apply(h, n, f, nullptr); }, -16},
        {"apply out odd", [&] { return Sonvel_AEC_Apply(h, n, f, odd(o)); }, -17},
        {"check null", [&] { return Sonvel_AEC_Check(nullptr); }, -20},
        {"set handle null", [&] { return Sonvel_AEC_SetParams(nullptr, nullptr); }, -30},
        {"set record null", [&] { return Sonvel_AEC_SetParams(h, nullptr); }, -31},
        {"set invalid record", [&] { return Sonvel_AEC_SetParams(h, &bad); }, -26},
        {"get handle null", [&] { return Sonvel_AEC_GetParams(nullptr, nullptr); }, -40},
        {"get record null", [&] { return Sonvel_AEC_GetParams(h, nullptr); }, -41},
        {"version null", [&] { return Sonvel_AEC_GetVersion(nullptr); }, -50},
        {"state null", [&] { return Sonvel_AEC_SUB_Init(nullptr, &cfg, 0); }, -99},
        {"state misaligned", [&] { return Sonvel_AEC_SUB_Init(m + 4, &cfg, 0); }, -100},
        {"re-init of a never initialised state", [&] { return Sonvel_AEC_SUB_Init(m, &cfg, 1); },
         -101},
    };
    const auto liveBefore = live.snapshot();
    for (const auto &c : cases) EXPECT_EQ(c.call(), c.want) << c.what;
    EXPECT_TRUE(hOut == nullptr && size == 7u);
    EXPECT_TRUE(sonvel::test::all_bytes(m, fresh.size(), sonvel::test::kCanaryByte));
    EXPECT_TRUE(live.unchanged_since(liveBefore)) << "phase or carries moved";
    EXPECT_TRUE(sonvel::test::all_bytes(o, sizeof o, 0x5C));

    EXPECT_TRUE(Sonvel_AEC_GetSize(&size, &reserved) == 0 && size == 62064u && reserved == 9u)
        << size;
    EXPECT_TRUE(Sonvel_AEC_Check8Align(m) == 1 && Sonvel_AEC_Check8Align(m + 4) == 0);
    // Only the low byte of the mode counts: 0x100 is a full initialisation.
    EXPECT_EQ(Sonvel_AEC_SUB_Init(m, &cfg, 0x100), 0);
    EXPECT_EQ(reinterpret_cast<AecState *>(m)->u16InitMagic, 0xA5A5);
}

// Faults of every rule before the band edges.
void early_faults(AecCfg &c) {
    c.u8StartPart = 9, c.s16CohThr = -5, c.s16CohBinHi = 300, c.as16BandEdge[3] = 10;
}

// The refused field is named, with its allowed range, in the text of the code the rule returns.
TEST(StatusCodes, RecordRulesAndTheLastFailingRuleDecides) {
    const struct {
        const char *what;
        void (*spoil)(AecCfg &);
        int32_t code;
        const char *field = nullptr, *range = nullptr;
    } cases[] = {
        {"start part 7", [](AecCfg &c) { c.u8StartPart = 7; }, -21, "u8StartPart", "0..6"},
        {"nlp level 3", [](AecCfg &c) { c.u8NlpLevel = 3; }, -22, "u8NlpLevel", "0..2"},
        {"high freq mode 2", [](AecCfg &c) { c.u8HighFreqMode = 2; }, -23, "u8HighFreqMode",
         "0..1"},
        {"sample rate 2", [](AecCfg &c) { c.u8SampleRate = 2; }, -25, "u8SampleRate",
         "1 = 16000 Hz"},
        {"coh thr -1", [](AecCfg &c) { c.s16CohThr = -1; }, -26, "s16CohThr", "0..32767"},
        {"hf lo > hi", [](AecCfg &c) { c.s16HfBinLo = 39; }, -27},
        {"hf lo < 0", [](AecCfg &c) { c.s16HfBinLo = -1; }, -27, "s16HfBinLo", "0..s16HfBinHi"},
        {"hf hi > 256", [](AecCfg &c) { c.s16HfBinHi = 257; }, -28, "s16HfBinHi",
         "256 at 16000 Hz"},
        {"coh lo > hi", [](AecCfg &c) { c.s16CohBinLo = 73; }, -29, "s16CohBinLo",
         "0..s16CohBinHi"},
        {"coh lo < 0", [](AecCfg &c) { c.s16CohBinLo = -1; }, -29},
        {"coh hi > 256", [](AecCfg &c) { c.s16CohBinHi = 257; }, -210, "s16CohBinHi",
         "256 at 16000 Hz"},
        {"edge5 > 256", [](AecCfg &c) { c.as16BandEdge[5] = 257; }, -24},
        {"edge0 > edge1", [](AecCfg &c) { c.as16BandEdge[0] = 7; }, -24},
        {"edge0 < 0", [](AecCfg &c) { c.as16BandEdge[0] = -1; }, -24, "as16BandEdge",
         "256 at 16000 Hz"},
        {"edge2 > edge3", [](AecCfg &c) { c.as16BandEdge[2] = 50; }, -24},
        {"clamp lo > hi", [](AecCfg &c) { c.s16ClampBinLo = 7; }, -211, "s16ClampBinLo",
         "0..s16ClampBinHi"},
        {"clamp lo < 0", [](AecCfg &c) { c.s16ClampBinLo = -1; }, -211},
        {"clamp lo > 256", [](AecCfg &c) { c.s16ClampBinLo = 257, c.s16ClampBinHi = 300; }, -212,
         "s16ClampBinLo", "256 at 16000 Hz"},
        {"fields equal to the 8000 Hz bound",
         [](AecCfg &c) {
             c.u8SampleRate = 0, c.s16HfBinHi = c.s16CohBinHi = c.as16BandEdge[5] =
                                     c.s16ClampBinLo = c.s16ClampBinHi = 128;
         },
         0},
        {"hf hi 129 at 8000 Hz", [](AecCfg &c) { c.u8SampleRate = 0, c.s16HfBinHi = 129; }, -28,
         "s16HfBinHi", "128 at 8000 Hz"},
        {"hf hi 256 at 16000 Hz", [](AecCfg &c) { c.s16HfBinHi = 256; }, 0},
        {"rate 9: wide bound, still refused",
         [](AecCfg &c) { c.s16HfBinHi = 256, c.u8SampleRate = 9; }, -25},
        {"unexamined fields, equal edges",
         [](AecCfg &c) {
             c.u8CnEnable = 200, std::fill_n(c.as16BandShift, 7, -32768),
             std::fill_n(c.as16BandEdge, 6, 49);
         },
         0},
        {"coh hi hides nlp level", [](AecCfg &c) { c.u8NlpLevel = 3, c.s16CohBinHi = 300; }, -210},
        {"band edges hide every rule before them", early_faults, -24},
        {"clamp order hides the band edges",
         [](AecCfg &c) { early_faults(c), c.s16ClampBinLo = -1; }, -211},
        {"clamp bound hides the band edges",
         [](AecCfg &c) { early_faults(c), c.s16ClampBinLo = 400, c.s16ClampBinHi = 500; }, -212},
        {"negative first edge skips the rules before it",
         [](AecCfg &c) { c.as16BandEdge[0] = -1, c.u8SampleRate = 7; }, -24},
        {"... but not the clamp rules",
         [](AecCfg &c) { c.as16BandEdge[0] = -1, c.u8SampleRate = 7, c.s16ClampBinLo = 20; }, -211},
    };
    for (const auto &k : cases) {
        AecCfg c = default_cfg(1);
        k.spoil(c);
        EXPECT_EQ(Sonvel_AEC_Check(&c), k.code) << k.what;
        if (k.field == nullptr) continue;
        const std::string text = Sonvel_AEC_StatusText(k.code);
        for (const char *part : {k.field, "allowed ", k.range})
            EXPECT_NE(text.find(part), std::string::npos) << k.code << ": " << text;
    }
}

TEST(InstanceLifecycle, InitStartsAfreshAndKeepsToItsBytes) {
    GuardedBlock block(62064 + 100);
    std::memset(block.data() + 62064, 0x77, 100);
    const AecCfg cfg = default_cfg(0);
    void *h = nullptr;
    ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064 + 100, &cfg), 0);
    EXPECT_EQ(h, block.data());
    const sonvel::AecHeader *hdr = block.header();
    EXPECT_TRUE(hdr->u32StateOffset == 3880 && hdr->u8HdrSampleRate == 0 && hdr->u16Phase == 0 &&
                hdr->u16HdrMagic == 0x5A5A);
    const auto fresh = block.snapshot();

    // Init over a used instance leaves nothing of its history; the excess bytes stay as they were.
    const auto sig = sonvel::test::test_signal(800, 3);
    sonvel::test::apply_frames(h, sig, sig, 80);
    ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &cfg), 0);
    EXPECT_TRUE(block.unchanged_since(fresh));
    EXPECT_TRUE(sonvel::test::all_bytes(block.data() + 62064, 100, 0x77));
    EXPECT_TRUE(block.canaries_intact());

    // A failed Init leaves no live instance behind.
    GuardedBlock zeroed;
    std::memset(zeroed.data(), 0, zeroed.size());
    AecCfg bad = default_cfg(1);
    bad.u8StartPart = 7;
    ASSERT_EQ(Sonvel_AEC_Init(&h, zeroed.data(), 62064, &bad), -21);
    int16_t in[160] = {}, out[160];
    EXPECT_EQ(Sonvel_AEC_Apply(zeroed.data(), in, in, out), -51);
}

// The output is the processed block stream one frame late (the first frame is silence); four
// calls make one cycle of the phase and five blocks at either rate.
TEST(InstanceLifecycle, OutputIsTheBlockStreamOneFrameLate) {
    for (uint8_t rate : {uint8_t{0}, uint8_t{1}}) {
        const AecCfg cfg = default_cfg(rate);
        const size_t f = rate == 0 ? 80 : 160, l = rate == 0 ? 64 : 128, frames = 4 * 6,
                     n = f * frames;
        const auto far = sonvel::test::test_signal(n, 11),
                   talk = sonvel::test::test_signal(n, 12, 2000);
        auto near = sonvel::test::echo_of(far, 40, 3);
        for (size_t i = 0; i < n; ++i) near[i] = static_cast<int16_t>(near[i] + talk[i]);

        GuardedBlock ref, block;
        ref.init(cfg);
        std::vector<int16_t> processed(n), out(n);
        for (size_t i = 0; i < n; i += l) {
            ASSERT_EQ(Sonvel_AEC_SUB_Proc(ref.state(), &near[i], &far[i], &processed[i]), 0);
        }
        void *h = block.init(cfg);
        for (size_t k = 0; k < frames; ++k) {
            ASSERT_EQ(Sonvel_AEC_Apply(h, &near[k * f], &far[k * f], &out[k * f]), 0);
            ASSERT_EQ(block.header()->u16Phase, k % 4 + 1) << "frame " << k;
        }
        for (size_t i = 0; i < f; ++i) ASSERT_EQ(out[i], 0) << "first frame is silence";
        for (size_t k = 1; k < frames; ++k) {
            ASSERT_EQ(std::memcmp(&out[k * f], &processed[(k - 1) * f], f * 2), 0)
                << int(rate) << " frame " << k;
        }
        EXPECT_TRUE(block.canaries_intact());
    }
}

}  // namespace
