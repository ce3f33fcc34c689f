// Fuzz target: frame processing on hostile audio. The input chooses the rate and a record among
// all that pass validation (bin fields and band edges up to the validation bound, clamp end up to
// 32767, any band shifts), then a sequence of runs of frames from several signal kinds, parameter
// changes to other accepted records, and refused changes. Every frame must be accepted (a refusal
// would mean a damaged guard word, that is a stray write inside the instance), the parameter
// copies in the instance must survive every frame, and a refused change must leave them alone.
#include <cstdint>

#include "fuzz_bytes.h"
#include "sonvel_aec.h"

namespace {

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
    fuzz::expect(Sonvel_AEC_SetParams(h, &next) == SONVEL_AEC_OK, "valid change refused");
    return next;
}

void refused_change(fuzz::ByteReader &in, void *h) {
    AecCfg bad;
    in.bytes(&bad, sizeof bad);
    const int32_t check = Sonvel_AEC_Check(&bad);
    if (check == SONVEL_AEC_OK) return;
    fuzz::expect(Sonvel_AEC_SetParams(h, &bad) == check, "change and validation disagree");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::ByteReader in(data, size);
    const uint8_t rate = in.u8() & 1;
    const size_t frame = rate == 0 ? 80 : 160;
    AecCfg cfg = fuzz::read_back_form(fuzz::valid_record(in, rate));

    fuzz::Instance inst;
    void *h = nullptr;
    fuzz::expect(Sonvel_AEC_Init(&h, inst.memory(), SONVEL_AEC_INSTANCE_BYTES, &cfg) ==
                     SONVEL_AEC_OK,
                 "valid record refused");
    int budget = kFrameBudget;
    for (int step = 0; step < 16 && budget > 0 && !in.empty(); ++step) {
        const uint8_t op = in.u8();
        switch (op % 8) {
            case 6: cfg = change_params(in, h, rate); break;
            case 7: refused_change(in, h); break;
            default: run_frames(in, h, frame, budget); break;
        }
        fuzz::expect(fuzz::same_record(params_of(h), cfg), "parameter copies changed");
    }
    run_frames(in, h, frame, budget);  // at least one frame even for the shortest inputs
    fuzz::expect(fuzz::same_record(params_of(h), cfg), "parameter copies changed");
    return 0;
}
