// Driver for counting instructions per transform of the FFT service: repeats one forward
// transform of a real block, or one inverse transform of a conjugate-symmetric spectrum (the
// shapes the real FFT pair passes), at 128 or 256 points, on inputs with log2 N bits of headroom.
// Run under callgrind by bench/count_instructions.sh --fft, which collects inside the service's
// entry only; prints an FNV-1a digest of the outputs so that changes that must keep the bits can
// be checked from the same run.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "sonvel_aec_fft.h"

int main(int argc, char **argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s order fwd|inv repeats\n", argv[0]);
        return 2;
    }
    const int order = std::atoi(argv[1]);
    const bool inverse = std::strcmp(argv[2], "inv") == 0;
    const int repeats = std::atoi(argv[3]);
    const int n = 1 << order;
    alignas(32) static uint8_t plan[SONVEL_FFT_PLAN_BYTES];
    if (order < 1 || order > 8 || Sonvel_FFTInit_C_SC32(plan, order) != 0) return 2;
    std::mt19937 rng(1);
    std::uniform_int_distribution<int32_t> dist(-(1 << (31 - order)), (1 << (31 - order)) - 1);
    alignas(32) int32_t src[512];
    alignas(32) int32_t dst[512];
    uint64_t digest = 1469598103934665603ull;
    for (int r = 0; r < repeats; ++r) {
        for (int i = 0; i < 2 * n; ++i) src[i] = dist(rng);
        if (inverse) {
            src[1] = src[n + 1] = 0;
            for (int k = 1; k < n / 2; ++k) {
                src[2 * (n - k)] = src[2 * k];
                src[2 * (n - k) + 1] = -src[2 * k + 1];
            }
            Sonvel_FFTInv_CToC_SC32_Sfs(src, dst, plan, 0);
        } else {
            for (int i = 0; i < n; ++i) src[2 * i + 1] = 0;
            Sonvel_FFTFwd_CToC_SC32_Sfs(src, dst, plan, 0);
        }
        for (int i = 0; i < 2 * n; ++i)
            digest = (digest ^ static_cast<uint32_t>(dst[i])) * 1099511628211ull;
    }
    std::printf("%016llx\n", static_cast<unsigned long long>(digest));
    return 0;
}
