// Hand-over of the latest value from one control thread to one audio thread without locks,
// allocation or system calls: a triple buffer. The writer fills its back slot and swaps it with
// the middle one, marking it fresh; the reader swaps its front slot with the middle one only when
// it is fresh. Each slot is owned by exactly one side at any time, so neither side ever waits and
// the reader always gets the newest complete value.
#pragma once

#include <atomic>
#include <cstdint>

namespace sonvel::integration {

template <typename T>
class LatestValue {
  public:
    // Control thread: publishes a copy of `v`.
    void publish(const T &v) {
        slots_[back_] = v;
        const uint32_t old = middle_.exchange(back_ | kFresh, std::memory_order_acq_rel);
        back_ = old & kIndex;
    }

    // Audio thread: true and `out` set when a value was published since the last take.
    bool take(T &out) {
        if ((middle_.load(std::memory_order_relaxed) & kFresh) == 0) return false;
        const uint32_t old = middle_.exchange(front_, std::memory_order_acq_rel);
        front_ = old & kIndex;
        out = slots_[front_];
        return true;
    }

  private:
    static constexpr uint32_t kFresh = 4, kIndex = 3;
    T slots_[3]{};
    uint32_t back_ = 0;                // writer's slot
    std::atomic<uint32_t> middle_{1};  // shared slot, with the fresh mark
    uint32_t front_ = 2;               // reader's slot
};

}  // namespace sonvel::integration
