// The PipeWire echo-cancel plug-in (SPA "Audio:AEC" interface, libspa-aec-sonvel.so): one factory,
// one handle per module instance, the canceller's streaming layer inside. init() checks the format
// and reads aec.args; run() converts the module's float blocks to int16, streams them through the
// canceller and converts back, on the real-time thread (no allocation, lock, system call or log);
// set_props() and set_params() retune the live instance through a lock-free hand-over that run()
// picks up; activate() and deactivate() make run() start from a fresh instance.
#include <spa/interfaces/audio/aec.h>
#include <spa/param/audio/raw.h>
#include <spa/param/props.h>
#include <spa/pod/builder.h>
#include <spa/pod/iter.h>
#include <spa/pod/parser.h>
#include <spa/support/log.h>
#include <spa/support/plugin.h>
#include <spa/utils/dict.h>
#include <spa/utils/hook.h>
#include <spa/utils/names.h>
#include <spa/utils/string.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "aec_settings.h"
#include "latest_value.h"
#include "sample_convert.h"
#include "sonvel_aec_frontend.h"

namespace {

using sonvel::integration::Settings;
using Args = std::vector<std::pair<std::string, std::string>>;

// Samples converted per step of run(): any block size is cut into pieces of at most this many.
constexpr uint32_t kChunk = 256;

spa_log_topic log_topic = SPA_LOG_TOPIC(0, "spa.aec.sonvel");
#undef SPA_LOG_TOPIC_DEFAULT
#define SPA_LOG_TOPIC_DEFAULT (&log_topic)

struct Impl {
    spa_handle handle;
    spa_audio_aec aec;
    spa_log *log = nullptr;
    spa_hook_list hooks;

    // Control side: the settings last accepted, the rate, the latency text.
    Settings settings{};
    uint32_t rate = 0;
    char latency[24] = {};

