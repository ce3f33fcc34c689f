// Fuzz target: validation, initialisation and parameter changes on arbitrary records. A record is
// refused by initialisation and by a parameter change exactly when validation refuses it, with
// the same code; an accepted record reads back unchanged (comfort noise as 0 / 1); a refused
// change leaves the parameters as they were. An accepted instance then processes a few frames.
#include <cstdint>
#include <cstring>

#include "fuzz_bytes.h"
#include "sonvel_aec.h"

namespace {

bool is_check_code(int32_t r) {
    switch (r) {
        case SONVEL_AEC_OK:
        case SONVEL_AEC_ERR_CFG_START_PART:
        case SONVEL_AEC_ERR_CFG_NLP_LEVEL:
        case SONVEL_AEC_ERR_CFG_HIGH_FREQ_MODE:
        case SONVEL_AEC_ERR_CFG_BAND_EDGE:
        case SONVEL_AEC_ERR_CFG_SAMPLE_RATE:
        case SONVEL_AEC_ERR_CFG_COH_THR:
        case SONVEL_AEC_ERR_CFG_HF_BIN_ORDER:
        case SONVEL_AEC_ERR_CFG_HF_BIN_HI:
        case SONVEL_AEC_ERR_CFG_COH_BIN_ORDER:
        case SONVEL_AEC_ERR_CFG_COH_BIN_HI:
        case SONVEL_AEC_ERR_CFG_CLAMP_BIN_ORDER:
        case SONVEL_AEC_ERR_CFG_CLAMP_BIN_LO: return true;
        default: return false;
    }
}

AecCfg raw_record(fuzz::ByteReader &in) {
    AecCfg c;
    in.bytes(&c, sizeof c);
    return c;
}

AecCfg params_of(void *h) {
    AecCfg c{};
    fuzz::expect(Sonvel_AEC_GetParams(h, &c) == SONVEL_AEC_OK, "read-back refused");
    return c;
}

void run_frames(fuzz::ByteReader &in, void *h, uint8_t rate) {
    const size_t frame = rate == 0 ? 80 : 160;
    fuzz::ExactBuffer<int16_t> near(frame), far(frame), out(frame);
    fuzz::AudioSource nearSrc(in), farSrc(in);
    for (int k = 0; k < 5; ++k) {  // one full schedule cycle and the start of the next
        nearSrc.fill(in, near.data(), frame);
        farSrc.fill(in, far.data(), frame);
        fuzz::expect(Sonvel_AEC_Apply(h, near.data(), far.data(), out.data()) == SONVEL_AEC_OK,
                     "frame refused");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::ByteReader in(data, size);
    const AecCfg first = raw_record(in);
    const int32_t check = Sonvel_AEC_Check(&first);
    fuzz::expect(is_check_code(check), "unknown validation code");

    fuzz::Instance inst;
    void *h = nullptr;
    const int32_t init = Sonvel_AEC_Init(&h, inst.memory(), SONVEL_AEC_INSTANCE_BYTES, &first);
    fuzz::expect(init == check, "initialisation and validation disagree");
    if (init != SONVEL_AEC_OK) return 0;
    fuzz::expect(h == inst.memory(), "handle is not the block");
    fuzz::expect(fuzz::same_record(params_of(h), fuzz::read_back_form(first)), "read-back differs");

    const AecCfg second = raw_record(in);
    const AecCfg before = params_of(h);
    const int32_t set = Sonvel_AEC_SetParams(h, &second);
    const int32_t secondCheck = Sonvel_AEC_Check(&second);
    if (secondCheck != SONVEL_AEC_OK) {
        fuzz::expect(set == secondCheck, "change and validation disagree");
    } else if (second.u8SampleRate != first.u8SampleRate) {
        fuzz::expect(set == SONVEL_AEC_ERR_CFG_SAMPLE_RATE, "rate change accepted");
    } else {
        fuzz::expect(set == SONVEL_AEC_OK, "valid change refused");
    }
    const AecCfg after = params_of(h);
    const AecCfg expected = set == SONVEL_AEC_OK ? fuzz::read_back_form(second) : before;
    fuzz::expect(fuzz::same_record(after, expected), "parameters after the change differ");

    run_frames(in, h, first.u8SampleRate);
    return 0;
}
