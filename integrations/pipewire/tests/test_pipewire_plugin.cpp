// The PipeWire plug-in as PipeWire loads it, without a daemon: dlopen, factory enumeration, init
// with good and bad formats, run with any block size against the streaming layer on the same int16
// signal, non-finite samples, arguments and parameters (unknown keys, refused values), restarts.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <spa/interfaces/audio/aec.h>
#include <spa/param/audio/raw.h>
#include <spa/param/param.h>
#include <spa/param/props.h>
#include <spa/pod/builder.h>
#include <spa/pod/iter.h>
#include <spa/support/log.h>
#include <spa/support/plugin.h>
#include <spa/utils/dict.h>
#include <spa/utils/names.h>

#include <atomic>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "aec_settings.h"
#include "latest_value.h"
#include "sample_convert.h"
#include "sonvel_aec_frontend.h"

namespace {

// A log that keeps every message with its level.
struct CaptureLog {
    spa_log log{};
    std::vector<std::pair<spa_log_level, std::string>> lines;

    static void logtv(void *object, spa_log_level level, const spa_log_topic *, const char *, int,
                      const char *, const char *fmt, va_list args) {
        char buf[1024];
        std::vsnprintf(buf, sizeof buf, fmt, args);
        static_cast<CaptureLog *>(object)->lines.emplace_back(level, buf);
    }
    static void logt(void *object, spa_log_level level, const spa_log_topic *topic,
                     const char *file, int line, const char *func, const char *fmt, ...) {
        va_list args;
        va_start(args, fmt);
        logtv(object, level, topic, file, line, func, fmt, args);
        va_end(args);
    }
    static constexpr spa_log_methods methods = [] {
        spa_log_methods m{};
        m.version = SPA_VERSION_LOG_METHODS;
        m.logt = logt;
        m.logtv = logtv;
        return m;
    }();

    CaptureLog() {
        log.iface = SPA_INTERFACE_INIT(SPA_TYPE_INTERFACE_Log, SPA_VERSION_LOG, &methods, this);
        log.level = SPA_LOG_LEVEL_TRACE;
    }
    // Messages at `level` or more severe holding every one of `words`.
    int count(spa_log_level level, std::initializer_list<const char *> words) const {
        int n = 0;
        for (const auto &[l, text] : lines) {
            bool all = l <= level;
            for (const char *w : words) all = all && text.find(w) != std::string::npos;
            n += all;
        }
        return n;
    }
};

const spa_handle_factory *plugin_factory() {
    static const spa_handle_factory *factory = [] {
        void *dl = dlopen(SONVEL_SPA_PLUGIN, RTLD_NOW | RTLD_LOCAL);
        if (dl == nullptr) return static_cast<const spa_handle_factory *>(nullptr);
        auto enum_fn = reinterpret_cast<spa_handle_factory_enum_func_t>(
            dlsym(dl, SPA_HANDLE_FACTORY_ENUM_FUNC_NAME));
        const spa_handle_factory *f = nullptr;
        uint32_t index = 0;
        if (enum_fn == nullptr || enum_fn(&f, &index) != 1)
            return static_cast<const spa_handle_factory *>(nullptr);
        return f;
    }();
    return factory;
}

spa_audio_info_raw format(uint32_t rate, uint32_t channels = 1,
                          spa_audio_format fmt = SPA_AUDIO_FORMAT_F32P) {
    spa_audio_info_raw info{};
    info.format = fmt;
    info.rate = rate;
    info.channels = channels;
    info.position[0] = SPA_AUDIO_CHANNEL_MONO;
    return info;
}

// One plug-in handle with its log.
struct Aec {
    CaptureLog log;
    std::vector<uint64_t> memory;
    spa_handle *handle = nullptr;
    spa_audio_aec *aec = nullptr;

    Aec() {
        const spa_handle_factory *f = plugin_factory();
        const spa_support support[] = {{SPA_TYPE_INTERFACE_Log, &log.log}};
        memory.resize(spa_handle_factory_get_size(f, nullptr) / 8 + 1);
        handle = reinterpret_cast<spa_handle *>(memory.data());
        EXPECT_EQ(spa_handle_factory_init(f, handle, nullptr, support, 1), 0);
        void *iface = nullptr;
        EXPECT_EQ(spa_handle_get_interface(handle, SPA_TYPE_INTERFACE_AUDIO_AEC, &iface), 0);
        aec = static_cast<spa_audio_aec *>(iface);
    }
    ~Aec() { spa_handle_clear(handle); }

