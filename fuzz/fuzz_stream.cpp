// Fuzz target: the streaming layer. The input chooses the rate, a valid core record and a
// front-end record (any bytes: refused records must give the code of the first bad field and
// leave the memory untouched), then a sequence of calls: runs of any sample count (0, 1, odd,
// several frames) of hostile audio through exactly sized buffers, calls with a null buffer (a
// status code, nothing written anywhere), front-end and core record changes, and estimate reads,
// whose fields must stay within their documented ranges. The stream block is exactly the size
// the size query gives, so the sanitizer sees any access past it.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz_bytes.h"
#include "sonvel_aec.h"
#include "sonvel_aec_frontend.h"

namespace {

constexpr uint32_t kSampleBudget = 96 * 160;

int32_t expected_fe_code(const AecFrontendCfg &c) {
    if (c.u8DelayMode > SONVEL_AEC_DELAY_AUTO) return SONVEL_AEC_ERR_FE_DELAY_MODE;
    if (c.u16DelayMs > SONVEL_AEC_FRONTEND_MAX_DELAY_MS) return SONVEL_AEC_ERR_FE_DELAY_MS;
    if (c.u8Reserved != 0) return SONVEL_AEC_ERR_FE_RESERVED;
    return SONVEL_AEC_OK;
}

AecFrontendCfg any_fe(fuzz::ByteReader &in) {
    AecFrontendCfg c{};
    c.u8DcBlock = in.u8();
    const uint8_t mode = in.u8();
    c.u8DelayMode = (mode & 0x80) ? mode : mode % 3;  // mostly valid
    c.u8Drift = in.u8();
    c.u8Reserved = (in.u8() & 0x0F) == 0 ? 1 : 0;
    const uint16_t ms = in.u16();
    c.u16DelayMs = (ms & 0x8000) ? ms : ms % (SONVEL_AEC_FRONTEND_MAX_DELAY_MS + 1);
    return c;
}

std::vector<uint8_t> snapshot(const void *p, size_t n) {
    const auto *b = static_cast<const uint8_t *>(p);
    return {b, b + n};
}

void check_estimate(void *h, uint32_t rate, uint32_t frames) {
    AecFrontendEstimate e{};
    fuzz::expect(Sonvel_AEC_StreamGetEstimate(h, &e) == SONVEL_AEC_OK, "estimate refused");
    const uint32_t f = rate / 100;
    fuzz::expect(e.u32LatencySamples == 2 * f + (rate == 16000 ? 128u : 64u), "latency");
    fuzz::expect(e.u32Frames == frames, "frame count");
    fuzz::expect(e.s32DelayApplied >= 0 &&
                     e.s32DelayApplied <=
                         static_cast<int32_t>(SONVEL_AEC_FRONTEND_MAX_DELAY_MS * rate / 1000),
                 "applied delay out of range");
    fuzz::expect(
        e.s32DelayEstimate >= -1 && e.s32DelayEstimate <= static_cast<int32_t>(rate * 420 / 1000),
        "estimate out of range");
    fuzz::expect(e.s16Confidence >= 0, "negative confidence");
    fuzz::expect(e.u8StartPart <= 6, "start partition out of range");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::ByteReader in(data, size);
    const uint8_t rateByte = in.u8() & 1;
    const uint32_t rate = rateByte ? 16000 : 8000;
    AecCfg cfg = fuzz::valid_record(in, rateByte);
    uint32_t bytes = 0;
    fuzz::expect(Sonvel_AEC_StreamGetSize(&bytes) == SONVEL_AEC_OK, "size query refused");
    fuzz::ExactBuffer<uint8_t> block(bytes);
    void *h = nullptr;
    AecFrontendCfg fe = any_fe(in);
    const std::vector<uint8_t> blank = snapshot(block.data(), bytes);
    const int32_t code = Sonvel_AEC_StreamInit(&h, block.data(), bytes, &cfg, &fe);
    fuzz::expect(code == expected_fe_code(fe), "init and validation disagree");
    if (code != SONVEL_AEC_OK) {
        fuzz::expect(h == nullptr && snapshot(block.data(), bytes) == blank, "refused init wrote");
        fe = AecFrontendCfg{};
        fuzz::expect(Sonvel_AEC_StreamInit(&h, block.data(), bytes, &cfg, nullptr) == SONVEL_AEC_OK,
                     "init refused");
    }
    uint32_t budget = kSampleBudget, taken = 0;
    for (int step = 0; step < 24 && budget > 0 && !in.empty(); ++step) {
        const uint8_t op = in.u8();
        switch (op % 8) {
            case 5: {  // front-end change
                const AecFrontendCfg next = any_fe(in);
                const std::vector<uint8_t> before = snapshot(block.data(), bytes);
                const int32_t r = Sonvel_AEC_StreamSetFrontend(h, &next);
                fuzz::expect(r == expected_fe_code(next),
                             "front-end change and validation disagree");
                if (r != SONVEL_AEC_OK)
                    fuzz::expect(snapshot(block.data(), bytes) == before, "refused change wrote");
                break;
            }
            case 6: {  // core record change
                const AecCfg next = fuzz::valid_record(in, rateByte);
                fuzz::expect(Sonvel_AEC_StreamSetParams(h, &next) == SONVEL_AEC_OK,
                             "valid record refused");
                AecCfg back{};
                fuzz::expect(Sonvel_AEC_StreamGetParams(h, &back) == SONVEL_AEC_OK,
                             "read-back refused");
                AecCfg want = fuzz::read_back_form(next);
                want.u8StartPart = back.u8StartPart;  // the automatic mode may choose it
                fuzz::expect(fuzz::same_record(back, want), "record not applied");
                break;
            }
            case 7: {  // a null buffer: refused, nothing written
                const uint32_t n = 1 + in.u8();
                fuzz::ExactBuffer<int16_t> a(n), out(n);
                std::memset(out.data(), 0x5A, n * sizeof(int16_t));
                const std::vector<uint8_t> before = snapshot(block.data(), bytes);
                const uint8_t which = in.u8() % 3;
                const int32_t r = Sonvel_AEC_StreamProcess(h, which == 0 ? nullptr : a.data(),
                                                           which == 1 ? nullptr : a.data(),
                                                           which == 2 ? nullptr : out.data(), n);
                fuzz::expect(r == SONVEL_AEC_ERR_FE_NULL, "null buffer accepted");
                fuzz::expect(snapshot(block.data(), bytes) == before,
                             "refused call wrote to the stream");
                for (uint32_t i = 0; i < n; ++i)
                    fuzz::expect(out[i] == 0x5A5A, "refused call wrote output");
                break;
            }
            default: {  // a run of samples
                const uint8_t kind = in.u8();
                uint32_t n = kind < 16 ? kind % 2 : (kind < 128 ? in.u8() : in.u16() % (4 * 160));
                n = n > budget ? budget : n;
                budget -= n;
                fuzz::AudioSource nearSrc(in), farSrc(in);
                fuzz::ExactBuffer<int16_t> nearv(n), farv(n), out(n);
                nearSrc.fill(in, nearv.data(), n);
                farSrc.fill(in, farv.data(), n);
                fuzz::expect(Sonvel_AEC_StreamProcess(h, nearv.data(), farv.data(), out.data(),
                                                      n) == SONVEL_AEC_OK,
                             "samples refused");
                taken += n;
                break;
            }
        }
        check_estimate(h, rate, taken / (rate / 100));
    }
    return 0;
}
