// Soak run: hours of varied audio through one instance per rate. Every frame's output is hashed
// and compared with a second, independent pass over the same audio through a fresh instance in
// another block (which starts from random bytes before Init), and after every frame the instance's
// integrity words are checked. Not part of the test suite; see README.md, "Hardening".
//
//   sonvel-aec-soak [--minutes N] [--rate 8000|16000]     (default: 60 minutes at each rate)
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "sonvel_aec.h"
#include "state/aec_header.h"
#include "state/aec_state.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

int16_t clip16(double v) {
    if (v >= 32767.0) return 32767;
    if (v <= -32768.0) return -32768;
    return static_cast<int16_t>(std::lrint(v));
}

// One scene of the programme: what the far end plays, how it reaches the microphone and what
// else the microphone hears. Scenes last 2 to 20 seconds.
struct Scene {
    int kind = 0;         // far-end material, see far_sample()
    int frames = 0;       // length in frames
    double level = 0;     // far-end amplitude
    double levelEnd = 0;  // amplitude at the end of the scene (level changes)
    double tone[3] = {};  // tone frequencies (cycles per sample)
    double pitch = 0;     // speech-like fundamental (cycles per sample)
    int delay = 0;        // echo path: main delay in samples
    double gain = 0;      // echo path: main gain
    int delay2 = 0;       // a reflection
    double gain2 = 0;
    double drive = 1;  // microphone overdrive (clipping above 1)
    double talk = 0;   // near-end talker amplitude (double talk when far end active)
    double dc = 0;     // DC offset on the microphone
    double noise = 0;  // microphone background noise amplitude
};

// The programme: scenes drawn from a seeded generator, produced frame by frame so that an hour of
// audio never has to be stored, and reproduced exactly by a second generator with the same seed.
class Programme {
  public:
    Programme(uint32_t seed, int rate) : rng_(seed), rate_(rate), f_(rate / 100), hist_(kHist, 0) {}

    void next_frame(int16_t *near, int16_t *far) {
        if (left_ == 0) new_scene();
        const double t = 1.0 - static_cast<double>(left_) / scene_.frames;
        const double amp = scene_.level + (scene_.levelEnd - scene_.level) * t;
        for (int i = 0; i < f_; ++i) {
            const double x = amp * far_sample(scene_.kind);
            const int16_t xs = clip16(x);
            far[i] = xs;
            hist_[pos_ % kHist] = xs;
            const double echo = scene_.gain * hist_[(pos_ + kHist - scene_.delay) % kHist] +
                                scene_.gain2 * hist_[(pos_ + kHist - scene_.delay2) % kHist];
            const double talk = scene_.talk * talker();
            const double mic = (echo + talk) * scene_.drive + scene_.dc + scene_.noise * gauss();
            near[i] = clip16(mic);
            ++pos_;
            ++n_;
        }
        --left_;
    }

  private:
    static constexpr int kHist = 8192;

    double uni(double a, double b) { return std::uniform_real_distribution<double>(a, b)(rng_); }
    int pick(int a, int b) { return std::uniform_int_distribution<int>(a, b)(rng_); }
    double gauss() { return std::normal_distribution<double>(0.0, 1.0)(rng_); }

    void new_scene() {
        Scene s;
        s.kind = pick(0, 7);
        s.frames = pick(200, 2000);
        s.level = std::pow(10.0, uni(2.0, 4.4));  // 100 .. 25000
        s.levelEnd = pick(0, 3) == 0 ? std::pow(10.0, uni(1.5, 4.5)) : s.level;
        for (double &tf : s.tone) tf = uni(50.0, 0.45 * rate_) / rate_;
        s.pitch = uni(90.0, 280.0) / rate_;
        // Echo path: changes with every scene, sometimes beyond what the filter spans.
        s.delay = pick(0, rate_ / 10);
        s.gain = pick(0, 5) == 0 ? 0.0 : uni(0.05, 1.2);
        s.delay2 = std::min(kHist - 1, s.delay + pick(1, rate_ / 50));
        s.gain2 = uni(-0.3, 0.3);
        s.drive = pick(0, 5) == 0 ? uni(2.0, 20.0) : 1.0;
        s.talk = pick(0, 2) == 0 ? std::pow(10.0, uni(2.5, 4.0)) : 0.0;
        s.dc = pick(0, 6) == 0 ? uni(-8000.0, 8000.0) : 0.0;
        s.noise = pick(0, 3) == 0 ? uni(1.0, 300.0) : uni(0.0, 3.0);
        scene_ = s;
        left_ = s.frames;
        ++scenes_;
    }

