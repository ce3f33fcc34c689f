// Test support: a 64-bit FNV-1a digest of results and a small xorshift generator of inputs, for
// tests that pin bit-exact output across targets and changes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace testsupport {

class Digest {
  public:
    void fold(uint64_t v, int bytes) {
        for (int i = 0; i < bytes; ++i) h_ = (h_ ^ ((v >> (8 * i)) & 0xFF)) * 0x100000001B3ull;
    }
    void i16(int16_t v) { fold(static_cast<uint16_t>(v), 2); }
    void i32(int32_t v) { fold(static_cast<uint32_t>(v), 4); }
    template <class T>
    void array(const T *v, size_t n) {
        for (size_t i = 0; i < n; ++i)
            fold(static_cast<uint64_t>(static_cast<int64_t>(v[i])), sizeof(T));
    }
    uint64_t value() const { return h_; }

  private:
    uint64_t h_ = 0xCBF29CE484222325ull;
};

class Xorshift64 {
  public:
    explicit Xorshift64(uint64_t seed) : s_(seed) {}
    uint64_t next() {
        s_ ^= s_ << 13;
        s_ ^= s_ >> 7;
        s_ ^= s_ << 17;
        return s_;
    }
    int16_t i16() { return static_cast<int16_t>(next() >> 48); }
    int32_t i32() { return static_cast<int32_t>(next() >> 32); }
    int64_t i64() { return static_cast<int64_t>(next()); }
    // Uniform in [lo, hi].
    int32_t range(int32_t lo, int32_t hi) {
        return static_cast<int32_t>(
            lo + static_cast<int64_t>(next() % (static_cast<uint64_t>(hi - lo) + 1)));
    }
    // Uniform in [-amp, amp].
    int32_t uniform(int32_t amp) {
        return static_cast<int32_t>(next() % (2 * static_cast<uint64_t>(amp) + 1)) - amp;
    }
    // A 32-bit value with n significant bits (sign included): headroom 32 - n.
    int32_t bits(int n) { return i32() >> (32 - n); }
    // A value of random magnitude: exercises every headroom.
    int32_t any_scale() { return i32() >> range(0, 31); }

  private:
    uint64_t s_;
};

}  // namespace testsupport
