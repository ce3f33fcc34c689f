// A synthetic conversation for trying the canceller without recordings: a speech-like far-end
// talker played into a room, a different speech-like near-end talker and background noise at the
// microphone, in four segments (far end alone, near end alone, both, far end alone again).
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

Scenario make_scenario(int rate);

}  // namespace cli