    int init(const std::map<std::string, std::string> &args,
             spa_audio_info_raw info = format(16000)) {
        std::vector<spa_dict_item> items;
        for (const auto &[k, v] : args) items.push_back(SPA_DICT_ITEM_INIT(k.c_str(), v.c_str()));
        const spa_dict dict = SPA_DICT_INIT(items.data(), static_cast<uint32_t>(items.size()));
        return spa_audio_aec_init(aec, &dict, &info);
    }
    int run(const float *rec, const float *play, float *out, uint32_t n) {
        const float *r[1] = {rec}, *p[1] = {play};
        float *o[1] = {out};
        return spa_audio_aec_run(aec, r, p, o, n);
    }
    // Runs the whole signal in blocks whose sizes `next_block` chooses; the output as int16.
    template <typename Next>
    std::vector<int16_t> run_all(const std::vector<float> &rec, const std::vector<float> &play,
                                 Next next_block) {
        std::vector<float> out(rec.size());
        for (size_t i = 0; i < rec.size();) {
            const uint32_t n =
                static_cast<uint32_t>(std::min<size_t>(next_block(), rec.size() - i));
            EXPECT_EQ(run(&rec[i], &play[i], &out[i], n), 0);
            i += n;
        }
        std::vector<int16_t> s(out.size());
        for (size_t i = 0; i < out.size(); ++i) s[i] = static_cast<int16_t>(out[i] * 32768.0f);
        return s;
    }
    std::map<std::string, std::string> params() {
        uint8_t buf[4096];
        spa_pod_builder b = SPA_POD_BUILDER_INIT(buf, sizeof buf);
        spa_pod_frame f;
        spa_pod_builder_push_struct(&b, &f);
        EXPECT_EQ(spa_audio_aec_get_params(aec, &b), 0);
        const auto *s = static_cast<const spa_pod *>(spa_pod_builder_pop(&b, &f));
        std::map<std::string, std::string> m;
        const void *body = SPA_POD_BODY_CONST(s);
        const char *key = nullptr;
        for (auto *p = static_cast<const spa_pod *>(body);
             spa_pod_is_inside(body, SPA_POD_BODY_SIZE(s), p);
             p = static_cast<const spa_pod *>(spa_pod_next(p))) {
            if (key == nullptr) {
                spa_pod_get_string(p, &key);
                continue;
            }
            const char *sv;
            int32_t iv;
            bool bv;
            if (spa_pod_get_string(p, &sv) == 0)
                m[key] = sv;
            else if (spa_pod_get_int(p, &iv) == 0)
                m[key] = std::to_string(iv);
            else if (spa_pod_get_bool(p, &bv) == 0)
                m[key] = bv ? "on" : "off";
            key = nullptr;
        }
        return m;
    }
    // set_params with a Props object holding the params struct of (key, string value) pairs.
    int set_params(const std::vector<std::pair<const char *, const char *>> &kv) {
        uint8_t buf[4096];
        spa_pod_builder b = SPA_POD_BUILDER_INIT(buf, sizeof buf);
        spa_pod_frame o, s;
        spa_pod_builder_push_object(&b, &o, SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
        spa_pod_builder_prop(&b, SPA_PROP_params, 0);
        spa_pod_builder_push_struct(&b, &s);
        for (const auto &[k, v] : kv) {
            spa_pod_builder_string(&b, k);
            spa_pod_builder_string(&b, v);
        }
        spa_pod_builder_pop(&b, &s);
        return spa_audio_aec_set_params(aec,
                                        static_cast<const spa_pod *>(spa_pod_builder_pop(&b, &o)));
    }
};

// Microphone and reference at 16000 Hz: 3 s of far end through a short room response (delayed
// 30 ms) with noise, then 1 s of near-end talk over it.
struct Signals {
    std::vector<int16_t> mic, ref;
    std::vector<float> micf, reff;
};

const Signals &signals() {
    static const Signals s = [] {
        Signals x;
        const int n = 4 * 16000;
        std::mt19937 rng(7);
        std::normal_distribution<double> g(0.0, 1.0);
        std::vector<double> far(n);
        double lp = 0;
        for (int i = 0; i < n; ++i)
            far[i] = (lp = 0.7 * lp + g(rng)) * 2500.0 * (1.0 + std::sin(i * 0.0015));
        const double h[4] = {0.4, -0.2, 0.1, 0.05};
        for (int i = 0; i < n; ++i) {
            double m = 2.0 * g(rng);
            for (int k = 0; k < 4; ++k)
                if (i - 480 - 7 * k >= 0) m += h[k] * far[i - 480 - 7 * k];
            if (i >= 3 * 16000) m += 3000.0 * std::sin(i * 0.05) * std::sin(i * 0.0007);
            x.mic.push_back(static_cast<int16_t>(std::lround(std::clamp(m, -32768.0, 32767.0))));
            x.ref.push_back(
                static_cast<int16_t>(std::lround(std::clamp(far[i], -32768.0, 32767.0))));
        }
        for (int i = 0; i < n; ++i) {
            x.micf.push_back(x.mic[i] / 32768.0f);
            x.reff.push_back(x.ref[i] / 32768.0f);
        }
        return x;
    }();
    return s;
}

// The streaming layer alone on the int16 signal, with `s` (one call per `block` samples).
std::vector<int16_t> stream_output(const sonvel::integration::Settings &s,
                                   const std::vector<int16_t> &mic,
                                   const std::vector<int16_t> &ref) {
    uint32_t size = 0;
    EXPECT_EQ(Sonvel_AEC_StreamGetSize(&size), 0);
    std::vector<uint64_t> mem(size / 8 + 1);
    void *h = nullptr;
    EXPECT_EQ(Sonvel_AEC_StreamInit(&h, mem.data(), size, &s.core, &s.frontend), 0);
    std::vector<int16_t> out(mic.size());
    EXPECT_EQ(Sonvel_AEC_StreamProcess(h, mic.data(), ref.data(), out.data(),
                                       static_cast<uint32_t>(mic.size())),
              0);
    return out;
}

TEST(PluginFactory, EnumeratesOneAecFactoryWithTheAecInterface) {
    const spa_handle_factory *f = plugin_factory();
    ASSERT_NE(f, nullptr) << dlerror();
    EXPECT_STREQ(f->name, SPA_NAME_AEC);
    void *dl = dlopen(SONVEL_SPA_PLUGIN, RTLD_NOW | RTLD_NOLOAD);
    auto enum_fn = reinterpret_cast<spa_handle_factory_enum_func_t>(
        dlsym(dl, SPA_HANDLE_FACTORY_ENUM_FUNC_NAME));
    const spa_handle_factory *second = nullptr;
    uint32_t index = 1;
    EXPECT_EQ(enum_fn(&second, &index), 0);
    EXPECT_EQ(dlsym(dl, "Sonvel_AEC_StreamProcess"), nullptr)
        << "the canceller's symbols stay inside";
    dlclose(dl);

    const spa_interface_info *info = nullptr;
    index = 0;
    ASSERT_EQ(spa_handle_factory_enum_interface_info(f, &info, &index), 1);
    EXPECT_STREQ(info->type, SPA_TYPE_INTERFACE_AUDIO_AEC);
    EXPECT_EQ(spa_handle_factory_enum_interface_info(f, &info, &index), 0);

    Aec a;
    void *other = nullptr;
    EXPECT_EQ(spa_handle_get_interface(a.handle, SPA_TYPE_INTERFACE_Log, &other), -ENOENT);
    EXPECT_EQ(a.aec->iface.version, static_cast<uint32_t>(SPA_VERSION_AUDIO_AEC));
    EXPECT_STREQ(a.aec->name, "sonvel");
}

TEST(PluginInit, AcceptsMonoPlanarFloatAt8000And16000WithOneFrameOfLatency) {
    Aec a16, a8;
    ASSERT_EQ(a16.init({}), 0);
    EXPECT_STREQ(a16.aec->latency, "160/16000");
    ASSERT_EQ(a8.init({}, format(8000)), 0);
    EXPECT_STREQ(a8.aec->latency, "80/8000");
    const auto p = a16.params();
    EXPECT_EQ(p.at("ref-delay"), "auto");
    EXPECT_EQ(p.at("dc-block"), "on");
    EXPECT_EQ(p.at("drift"), "auto");
}

TEST(PluginInit, RefusesOtherFormatsNamingTheModuleArguments) {
    const spa_audio_info_raw bad[] = {format(16000, 2), format(48000), format(44100),
                                      format(16000, 1, SPA_AUDIO_FORMAT_S16),
                                      format(16000, 1, SPA_AUDIO_FORMAT_F32)};
    for (const spa_audio_info_raw &info : bad) {
        Aec a;
        EXPECT_EQ(a.init({}, info), -EINVAL);
        EXPECT_EQ(a.log.count(SPA_LOG_LEVEL_ERROR,
                              {"audio.rate = 16000", "audio.channels = 1", "[ MONO ]"}),
                  1);
        std::vector<float> buf(160);
        EXPECT_NE(a.run(buf.data(), buf.data(), buf.data(), 160), 0) << "no instance to run";
    }
}

TEST(PluginRun, AnyBlockSizeGivesTheStreamingLayersOutputAtBothRates) {
    const Signals &s = signals();
    for (uint32_t rate : {16000u, 8000u}) {
        // At 8000 Hz: every other sample of the same signals.
        const size_t step = rate == 16000 ? 1 : 2;
        std::vector<int16_t> mic, ref;
        std::vector<float> micf, reff;
        for (size_t i = 0; i < s.mic.size(); i += step) {
            mic.push_back(s.mic[i]);
            ref.push_back(s.ref[i]);
            micf.push_back(s.micf[i]);
            reff.push_back(s.reff[i]);
        }
        const auto expected = stream_output(sonvel::integration::live_defaults(rate), mic, ref);
        std::mt19937 rng(11);
        std::uniform_int_distribution<uint32_t> any(1, 1200);
        for (uint32_t block : {160u, 128u, 37u, 0u}) {
            Aec a;
            ASSERT_EQ(a.init({}, format(rate)), 0);
            const auto got = a.run_all(micf, reff, [&] { return block ? block : any(rng); });
            ASSERT_EQ(got, expected)
                << rate << " Hz, block size " << (block ? std::to_string(block) : "random");
        }
    }
}

// One writer publishing records whose fields all hold the same count, one reader taking them:
// the reader never sees a torn record or an older one than it saw before.
TEST(LatestValueHandOver, ReaderSeesWholeRecordsInOrder) {
    sonvel::integration::LatestValue<sonvel::integration::Settings> v;
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 1; i <= 20000; ++i) {
            sonvel::integration::Settings s{};
            s.core.s16CohThr = s.core.s16HfBinLo = s.core.as16BandShift[6] =
                static_cast<int16_t>(i);
            s.frontend.u16DelayMs = static_cast<uint16_t>(i);
            v.publish(s);
        }
        done = true;
    });
    int last = 0;
    sonvel::integration::Settings got{};
    for (;;) {
        const bool finished = done.load();
        if (v.take(got)) {
            ASSERT_EQ(got.core.s16HfBinLo, got.core.s16CohThr);
            ASSERT_EQ(got.core.as16BandShift[6], got.core.s16CohThr);
            ASSERT_EQ(got.frontend.u16DelayMs, static_cast<uint16_t>(got.core.s16CohThr));
            ASSERT_GT(got.core.s16CohThr, last);
            last = got.core.s16CohThr;
        }
        if (finished && !v.take(got)) break;
    }
    writer.join();
    EXPECT_EQ(last, 20000) << "the last value published is the last one taken";
}

