// The lane self-check (build option SONVEL_CHECK_LANES, on for the fuzz targets and the soak
// tool): a dispatcher on the vector path runs once on its lane loops, then again on the portable
// loops over a copy of its outputs as they were, and the process aborts on the first bit in which
// the two differ. Off, the check compiles to nothing.
//
// A dispatcher opens with
//     if (sp::lanes_checked(isa, {{out, bytes}, ...}, [&](sp::Isa i) { self(i, ...); })) return;
// naming every array it writes; the re-entries get Isa::kLanesUnchecked or Isa::kPortable.
#pragma once

#include <cstddef>
#include <cstdint>

#include "spectral/processor.h"

#if SONVEL_CHECK_LANES
#include <cstdio>
#include <cstdlib>
#include <cstring>
#endif

namespace sp {

// An array a dispatcher writes (in place or not).
struct Written {
    void *p;
    size_t bytes;
};

template <size_t N, class Run>
inline bool lanes_checked(Isa isa, const Written (&out)[N], Run &&run) {
#if SONVEL_CHECK_LANES
    if (isa != Isa::kVector) return false;
    constexpr size_t kMaxBytes = 65536;
    alignas(32) unsigned char before[kMaxBytes];
    alignas(32) unsigned char lanes[kMaxBytes];
    size_t total = 0;
    for (const Written &w : out) total += w.bytes;
    if (total > kMaxBytes) {
        std::fputs("lane check: outputs larger than the check's copy\n", stderr);
        std::abort();
    }
    auto gather = [&](unsigned char *to) {
        for (const Written &w : out) std::memcpy(to, w.p, w.bytes), to += w.bytes;
    };
    gather(before);
    run(Isa::kLanesUnchecked);
    gather(lanes);
    const unsigned char *from = before;
    for (const Written &w : out) std::memcpy(w.p, from, w.bytes), from += w.bytes;
    run(Isa::kPortable);
    const unsigned char *got = lanes;
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
