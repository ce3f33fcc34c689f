// Cross-architecture identity: a fixed pseudo-random input set (with the boundary operands) runs
// through every exported operator, every spectral kernel, the complex FFT service and the real FFT
// pair; every result is folded into one 64-bit FNV-1a digest per family. The digests are committed
// below and must come out the same on every target (x86-64 natively, aarch64 under qemu): any
// difference in integer rounding, shift handling or single-precision evaluation shows up here.
//
// The computed digests are printed (and recorded as test properties); when a family changes on
// purpose, copy the printed value into the constant. On a mismatch the per-member digests are
// printed too: compare them between two targets to find the member that differs.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "sonvel_aec_fft.h"
#include "sonvel_aec_ops.h"
#include "sonvel_aec_spectral.h"
#include "state/aec_state.h"
#include "test_digest.h"

namespace {

// ---- Expected digests: the one place to update. ----
constexpr uint64_t kOperatorsDigest = 0x5b315fd7419a0371ull;
constexpr uint64_t kKernelsDigest = 0x29997871966c942eull;
constexpr uint64_t kFftDigest = 0x0d9eb21e6675ac34ull;

// ---- Digest and input generator. ----

using testsupport::Digest;
using testsupport::Xorshift64;

constexpr uint64_t kSeed = 0x9E3779B97F4A7C15ull;

// One family: members folded in order, each with its own digest kept for diagnosis.
class Family {
  public:
    void member(const char *name, const std::function<void(Digest &)> &body) {
        Digest d;
        body(d);
        members_.push_back({name, d.value()});
        total_.fold(d.value(), 8);
    }
    uint64_t value() const { return total_.value(); }
    std::string breakdown() const {
        std::string s;
        char line[96];
        for (const auto &m : members_) {
            std::snprintf(line, sizeof line, "  %-36s 0x%016llx\n", m.first.c_str(),
                          static_cast<unsigned long long>(m.second));
            s += line;
        }
        return s;
    }

