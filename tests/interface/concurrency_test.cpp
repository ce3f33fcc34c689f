// Separate instances share nothing: two instances driven at the same time from two threads
// produce exactly what each produces alone.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "interface/instance_block.h"
#include "sonvel_aec.h"

namespace {

using sonvel::test::GuardedBlock;

struct Job {
    AecCfg cfg;
    std::vector<int16_t> near, far, out;
};

Job make_job(uint8_t rate, uint32_t seed) {
    Job j{sonvel::test::default_cfg(rate), {}, {}, {}};
    const size_t n = static_cast<size_t>(sonvel::test::frame_len(j.cfg)) * 60;
    j.far = sonvel::test::test_signal(n, seed);
    j.near = sonvel::test::echo_of(j.far, 30 + seed, 2);
    const auto talk = sonvel::test::test_signal(n, seed + 100, 1500);
    for (size_t i = n / 2; i < n; ++i) j.near[i] = static_cast<int16_t>(j.near[i] + talk[i]);
    return j;
}

void run(Job &j) {
    GuardedBlock block;
    void *h = nullptr;
    ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &j.cfg), 0);
    j.out = sonvel::test::apply_frames(h, j.near, j.far, sonvel::test::frame_len(j.cfg));
}

TEST(Concurrency, TwoThreadsMatchOneAfterTheOther) {
    Job a = make_job(1, 3), b = make_job(0, 4);
    run(a);
    run(b);
    Job a2 = make_job(1, 3), b2 = make_job(0, 4);
    std::thread ta([&] { run(a2); });
    std::thread tb([&] { run(b2); });
    ta.join();
    tb.join();
    EXPECT_EQ(a.out, a2.out);
    EXPECT_EQ(b.out, b2.out);
}

}  // namespace
