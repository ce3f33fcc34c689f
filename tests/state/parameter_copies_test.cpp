// Replacing the parameters of a running instance rewrites the parameter copies in the state and the
// band coupling table built from them, and not one other byte of the block; a record for another
// rate changes nothing at all, and the record reads back as set.
#include "interface/instance_block.h"

namespace {

#define FIELD(name) \
    { offsetof(AecState, name), sizeof(AecState::name) }

bool is_parameter_byte(size_t off) {
    const std::pair<size_t, size_t> fields[] = {
        FIELD(u32CnEnable),   FIELD(s16StartPart),   FIELD(u16NlpLevel),   FIELD(u16HighFreqMode),
        FIELD(u16SampleRate), FIELD(s16CohThr),      FIELD(s16HfBinLo),    FIELD(s16HfBinHi),
        FIELD(s16CohBinLo),   FIELD(s16CohBinHi),    FIELD(s16ClampBinLo), FIELD(s16ClampBinHi),
        FIELD(as16BandEdge),  FIELD(s16BandEdgeEnd), FIELD(as16BandShift), FIELD(ai32BandCoupling),
    };
    return std::any_of(std::begin(fields), std::end(fields),
                       [off](const auto &f) { return off >= f.first && off < f.first + f.second; });
}

TEST(ParameterCopies, SetParamsRewritesOnlyTheCopiesAndGetReadsThemBack) {
    sonvel::test::GuardedBlock block;
    const AecCfg cfg = sonvel::test::default_cfg(1);
    void *h = block.init(cfg);
    sonvel::test::apply_frames(h, sonvel::test::test_signal(160 * 7, 1),
                               sonvel::test::test_signal(160 * 7, 2), 160);

    // A record for the other rate is refused and changes nothing.
    const auto before = block.snapshot();
    const AecCfg narrow = sonvel::test::default_cfg(0);
    EXPECT_EQ(Sonvel_AEC_SetParams(h, &narrow), -25);
    EXPECT_TRUE(block.unchanged_since(before));

    const AecCfg set{200,
                     6,
                     2,
                     1,
                     1,
                     12345,
                     3,
                     100,
                     10,
                     20,
                     {1, 2, 3, 60, 61, 62},
                     9,
                     11,
                     {-3, 2, 7, 12, 17, 22, 27}};
    ASSERT_EQ(Sonvel_AEC_SetParams(h, &set), 0);
    size_t changedParams = 0;
    for (size_t i = 0; i < block.size(); ++i) {
        if (i >= sonvel::kHeaderBytes && is_parameter_byte(i - sonvel::kHeaderBytes)) {
            changedParams += before[i] != block.data()[i];
        } else {
            ASSERT_EQ(before[i], block.data()[i])
                << "byte " << i << " outside the parameter copies";
        }
    }
    EXPECT_GT(changedParams, 0u);

    AecCfg got;
    std::memset(&got, 0xEE, sizeof got);
    ASSERT_EQ(Sonvel_AEC_GetParams(h, &got), 0);
    AecCfg want = set;
    want.u8CnEnable = 1;  // stored as a flag
    EXPECT_EQ(std::memcmp(&got.u8CnEnable, &want.u8CnEnable, 5), 0);
    EXPECT_EQ(std::memcmp(&got.s16CohThr, &want.s16CohThr, sizeof(AecCfg) - 6), 0);
}

}  // namespace
