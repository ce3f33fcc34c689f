// The block trace: a second, observing instance driven block by block over the same input, whose
// internal state is read after every processing block and written as one CSV row.
//
// The frame scheduler cuts the input into contiguous blocks of L samples starting at sample 0, so
// feeding those blocks straight to the block step gives exactly the processing of the output
// path; only the output timing differs (one block of delay instead of one frame plus one block).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "cli/canceller.h"
#include "sonvel_aec.h"

struct AecState;

namespace cli {

struct TraceRow {
    double time = 0;      // start of the block, seconds
    double near_db = 0;   // near-end block level, dBFS (the canceller's own level measure)
    double far_db = 0;    // newest far-end block level, dBFS
    int near_active = 0;  // activity detector flags
    int far_active = 0;
    int delay = 0;           // index of the strongest filter partition (echo delay in blocks)
    int echo_state = 0;      // coherence analysis: echo present
    int near_state = 0;      // coherence analysis: near end speaking
    int diverged = 0;        // divergence guard: the filter output was discarded
    double overdrive = 0;    // smoothed overdrive (1.0 = none)
    double band_gain = 0;    // mean echo-band gain over the preferred band (0..1)
    double incoherence = 0;  // mean far/near incoherence of the coherence band (0..1)
    int comfort_noise = 0;   // comfort noise being generated
    int pass_through = 0;    // far end quiet long enough: near end passed through unprocessed
    int mute = 0;            // output 18 dB or more below the near end of the same block
    double mic_energy = 0;   // sum of squares of the near-end block the output block carries
    double out_energy = 0;   // sum of squares of the output block
    double mic_db = -120;    // the two as RMS levels, dBFS
    double out_db = -120;
    double est_delay_ms = -1;     // the front end's estimate of the echo delay (-1: none yet)
    double applied_delay_ms = 0;  // the delay its delay line applies to the reference
    double delay_confidence = 0;  // confidence of the estimate, 0..1
};

class BlockTracer {
  public:
    BlockTracer(const AecCfg &cfg, int rate);
    ~BlockTracer();
    BlockTracer(const BlockTracer &) = delete;
    BlockTracer &operator=(const BlockTracer &) = delete;

    int block() const { return block_; }
    // Processes the next block of L samples and describes the state after it.
    TraceRow step(const int16_t *near, const int16_t *far);

  private:
    std::unique_ptr<uint64_t[]> mem_;
    AecState *state_ = nullptr;
    int rate_;
    int block_;
    long index_ = 0;
    double prev_mic_energy_ = 0;
};

// Runs the tracer over whole signals (padded with zeros to whole blocks); `progress`, when given,
// is called now and then with the fraction done.
std::vector<TraceRow> trace_signal(const AecCfg &cfg, int rate, std::span<const int16_t> near,
                                   std::span<const int16_t> far,
                                   const std::function<void(double)> &progress = {});

// Copies the front end's per-frame estimates (10 ms frames) into the rows (8 ms blocks): each
// row gets the estimate after the frame that holds the block's last sample.
void attach_estimates(std::vector<TraceRow> &rows, const std::vector<FrameEstimate> &frames,
                      int rate);

// The CSV text of the rows, with a header line.
std::string trace_csv(const std::vector<TraceRow> &rows);

}  // namespace cli
