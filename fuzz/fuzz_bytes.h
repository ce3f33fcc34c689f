// Turning fuzzer input into the library's inputs: a reader that hands out integers (zeros once the
// input is used up), parameter records that pass validation with every bin field anywhere in its
// accepted range, hostile audio frames, and exactly sized heap buffers so that the address
// sanitizer sees any access one element past what a call may touch.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sonvel_aec.h"

namespace fuzz {

// Stops the run with a message: libFuzzer records the input as a crash.
[[noreturn]] inline void fail(const char *what) {
    // Standard output: standard error may be closed to silence the host wrapper's reports.
    std::printf("fuzz check failed: %s\n", what);
    std::fflush(stdout);
    std::abort();
}

inline void expect(bool ok, const char *what) {
    if (!ok) fail(what);
}

class ByteReader {
  public:
    ByteReader(const uint8_t *data, size_t size) : p_(data), n_(size) {}

    size_t remaining() const { return n_; }
    bool empty() const { return n_ == 0; }

    uint8_t u8() {
        if (n_ == 0) return 0;
        --n_;
        return *p_++;
    }
    uint16_t u16() { return static_cast<uint16_t>(u8() | (u8() << 8)); }
    int16_t i16() { return static_cast<int16_t>(u16()); }
    uint32_t u32() { return static_cast<uint32_t>(u16()) | (static_cast<uint32_t>(u16()) << 16); }
    int32_t i32() { return static_cast<int32_t>(u32()); }

    // Copies up to size bytes and zero-fills the rest.
    void bytes(void *dst, size_t size) {
        const size_t k = std::min(size, n_);
        std::memcpy(dst, p_, k);
        std::memset(static_cast<uint8_t *>(dst) + k, 0, size - k);
        p_ += k;
        n_ -= k;
    }

  private:
    const uint8_t *p_;
    size_t n_;
};

// A heap array of exactly count elements (count may be 0): reads or writes past its end are
// reported by the address sanitizer. Aligned to 8 bytes, as the core requires of its buffers.
template <class T>
class ExactBuffer {
  public:
    explicit ExactBuffer(size_t count) : count_(count) {
        const size_t bytes = std::max<size_t>(count * sizeof(T), 1);
        data_ = static_cast<T *>(std::malloc(bytes));
        if (data_ == nullptr) fail("out of memory");
        std::memset(static_cast<void *>(data_), 0, bytes);
    }
    ~ExactBuffer() { std::free(data_); }
    ExactBuffer(const ExactBuffer &) = delete;
    ExactBuffer &operator=(const ExactBuffer &) = delete;

    T *data() { return data_; }
    size_t size() const { return count_; }
    T &operator[](size_t i) { return data_[i]; }

  private:
    T *data_;
    size_t count_;
};

// A bin value in 0..limit, biased toward the limits that matter: 0, the highest bin M, M + 1 and
// the validation bound B.
inline int16_t bin_in(ByteReader &in, int limit, int highestBin) {
    const uint8_t mode = in.u8();
    int v;
    switch (mode & 7) {
        case 0: v = 0; break;
        case 1: v = limit; break;
        case 2: v = highestBin; break;
        case 3: v = highestBin + 1; break;
        default: v = in.u16() % (limit + 1); break;
    }
    return static_cast<int16_t>(std::min(v, limit));
}

inline void ordered_pair(ByteReader &in, int limit, int highestBin, int16_t &lo, int16_t &hi) {
    lo = bin_in(in, limit, highestBin);
    hi = bin_in(in, limit, highestBin);
    if (lo > hi) std::swap(lo, hi);
}

// A record for the given rate byte (0 or 1) that passes validation: every byte field, every bin
// field and band edge anywhere in its accepted range, the clamp end up to 32767 and the band
// shifts arbitrary (they are not validated).
inline AecCfg valid_record(ByteReader &in, uint8_t rate) {
    const int bound = rate == 0 ? 128 : 256;  // validation bound (the FFT length)
    const int highestBin = bound / 2;
    AecCfg c{};
    c.u8CnEnable = in.u8();
    c.u8StartPart = static_cast<uint8_t>(in.u8() % 7);
    c.u8NlpLevel = static_cast<uint8_t>(in.u8() % 3);
    c.u8HighFreqMode = static_cast<uint8_t>(in.u8() & 1);
    c.u8SampleRate = rate;
    c.s16CohThr = static_cast<int16_t>(in.u16() & 0x7FFF);
    ordered_pair(in, bound, highestBin, c.s16HfBinLo, c.s16HfBinHi);
    ordered_pair(in, bound, highestBin, c.s16CohBinLo, c.s16CohBinHi);
    for (int16_t &e : c.as16BandEdge) e = bin_in(in, bound, highestBin);
    std::sort(c.as16BandEdge, c.as16BandEdge + 6);
    c.s16ClampBinLo = bin_in(in, bound, highestBin);
    const uint8_t hiMode = in.u8();
    const int room = 32767 - c.s16ClampBinLo;
    const int extra = (hiMode & 3) == 0 ? room : in.u16() % (room + 1);
    c.s16ClampBinHi = static_cast<int16_t>(c.s16ClampBinLo + extra);
    for (int16_t &h : c.as16BandShift) {
        const uint8_t m = in.u8();
        h = (m & 1) ? static_cast<int16_t>(m >> 1) - 32 : in.i16();  // mostly near 0..31
    }
    expect(Sonvel_AEC_Check(&c) == SONVEL_AEC_OK, "generated record refused");
    return c;
}

// The record the library reads back after accepting c: comfort noise normalised to 0 / 1.
inline AecCfg read_back_form(AecCfg c) {
    c.u8CnEnable = c.u8CnEnable != 0 ? 1 : 0;
    return c;
}

inline bool same_record(const AecCfg &a, const AecCfg &b) {
    return std::memcmp(&a.u8CnEnable, &b.u8CnEnable, 5) == 0 &&
           std::memcmp(&a.s16CohThr, &b.s16CohThr, sizeof(AecCfg) - offsetof(AecCfg, s16CohThr)) ==
               0;
}

// Fills a frame with one of several hostile signals: raw input bytes, full-scale constants,
// alternating full scale, a square wave of chosen period, silence, or a single click.
class AudioSource {
  public:
    explicit AudioSource(ByteReader &in) : kind_(in.u8() % 7), a_(in.i16()), period_(1 + in.u8()) {}

    void fill(ByteReader &in, int16_t *frame, size_t count) {
        for (size_t i = 0; i < count; ++i, ++t_) frame[i] = sample(in);
    }

  private:
    int16_t sample(ByteReader &in) {
        switch (kind_) {
            case 0: return in.i16();
            case 1: return 32767;
            case 2: return -32768;
            case 3: return (t_ & 1) ? INT16_MIN : INT16_MAX;
            case 4: return ((t_ / period_) & 1) ? a_ : static_cast<int16_t>(-a_ - 1);
            case 5: return 0;
            default: return t_ % 997 == 0 ? a_ : 0;
        }
    }

    uint8_t kind_;
    int16_t a_;
    uint32_t period_;
    uint32_t t_ = 0;
};

// One instance block of exactly the instance size on the heap (malloc aligns to 16 bytes).
class Instance {
  public:
    Instance() : block_(SONVEL_AEC_INSTANCE_BYTES) {}
    void *memory() { return block_.data(); }

  private:
    ExactBuffer<uint8_t> block_;
};

}  // namespace fuzz
