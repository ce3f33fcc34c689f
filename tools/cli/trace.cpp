// Block tracer: state read-out of an observing instance, and the CSV rows.
#include "cli/trace.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "cli/error.h"
#include "state/aec_header.h"
#include "state/aec_state.h"

namespace cli {
namespace {

// Level units are 1/2048 bel with level = 2048*log10(E) - 4514 for the block's sum of squares E;
// relative to a block of L full-scale samples that is dBFS.
double level_dbfs(int16_t level, int block) {
    return (level + 4514) / 204.8 - 10.0 * std::log10(block * 1073741824.0);
}

// A block's sum of squares as an RMS level in dBFS (-120 for silence).
double energy_dbfs(double e, int block) {
    return e > 0 ? 10.0 * std::log10(e / block / (32768.0 * 32768.0)) : -120.0;
}

double energy(const int16_t *x, int n) {
    double e = 0;
    for (int i = 0; i < n; ++i) e += static_cast<double>(x[i]) * x[i];
    return e;
}

// Mean of the echo-band gain over the coherence analysis' preferred band, as a fraction.
double band_gain(const AecState &st, int block) {
    const int lo = std::max<int>(0, st.s16PrefBandLo);
    const int hi = std::min<int>(block + 1, st.s16PrefBandHi);
    if (hi <= lo) return 0;
    double sum = 0;
    for (int k = lo; k < hi; ++k) sum += st.as16EchoBandGain[k];
    return sum / (hi - lo) / 32768.0;
}

constexpr int kComfortNoiseStart = 251;  // blocks before the generator starts
constexpr int kPassThroughCount = 477;   // quiet blocks before pass-through
constexpr double kMuteRatio = 64.0;      // near-end to output power ratio of a muted block

}  // namespace

BlockTracer::BlockTracer(const AecCfg &cfg, int rate)
    : mem_(new uint64_t[SONVEL_AEC_INSTANCE_BYTES / 8]),
      rate_(rate),
      block_(rate == 8000 ? 64 : 128) {
    void *handle = nullptr;
    const int32_t rc = Sonvel_AEC_Init(&handle, mem_.get(), SONVEL_AEC_INSTANCE_BYTES, &cfg);
    if (rc != SONVEL_AEC_OK)
        throw Error("the trace instance refused to start (status " + std::to_string(rc) + ")");
    const auto *header = static_cast<const sonvel::AecHeader *>(handle);
    state_ = reinterpret_cast<AecState *>(static_cast<uint8_t *>(handle) + header->u32StateOffset);
}

BlockTracer::~BlockTracer() = default;

TraceRow BlockTracer::step(const int16_t *near, const int16_t *far) {
    int16_t out[128];
    const int32_t rc = Sonvel_AEC_SUB_Proc(state_, near, far, out);
    if (rc != SONVEL_AEC_OK)
        throw Error("the trace instance failed (status " + std::to_string(rc) + ")");
    const AecState &st = *state_;
    TraceRow r;
    r.time = static_cast<double>(index_++) * block_ / rate_;
    r.near_db = level_dbfs(st.s16NearLevel, block_);
    r.far_db = level_dbfs(st.as16FarLevelHist[0], block_);
    r.near_active = st.s16NearActive;
    r.far_active = st.s16FarActive;
    r.delay = st.s32MaxPartIdx;
    r.echo_state = st.s32EchoState;
    r.near_state = st.s32NearState;
    r.diverged = st.s32Diverged;
    r.overdrive = st.s16OvrdSm / 512.0;
    r.band_gain = band_gain(st, block_);
    r.incoherence = st.s16XdAvg / 32768.0;
    r.comfort_noise = st.u32CnEnable != 0 && st.s32CnBlockCnt >= kComfortNoiseStart;
    r.pass_through = st.s16FarQuietCnt >= kPassThroughCount;
    // The output block carries the previous near-end block (one block of synthesis delay).
    r.mic_energy = prev_mic_energy_;
    r.out_energy = energy(out, block_);
    prev_mic_energy_ = energy(near, block_);
    r.mic_db = energy_dbfs(r.mic_energy, block_);
    r.out_db = energy_dbfs(r.out_energy, block_);
    r.mute = r.mic_energy > 0 && r.out_energy * kMuteRatio < r.mic_energy;
    return r;
}

std::vector<TraceRow> trace_signal(const AecCfg &cfg, int rate, std::span<const int16_t> near,
                                   std::span<const int16_t> far,
                                   const std::function<void(double)> &progress) {
    BlockTracer tracer(cfg, rate);
    const std::size_t l = static_cast<std::size_t>(tracer.block());
    std::vector<TraceRow> rows;
    rows.reserve(near.size() / l + 1);
    std::vector<int16_t> bn(l), bf(l);
    for (std::size_t at = 0; at < near.size(); at += l) {
        for (std::size_t i = 0; i < l; ++i) {
            bn[i] = at + i < near.size() ? near[at + i] : 0;
            bf[i] = at + i < far.size() ? far[at + i] : 0;
        }
        rows.push_back(tracer.step(bn.data(), bf.data()));
        if (progress && rows.size() % 256 == 0) progress(static_cast<double>(at) / near.size());
    }
    return rows;
}

void attach_estimates(std::vector<TraceRow> &rows, const std::vector<FrameEstimate> &frames,
                      int rate) {
    const std::size_t block = rate == 8000 ? 64 : 128, frame = rate == 8000 ? 80 : 160;
    for (std::size_t k = 0; k < rows.size() && !frames.empty(); ++k) {
        const std::size_t f = std::min(frames.size() - 1, ((k + 1) * block - 1) / frame);
        rows[k].est_delay_ms = frames[f].estimate_ms;
        rows[k].applied_delay_ms = frames[f].applied_ms;
        rows[k].delay_confidence = frames[f].confidence;
    }
}

std::string trace_csv(const std::vector<TraceRow> &rows) {
    std::string s =
        "time_s,near_level_dbfs,far_level_dbfs,near_active,far_active,delay_blocks,echo_state,"
        "near_state,diverged,overdrive,band_gain,incoherence,comfort_noise,pass_through,mute,"
        "mic_dbfs,out_dbfs,est_delay_ms,applied_delay_ms,delay_confidence\n";
    char line[400];
    for (const TraceRow &r : rows) {
        std::snprintf(
            line, sizeof line,
            "%.3f,%.1f,%.1f,%d,%d,%d,%d,%d,%d,%.3f,%.4f,%.4f,%d,%d,%d,%.1f,%.1f,%.1f,%.1f,%.3f\n",
            r.time, r.near_db, r.far_db, r.near_active, r.far_active, r.delay, r.echo_state,
            r.near_state, r.diverged, r.overdrive, r.band_gain, r.incoherence, r.comfort_noise,
            r.pass_through, r.mute, r.mic_db, r.out_db, r.est_delay_ms, r.applied_delay_ms,
            r.delay_confidence);
        s += line;
    }
    return s;
}

}  // namespace cli