    // Far-end material, roughly unit amplitude.
    double far_sample(int kind) {
        const double n = static_cast<double>(n_);
        switch (kind) {
            case 0: return 0.35 * gauss();  // noise
            case 1:                         // tones
                return 0.4 * (std::sin(2 * kPi * scene_.tone[0] * n) +
                              std::sin(2 * kPi * scene_.tone[1] * n) +
                              0.5 * std::sin(2 * kPi * scene_.tone[2] * n));
            case 2: return speech(n, scene_.pitch);        // speech-like bursts
            case 3: return 0.0;                            // silence
            case 4: return 6.0 * speech(n, scene_.pitch);  // clipped far end
            case 5: return 0.8 + 0.02 * gauss();           // DC
            case 6:
                return std::sin(2 * kPi * scene_.tone[0] * n) > 0 ? 1.3 : -1.3;  // clipped square
            default: return speech(n, scene_.pitch * (1.0 + 0.3 * std::sin(n / rate_)));  // gliding
        }
    }

    // Harmonics of a fundamental under a syllable envelope (150..400 ms on, pauses between).
    double speech(double n, double f0) {
        const double syl = 0.3 * rate_;
        const double ph = std::fmod(n, syl) / syl;
        const double env = ph < 0.7 ? std::sin(kPi * ph / 0.7) : 0.0;
        double v = 0;
        for (int h = 1; h <= 8; ++h) {
            if (f0 * h < 0.45) v += std::sin(2 * kPi * f0 * h * n + h) / h;
        }
        return 0.5 * env * v + 0.01 * gauss();
    }

    // The near-end talker: speech-like at another pitch, with its own rhythm.
    double talker() {
        const double n = static_cast<double>(n_) + 0.13 * rate_;
        return speech(n, 1.7 * scene_.pitch);
    }

    std::mt19937 rng_;
    int rate_, f_;
    std::vector<int16_t> hist_;
    Scene scene_;
    int left_ = 0;
    long scenes_ = 0;
    uint64_t pos_ = 0, n_ = 0;
};

uint64_t fnv1a(const int16_t *p, int n) {
    uint64_t h = 1469598103934665603ull;
    const auto *b = reinterpret_cast<const uint8_t *>(p);
    for (int i = 0; i < 2 * n; ++i) h = (h ^ b[i]) * 1099511628211ull;
    return h;
}

// Every integrity word of the instance, and the header fields the scheduler trusts.
const char *integrity_fault(const uint8_t *block) {
    const auto *hdr = reinterpret_cast<const sonvel::AecHeader *>(block);
    const auto *st = reinterpret_cast<const AecState *>(block + sonvel::kHeaderBytes);
    if (hdr->u16HdrMagic != 0x5A5A) return "header magic";
    if (hdr->u32StateOffset != 3880) return "state offset";
    if (hdr->u16Phase < 1 || hdr->u16Phase > 4) return "phase";
    if (st->u32StateMagic != 0x5A5A) return "state magic";
    if (st->u16InitMagic != 0xA5A5) return "init magic";
    if (st->u32GuardA != 0x5A5A5A5A) return "guard A";
    if (st->u32GuardB != 0x5A5A5A5A) return "guard B";
    if (st->u32GuardC != 0x5A5A5A5A) return "guard C";
    return nullptr;
}

struct Pass {
    double seconds = 0;
    long faults = 0, mismatches = 0, firstMismatch = -1;
};

