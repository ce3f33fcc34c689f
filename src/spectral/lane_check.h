// The lane self-check (build option SONVEL_CHECK_LANES, on for the fuzz targets and the soak
// tool): a dispatcher on the vector path runs once on its lane loops, then again on the portable
// loops over its outputs as they were, and the process aborts on the first byte in which the two
// differ. One copy on the stack serves both runs: it takes the outputs before the lane run, is
// exchanged with them after it (the portable run starts from the same bytes, the copy now holds
// the lanes' results) and is compared with the portable results. Off, the check compiles to
// nothing.
//
// A dispatcher opens with
//     if (sp::lanes_checked(isa, {{out, bytes}, ...}, [&](sp::Isa i) { self(i, ...); })) return;
// naming every array it writes (no two overlapping); the re-entries get Isa::kLanesUnchecked or
// Isa::kPortable.
#pragma once

#include <cstddef>
#include <cstdint>

#include "spectral/processor.h"
#include "state/aec_state.h"

#if SONVEL_CHECK_LANES
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#endif

namespace sp {

// The check's copy: room for four complex per-bin arrays, the outputs of one call at most (the
// largest today, the normalised error with its Q values, writes two). A call that names more
// aborts. In a build with the check this is the stack a checked call adds, besides the frame of
// its re-entry.
inline constexpr size_t kLaneCheckBytes = 4 * 2 * sizeof(int32_t) * sonvel::kBinWords;

// An array a dispatcher writes (in place or not).
struct Written {
    void *p;
    size_t bytes;
};

template <size_t N, class Run>
inline bool lanes_checked(Isa isa, const Written (&out)[N], Run &&run) {
#if SONVEL_CHECK_LANES
    if (isa != Isa::kVector) return false;
    alignas(32) unsigned char copy[kLaneCheckBytes];
    size_t total = 0;
    for (const Written &w : out) total += w.bytes;
    if (total > kLaneCheckBytes) {
        std::fputs("lane check: outputs larger than the check's copy\n", stderr);
        std::abort();
    }
    unsigned char *at = copy;
    for (const Written &w : out) std::memcpy(at, w.p, w.bytes), at += w.bytes;
    run(Isa::kLanesUnchecked);
    at = copy;
    for (const Written &w : out) {
        auto *p = static_cast<unsigned char *>(w.p);
        std::swap_ranges(p, p + w.bytes, at);
        at += w.bytes;
    }
    run(Isa::kPortable);
    const unsigned char *got = copy;
    for (size_t k = 0; k < N; ++k) {
        const auto *want = static_cast<const unsigned char *>(out[k].p);
        for (size_t b = 0; b < out[k].bytes; ++b) {
            if (got[b] != want[b]) {
                std::fprintf(stderr,
                             "lane check: output %zu differs from the portable loop at byte %zu\n",
                             k, b);
                std::abort();
            }
        }
        got += out[k].bytes;
    }
    return true;
#else
    (void)isa;
    (void)out;
    (void)run;
    return false;
#endif
}

}  // namespace sp
