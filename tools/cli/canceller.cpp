// Running the canceller over whole signals: through the streaming layer (front end, core, FIFO)
// or frame by frame through the host plug-in descriptor.
#include "cli/canceller.h"

#include <chrono>
#include <cstring>
#include <memory>
#include <string>

#include "cli/error.h"
#include "cli/frontend_probe.h"
#include "cli/params.h"
#include "sonvel_aec_frontend.h"
#include "sonvel_aec_host.h"

namespace cli {
namespace {

using Clock = std::chrono::steady_clock;

class HostEngine {
  public:
    HostEngine(const AecCfg &cfg, bool use_cfg, int rate, int frame) : frame_(frame) {
        if (use_cfg) check_record(cfg);
        host_.s32UseCfg = use_cfg ? 1 : 0;
        host_.u8CnEnable = cfg.u8CnEnable;
        host_.u8NlpLevel = cfg.u8NlpLevel;
        host_.s16CohThr = cfg.s16CohThr;
        host_.s16HfBinLo = cfg.s16HfBinLo;
        host_.s16HfBinHi = cfg.s16HfBinHi;
        host_.s16CohBinLo = cfg.s16CohBinLo;
        host_.s16CohBinHi = cfg.s16CohBinHi;
        std::memcpy(host_.as16BandEdge, cfg.as16BandEdge, sizeof host_.as16BandEdge);
        std::memcpy(host_.as16BandShift, cfg.as16BandShift, sizeof host_.as16BandShift);
        host_.s16ClampBinLo = cfg.s16ClampBinLo;
        host_.s16ClampBinHi = cfg.s16ClampBinHi;
        KxAecHostConfig hc{};
        hc.pstAecConfig = &host_;
        if (g_Audio_AEC_WorkHandle.pfnInit(&handle_, rate, &hc) != 0) {
            throw Error("the host plug-in refused to start (its message is above)");
        }
    }
    ~HostEngine() { g_Audio_AEC_WorkHandle.pfnDeInit(handle_); }
    HostEngine(const HostEngine &) = delete;
    HostEngine &operator=(const HostEngine &) = delete;

    void process(const int16_t *near, const int16_t *far, int16_t *out) {
        KxAecFrame in{};
        KxAecFrame res{};
        in.ps16Main = const_cast<int16_t *>(near);  // the plug-in only reads its input record
        in.ps16Ref = const_cast<int16_t *>(far);
        in.s32Bytes = 2 * frame_;
        res.ps16Main = out;
        const int32_t rc = g_Audio_AEC_WorkHandle.pfnProcess(handle_, &in, &res);
        if (rc != 0) throw Error("the host plug-in failed (status " + std::to_string(rc) + ")");
    }

  private:
    KxAecConfig host_{};
    void *handle_ = nullptr;
    int frame_;
};

// The streaming layer (front end, core and FIFO): any number of samples per call.
class StreamEngine {
  public:
    StreamEngine(const Settings &s) {
        check_record(s.cfg);
        uint32_t size = 0;
        Sonvel_AEC_StreamGetSize(&size);
        mem_.reset(new uint64_t[(size + 7) / 8]);
        const AecFrontendCfg fe = s.fe.record();
        const int32_t rc = Sonvel_AEC_StreamInit(&handle_, mem_.get(), size, &s.cfg,
                                                 s.fe.active() ? &fe : nullptr);
        if (rc != SONVEL_AEC_OK)
            throw Error("the canceller refused to start (status " + std::to_string(rc) + ")");
    }
    void process(const int16_t *near, const int16_t *far, int16_t *out, std::size_t n) {
        const int32_t rc =
            Sonvel_AEC_StreamProcess(handle_, near, far, out, static_cast<uint32_t>(n));
        if (rc != SONVEL_AEC_OK)
            throw Error("the canceller failed (status " + std::to_string(rc) + ")");
    }
    AecFrontendEstimate estimate() const {
        AecFrontendEstimate e{};
        Sonvel_AEC_StreamGetEstimate(handle_, &e);
        return e;
    }

