// Instance header: the first 3880 bytes of an instance block. It holds the frame scheduler's
// carry buffers, its phase, the sample-rate byte it schedules by and the header magic.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sonvel {

inline constexpr uint32_t kInstanceBytes = 62064;
inline constexpr uint32_t kHeaderBytes = 3880;
inline constexpr uint32_t kStateBytes = kInstanceBytes - kHeaderBytes;  // 58184
inline constexpr uint16_t kHeaderMagic = 0x5A5A;

struct AecHeader {
    int16_t as16InCarryNear[480];
    int16_t as16InCarryFar[480];
    int16_t as16OutCarry[480];
    uint32_t u32StateOffset;
    uint8_t u8HdrSampleRate;
    uint8_t u8Pad;
    uint16_t u16Phase;
    uint16_t u16HdrMagic;
    uint8_t au8Reserved[kHeaderBytes - 2890];
};

static_assert(sizeof(AecHeader) == kHeaderBytes, "instance header must be 3880 bytes");
static_assert(offsetof(AecHeader, u32StateOffset) == 2880);
static_assert(offsetof(AecHeader, u16HdrMagic) == 2888);

}  // namespace sonvel
