// Separate instances share nothing: eight instances driven at the same time from eight threads,
// each with its own audio, rate and parameters, produce exactly what each produces alone. The
// ThreadSanitizer build runs this test to catch any shared writable data.
#include <gtest/gtest.h>

#include <latch>
#include <thread>
#include <vector>

#include "interface/instance_block.h"
#include "sonvel_aec.h"

namespace {

using sonvel::test::GuardedBlock;

constexpr int kThreads = 8;

struct Job {
    AecCfg cfg;
    std::vector<int16_t> near, far, out;
};

// Job k: its own rate, suppression level, bulk delay, echo path and double-talk pattern.
Job make_job(int k) {
    Job j{sonvel::test::default_cfg(static_cast<uint8_t>(k & 1)), {}, {}, {}};
    j.cfg.u8NlpLevel = static_cast<uint8_t>(k % 3);
    j.cfg.u8StartPart = static_cast<uint8_t>(k % 4);
    j.cfg.u8CnEnable = static_cast<uint8_t>(k < 6);
    const auto seed = static_cast<uint32_t>(11 + 7 * k);
    const size_t n = static_cast<size_t>(sonvel::test::frame_len(j.cfg)) * 100;
    j.far = sonvel::test::test_signal(n, seed, 3000 + 2500 * k);
    j.near = sonvel::test::echo_of(j.far, static_cast<size_t>(20 + 40 * k), 1 + k % 3);
    const auto talk = sonvel::test::test_signal(n, seed + 100, 1500);
    for (size_t i = n / (2 + k % 3); i < n; ++i) {
        j.near[i] = static_cast<int16_t>(j.near[i] / 2 + talk[i]);
    }
    return j;
}

void run(Job &j) {
    GuardedBlock block;
    void *h = nullptr;
    ASSERT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &j.cfg), 0);
    j.out = sonvel::test::apply_frames(h, j.near, j.far, sonvel::test::frame_len(j.cfg));
    EXPECT_TRUE(block.canaries_intact());
}

TEST(Concurrency, EightThreadsMatchSerialRuns) {
    std::vector<Job> serial, parallel;
    for (int k = 0; k < kThreads; ++k) {
        serial.push_back(make_job(k));
        parallel.push_back(make_job(k));
        run(serial.back());
    }
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (Job &j : parallel) {
        threads.emplace_back([&start, &j] {
            start.arrive_and_wait();
            run(j);
        });
    }
    for (std::thread &t : threads) t.join();
    for (int k = 0; k < kThreads; ++k) EXPECT_EQ(serial[k].out, parallel[k].out) << "job " << k;
    EXPECT_NE(serial[0].out, serial[2].out) << "jobs must differ to prove anything";
}

}  // namespace
