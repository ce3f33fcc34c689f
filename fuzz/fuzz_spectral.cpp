// Fuzz target: the FFT service, the real FFT pair and every vector kernel on arbitrary inputs.
// Transform inputs keep the headroom the transforms require (log2 N bits); kernel
// inputs are any 32-bit words, Q values and smoothing factors, and any counts, negative ones
// included. Every array is exactly as long as the call may touch, so a read or write past it is
// reported. A forward and inverse transform in turn must give the block back within a few units.
#include <cstdint>
#include <cstdlib>

#include "fuzz_bytes.h"
#include "interface/instance_access.h"
#include "sonvel_aec.h"
#include "sonvel_aec_fft.h"
#include "sonvel_aec_spectral.h"

namespace {

using fuzz::ByteReader;
using fuzz::ExactBuffer;
using Words = ExactBuffer<int32_t>;
using Shorts = ExactBuffer<int16_t>;

constexpr int32_t kRoundTripTolerance = 4;

// Any word, with the extremes and small values made likely.
int32_t word(ByteReader &in) {
    const uint8_t mode = in.u8();
    switch (mode & 7) {
        case 0: return INT32_MIN;
        case 1: return INT32_MAX;
        case 2: return static_cast<int32_t>(mode >> 3) - 16;
        default: return in.i32();
    }
}

void fill(ByteReader &in, int32_t *v, size_t count, int headroom = 0) {
    for (size_t i = 0; i < count; ++i) v[i] = word(in) >> headroom;
}

void fill(ByteReader &in, int16_t *v, size_t count) {
    for (size_t i = 0; i < count; ++i) v[i] = in.i16();
}

// A count of bins or elements: usually within the largest spectrum, sometimes negative.
int32_t count_of(ByteReader &in) {
    const uint8_t mode = in.u8();
    if ((mode & 15) == 0) return -static_cast<int32_t>(in.u16() % 9) - 1;
    return in.u8() % 133;
}

size_t at_least_0(int32_t n) { return n > 0 ? static_cast<size_t>(n) : 0; }

struct Plan {
    explicit Plan(int order) : area(SONVEL_FFT_PLAN_BYTES) {
        fuzz::expect(Sonvel_FFTInit_C_SC32(area.data(), order) == 0, "plan refused");
    }
    ExactBuffer<uint8_t> area;
};

int order_of(ByteReader &in) { return (in.u8() & 1) ? 8 : 7; }

void check_round_trip(const int32_t *x, const int32_t *y, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        fuzz::expect(std::llabs(int64_t{x[i]} - y[i]) <= kRoundTripTolerance, "round trip error");
    }
}

void complex_fft(ByteReader &in) {
    const int order = order_of(in);
    const size_t words = size_t{2} << order;
    Plan plan(order);
    Words src(words), mid(words), back(words);
    const int32_t scale = in.u8() % 4 == 0 ? in.i32() : 0;
    fill(in, src.data(), words, order);
    Sonvel_FFTFwd_CToC_SC32_Sfs(src.data(), mid.data(), plan.area.data(), scale);
    Sonvel_FFTInv_CToC_SC32_Sfs(src.data(), back.data(), plan.area.data(), scale);
    // With twice the headroom the forward result keeps enough for the inverse.
    for (size_t i = 0; i < words; ++i) src[i] >>= order;
    Sonvel_FFTFwd_CToC_SC32_Sfs(src.data(), mid.data(), plan.area.data(), 0);
    Sonvel_FFTInv_CToC_SC32_Sfs(mid.data(), back.data(), plan.area.data(), 0);
    check_round_trip(src.data(), back.data(), words);
}

void real_fft(ByteReader &in) {
    const int order = order_of(in);
    const int32_t n = 1 << order;
    Plan plan(order);
    Words buf(static_cast<size_t>(n) + 2), spectrum(static_cast<size_t>(n) + 2);
    fill(in, spectrum.data(), spectrum.size(),
         order);  // a spectrum with the guard bits of a synthesis
    Sonvel_AEC_Realifft(spectrum.data(), n, plan.area.data());
    fill(in, buf.data(), static_cast<size_t>(n), 2 * order);
    Words orig(static_cast<size_t>(n));
    for (int32_t i = 0; i < n; ++i) orig[i] = buf[i];
    Sonvel_AEC_Realfft(buf.data(), n, plan.area.data());
    Sonvel_AEC_Realifft(buf.data(), n, plan.area.data());
    check_round_trip(orig.data(), buf.data(), static_cast<size_t>(n));
}