  private:
    Digest total_;
    std::vector<std::pair<std::string, uint64_t>> members_;
};

std::string hex(uint64_t v) {
    char s[24];
    std::snprintf(s, sizeof s, "0x%016llx", static_cast<unsigned long long>(v));
    return s;
}

void check_family(const char *name, const Family &f, uint64_t expected) {
    std::cout << "[ digest   ] " << name << " = " << hex(f.value()) << "\n";
    testing::Test::RecordProperty(std::string(name) + "_digest", hex(f.value()));
    EXPECT_EQ(hex(f.value()), hex(expected)) << name << " digest changed; members:\n"
                                             << f.breakdown();
}

// ---- Operand sets. ----

std::vector<int16_t> operands16(Xorshift64 &rng, int random_count) {
    std::vector<int16_t> v = {INT16_MIN, INT16_MIN + 1, -16384,   -256, -2, -1, 0, 1, 2, 255, 16383,
                              16384,     INT16_MAX - 1, INT16_MAX};
    for (int i = 0; i < random_count; ++i) v.push_back(rng.i16());
    return v;
}

std::vector<int32_t> operands32(Xorshift64 &rng, int random_count) {
    std::vector<int32_t> v = {INT32_MIN,   INT32_MIN + 1,
                              -0x40000001, -0x40000000,
                              -0x3FFFFFFF, -65536,
                              -32768,      -2,
                              -1,          0,
                              1,           2,
                              32767,       32768,
                              65535,       0x3FFFFFFF,
                              0x40000000,  0x7FFF7FFF,
                              0x7FFF8000,  INT32_MAX - 1,
                              INT32_MAX};
    for (int i = 0; i < random_count; ++i) v.push_back(rng.any_scale());
    return v;
}

std::vector<int16_t> shift_counts() {
    std::vector<int16_t> v;
    for (int n = -40; n <= 40; ++n) v.push_back(static_cast<int16_t>(n));
    v.push_back(INT16_MIN);
    v.push_back(INT16_MAX);
    return v;
}

// ---- Operators. ----

Family operators_family() {
    Xorshift64 rng(kSeed);
    const std::vector<int16_t> a16 = operands16(rng, 50);
    const std::vector<int32_t> a32 = operands32(rng, 60);
    const std::vector<int16_t> counts = shift_counts();
    Family f;

    f.member("unary16", [](Digest &d) {
        for (int x = INT16_MIN; x <= INT16_MAX; ++x) {
            const auto a = static_cast<int16_t>(x);
            d.i16(Sonvel_aec_abs_s(a));
            d.i16(Sonvel_aec_negate(a));
            d.i16(Sonvel_aec_norm_s(a));
            d.i32(Sonvel_aec_L_deposit_h(a));
            d.i32(Sonvel_aec_L_deposit_l(a));
        }
    });
    f.member("binary16", [&](Digest &d) {
        for (int16_t a : a16) {
            for (int16_t b : a16) {
                d.i16(Sonvel_aec_add(a, b));
                d.i16(Sonvel_aec_sub(a, b));
                d.i16(Sonvel_aec_mult(a, b));
                d.i32(Sonvel_aec_L_mult(a, b));
                d.i32(Sonvel_aec_L_mpy(a, b));
                d.i16(Sonvel_aec_div_s(a, b));
            }
        }
    });
    f.member("div_s_valid", [&](Digest &d) {
        for (int i = 0; i < 4000; ++i) {
            const int16_t den = static_cast<int16_t>(rng.range(1, INT16_MAX));
            d.i16(Sonvel_aec_div_s(static_cast<int16_t>(rng.range(0, den)), den));
        }
    });
    f.member("unary32", [&](Digest &d) {
        for (int32_t a : a32) {
            d.i32(Sonvel_aec_L_negate(a));
            d.i32(Sonvel_aec_L_abs(a));
            d.i16(Sonvel_aec_extract_h(a));
            d.i16(Sonvel_aec_extract_l(a));
            d.i16(Sonvel_aec_round(a));
            d.i16(Sonvel_aec_sature(a));
            d.i16(Sonvel_aec_norm_l(a));
            d.i16(Sonvel_aec_norm_l_opt(a));
            int16_t hi = 0, lo = 0;
            Sonvel_aec_L_Extract(a, &hi, &lo);
            d.i16(hi);
            d.i16(lo);
            d.i32(Sonvel_aec_L_Comp(hi, lo));
            int16_t e = 0, fr = 0;
            d.i32(Sonvel_aec_Log2(a, &e, &fr));
            d.i16(e);
            d.i16(fr);
            d.i32(Sonvel_aec_Ln_OP(a));
        }
    });
    f.member("sature_L", [&](Digest &d) {
        const int64_t edges[] = {
            INT64_MIN, -(int64_t{1} << 31) - 1, -(int64_t{1} << 31), -1,
            0,         (int64_t{1} << 31) - 1,  int64_t{1} << 31,    INT64_MAX};
        for (int64_t a : edges) d.i32(Sonvel_aec_sature_L(a));
        for (int i = 0; i < 200; ++i) d.i32(Sonvel_aec_sature_L(rng.i64() >> rng.range(0, 63)));
    });
    f.member("binary32", [&](Digest &d) {
        for (int32_t a : a32) {
            for (int32_t b : a32) {
                d.i32(Sonvel_aec_L_add(a, b));
                d.i32(Sonvel_aec_L_sub(a, b));
                d.i32(Sonvel_aec_Mpy_32_opt(a, b));
                d.i32(Sonvel_aec_Mpy_32_opt2(a, b));
                d.i32(Sonvel_aec_smulwt(a, b));
                d.i32(Sonvel_aec_L_qdadd(a, b));
                d.i32(Sonvel_aec_L_qdsub(a, b));
                d.i32(Sonvel_aec_subc(a, b));
                d.i32(Sonvel_aec_Div_32_OP(a, b));
            }
        }
    });
    f.member("div_32_valid", [&](Digest &d) {
        for (int i = 0; i < 4000; ++i) {
            const int32_t den = rng.range(0x40000000, INT32_MAX);
            d.i32(Sonvel_aec_Div_32_OP(rng.range(1, den - 1), den));
        }
    });
    f.member("mixed32x16", [&](Digest &d) {
        for (int32_t a : a32) {
            for (int16_t b : a16) {
                d.i32(Sonvel_aec_Mpy_32_16_opt(a, b));
                d.i32(Sonvel_aec_Mpy_32_16_opt2(a, b));
                d.i32(Sonvel_aec_smlabb(b, static_cast<int16_t>(a), a));
            }
        }
    });
    f.member("mac_msu", [&](Digest &d) {
        for (int i = 0; i < 6000; ++i) {
            const int32_t acc = rng.any_scale();
            const int16_t a = a16[rng.range(0, static_cast<int32_t>(a16.size()) - 1)];
            const int16_t b = rng.i16();
            d.i32(Sonvel_aec_L_mac(acc, a, b));
            d.i32(Sonvel_aec_L_msu(acc, a, b));
        }
        d.i32(Sonvel_aec_L_mac(INT32_MAX, INT16_MIN, INT16_MIN));
        d.i32(Sonvel_aec_L_msu(INT32_MIN, INT16_MIN, INT16_MIN));
    });
    f.member("double_precision", [&](Digest &d) {
        for (int i = 0; i < 6000; ++i) {
            const int16_t hi1 = rng.i16(), lo1 = static_cast<int16_t>(rng.range(0, 16383));
            const int16_t hi2 = rng.i16(), lo2 = static_cast<int16_t>(rng.range(0, 16383));
            d.i32(Sonvel_aec_Mpy_32(hi1, lo1, hi2, lo2));
            d.i32(Sonvel_aec_Mpy_32_16(hi1, lo1, hi2));
        }
    });
    f.member("shift16", [&](Digest &d) {
        for (int16_t a : a16) {
            for (int16_t n : counts) {
                d.i16(Sonvel_aec_shl(a, n));
                d.i16(Sonvel_aec_shr(a, n));
                d.i16(Sonvel_aec_shr_opt2(a, n));
            }
        }
    });
    f.member("shift32", [&](Digest &d) {
        for (int32_t a : a32) {
            for (int16_t n : counts) {
                d.i32(Sonvel_aec_L_shl(a, n));
                d.i32(Sonvel_aec_L_shl_opt2(a, n));
                d.i32(Sonvel_aec_L_shr(a, n));
                d.i32(Sonvel_aec_L_shr_opt(a, n));
                d.i32(Sonvel_aec_L_shl_opt(a, n));
            }
        }
    });
    f.member("tables", [](Digest &d) {
        d.array(Sonvel_AEC_gaiAecLog2Tab, 32);
        d.array(Sonvel_AEC_gasAecpow2tab, 101);
    });
    return f;
}

// ---- Kernels. ----

// A buffer of `n` words followed by guard words holding a fixed pattern; the whole buffer,
// guards included, is folded, so a write past the end changes the digest.
template <class T>
struct Guarded {
    static constexpr size_t kGuard = 8;
    std::vector<T> v;
    explicit Guarded(size_t n) : v(n + kGuard) {
        for (size_t i = 0; i < v.size(); ++i)
            v[i] = static_cast<T>(0x5A5A5A5A ^ static_cast<int>(i));
    }
    T *data() { return v.data(); }
    void fold(Digest &d) const { d.array(v.data(), v.size()); }
};

template <class T>
Guarded<T> filled(size_t n, const std::function<T()> &gen) {
    Guarded<T> b(n);
    for (size_t i = 0; i < n; ++i) b.v[i] = gen();
    return b;
}

// Element counts: the callers' rounded-up counts, one past them, and odd remainders.
const int32_t kCounts[] = {0, 1, 3, 65, 66, 67, 68, 130, 131, 132};

Family kernels_family() {
    Xorshift64 rng(kSeed ^ 0x1111);
    auto spectrum = [&](size_t words) {
        return filled<int32_t>(words, [&] { return rng.any_scale(); });
    };
    auto qvals16 = [&](size_t n) {
        return filled<int16_t>(n, [&] { return static_cast<int16_t>(rng.range(-20, 60)); });
    };
    auto qvals32 = [&](size_t n) { return filled<int32_t>(n, [&] { return rng.range(-20, 60); }); };
    Family f;

    f.member("complex_products", [&](Digest &d) {
        for (int32_t n : kCounts) {
            const size_t w = 2 * static_cast<size_t>(n);
            auto a = spectrum(w), b = spectrum(w);
            a.v[0] = INT32_MAX;  // boundary products: full scale and the most negative part
            b.v[0] = INT32_MAX;
            b.v[1] = INT32_MIN;
            auto out = spectrum(w), acc = spectrum(w), conj = spectrum(w);
            Sonvel_AEC_Complex_Mult(a.data(), b.data(), out.data(), n);
            Sonvel_AEC_Complex_Mla(a.data(), b.data(), acc.data(), n);
            Sonvel_AEC_Complex_ConjMult(a.data(), b.data(), conj.data(), n);
            out.fold(d);
            acc.fold(d);
            conj.fold(d);
            auto outq = spectrum(w);
            Guarded<int16_t> qout(w);
            Sonvel_AEC_Complex_ConjMult_Q(a.data(), b.data(), outq.data(),
                                          static_cast<int16_t>(rng.range(0, 31)), qout.data(), n);
            outq.fold(d);
            qout.fold(d);
        }
    });
    f.member("energies", [&](Digest &d) {
        for (int32_t n : kCounts) {
            const size_t w = 2 * static_cast<size_t>(n);
            auto x = spectrum(w);
            if (n > 1) x.v[2] = x.v[3] = 0;  // a zero bin
            auto qx = qvals32(w);
            auto eT = spectrum(n), qeT = spectrum(n), eF = spectrum(n), qeF = spectrum(n),
                 e = spectrum(n);
            Guarded<int16_t> qe(n);
            Sonvel_AEC_Complex_Energy_DQ_T(x.data(), qx.data(), eT.data(), qeT.data(), n);
            Sonvel_AEC_Complex_Energy_DQ_F(x.data(), qx.data(), eF.data(), qeF.data(), n);
            Sonvel_AEC_Complex_Energy_F(x.data(), e.data(), static_cast<int16_t>(rng.range(-8, 31)),
                                        qe.data(), n);
            for (auto *b : {&eT, &qeT, &eF, &qeF, &e}) b->fold(d);
            qe.fold(d);
        }
    });
    f.member("smoothing", [&](Digest &d) {
        for (int32_t n : kCounts) {
            const size_t w = static_cast<size_t>(n);
            auto x = spectrum(w), y = spectrum(w);
            auto qx = qvals16(w), qy = qvals16(w);
            auto a = filled<int16_t>(w, [&] { return static_cast<int16_t>(rng.range(0, 32767)); });
            Sonvel_AEC_Smooth_DG_F(x.data(), y.data(), qx.data(), qy.data(), a.data(),
                                   static_cast<int16_t>(n));
            y.fold(d);
            qy.fold(d);
            Sonvel_AEC_Smooth_F(x.data(), y.data(), qx.data(), qy.data(), 29490,
                                static_cast<int16_t>(n));
            y.fold(d);
            qy.fold(d);
        }
    });
    f.member("spectral_smoothing", [&](Digest &d) {
        for (int32_t n : kCounts) {
            const size_t w = 2 * static_cast<size_t>(n);
            auto x = spectrum(w), b = spectrum(w);
            auto y = spectrum(n);
            auto qy = qvals16(n);
            Sonvel_AEC_Complex_Energy_Smooth_F(
                x.data(), y.data(), static_cast<int16_t>(rng.range(0, 31)), qy.data(), 29490, n);
            y.fold(d);
            qy.fold(d);
            auto yc = spectrum(w);
            auto qyc = qvals16(w);
            Sonvel_AEC_Complex_ConjMult_Smooth_Q(x.data(), b.data(), yc.data(),
                                                 static_cast<int16_t>(rng.range(0, 31)), qyc.data(),
                                                 29490, n);
            yc.fold(d);
            qyc.fold(d);
        }
    });
    f.member("vector_norm", [&](Digest &d) {
        for (int32_t fft_len : {128, 256}) {
            const int32_t q = fft_len == 128 ? 7 : 8;
            for (int shape = 0; shape < 4; ++shape) {
                // Full scale, random scale, all zero, tiny values.
                auto v = filled<int32_t>(fft_len + 6, [&] {
                    switch (shape) {
                        case 0: return rng.i32();
                        case 1: return rng.any_scale();
                        case 2: return int32_t{0};
                        default: return rng.bits(3);
                    }
                });
                d.i32(Sonvel_AEC_VetorNorm(v.data(), q, fft_len + 1));
                v.fold(d);
            }
        }
        auto v = spectrum(69);
        d.i32(Sonvel_AEC_VetorNorm(v.data(), 7, 64));  // a multiple of 4: v[64..] not read
        v.fold(d);
    });
    f.member("far_energy", [&](Digest &d) {
        static AecState state;  // only the block sizes are read
        for (int16_t half : {int16_t{64}, int16_t{128}}) {
            state.s16HalfFftLen = half;
            state.s16RateShift = half == 64 ? 8 : 7;
            const size_t bins = static_cast<size_t>(half) + 4;
            for (int round = 0; round < 3; ++round) {
                auto x = spectrum(2 * bins);
                auto p = filled<int32_t>(bins, [&] { return rng.range(0, INT32_MAX); });
                Sonvel_AEC_Energy(&state, x.data(), p.data());
                p.fold(d);
            }
        }
    });
    f.member("sort", [&](Digest &d) {
        for (int16_t n : {int16_t{-1}, int16_t{0}, int16_t{1}, int16_t{2}, int16_t{7}, int16_t{65},
                          int16_t{129}}) {
            auto v = filled<int16_t>(n > 0 ? n : 0,
                                     [&] { return static_cast<int16_t>(rng.range(-9, 9) * 3641); });
            d.i32(Sonvel_AEC_Qsort(v.data(), n));
            v.fold(d);
        }
    });
    return f;
}

// ---- FFT service and real FFT pair. ----

struct alignas(32) Plan {
    unsigned char bytes[SONVEL_FFT_PLAN_BYTES];
};

Family fft_family() {
    Xorshift64 rng(kSeed ^ 0x2222);
    Family f;
    static Plan plans[2];

    f.member("init_status", [](Digest &d) {
        static Plan scratch;
        for (int32_t order : {-1, 0, 6, 7, 8, 9, 16})
            d.i32(Sonvel_FFTInit_C_SC32(&scratch, order) != 0);
        d.i32(Sonvel_FFTInit_C_SC32(nullptr, 7) != 0);
    });
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(Sonvel_FFTInit_C_SC32(&plans[k], 7 + k), 0) << "order " << 7 + k;
    }
    f.member("complex", [&](Digest &d) {
        for (int k = 0; k < 2; ++k) {
            const int32_t n = 128 << k, order = 7 + k;
            for (int round = 0; round < 4; ++round) {
                // log2 N bits of headroom; the last round at exactly that limit.
                const int bits = round == 3 ? 31 - order : 8 + 5 * round;
                auto src = filled<int32_t>(2 * n, [&] { return rng.bits(bits); });
                auto fwd = Guarded<int32_t>(2 * n), inv = Guarded<int32_t>(2 * n);
                d.i32(Sonvel_FFTFwd_CToC_SC32_Sfs(src.data(), fwd.data(), &plans[k], 0));
                fwd.fold(d);
                // The inverse of a spectrum rescaled to the same headroom.
                for (int32_t i = 0; i < 2 * n; ++i) fwd.v[i] >>= order;
                d.i32(Sonvel_FFTInv_CToC_SC32_Sfs(fwd.data(), inv.data(), &plans[k], 0));
                inv.fold(d);
            }
        }
    });
    f.member("real_pair", [&](Digest &d) {
        for (int k = 0; k < 2; ++k) {
            const int32_t n = 128 << k, order = 7 + k;
            for (int round = 0; round < 4; ++round) {
                // 16-bit samples scaled as the stages scale them, the last round at full scale.
                auto buf = filled<int32_t>(n + 6, [&] {
                    const int16_t s =
                        round == 3 ? (rng.next() & 1 ? INT16_MAX : INT16_MIN) : rng.i16();
                    return static_cast<int32_t>(s) * (1 << (15 - order));
                });
                d.i32(Sonvel_AEC_Realfft(buf.data(), n, &plans[k]));
                buf.fold(d);
                d.i32(Sonvel_AEC_VetorNorm(buf.data(), order, n + 1));
                d.i32(Sonvel_AEC_Realifft(buf.data(), n, &plans[k]));
                buf.fold(d);
            }
        }
    });
    return f;
}

TEST(IdentityDigest, OperatorsMatchOnEveryTarget) {
    check_family("operators", operators_family(), kOperatorsDigest);
}

TEST(IdentityDigest, KernelsMatchOnEveryTarget) {
    check_family("kernels", kernels_family(), kKernelsDigest);
}

TEST(IdentityDigest, FftMatchesOnEveryTarget) { check_family("fft", fft_family(), kFftDigest); }

}  // namespace