TEST(PluginRun, ZeroSamplesAndNonFiniteSamplesAreSafe) {
    Aec a;
    ASSERT_EQ(a.init({}), 0);
    float sentinel = 1.5f;
    EXPECT_EQ(a.run(&sentinel, &sentinel, &sentinel, 0), 0);
    EXPECT_EQ(sentinel, 1.5f);

    const float inf = std::numeric_limits<float>::infinity(),
                nan = std::numeric_limits<float>::quiet_NaN();
    const Signals &s = signals();
    std::vector<float> mic(s.micf.begin(), s.micf.begin() + 16000),
        ref(s.reff.begin(), s.reff.begin() + 16000);
    std::vector<int16_t> mic16(s.mic.begin(), s.mic.begin() + 16000),
        ref16(s.ref.begin(), s.ref.begin() + 16000);
    const struct {
        size_t at;
        float v;
        int16_t as;
    } bad[] = {{100, nan, 0},
               {2000, inf, 32767},
               {2001, -inf, -32768},
               {5000, 7.5f, 32767},
               {5001, -3.0f, -32768}};
    for (const auto &b : bad) {
        mic[b.at] = ref[b.at + 1] = b.v;
        mic16[b.at] = ref16[b.at + 1] = b.as;
    }
    EXPECT_EQ(a.run_all(mic, ref, [] { return 160u; }),
              stream_output(sonvel::integration::live_defaults(16000), mic16, ref16));
}

