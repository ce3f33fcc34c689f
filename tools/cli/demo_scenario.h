// Synthetic conversations for trying the canceller without recordings (and for testing it): a
// speech-like far-end talker played into a room, a different speech-like near-end talker and
// background noise at the microphone, in four segments (far end alone, near end alone, both, far
// end alone again).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

struct Segment {
    std::string name;
    double start, end;  // seconds
    bool far, near;     // who talks
};

struct Scenario {
    int rate = 16000;
    std::vector<Segment> segments;
    std::vector<int16_t> ref;  // far-end talker: what the loudspeaker plays
    std::vector<int16_t> mic;  // echo + near-end talker + noise
    std::vector<int16_t>
        near;  // the near-end talker and the noise alone (what the output should be)
    std::vector<int16_t> echo;  // the echo alone
    int bulk_delay = 0;         // samples of the echo path's pure delay
};

// What to generate: who talks when, the echo path's bulk delay and level, the levels and a DC
// offset of the microphone. `seed` varies the talkers and the noise.
struct ScenarioSpec {
    int rate = 16000;
    std::vector<Segment> segments;  // back to back from 0 s
    double bulk_delay_ms = 4.0;
    double echo_gain_db = 0.0;
    double far_dbfs = -18.0, near_dbfs = -24.0, noise_dbfs = -60.0;
    double mic_dc = 0.0;  // LSB
    unsigned seed = 0;
};

// The demonstration: 22 s in four segments, a 4 ms echo path.
ScenarioSpec demo_spec(int rate);
Scenario make_scenario(int rate);
Scenario make_scenario(const ScenarioSpec &setup);

}  // namespace cli