  private:
    std::unique_ptr<uint64_t[]> mem_;
    void *handle_ = nullptr;
};

// The stream over whole signals. Its FIFO's own lag (the stream's latency beyond the core's) is
// removed, so that the output lines up with the core's frame-by-frame output.
RunResult run_stream(const Settings &settings, int rate, std::span<const int16_t> near,
                     std::span<const int16_t> far, const ProgressFn &progress) {
    StreamEngine engine(settings);
    const std::size_t n = near.size();
    const std::size_t frame = static_cast<std::size_t>(frame_length(rate));
    const std::size_t padded = (n + frame - 1) / frame * frame;
    const auto extra = static_cast<std::size_t>(engine.estimate().u32LatencySamples) -
                       static_cast<std::size_t>(latency_samples(rate));
    std::vector<int16_t> in_near(padded + extra, 0), in_far(padded + extra, 0);
    std::copy(near.begin(), near.end(), in_near.begin());
    std::copy(far.begin(), far.begin() + static_cast<std::ptrdiff_t>(std::min(n, far.size())),
              in_far.begin());
    std::vector<int16_t> out(in_near.size(), 0);
    constexpr std::size_t kChunk = 4000;  // any size: the FIFO cuts frames
    RunResult r;
    const auto t0 = Clock::now();
    for (std::size_t at = 0; at < in_near.size(); at += kChunk) {
        const std::size_t len = std::min(kChunk, in_near.size() - at);
        engine.process(&in_near[at], &in_far[at], &out[at], len);
        if (progress) progress(static_cast<double>(at) / in_near.size());
    }
    r.seconds = std::chrono::duration<double>(Clock::now() - t0).count();
    if (progress) progress(1.0);
    r.out.assign(out.begin() + static_cast<std::ptrdiff_t>(extra),
                 out.begin() + static_cast<std::ptrdiff_t>(extra + n));
    if (settings.fe.active()) r.fe = frontend_figures(engine.estimate(), rate);
    return r;
}

template <class Engine>
RunResult loop(Engine &engine, int frame, std::span<const int16_t> near,
               std::span<const int16_t> far, const ProgressFn &progress) {
    const std::size_t n = near.size();
    const std::size_t frames = (n + frame - 1) / frame;
    std::vector<int16_t> in_near(frames * frame, 0), in_far(frames * frame, 0);
    std::copy(near.begin(), near.end(), in_near.begin());
    std::copy(far.begin(), far.begin() + static_cast<std::ptrdiff_t>(std::min(n, far.size())),
              in_far.begin());
    RunResult r;
    r.out.assign(frames * frame, 0);
    const std::size_t step = std::max<std::size_t>(1, frames / 200);
    const auto t0 = Clock::now();
    for (std::size_t i = 0; i < frames; ++i) {
        const std::size_t at = i * frame;
        engine.process(&in_near[at], &in_far[at], &r.out[at]);
        if (progress && i % step == 0) progress(static_cast<double>(i) / frames);
    }
    r.seconds = std::chrono::duration<double>(Clock::now() - t0).count();
    if (progress) progress(1.0);
    r.out.resize(n);
    return r;
}

}  // namespace

int frame_length(int rate) { return rate == 8000 ? 80 : 160; }
int block_length(int rate) { return rate == 8000 ? 64 : 128; }
int latency_samples(int rate) { return frame_length(rate) + block_length(rate); }

RunResult run_canceller(Api api, const Settings &settings, bool use_host_cfg, int rate,
                        std::span<const int16_t> near, std::span<const int16_t> far,
                        const ProgressFn &progress) {
    const AecCfg &cfg = settings.cfg;
    const int frame = frame_length(rate);
    if (api == Api::Host) {
        HostEngine engine(cfg, use_host_cfg, rate, frame);
        return loop(engine, frame, near, far, progress);
    }
    return run_stream(settings, rate, near, far, progress);
}

}  // namespace cli