TEST(SampleConversion, RoundsHalvesAwayFromZeroAndSaturates) {
    using sonvel::integration::float_to_s16;
    EXPECT_EQ(float_to_s16(0.5f / 32768), 1);
    EXPECT_EQ(float_to_s16(-0.5f / 32768), -1);
    EXPECT_EQ(float_to_s16(0.49f / 32768), 0);
    EXPECT_EQ(float_to_s16(1.0f), 32767);
    EXPECT_EQ(float_to_s16(-1.0f), -32768);
    EXPECT_EQ(float_to_s16(32767.4f / 32768), 32767);
    EXPECT_EQ(float_to_s16(std::numeric_limits<float>::max()), 32767);
    EXPECT_EQ(float_to_s16(std::numeric_limits<float>::denorm_min()), 0);
    for (int v = -32768; v <= 32767; v += 7)
        EXPECT_EQ(float_to_s16(sonvel::integration::s16_to_float(static_cast<int16_t>(v))), v);
}

TEST(PluginArgs, UnknownKeysWarnAndRefusedValuesKeepTheDefaults) {
    Aec a;
    ASSERT_EQ(a.init({{"no-such-key", "1"},
                      {"suppression-level", "2"},
                      {"coh-band", "[ 8 17 ]"},
                      {"as16BandShift[6]", "12"},
                      {"as16BandEdge[9]", "1"}}),
              0);
    EXPECT_EQ(a.log.count(SPA_LOG_LEVEL_WARN, {"as16BandEdge[9]"}), 1);
    EXPECT_EQ(a.params().at("band-shifts").substr(a.params().at("band-shifts").rfind(',')), ",12");
    EXPECT_EQ(a.log.count(SPA_LOG_LEVEL_WARN, {"no-such-key"}), 1);
    EXPECT_EQ(a.params().at("suppression-level"), "2");
    EXPECT_EQ(a.params().at("coh-band"), "8,17");

    Aec b;
    ASSERT_EQ(b.init({{"start-part", "9"}, {"comfort-noise", "off"}}), 0);
    EXPECT_EQ(b.log.count(SPA_LOG_LEVEL_ERROR, {"u8StartPart", "0..6"}), 1);
    const auto defaults = sonvel::integration::live_defaults(16000);
    EXPECT_EQ(b.params().at("comfort-noise"), "on") << "a refused set is not applied in part";
    EXPECT_EQ(b.params().at("start-part"), std::to_string(defaults.core.u8StartPart));

    Aec c;
    ASSERT_EQ(c.init({{"ref-delay", "600"}, {"as16BandEdge", "1,2,3"}, {"hf-band", "7,300"}},
                     format(8000)),
              0);
    EXPECT_EQ(c.log.count(SPA_LOG_LEVEL_ERROR, {"ref-delay", "0..500"}), 1);
    EXPECT_EQ(c.log.count(SPA_LOG_LEVEL_ERROR, {"as16BandEdge", "6"}), 1);
}

