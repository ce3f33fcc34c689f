// Separate instances share nothing: eight instances driven at the same time from eight threads,
// each with its own audio, rate and parameters, produce exactly what each produces alone. The
// ThreadSanitizer build runs this test to catch any shared writable data.
#include <latch>
#include <thread>

#include "interface/instance_block.h"

namespace {

// Job k: its own rate, suppression level, bulk delay, echo path and double-talk pattern; returns
// the output.
std::vector<int16_t> run_job(int k) {
    AecCfg cfg = sonvel::test::default_cfg(static_cast<uint8_t>(k & 1));
    cfg.u8NlpLevel = static_cast<uint8_t>(k % 3), cfg.u8StartPart = static_cast<uint8_t>(k % 4);
    cfg.u8CnEnable = static_cast<uint8_t>(k < 6);
    const auto seed = static_cast<uint32_t>(11 + 7 * k);
    const size_t n = static_cast<size_t>(sonvel::test::frame_len(cfg)) * 100;
    const auto far = sonvel::test::test_signal(n, seed, 3000 + 2500 * k);
    auto near = sonvel::test::echo_of(far, static_cast<size_t>(20 + 40 * k), 1 + k % 3);
    const auto talk = sonvel::test::test_signal(n, seed + 100, 1500);
    for (size_t i = n / (2 + k % 3); i < n; ++i)
        near[i] = static_cast<int16_t>(near[i] / 2 + talk[i]);
    sonvel::test::GuardedBlock block;
    auto out = sonvel::test::apply_frames(block.init(cfg), near, far, sonvel::test::frame_len(cfg));
    EXPECT_TRUE(block.canaries_intact());
    return out;
}

TEST(Concurrency, EightThreadsMatchSerialRuns) {
    constexpr int kThreads = 8;
    std::vector<std::vector<int16_t>> serial, parallel(kThreads);
    for (int k = 0; k < kThreads; ++k) serial.push_back(run_job(k));
    std::latch start(kThreads);
    {
        std::vector<std::jthread> threads;
        for (int k = 0; k < kThreads; ++k)
            threads.emplace_back([&, k] {
                start.arrive_and_wait();
                parallel[k] = run_job(k);
            });
    }
    for (int k = 0; k < kThreads; ++k) EXPECT_EQ(serial[k], parallel[k]) << "job " << k;
    EXPECT_NE(serial[0], serial[2]) << "jobs must differ to prove anything";
}

}  // namespace