void complex_products(ByteReader &in, uint8_t which) {
    const int32_t n = count_of(in);
    const size_t words = 2 * at_least_0(n);
    Words a(words), b(words), out(words);
    Shorts qout(words);
    fill(in, a.data(), words);
    fill(in, b.data(), words);
    fill(in, out.data(), words);
    fill(in, qout.data(), words);
    const int16_t q = in.i16(), s = in.i16();
    switch (which % 5) {
        case 0: Sonvel_AEC_Complex_Mult(a.data(), b.data(), out.data(), n); break;
        case 1: Sonvel_AEC_Complex_Mla(a.data(), b.data(), out.data(), n); break;
        case 2: Sonvel_AEC_Complex_ConjMult(a.data(), b.data(), out.data(), n); break;
        case 3:
            Sonvel_AEC_Complex_ConjMult_Q(a.data(), b.data(), out.data(), q, qout.data(), n);
            break;
        default:
            Sonvel_AEC_Complex_ConjMult_Smooth_Q(a.data(), b.data(), out.data(), q, qout.data(), s,
                                                 n);
            break;
    }
}

void powers(ByteReader &in, uint8_t which) {
    const int32_t n = count_of(in);
    const size_t bins = at_least_0(n);
    Words x(2 * bins), qx(2 * bins), e(bins), qe(bins);
    Shorts qe16(bins);
    fill(in, x.data(), x.size());
    for (size_t i = 0; i < qx.size(); ++i) qx[i] = (in.u8() & 1) ? in.i32() : in.i16();
    fill(in, e.data(), bins);
    fill(in, qe16.data(), bins);
    const int16_t q = in.i16(), a = in.i16();
    switch (which % 4) {
        case 0: Sonvel_AEC_Complex_Energy_DQ_T(x.data(), qx.data(), e.data(), qe.data(), n); break;
        case 1: Sonvel_AEC_Complex_Energy_DQ_F(x.data(), qx.data(), e.data(), qe.data(), n); break;
        case 2: Sonvel_AEC_Complex_Energy_F(x.data(), e.data(), q, qe16.data(), n); break;
        default:
            Sonvel_AEC_Complex_Energy_Smooth_F(x.data(), e.data(), q, qe16.data(), a, n);
            break;
    }
}

void smoothing(ByteReader &in, bool perElement) {
    const int16_t n = static_cast<int16_t>(count_of(in));
    const size_t count = at_least_0(n);
    Words x(count), y(count);
    Shorts qx(count), qy(count), a(count);
    fill(in, x.data(), count);
    fill(in, y.data(), count);
    fill(in, qx.data(), count);
    fill(in, qy.data(), count);
    fill(in, a.data(), count);
    if (perElement) {
        Sonvel_AEC_Smooth_DG_F(x.data(), y.data(), qx.data(), qy.data(), a.data(), n);
    } else {
        Sonvel_AEC_Smooth_F(x.data(), y.data(), qx.data(), qy.data(), in.i16(), n);
    }
}

void normaliser(ByteReader &in) {
    const int32_t n = count_of(in);
    // Touches v[0 .. 4 ceil(n / 4) - 1] and the guard words v[n + 1 .. n + 4].
    const size_t words =
        n < 0 ? 0 : std::max<size_t>((at_least_0(n) + 3) / 4 * 4, at_least_0(n) + 5);
    Words v(words);
    fill(in, v.data(), words);
    const int32_t h = Sonvel_AEC_VetorNorm(v.data(), in.i32(), n);
    fuzz::expect(h >= 0 && h <= 31, "headroom out of range");
}

void far_power(ByteReader &in) {
    const uint8_t rate = in.u8() & 1;
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = rate;
    fuzz::Instance inst;
    void *h = nullptr;
    fuzz::expect(Sonvel_AEC_Init(&h, inst.memory(), SONVEL_AEC_INSTANCE_BYTES, &cfg) == 0, "init");
    const size_t bins = (rate ? 128 : 64) + 4;
    Words x(2 * bins), p(bins);
    fill(in, x.data(), x.size());
    fill(in, p.data(), bins);
    Sonvel_AEC_Energy(sonvel::state_of(h), x.data(), p.data());
}

void sort(ByteReader &in) {
    const int16_t n = static_cast<int16_t>(count_of(in));
    Shorts v(at_least_0(n));
    fill(in, v.data(), v.size());
    fuzz::expect(Sonvel_AEC_Qsort(v.data(), n) == 0, "sort status");
    for (size_t i = 1; i < v.size(); ++i) fuzz::expect(v[i - 1] <= v[i], "not sorted");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ByteReader in(data, size);
    const uint8_t which = in.u8();
    switch (which % 9) {
        case 0: complex_fft(in); break;
        case 1: real_fft(in); break;
        case 2: complex_products(in, which / 9); break;
        case 3: powers(in, which / 9); break;
        case 4: smoothing(in, true); break;
        case 5: smoothing(in, false); break;
        case 6: normaliser(in); break;
        case 7: far_power(in); break;
        default: sort(in); break;
    }
    return 0;
}