TEST(PluginParams, RefusedValuesKeepTheRecordAndAcceptedOnesReachTheRunningInstance) {
    const Signals &s = signals();
    const uint32_t half = 2 * 16000;
    Aec a;
    ASSERT_EQ(a.init({}), 0);
    std::vector<float> out(s.micf.size());
    ASSERT_EQ(a.run(s.micf.data(), s.reff.data(), out.data(), half), 0);

    EXPECT_EQ(a.set_params({{"suppression-level", "5"}}), -EINVAL);
    EXPECT_EQ(a.log.count(SPA_LOG_LEVEL_ERROR, {"u8NlpLevel", "0..2"}), 1);
    EXPECT_EQ(a.set_params({{"hf-band", "50,20"}}), -EINVAL);
    EXPECT_EQ(a.log.count(SPA_LOG_LEVEL_ERROR, {"s16HfBinLo", "0..s16HfBinHi"}), 1);
    EXPECT_EQ(a.set_params({{"channelmix.upmix", "true"}}), 0) << "other node parameters pass by";
    EXPECT_EQ(a.log.count(SPA_LOG_LEVEL_WARN, {"channelmix"}), 0);
    const spa_dict_item bogus = SPA_DICT_ITEM_INIT("bogus", "1");
    const spa_dict bogus_dict = SPA_DICT_INIT(&bogus, 1);
    EXPECT_EQ(spa_audio_aec_set_props(a.aec, &bogus_dict), 0) << "an unknown key is only a warning";
    EXPECT_EQ(a.log.count(SPA_LOG_LEVEL_WARN, {"bogus"}), 1);
    EXPECT_EQ(a.params().at("suppression-level"), "1");

    EXPECT_EQ(a.set_params({{"suppression-level", "2"}, {"comfort-noise", "off"}}), 0);
    const spa_dict_item item = SPA_DICT_ITEM_INIT("ref-delay", "40");
    const spa_dict dict = SPA_DICT_INIT(&item, 1);
    EXPECT_EQ(spa_audio_aec_set_props(a.aec, &dict), 0);
    EXPECT_EQ(a.params().at("suppression-level"), "2");
    EXPECT_EQ(a.params().at("ref-delay"), "40");
    ASSERT_EQ(a.run(&s.micf[half], &s.reff[half], &out[half], half), 0);

    // The same change made to the streaming layer at the same sample.
    auto st = sonvel::integration::live_defaults(16000);
    uint32_t size = 0;
    Sonvel_AEC_StreamGetSize(&size);
    std::vector<uint64_t> mem(size / 8 + 1);
    void *h = nullptr;
    ASSERT_EQ(Sonvel_AEC_StreamInit(&h, mem.data(), size, &st.core, &st.frontend), 0);
    std::vector<int16_t> expected(s.mic.size());
    ASSERT_EQ(Sonvel_AEC_StreamProcess(h, s.mic.data(), s.ref.data(), expected.data(), half), 0);
    st.core.u8NlpLevel = 2;
    st.core.u8CnEnable = 0;
    st.frontend.u8DelayMode = SONVEL_AEC_DELAY_FIXED;
    st.frontend.u16DelayMs = 40;
    ASSERT_EQ(Sonvel_AEC_StreamSetParams(h, &st.core), 0);
    ASSERT_EQ(Sonvel_AEC_StreamSetFrontend(h, &st.frontend), 0);
    ASSERT_EQ(Sonvel_AEC_StreamProcess(h, &s.mic[half], &s.ref[half], &expected[half], half), 0);
    for (size_t i = 0; i < out.size(); ++i)
        ASSERT_EQ(static_cast<int16_t>(out[i] * 32768.0f), expected[i]) << i;
}

TEST(PluginActivate, ActivateAndDeactivateStartAFreshInstance) {
    const Signals &s = signals();
    Aec fresh, reused;
    ASSERT_EQ(fresh.init({}), 0);
    ASSERT_EQ(reused.init({}), 0);
    const auto first = fresh.run_all(s.micf, s.reff, [] { return 160u; });
    reused.run_all(s.micf, s.reff, [] { return 333u; });
    EXPECT_EQ(spa_audio_aec_deactivate(reused.aec), 0);
    EXPECT_EQ(spa_audio_aec_activate(reused.aec), 0);
    EXPECT_EQ(reused.run_all(s.micf, s.reff, [] { return 160u; }), first);
}

}  // namespace