    // Audio side: the stream instance, what it runs with, and the scratch blocks.
    void *memory = nullptr;
    uint32_t memory_size = 0;
    void *stream = nullptr;
    Settings running{};
    sonvel::integration::LatestValue<Settings> pending;
    std::atomic<uint32_t> resets{0};  // bumped by activate()/deactivate()
    uint32_t resets_seen = 0;
    int16_t near[kChunk], far[kChunk], out[kChunk];
};

void log_messages(Impl *impl, const sonvel::integration::Messages &m, const char *what) {
    for (const std::string &w : m.warnings)
        spa_log_warn(impl->log, "sonvel aec: %s: %s", what, w.c_str());
    for (const std::string &e : m.errors)
        spa_log_error(impl->log, "sonvel aec: %s: %s", what, e.c_str());
}

Args dict_args(const spa_dict *dict) {
    Args args;
    if (dict == nullptr) return args;
    for (uint32_t i = 0; i < dict->n_items; ++i) {
        if (dict->items[i].key == nullptr) continue;
        args.emplace_back(dict->items[i].key, dict->items[i].value ? dict->items[i].value : "");
    }
    return args;
}

bool same(const Settings &a, const Settings &b) {
    return std::memcmp(&a.core, &b.core, sizeof a.core) == 0 &&
           std::memcmp(&a.frontend, &b.frontend, sizeof a.frontend) == 0;
}

// Control thread: takes a new set of arguments; refused ones leave the settings as they were.
// The running instance hears only of real changes.
bool retune(Impl *impl, const Args &args, const char *what) {
    sonvel::integration::Messages m;
    const Settings before = impl->settings;
    const bool accepted = sonvel::integration::apply_args(impl->settings, args, m);
    log_messages(impl, m, what);
    if (!accepted || same(before, impl->settings)) return accepted;
    for (const sonvel::integration::KeyInfo &k : sonvel::integration::option_keys()) {
        const std::string now = sonvel::integration::format_value(impl->settings, k.name);
        if (now != sonvel::integration::format_value(before, k.name))
            spa_log_info(impl->log, "sonvel aec: %s: %s = %s", what, k.name, now.c_str());
    }
    if (impl->stream != nullptr) impl->pending.publish(impl->settings);
    return accepted;
}

int aec_add_listener(void *object, spa_hook *listener, const spa_audio_aec_events *events,
                     void *data) {
    auto *impl = static_cast<Impl *>(object);
    spa_hook_list_append(&impl->hooks, listener, events, data);
    return 0;
}

int aec_init(void *object, const spa_dict *args, const spa_audio_info_raw *info) {
    auto *impl = static_cast<Impl *>(object);
    if (info == nullptr || info->format != SPA_AUDIO_FORMAT_F32P || info->channels != 1 ||
        (info->rate != 8000 && info->rate != 16000)) {
        spa_log_error(
            impl->log,
            "sonvel aec: needs planar float, one channel, at 8000 or 16000 Hz; got format %u, "
            "%u channels, %u Hz. Set the module arguments audio.rate = 16000, "
            "audio.channels = 1, audio.position = [ MONO ]",
            info ? static_cast<unsigned>(info->format) : 0u, info ? info->channels : 0u,
            info ? info->rate : 0u);
        return -EINVAL;
    }
    uint32_t size = 0;
    if (Sonvel_AEC_StreamGetSize(&size) != SONVEL_AEC_OK) return -EIO;
    if (impl->memory == nullptr || impl->memory_size < size) {
        std::free(impl->memory);
        impl->memory = std::aligned_alloc(16, (size + 15u) & ~15u);
        if (impl->memory == nullptr) return -ENOMEM;
        impl->memory_size = size;
    }
    impl->rate = info->rate;
    impl->settings = sonvel::integration::live_defaults(info->rate);
    retune(impl, dict_args(args), "aec.args");

    const int32_t status = Sonvel_AEC_StreamInit(&impl->stream, impl->memory, impl->memory_size,
                                                 &impl->settings.core, &impl->settings.frontend);
    if (status != SONVEL_AEC_OK) {
        impl->stream = nullptr;
        spa_log_error(impl->log, "sonvel aec: the canceller refused to start (status %d)", status);
        return -EINVAL;
    }
    impl->running = impl->settings;
    Settings drop;
    impl->pending.take(drop);  // nothing published before the stream existed counts
    impl->resets_seen = impl->resets.load(std::memory_order_acquire);
    std::snprintf(impl->latency, sizeof impl->latency, "%u/%u", info->rate / 100, info->rate);
    impl->aec.latency = impl->latency;
    spa_log_info(impl->log, "sonvel aec: %u Hz, 10 ms blocks, delay %s, DC block %s, drift %s",
                 info->rate, sonvel::integration::format_value(impl->settings, "ref-delay").c_str(),
                 sonvel::integration::format_value(impl->settings, "dc-block").c_str(),
                 sonvel::integration::format_value(impl->settings, "drift").c_str());
    return 0;
}

// Real time: picks up a restart and new settings, then streams the block through in pieces.
int aec_run(void *object, const float *rec[], const float *play[], float *out[],
            uint32_t n_samples) {
    auto *impl = static_cast<Impl *>(object);
    if (n_samples == 0) return 0;
    if (impl->stream == nullptr || rec == nullptr || play == nullptr || out == nullptr ||
        rec[0] == nullptr || play[0] == nullptr || out[0] == nullptr)
        return -EINVAL;
    Settings next;
    const bool retuned = impl->pending.take(next);
    if (retuned) impl->running = next;
    const uint32_t resets = impl->resets.load(std::memory_order_acquire);
    if (resets != impl->resets_seen) {
        impl->resets_seen = resets;
        if (Sonvel_AEC_StreamInit(&impl->stream, impl->memory, impl->memory_size,
                                  &impl->running.core, &impl->running.frontend) != SONVEL_AEC_OK)
            return -EIO;
    } else if (retuned) {
        // Both records were checked on the control thread; the stream takes them as they are.
        Sonvel_AEC_StreamSetParams(impl->stream, &impl->running.core);
        Sonvel_AEC_StreamSetFrontend(impl->stream, &impl->running.frontend);
    }
    for (uint32_t done = 0; done < n_samples;) {
        const uint32_t n = n_samples - done < kChunk ? n_samples - done : kChunk;
        sonvel::integration::floats_to_s16(rec[0] + done, impl->near, n);
        sonvel::integration::floats_to_s16(play[0] + done, impl->far, n);
        if (Sonvel_AEC_StreamProcess(impl->stream, impl->near, impl->far, impl->out, n) !=
            SONVEL_AEC_OK)
            return -EIO;
        sonvel::integration::s16_to_floats(impl->out, out[0] + done, n);
        done += n;
    }
    return 0;
}

int aec_set_props(void *object, const spa_dict *args) {
    auto *impl = static_cast<Impl *>(object);
    if (impl->stream == nullptr) return -EIO;
    return retune(impl, dict_args(args), "set_props") ? 0 : -EINVAL;
}

int aec_activate(void *object) {
    static_cast<Impl *>(object)->resets.fetch_add(1, std::memory_order_acq_rel);
    return 0;
}

int aec_deactivate(void *object) {
    static_cast<Impl *>(object)->resets.fetch_add(1, std::memory_order_acq_rel);
    return 0;
}

// One PropInfo per option key: name, description, type (with the current value as default).
// Without a builder, the number of keys (the module asks that first).
int aec_enum_props(void *object, int index, spa_pod_builder *b) {
    auto *impl = static_cast<Impl *>(object);
    const auto &keys = sonvel::integration::option_keys();
    if (b == nullptr) return static_cast<int>(keys.size());
    if (index < 0 || static_cast<size_t>(index) >= keys.size()) return 0;
    const sonvel::integration::KeyInfo &k = keys[index];
    const std::string value = sonvel::integration::format_value(impl->settings, k.name);
    spa_pod_frame f;
    spa_pod_builder_push_object(b, &f, SPA_TYPE_OBJECT_PropInfo, SPA_PARAM_PropInfo);
    spa_pod_builder_prop(b, SPA_PROP_INFO_name, 0);
    spa_pod_builder_string(b, k.name);
    spa_pod_builder_prop(b, SPA_PROP_INFO_description, 0);
    spa_pod_builder_string(b, k.description);
    spa_pod_builder_prop(b, SPA_PROP_INFO_type, 0);
    switch (k.kind) {
        case sonvel::integration::KeyKind::Switch: spa_pod_builder_bool(b, value == "on"); break;
        case sonvel::integration::KeyKind::Integer: {
            spa_pod_frame c;
            spa_pod_builder_push_choice(b, &c, SPA_CHOICE_Range, 0);
            spa_pod_builder_int(b, std::atoi(value.c_str()));
            spa_pod_builder_int(b, k.min);
            spa_pod_builder_int(b, k.max);
            spa_pod_builder_pop(b, &c);
            break;
        }
        case sonvel::integration::KeyKind::Text: spa_pod_builder_string(b, value.c_str()); break;
    }
    spa_pod_builder_prop(b, SPA_PROP_INFO_params, 0);
    spa_pod_builder_bool(b, true);
    spa_pod_builder_pop(b, &f);
    return 1;
}

// The current values as key / value pairs (the caller has opened the params struct). Without a
// builder, the number of keys (the module asks that first).
int aec_get_params(void *object, spa_pod_builder *b) {
    auto *impl = static_cast<Impl *>(object);
    if (b == nullptr) return static_cast<int>(sonvel::integration::option_keys().size());
    for (const sonvel::integration::KeyInfo &k : sonvel::integration::option_keys()) {
        const std::string value = sonvel::integration::format_value(impl->settings, k.name);
        spa_pod_builder_string(b, k.name);
        switch (k.kind) {
            case sonvel::integration::KeyKind::Switch:
                spa_pod_builder_bool(b, value == "on");
                break;
            case sonvel::integration::KeyKind::Integer:
                spa_pod_builder_int(b, std::atoi(value.c_str()));
                break;
            case sonvel::integration::KeyKind::Text:
                spa_pod_builder_string(b, value.c_str());
                break;
        }
    }
    return 0;
}

// A pod value as the text apply_arg reads.
bool pod_text(const spa_pod *v, std::string &text) {
    const char *s;
    int32_t i;
    int64_t l;
    float f;
    double d;
    bool bo;
    char buf[64];
    if (spa_pod_get_string(v, &s) == 0 && s != nullptr) {
        text = s;
    } else if (spa_pod_get_bool(v, &bo) == 0) {
        text = bo ? "on" : "off";
    } else if (spa_pod_get_int(v, &i) == 0) {
        text = std::to_string(i);
    } else if (spa_pod_get_long(v, &l) == 0) {
        text = std::to_string(l);
    } else if (spa_pod_get_float(v, &f) == 0) {
        std::snprintf(buf, sizeof buf, "%.9g", static_cast<double>(f));
        text = buf;
    } else if (spa_pod_get_double(v, &d) == 0) {
        std::snprintf(buf, sizeof buf, "%.17g", d);
        text = buf;
    } else {
        return false;
    }
    return true;
}

// Accepts the params struct (key, value, key, value, ...) or a Props object holding it. The module
// passes on every parameter of its streams' nodes; keys that are not ours are left alone.
int aec_set_params(void *object, const spa_pod *params) {
    auto *impl = static_cast<Impl *>(object);
    if (params == nullptr) return -EINVAL;
    if (impl->stream == nullptr) return -EIO;
    if (spa_pod_is_object(params)) {
        const spa_pod_prop *prop = spa_pod_find_prop(params, nullptr, SPA_PROP_params);
        if (prop == nullptr) return 0;
        params = &prop->value;
    }
    if (!spa_pod_is_struct(params)) return -EINVAL;
    Args args;
    const spa_pod *item;
    const char *key = nullptr;
    const void *body = SPA_POD_BODY_CONST(params);
    for (item = static_cast<const spa_pod *>(body);
         spa_pod_is_inside(body, SPA_POD_BODY_SIZE(params), item);
         item = static_cast<const spa_pod *>(spa_pod_next(item))) {
        if (key == nullptr) {
            if (spa_pod_get_string(item, &key) < 0 || key == nullptr) return -EINVAL;
            continue;
        }
        std::string text;
        if (!sonvel::integration::is_known_key(key)) {
            // another node parameter
        } else if (!pod_text(item, text)) {
            spa_log_warn(impl->log,
                         "sonvel aec: set_params: %s: value of an unsupported type ignored", key);
        } else {
            args.emplace_back(key, text);
        }
        key = nullptr;
    }
    return retune(impl, args, "set_params") ? 0 : -EINVAL;
}

const spa_audio_aec_methods aec_methods = {
    .version = SPA_VERSION_AUDIO_AEC_METHODS,
    .add_listener = aec_add_listener,
    .init = aec_init,
    .run = aec_run,
    .set_props = aec_set_props,
    .activate = aec_activate,
    .deactivate = aec_deactivate,
    .enum_props = aec_enum_props,
    .get_params = aec_get_params,
    .set_params = aec_set_params,
};

int impl_get_interface(spa_handle *handle, const char *type, void **iface) {
    if (handle == nullptr || iface == nullptr) return -EINVAL;
    if (!spa_streq(type, SPA_TYPE_INTERFACE_AUDIO_AEC)) return -ENOENT;
    *iface = &reinterpret_cast<Impl *>(handle)->aec;
    return 0;
}

int impl_clear(spa_handle *handle) {
    if (handle == nullptr) return -EINVAL;
    auto *impl = reinterpret_cast<Impl *>(handle);
    std::free(impl->memory);
    impl->~Impl();
    return 0;
}

size_t impl_get_size(const spa_handle_factory *, const spa_dict *) { return sizeof(Impl); }

int impl_init(const spa_handle_factory *factory, spa_handle *handle, const spa_dict *,
              const spa_support *support, uint32_t n_support) {
    if (factory == nullptr || handle == nullptr) return -EINVAL;
    auto *impl = new (handle) Impl();
    impl->handle.version = SPA_VERSION_HANDLE;
    impl->handle.get_interface = impl_get_interface;
    impl->handle.clear = impl_clear;
    impl->aec.iface =
        SPA_INTERFACE_INIT(SPA_TYPE_INTERFACE_AUDIO_AEC, SPA_VERSION_AUDIO_AEC, &aec_methods, impl);
    impl->aec.name = "sonvel";
    impl->aec.info = nullptr;
    impl->aec.latency = nullptr;
    impl->log =
        static_cast<spa_log *>(spa_support_find(support, n_support, SPA_TYPE_INTERFACE_Log));
    spa_log_topic_init(impl->log, &log_topic);
    spa_hook_list_init(&impl->hooks);
    return 0;
}

const spa_interface_info interfaces[] = {{SPA_TYPE_INTERFACE_AUDIO_AEC}};

int impl_enum_interface_info(const spa_handle_factory *factory, const spa_interface_info **info,
                             uint32_t *index) {
    if (factory == nullptr || info == nullptr || index == nullptr) return -EINVAL;
    if (*index >= SPA_N_ELEMENTS(interfaces)) return 0;
    *info = &interfaces[(*index)++];
    return 1;
}

const spa_handle_factory factory = {
    .version = SPA_VERSION_HANDLE_FACTORY,
    .name = SPA_NAME_AEC,
    .info = nullptr,
    .get_size = impl_get_size,
    .init = impl_init,
    .enum_interface_info = impl_enum_interface_info,
};

}  // namespace

extern "C" SPA_EXPORT int spa_handle_factory_enum(const spa_handle_factory **out, uint32_t *index) {
    if (out == nullptr || index == nullptr) return -EINVAL;
    if (*index > 0) return 0;
    *out = &factory;
    (*index)++;
    return 1;
}
