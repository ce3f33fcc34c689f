// Finding the parts of an instance from its handle: the header at the block start and the
// processing state behind it. The state is looked up through the header's offset field, which is
// trusted only when it holds the one value the layout allows.
#pragma once

#include <cstdint>

#include "state/aec_header.h"
#include "state/aec_state.h"

namespace sonvel {

inline AecHeader *header_of(void *handle) { return static_cast<AecHeader *>(handle); }

inline bool is_8_aligned(const void *p) { return (reinterpret_cast<uintptr_t>(p) & 7u) == 0; }

// The processing state of an instance, or nullptr when the handle is misaligned or the header's
// state offset has been damaged (such a block was never initialised by this library).
inline AecState *state_of(void *handle) {
    if (!is_8_aligned(handle)) return nullptr;
    if (header_of(handle)->u32StateOffset != kHeaderBytes) return nullptr;
    return reinterpret_cast<AecState *>(static_cast<uint8_t *>(handle) + kHeaderBytes);
}

// A live instance: state found and its magic in place.
inline AecState *live_state_of(void *handle) {
    AecState *st = state_of(handle);
    return (st != nullptr && st->u32StateMagic == kStateMagic) ? st : nullptr;
}

}  // namespace sonvel
