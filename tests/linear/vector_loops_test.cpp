// The vectorised loops of the filter update and the echo estimate against the portable ones, on
// boundary, saturating and random operands for every count up to 140: both paths run on copies of
// the same buffers, whose words beyond the count must stay untouched. On x86-64 only where the
// processor runs AVX2 and FMA.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include "spectral/processor.h"
#include "linear/linear_loops.h"
#include "spectral/kernels.h"

namespace {

using Words = std::vector<int32_t>;
using sp::Isa;

constexpr int kMaxCount = 140;
constexpr int kSlack = 16;  // words past every count, which neither path may write

bool vector_available() { return sp::probe_isa() == sp::Isa::kVector; }

// Boundary values a third of the time, otherwise random values of random magnitude.
Words adversarial(int n, std::mt19937 &rng) {
    static constexpr int32_t kEdges[] = {INT32_MIN, INT32_MIN + 1, -65536, -2, -1, 0, 1, 2,
                                         65535,     1 << 30,       INT32_MAX - 1, INT32_MAX};
    Words v(n);
    for (auto &x : v) {
        if (rng() % 3 == 0) {
            x = kEdges[rng() % std::size(kEdges)];
        } else {
            x = static_cast<int32_t>(rng()) >> (rng() % 32);
        }
    }
    return v;
}

// Q values in a range whose sums and differences stay far from overflow.
Words q_values(int n, int lo, int hi, std::mt19937 &rng) {
    std::uniform_int_distribution<int32_t> d(lo, hi);
    Words v(n);
    for (auto &x : v) x = d(rng);
    return v;
}

// Runs step on the portable path and on the vector path, each with its own copy of the buffers,
// and expects identical buffers afterwards.
void expect_same(const char *what, int count, std::vector<Words> buffers,
                 const std::function<void(Isa, std::vector<Words> &)> &step) {
    std::vector<Words> vec = buffers;
    step(Isa::kPortable, buffers);
    step(Isa::kVector, vec);
    for (size_t b = 0; b < buffers.size(); ++b) {
        ASSERT_EQ(buffers[b], vec[b]) << what << ": count " << count << ", buffer " << b;
    }
}

class VectorLoops : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!vector_available()) GTEST_SKIP() << "processor without the vectorised loops";
    }
    std::mt19937 rng{2024};
};

TEST_F(VectorLoops, GradientNormalisationStepsGiveThePortableBits) {
    for (int bins = 0; bins <= kMaxCount; ++bins) {
        const int n = bins + kSlack, words = 2 * bins + kSlack;
        for (int round = 0; round < 3; ++round) {
            // Reciprocal of the far-end power: zero, negative and tiny powers take the lanes'
            // fallback, large ones the short path.
            expect_same("reciprocal", bins,
                        {adversarial(n, rng), adversarial(n, rng), adversarial(n, rng)},
                        [&](Isa isa, std::vector<Words> &b) {
                            lin::reciprocal_far_power(isa, b[0].data(), bins, 7, b[1].data(),
                                                      b[2].data());
                        });
            expect_same("normalised error", bins,
                        {adversarial(words, rng), adversarial(n, rng), q_values(n, -100, 100, rng),
                         adversarial(words, rng), adversarial(words, rng)},
                        [&](Isa isa, std::vector<Words> &b) {
                            lin::normalised_error(isa, b[0].data(), b[1].data(), b[2].data(), bins,
                                                  b[3].data(), b[4].data());
                        });
            // Q values on both sides of the gain shift, so that results saturate and vanish.
            expect_same("gain", bins, {adversarial(n, rng), q_values(n, -120, 200, rng)},
                        [&](Isa isa, std::vector<Words> &b) {
                            lin::constant_magnitude_gain(isa, b[0].data(), b[1].data(), bins);
                        });
            expect_same("apply gain", bins, {adversarial(words, rng), adversarial(n, rng)},
                        [&](Isa isa, std::vector<Words> &b) {
                            lin::apply_gain(isa, b[0].data(), b[1].data(), bins);
                        });
        }
    }
}

TEST_F(VectorLoops, CommonQAndAlignmentGiveThePortableBits) {
    for (int words = 0; words <= kMaxCount; ++words) {
        for (int round = 0; round < 4; ++round) {
            Words g = adversarial(words + kSlack, rng);
            // Mostly zero words in some rounds, so the smallest Q sits on a zero word or none.
            if (round % 2 == 1) {
                for (auto &x : g) x = rng() % 8 == 0 ? x : 0;
            }
            const Words qg = q_values(words + kSlack, -60, 160, rng);
            EXPECT_EQ(lin::common_q(Isa::kPortable, g.data(), qg.data(), words),
                      lin::common_q(Isa::kVector, g.data(), qg.data(), words))
                << "count " << words;
            // Differences from -170 to 150: shifts beyond the word both ways.
            const int q = static_cast<int>(rng() % 101) - 10;
            expect_same("align", words, {g, qg}, [&](Isa isa, std::vector<Words> &b) {
                lin::align_to_q(isa, b[0].data(), b[1].data(), words, q);
            });
        }
    }
}

TEST_F(VectorLoops, BlockShiftsAndFilterAccumulationGiveThePortableBits) {
    const int shifts[] = {-32768, -40, -32, -31, -30, -17, -1, 0, 1, 2, 15, 30, 31, 32, 33, 32767};
    for (int n = 0; n <= kMaxCount; ++n) {
        const Words v = adversarial(n + kSlack, rng);
        EXPECT_EQ(sp::block_headroom(Isa::kPortable, v.data(), n),
                  sp::block_headroom(Isa::kVector, v.data(), n))
            << "count " << n;
        // Small magnitudes only: the headroom then comes from the tail words too.
        Words small = v;
        for (auto &x : small) x >>= 24;
        EXPECT_EQ(sp::block_headroom(Isa::kPortable, small.data(), n),
                  sp::block_headroom(Isa::kVector, small.data(), n))
            << "count " << n;
        for (const int c : shifts) {
            if (c >= -40 && c <= 40) {
                expect_same("shift", n, {v}, [&](Isa isa, std::vector<Words> &b) {
                    sp::shift_block(isa, b[0].data(), n, c);
                });
            }
            expect_same("accumulate", n, {adversarial(n + kSlack, rng), v},
                        [&](Isa isa, std::vector<Words> &b) {
                            lin::accumulate_into_filter(isa, b[0].data(), b[1].data(), n, c);
                        });
        }
    }
}

TEST_F(VectorLoops, EchoEstimateAndErrorGiveThePortableBits) {
    const int undos[] = {-40, -31, -5, 0, 3, 4, 12, 31, 32, 40};
    for (int l = 0; l <= kMaxCount; ++l) {
        const Words yv = adversarial(2 * l + kSlack, rng);
        std::vector<int16_t> near(l + kSlack);
        for (auto &x : near) {
            x = static_cast<int16_t>(rng() % 4 == 0 ? (rng() % 2 ? 32767 : -32768) : rng());
        }
        for (const int undo : undos) {
            for (const int s : {0, 7, 8, 17}) {
                expect_same("estimate", l, {yv, Words(l + kSlack, 5), Words(l + kSlack, 6)},
                            [&](Isa isa, std::vector<Words> &b) {
                                lin::estimate_and_error(isa, b[0].data(), near.data(), l, undo, s,
                                                        b[1].data(), b[2].data());
                            });
            }
        }
    }
}

}  // namespace
