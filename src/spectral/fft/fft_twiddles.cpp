// Quarter-wave sine table and the unit roots of the FFT service built from it.
#include "spectral/fft/fft_twiddles.h"

#include "fixedpoint/block_float.h"

namespace sonvel::fft {
namespace {

// round(sin(2 pi j / 256) * 2^31) for j = 0..64, correctly rounded (computed once in exact
// decimal arithmetic; no entry lies near a rounding tie).
const uint32_t kQuarterSine[65] = {
    0u,          52701887u,   105372028u,  157978697u,  210490206u,  262874923u,  315101295u,
    367137861u,  418953276u,  470516330u,  521795963u,  572761285u,  623381598u,  673626408u,
    723465451u,  772868706u,  821806413u,  870249095u,  918167572u,  965532978u,  1012316784u,
    1058490808u, 1104027237u, 1148898640u, 1193077991u, 1236538675u, 1279254516u, 1321199781u,
    1362349204u, 1402678000u, 1442161874u, 1480777044u, 1518500250u, 1555308768u, 1591180426u,
    1626093616u, 1660027308u, 1692961062u, 1724875040u, 1755750017u, 1785567396u, 1814309216u,
    1841958164u, 1868497586u, 1893911494u, 1918184581u, 1941302225u, 1963250501u, 1984016189u,
    2003586779u, 2021950484u, 2039096241u, 2055013723u, 2069693342u, 2083126254u, 2095304370u,
    2106220352u, 2115867626u, 2124240380u, 2131333572u, 2137142927u, 2141664948u, 2144896910u,
    2146836866u, 2147483648u,
};

int64_t sine(int j) { return static_cast<int64_t>(kQuarterSine[j]); }

}  // namespace

Q31Pair unit_root(int a) {
    a &= kAngleSteps - 1;
    const int q = a / 64;
    const int r = a % 64;
    int64_t c = 0;
    int64_t s = 0;
    switch (q) {
        case 0:
            c = sine(64 - r);
            s = sine(r);
            break;
        case 1:
            c = -sine(r);
            s = sine(64 - r);
            break;
        case 2:
            c = -sine(64 - r);
            s = -sine(r);
            break;
        default:
            c = sine(r);
            s = -sine(64 - r);
            break;
    }
    return {fx::sat32(c), fx::sat32(-s)};
}

}  // namespace sonvel::fft
