// Worst-case stack use of the processing entry points, measured on a painted stack: the work runs
// on a thread whose stack is a buffer filled with a pattern, and the deepest byte no longer
// holding the pattern marks the use. The inputs drive every processing path (echo, double talk,
// far end alone, silence, full scale, every suppression level and high-frequency mode, comfort
// noise on and off). The bounds are what the library promises to embedders.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdio>
#include <functional>

#include "interface/instance_block.h"
#include "sonvel_aec_host.h"
#include "spectral/lane_check.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
// AddressSanitizer surrounds every stack array with red zones: the bound only shows that the
// measurement works and that nothing recurses.
constexpr size_t kBound = 64 * 1024;
#else
constexpr size_t kBound = 16 * 1024;
#endif
#if SONVEL_CHECK_LANES
// The lane self-check adds its copy of a checked call's outputs and the frame of the call's
// re-entry, once per level of checked calls: the real FFT pair's check holds its copy while the
// service's checked real-data steps run inside it.
constexpr size_t kCheckBound = kBound + 2 * sp::kLaneCheckBytes;
#else
constexpr size_t kCheckBound = kBound;
#endif
constexpr size_t kThreadStack = 1024 * 1024;
constexpr uint8_t kPaint = 0xA7;

struct Probe {
    const std::function<void()> *work;
    uintptr_t top;
};

// Keeps the work's frames below the recorded top.
__attribute__((noinline)) void run_work(Probe *p) { (*p->work)(); }

// Bytes of stack below the thread's first frame that `work` touched.
size_t painted_stack_use(const std::function<void()> &work) {
    auto *mem = static_cast<uint8_t *>(std::aligned_alloc(4096, kThreadStack));
    std::memset(mem, kPaint, kThreadStack);
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstack(&attr, mem, kThreadStack);
    Probe p{&work, 0};
    pthread_t t;
    EXPECT_EQ(pthread_create(
                  &t, &attr,
                  [](void *arg) -> void * {
                      auto *probe = static_cast<Probe *>(arg);
                      probe->top = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
                      run_work(probe);
                      return nullptr;
                  },
                  &p),
              0);
    pthread_join(t, nullptr);
    pthread_attr_destroy(&attr);
    const auto deepest = reinterpret_cast<uintptr_t>(
        std::find_if(mem, mem + kThreadStack, [](uint8_t b) { return b != kPaint; }));
    std::free(mem);
    return p.top > deepest ? p.top - deepest : 0;
}

// Audio that takes the canceller through its states: far end alone, echo, double talk, near end
// alone, silence, full scale.
void mixed_audio(size_t n, uint32_t seed, std::vector<int16_t> &near, std::vector<int16_t> &far) {
    far = sonvel::test::test_signal(n, seed, 12000);
    near = sonvel::test::echo_of(far, 37, 2);
    const auto talk = sonvel::test::test_signal(n, seed + 50, 8000);
    for (size_t i = 0; i < n; ++i) {
        const size_t part = i * 6 / n;
        if (part == 2 || part == 3) near[i] = static_cast<int16_t>(near[i] / 2 + talk[i]);
        if (part == 3) far[i] = 0;
        if (part == 4) near[i] = far[i] = 0;
        if (part == 5) near[i] = static_cast<int16_t>(i % 7 < 3 ? 32767 : -32768);
    }
}

TEST(StackUsage, ApplyAndHostProcessStayWithinTheBound) {
    std::vector<int16_t> near, far, out;
    size_t applyMax = 0, processMax = 0;
    for (int variant = 0; variant < 12; ++variant) {  // both rates, every level and mode
        AecCfg cfg = sonvel::test::default_cfg(static_cast<uint8_t>(variant / 6));
        cfg.u8NlpLevel = static_cast<uint8_t>(variant % 3),
        cfg.u8HighFreqMode = static_cast<uint8_t>(variant % 6 / 3);
        cfg.u8CnEnable = static_cast<uint8_t>(variant % 6 != 4);
        const size_t f = static_cast<size_t>(sonvel::test::frame_len(cfg));
        mixed_audio(f * 240, 3 + variant % 6, near, far);
        out.resize(near.size());
        sonvel::test::GuardedBlock block;
        void *h = block.init(cfg);
        const size_t used = painted_stack_use([&] {
            for (size_t i = 0; i < near.size(); i += f)
                Sonvel_AEC_Apply(h, &near[i], &far[i], &out[i]);
        });
        EXPECT_GT(used, 256u) << "the measurement saw no work";
        applyMax = std::max(applyMax, used);
    }
    for (int32_t rate : {8000, 16000}) {
        KxAecConfig aec{};
        KxAecHostConfig host{nullptr, nullptr, &aec};
        void *h = nullptr;
        ASSERT_EQ(KX_AEC_Init(&h, rate, &host), 0);
        const size_t f = static_cast<size_t>(rate / 100);
        mixed_audio(f * 240, 9, near, far);
        out.resize(near.size());
        processMax = std::max(processMax, painted_stack_use([&] {
                                  for (size_t i = 0; i < near.size(); i += 8 * f) {
                                      KxAecFrame in{&near[i], &far[i], nullptr, nullptr,
                                                    static_cast<int32_t>(16 * f)};
                                      KxAecFrame o{&out[i], nullptr, nullptr, nullptr, 0};
                                      KX_AEC_Process(h, &in, &o);
                                  }
                              }));
        KX_AEC_DeInit(h);
    }
    std::printf("stack use: Sonvel_AEC_Apply %zu bytes, KX_AEC_Process %zu bytes (bound %zu)\n",
                applyMax, processMax, kCheckBound);
    RecordProperty("apply_stack_bytes", static_cast<int>(applyMax));
    RecordProperty("process_stack_bytes", static_cast<int>(processMax));
    EXPECT_LE(applyMax, kCheckBound);
    EXPECT_LE(processMax, kCheckBound);
}

}  // namespace
