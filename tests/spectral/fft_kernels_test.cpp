// The vectorised FFT stages (where the processor has them) give bit for bit the results of the
// portable stages, so every target computes the same spectra.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "sonvel_aec_fft.h"
#include "spectral/fft/fft_plan.h"
#include "spectral/fft/fft_transform.h"

namespace {

using sonvel::fft::Kernels;
using sonvel::fft::Plan;
using sonvel::fft::run_transform;

struct alignas(8) PlanArea {
    uint8_t bytes[SONVEL_FFT_PLAN_BYTES];
};

TEST(FftKernels, VectorisedStagesMatchPortableStages) {
    for (int order : {7, 8}) {
        PlanArea area{};
        ASSERT_EQ(Sonvel_FFTInit_C_SC32(area.bytes, order), 0);
        const Plan &plan = *reinterpret_cast<const Plan *>(area.bytes);
        const int n = 1 << order;
        const int32_t lim = int32_t{1} << (31 - order);
        std::mt19937 rng(static_cast<unsigned>(order) * 7u);
        std::uniform_int_distribution<int32_t> any(-lim, lim - 1);
        std::uniform_int_distribution<int> kind(0, 3);
        for (int r = 0; r < 200; ++r) {
            // Random parts, mostly full scale, sometimes pinned to the extremes or to zero.
            std::vector<int32_t> x(2 * n);
            for (auto &v : x) {
                const int k = kind(rng);
                v = k == 0 ? -lim : (k == 1 ? lim - 1 : any(rng));
            }
            if (r % 10 == 0) std::fill(x.begin(), x.end(), r % 20 == 0 ? -lim : lim - 1);
            for (bool inverse : {false, true}) {
                for (int sf : {-2, 0, 1, 3}) {
                    const int shift = sf + (inverse ? order : 0);
                    std::vector<int32_t> a(2 * n, 1);
                    std::vector<int32_t> b(2 * n, 2);
                    run_transform(x.data(), a.data(), plan, shift, inverse, Kernels::Portable);
                    run_transform(x.data(), b.data(), plan, shift, inverse, Kernels::Best);
                    ASSERT_EQ(a, b) << "N = " << n << ", inverse " << inverse << ", shift " << shift
                                    << ", case " << r;
                }
            }
        }
    }
}

}  // namespace
