// Sample-rate conversion through libsamplerate.
#include "cli/resample.h"

#include <samplerate.h>
#include <string>

#include "cli/error.h"

namespace cli {

std::vector<int16_t> resample(std::span<const int16_t> in, int from, int to) {
    if (from == to) return {in.begin(), in.end()};
    const auto n_in = static_cast<long>(in.size());
    const long n_out = static_cast<long>((static_cast<long long>(n_in) * to + from / 2) / from);
    std::vector<float> src(in.size());
    std::vector<float> dst(static_cast<std::size_t>(n_out) + 16);
    src_short_to_float_array(in.data(), src.data(), static_cast<int>(n_in));
    SRC_DATA data{};
    data.data_in = src.data();
    data.input_frames = n_in;
    data.data_out = dst.data();
    data.output_frames = static_cast<long>(dst.size());
    data.src_ratio = static_cast<double>(to) / from;
    if (const int rc = src_simple(&data, SRC_SINC_BEST_QUALITY, 1); rc != 0) {
        throw Error("resampling from " + std::to_string(from) + " to " + std::to_string(to) +
                    " Hz failed: " + src_strerror(rc));
    }
    dst.resize(static_cast<std::size_t>(n_out),
               0.0f);  // fills the tail if the converter fell short
    std::vector<int16_t> out(dst.size());
    src_float_to_short_array(dst.data(), out.data(), static_cast<int>(out.size()));
    return out;
}

}  // namespace cli
