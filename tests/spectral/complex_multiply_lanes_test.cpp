// Lane equivalence of the complex products (the kernel is the test parameter): the
// multiply-accumulate (three passes, so the accumulator saturates at both bounds on the way), the
// conjugate product, and the conjugate product written over its first operand as the stages use
// it, for counts -3..136 and every combination of boundary parts. Skipped where the processor has
// no vector unit.
#include <algorithm>
#include <vector>

#include "lane_equivalence.h"
#include "spectral/kernels.h"

namespace {

using lanetest::Buffers;
using lanetest::Operands;

std::vector<int> counts() {
    std::vector<int> c;
    for (int n = -3; n <= lanetest::kMaxCount; ++n) c.push_back(n);
    return c;
}

Buffers operands(Operands &ops, int n) {
    const int words = 2 * std::max(n, 0) + lanetest::kSlack;
    return Buffers{{ops.words(words), ops.words(words), ops.words(words)}, {}};
}

const lanetest::Kernel kKernels[] = {
    {"MultiplyAccumulate", operands,
     [](sp::Isa isa, Buffers &b, int n) {
         for (int pass = 0; pass < 3; ++pass)
             sp::complex_mla(isa, b.w[0].data(), b.w[1].data(), b.w[2].data(), n);
     },
     counts()},
    {"ConjugateProduct", operands,
     [](sp::Isa isa, Buffers &b, int n) {
         sp::complex_conj_mult(isa, b.w[0].data(), b.w[1].data(), b.w[2].data(), n);
     },
     counts()},
    // Six partitions summed in one pass: the words of one multiply-accumulate per partition in
    // turn, also where the sum saturates on the way.
    {"PartitionsSummed",
     [](Operands &ops, int n) {
         const int stride = 2 * std::max(n, 0) + 6;
         return Buffers{{ops.words(6 * stride), ops.words(6 * stride),
                         ops.words(2 * std::max(n, 0) + lanetest::kSlack)},
                        {}};
     },
     [](sp::Isa isa, Buffers &b, int n) {
         const int stride = 2 * std::max(n, 0) + 6;
         lanetest::Words single = b.w[2];
         for (int p = 0; p < 6; ++p)
             sp::complex_mla(sp::Isa::kPortable, &b.w[0][p * stride], &b.w[1][p * stride],
                             single.data(), n);
         sp::complex_mla_sum(isa, b.w[0].data(), b.w[1].data(), stride, 6, b.w[2].data(), n);
         ASSERT_EQ(b.w[2], single) << "partitions summed in one pass, count " << n;
     },
     counts()},
    {"ConjugateProductInPlace", operands,
     [](sp::Isa isa, Buffers &b, int n) {
         sp::complex_conj_mult(isa, b.w[0].data(), b.w[1].data(), b.w[0].data(), n);
     },
     counts()},
};

class ComplexMultiplyLanes : public lanetest::LaneFamily {};

TEST_P(ComplexMultiplyLanes, LanePathGivesThePortableBits) { expect_same_bits(); }

INSTANTIATE_TEST_SUITE_P(Family, ComplexMultiplyLanes, ::testing::ValuesIn(kKernels),
                         lanetest::kernel_name);

}  // namespace