// One pass over the programme. With `digests` empty it records them; otherwise it compares.
Pass run_pass(int rate, long frames, std::vector<uint64_t> &digests, uint32_t memSeed) {
    const int f = rate / 100;
    const bool record = digests.empty();
    std::vector<uint64_t> mem(sonvel::kInstanceBytes / 8 + 1);
    std::mt19937_64 fill(memSeed);
    for (uint64_t &w : mem) w = fill();
    auto *block = reinterpret_cast<uint8_t *>(mem.data());

    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = rate == 8000 ? 0 : 1;
    void *h = nullptr;
    Pass p;
    if (Sonvel_AEC_Init(&h, block, sonvel::kInstanceBytes, &cfg) != 0) {
        std::fprintf(stderr, "soak: Init failed\n");
        p.faults = 1;
        return p;
    }
    Programme prog(20260 + static_cast<uint32_t>(rate), rate);
    std::vector<int16_t> near(static_cast<size_t>(f)), far(static_cast<size_t>(f)),
        out(static_cast<size_t>(f));
    const long tenMinutes = 60000;
    const auto t0 = std::chrono::steady_clock::now();
    for (long k = 0; k < frames; ++k) {
        // Every ten minutes of audio: another suppression level and high-frequency mode.
        if (k % tenMinutes == 0 && k > 0) {
            cfg.u8NlpLevel = static_cast<uint8_t>(k / tenMinutes % 3);
            cfg.u8HighFreqMode = static_cast<uint8_t>(k / tenMinutes / 3 % 2);
            if (Sonvel_AEC_SetParams(h, &cfg) != 0) ++p.faults;
        }
        prog.next_frame(near.data(), far.data());
        const int32_t ret = Sonvel_AEC_Apply(h, near.data(), far.data(), out.data());
        const char *fault = integrity_fault(block);
        if (ret != 0 || fault != nullptr) {
            if (p.faults++ < 5) {
                std::fprintf(stderr, "soak: %d Hz frame %ld: status %d, %s\n", rate, k,
                             static_cast<int>(ret), fault ? fault : "integrity words intact");
            }
        }
        const uint64_t d = fnv1a(out.data(), f);
        if (record) {
            digests.push_back(d);
        } else if (digests[static_cast<size_t>(k)] != d) {
            if (p.mismatches++ == 0) p.firstMismatch = k;
        }
    }
    p.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    return p;
}

int soak(int rate, double minutes) {
    const long frames = std::lround(minutes * 60 * 100);
    std::vector<uint64_t> digests;
    digests.reserve(static_cast<size_t>(frames));
    const Pass a = run_pass(rate, frames, digests, 1);
    const Pass b = run_pass(rate, frames, digests, 2);
    const bool ok = a.faults == 0 && b.faults == 0 && b.mismatches == 0;
    std::printf(
        "%5d Hz: %.1f min of audio, %ld frames, %ld blocks; pass 1 %.1f s, pass 2 %.1f s "
        "(%.0fx real time); integrity faults %ld + %ld; mismatched frames %ld",
        rate, minutes, frames, frames / 4 * 5 + frames % 4, a.seconds, b.seconds,
        minutes * 60 / a.seconds, a.faults, b.faults, b.mismatches);
    if (b.mismatches > 0) std::printf(" (first at frame %ld)", b.firstMismatch);
    std::printf(": %s\n", ok ? "ok" : "FAILED");
    std::fflush(stdout);
    return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    double minutes = 60;
    std::vector<int> rates = {8000, 16000};
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--minutes" && i + 1 < argc) {
            minutes = std::atof(argv[++i]);
        } else if (a == "--rate" && i + 1 < argc) {
            rates = {std::atoi(argv[++i])};
        } else {
            std::fprintf(stderr, "usage: %s [--minutes N] [--rate 8000|16000]\n", argv[0]);
            return 2;
        }
    }
    for (int r : rates) {
        if ((r != 8000 && r != 16000) || !(minutes > 0)) {
            std::fprintf(stderr, "soak: rate must be 8000 or 16000, minutes positive\n");
            return 2;
        }
    }
    int failed = 0;
    for (int r : rates) failed |= soak(r, minutes);
    return failed;
}
