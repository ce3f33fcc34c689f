// Fuzz target: the host wrapper with arbitrary rates, configurations (host values or the built-in
// set), missing records and buffers, and arbitrary byte counts. Buffers are exactly as long as
// the byte count says (up to a cap), so a frame read or written past a buffer is reported. A call
// is refused with -1 exactly when the byte count is negative or not a whole number of frames,
// the instance has no frame length, or a sample pointer of a non-empty buffer is missing;
// otherwise every frame must be accepted.
#include <cstdint>

#include "fuzz_bytes.h"
#include "sonvel_aec_host.h"

namespace {

constexpr int32_t kMaxBytes = 16 * 320;  // sixteen frames at 16000 Hz

int32_t pick_rate(fuzz::ByteReader &in) {
    switch (in.u8() % 6) {
        case 0: return 8000;
        case 1: return 16000;
        case 2: return 48000;
        case 3: return 44100;
        case 4: return 0;
        default: return in.i32();
    }
}

uint32_t frame_length_of(int32_t rate) { return rate == 8000 ? 80 : rate == 16000 ? 160 : 0; }

// Counts the wrapper refuses: no frame length, negative, or samples (bytes / 2) not whole frames.
bool refused_count(int32_t bytes, uint32_t frame) {
    return frame == 0 || bytes < 0 || (bytes / 2) % static_cast<int32_t>(frame) != 0;
}

// A byte count: whole frames, or anything at all (negative, odd, not whole frames, huge).
int32_t pick_bytes(fuzz::ByteReader &in, uint32_t frame) {
    const uint8_t mode = in.u8();
    if ((mode & 3) != 0 && frame != 0) return static_cast<int32_t>((mode >> 2) % 9 * 2 * frame);
    int32_t bytes = in.i32();
    const int32_t whole = static_cast<int32_t>(2 * frame);
    // A valid count above the cap would need more memory than a fuzz run should use.
    if (bytes > kMaxBytes && whole != 0 && !refused_count(bytes, frame))
        bytes = kMaxBytes / whole * whole;
    return bytes;
}

void process(fuzz::ByteReader &in, void *handle, uint32_t frame) {
    const int32_t bytes = pick_bytes(in, frame);
    const size_t samples = static_cast<size_t>(std::clamp(bytes, 0, kMaxBytes)) / 2;
    fuzz::ExactBuffer<int16_t> near(samples), far(samples), dest(samples);
    fuzz::AudioSource nearSrc(in), farSrc(in);
    nearSrc.fill(in, near.data(), samples);
    farSrc.fill(in, far.data(), samples);

    const uint8_t nulls = in.u8();
    KxAecFrame src{};
    src.ps16Main = (nulls & 1) ? nullptr : near.data();
    src.ps16Ref = (nulls & 2) ? nullptr : far.data();
    src.s32Bytes = bytes;
    KxAecFrame out{};
    out.ps16Main = (nulls & 4) ? nullptr : dest.data();
    // The core refuses the first null sample pointer of a non-empty buffer, in argument order.
    const int32_t missing = bytes / 2 == 0 ? 0
                            : (nulls & 1)  ? -12
                            : (nulls & 2)  ? -14
                            : (nulls & 4)  ? -16
                                           : 0;

    const int32_t r = KX_AEC_Process(handle, &src, &out);
    if (refused_count(bytes, frame)) {
        fuzz::expect(r == -1, "invalid buffer accepted");
        return;
    }
    fuzz::expect(r == missing,
                 missing != 0 ? "null samples not refused by the core" : "valid buffer refused");
    fuzz::expect(out.ps16Ref == src.ps16Ref && out.s32Bytes == bytes, "reference not passed on");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::ByteReader in(data, size);
    const int32_t rate = pick_rate(in);
    KxAecConfig aec;
    in.bytes(&aec, sizeof aec);
    const uint8_t shape = in.u8();
    if (shape & 1) aec.s32UseCfg = 0;  // the built-in set
    KxAecHostConfig host{};
    host.pstAecConfig = (shape & 6) == 6 ? nullptr : &aec;

    void *handle = reinterpret_cast<void *>(uintptr_t{1});  // must stay as is on failure
    const bool noConfig = (shape & 0x18) == 0x18;
    const int32_t init = KX_AEC_Init(&handle, rate, noConfig ? nullptr : &host);
    if (init != 0) {
        fuzz::expect(init == -1, "initialisation failure is not -1");
        fuzz::expect(handle == reinterpret_cast<void *>(uintptr_t{1}), "handle written on failure");
        fuzz::expect(KX_AEC_Process(nullptr, nullptr, nullptr) == -1, "null handle accepted");
        return 0;
    }
    fuzz::expect(!noConfig && host.pstAecConfig != nullptr && rate != 48000, "bad set-up accepted");
    const uint32_t frame = static_cast<const KxAecHandle *>(handle)->u32FrameLen;
    fuzz::expect(frame == frame_length_of(rate), "wrong frame length");

    for (int k = 0; k < 8 && !in.empty(); ++k) process(in, handle, frame);
    fuzz::expect(KX_AEC_DeInit(handle) == 0, "release failed");
    return 0;
}
