// The front end alone over whole signals.
#include "cli/frontend_probe.h"

#include <memory>
#include <string>

#include "cli/error.h"

namespace cli {

FrontendFigures frontend_figures(const AecFrontendEstimate &e, int rate) {
    FrontendFigures f;
    f.present = true;
    f.estimate_ms = e.s32DelayEstimate < 0 ? -1.0 : 1000.0 * e.s32DelayEstimate / rate;
    f.applied_ms = 1000.0 * e.s32DelayApplied / rate;
    f.confidence = e.s16Confidence / 32768.0;
    f.drift_ppm = e.s32DriftPpm;
    f.start_part = e.u8StartPart;
    f.locked = e.u8Locked != 0;
    f.dc_near = e.s16DcNear;
    f.dc_far = e.s16DcFar;
    return f;
}

double echo_delay_ms(const FrontendProbe &p) {
    if (p.last.estimate_ms >= 0 && p.last.confidence >= kConfidentEstimate)
        return p.last.estimate_ms;
    if (p.best.estimate_ms >= 0 && p.best.confidence >= kConfidentEstimate)
        return p.best.estimate_ms;
    return 0;
}

FrontendProbe probe_frontend(const AecFrontendCfg &cfg, int rate, std::span<const int16_t> near,
                             std::span<const int16_t> far) {
    uint32_t size = 0;
    Sonvel_AEC_FrontendGetSize(&size);
    std::unique_ptr<uint64_t[]> mem(new uint64_t[(size + 7) / 8]);
    void *fe = nullptr;
    if (const int32_t rc =
            Sonvel_AEC_FrontendInit(&fe, mem.get(), size, static_cast<uint32_t>(rate), &cfg);
        rc != SONVEL_AEC_OK) {
        throw Error("the front end refused to start (status " + std::to_string(rc) + ")");
    }
    const std::size_t frame = rate == 8000 ? 80 : 160;
    const std::size_t frames = (near.size() + frame - 1) / frame;
    FrontendProbe p;
    p.near.assign(frames * frame, 0);
    p.far.assign(frames * frame, 0);
    p.frames.reserve(frames);
    std::vector<int16_t> bn(frame), bf(frame);
    AecFrontendEstimate est{};
    for (std::size_t i = 0; i < frames; ++i) {
        for (std::size_t k = 0; k < frame; ++k) {
            const std::size_t at = i * frame + k;
            bn[k] = at < near.size() ? near[at] : 0;
            bf[k] = at < far.size() ? far[at] : 0;
        }
        uint8_t start_part = 0;
        const int32_t rc = Sonvel_AEC_FrontendProcess(fe, bn.data(), bf.data(), &p.near[i * frame],
                                                      &p.far[i * frame], &start_part);
        if (rc != SONVEL_AEC_OK)
            throw Error("the front end failed (status " + std::to_string(rc) + ")");
        Sonvel_AEC_FrontendGetEstimate(fe, &est);
        const FrontendFigures f = frontend_figures(est, rate);
        p.frames.push_back({static_cast<float>(f.estimate_ms), static_cast<float>(f.applied_ms),
                            static_cast<float>(f.confidence), f.start_part});
        if (f.estimate_ms >= 0 && f.confidence >= p.best.confidence) p.best = f;
    }
    p.last = frontend_figures(est, rate);
    p.near.resize(near.size());
    p.far.resize(near.size());
    return p;
}

}  // namespace cli
