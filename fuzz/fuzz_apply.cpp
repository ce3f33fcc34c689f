// Fuzz target: frame processing on hostile audio. The input chooses the rate and a record among
// all that pass validation (bin fields and band edges up to the validation bound, clamp end up to
// 32767, any band shifts), then a sequence of runs of frames from several signal kinds, parameter
// changes to other accepted records, and refused changes. Every frame must be accepted (a refusal
// would mean a damaged guard word, that is a stray write inside the instance), the parameter
// copies in the instance must survive every frame. An accepted change may write nothing but the
// parameter copies and the coupling table built from them, a refused one nothing at all: the
// instance block is compared byte for byte around each change, which also finds writes past an
// array that stay inside the block, where the address sanitizer cannot see them.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz_bytes.h"
#include "sonvel_aec.h"
#include "state/aec_header.h"
#include "state/aec_state.h"

namespace {

struct Range {
    size_t offset;
    size_t size;
};

#define STATE_FIELD(f) \
    Range { sonvel::kHeaderBytes + offsetof(AecState, f), sizeof(AecState::f) }
// What a parameter change rewrites.
const Range kChangeable[] = {
    STATE_FIELD(u32CnEnable),     STATE_FIELD(s16StartPart),  STATE_FIELD(u16NlpLevel),
    STATE_FIELD(u16HighFreqMode), STATE_FIELD(u16SampleRate), STATE_FIELD(s16CohThr),
    STATE_FIELD(s16HfBinLo),      STATE_FIELD(s16HfBinHi),    STATE_FIELD(s16CohBinLo),
    STATE_FIELD(s16CohBinHi),     STATE_FIELD(as16BandEdge),  STATE_FIELD(s16ClampBinLo),
    STATE_FIELD(s16ClampBinHi),   STATE_FIELD(as16BandShift), STATE_FIELD(ai32BandCoupling),
};
// What no frame and no parameter change may touch: the FFT plan, the rate-derived sizes, the
// magics and the closing band edge.
const Range kConstant[] = {
    STATE_FIELD(au8FftPlan),
    STATE_FIELD(s16BandEdgeEnd),
    STATE_FIELD(u32StateMagic),
    STATE_FIELD(u16InitMagic),
    STATE_FIELD(s16BlockLen),
    STATE_FIELD(s16HalfFftLen),
    STATE_FIELD(s16FftLen),
    STATE_FIELD(s16FftLen2),
    STATE_FIELD(s16FftOrder),
    STATE_FIELD(s16RateShift),
    STATE_FIELD(s32RateFactor),
    Range{offsetof(sonvel::AecHeader, u32StateOffset), 6},  // state offset and rate byte
    Range{offsetof(sonvel::AecHeader, u16HdrMagic), 2},
};
#undef STATE_FIELD

using Snapshot = std::vector<uint8_t>;

Snapshot snapshot(const void *h) {
    const auto *p = static_cast<const uint8_t *>(h);
    return Snapshot(p, p + SONVEL_AEC_INSTANCE_BYTES);
}

void expect_constant_parts(const Snapshot &initial, const void *h) {
    const auto *now = static_cast<const uint8_t *>(h);
    for (const Range &r : kConstant) {
        if (std::memcmp(initial.data() + r.offset, now + r.offset, r.size) != 0) {
            fuzz::fail("a constant part of the instance changed");
        }
    }
}

bool changeable(size_t offset) {
    for (const Range &r : kChangeable) {
        if (offset >= r.offset && offset < r.offset + r.size) return true;
    }
    return false;
}

void expect_written_only_where_allowed(const Snapshot &before, const void *h, bool accepted) {
    const auto *now = static_cast<const uint8_t *>(h);
    for (size_t i = 0; i < before.size(); ++i) {
        if (before[i] != now[i] && !(accepted && changeable(i))) {
            fuzz::fail(accepted ? "parameter change wrote outside the parameters"
                                : "refused parameter change wrote to the instance");
        }
    }
}

AecCfg params_of(void *h) {
    AecCfg c{};
    fuzz::expect(Sonvel_AEC_GetParams(h, &c) == SONVEL_AEC_OK, "read-back refused");
    return c;
}

// Frames per input: enough for the filter and the suppressor to settle on hostile signals, few
// enough to keep a run fast.
constexpr int kFrameBudget = 64;

void run_frames(fuzz::ByteReader &in, void *h, size_t frame, int &budget) {
    const int count = std::min(1 + in.u8() % 32, std::max(budget, 1));
    budget -= count;
    fuzz::AudioSource nearSrc(in), farSrc(in);
    fuzz::ExactBuffer<int16_t> near(frame), far(frame), out(frame);
    for (int k = 0; k < count; ++k) {
        nearSrc.fill(in, near.data(), frame);
        farSrc.fill(in, far.data(), frame);
        fuzz::expect(Sonvel_AEC_Apply(h, near.data(), far.data(), out.data()) == SONVEL_AEC_OK,
                     "frame refused");
    }
}

AecCfg change_params(fuzz::ByteReader &in, void *h, uint8_t rate) {
    const AecCfg next = fuzz::read_back_form(fuzz::valid_record(in, rate));
    const Snapshot before = snapshot(h);
    fuzz::expect(Sonvel_AEC_SetParams(h, &next) == SONVEL_AEC_OK, "valid change refused");
    expect_written_only_where_allowed(before, h, true);
    return next;
}

void refused_change(fuzz::ByteReader &in, void *h) {
    AecCfg bad;
    in.bytes(&bad, sizeof bad);
    const int32_t check = Sonvel_AEC_Check(&bad);
    if (check == SONVEL_AEC_OK) return;
    const Snapshot before = snapshot(h);
    fuzz::expect(Sonvel_AEC_SetParams(h, &bad) == check, "change and validation disagree");
    expect_written_only_where_allowed(before, h, false);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::ByteReader in(data, size);
    const uint8_t rate = in.u8() & 1;
    const size_t frame = rate == 0 ? 80 : 160;
    AecCfg cfg = fuzz::read_back_form(fuzz::valid_record(in, rate));

    fuzz::Instance inst;
    void *h = nullptr;
    fuzz::expect(
        Sonvel_AEC_Init(&h, inst.memory(), SONVEL_AEC_INSTANCE_BYTES, &cfg) == SONVEL_AEC_OK,
        "valid record refused");
    const Snapshot initial = snapshot(h);
    int budget = kFrameBudget;
    for (int step = 0; step < 16 && budget > 0 && !in.empty(); ++step) {
        const uint8_t op = in.u8();
        switch (op % 8) {
            case 6: cfg = change_params(in, h, rate); break;
            case 7: refused_change(in, h); break;
            default: run_frames(in, h, frame, budget); break;
        }
        fuzz::expect(fuzz::same_record(params_of(h), cfg), "parameter copies changed");
        expect_constant_parts(initial, h);
    }
    run_frames(in, h, frame, budget);  // at least one frame even for the shortest inputs
    fuzz::expect(fuzz::same_record(params_of(h), cfg), "parameter copies changed");
    return 0;
}
