// Host plug-in wrapper: descriptor, creation at the supported and refused rates, the parameter
// record the core sees, buffer processing against the core path, refusals and their exact
// diagnostics on standard error.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "interface/instance_block.h"
#include "sonvel_aec.h"
#include "sonvel_aec_host.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

std::string diag(const std::string &fn, int line, const std::string &msg) {
    return "\n\n\033[40m\033[31m\033[1m**Err In " + fn + "-" + std::to_string(line) + ":  " + msg +
           "**\033[0m\n\n";
}

// The wrapper's built-in values written as a host record, and the record the core then receives.
constexpr KxAecConfig kBuiltinHost{
    1, 1, 1, {}, 20000, 7, 38, 8, 17, {5, 17, 28, 32, 45, 56}, {11, 12, 16, 14, 15, 12, 16}, 5, 10};
AecCfg builtin_record(uint8_t rate) {
    return {1,
            0,
            1,
            0,
            rate,
            20000,
            7,
            38,
            8,
            17,
            {5, 17, 28, 32, 45, 56},
            5,
            10,
            {11, 12, 16, 14, 15, 12, 16}};
}

// A wrapper instance, released at the end of the test.
struct Plugin {
    Plugin(int32_t rate, KxAecConfig cfg) : aec(cfg) {
        CaptureStderr();
        ret = KX_AEC_Init(&handle, rate, &host);
        err = GetCapturedStderr();
    }
    ~Plugin() { KX_AEC_DeInit(handle); }
    KxAecHandle *h() const { return static_cast<KxAecHandle *>(handle); }
    AecCfg core_params() const {
        AecCfg c{};
        EXPECT_EQ(Sonvel_AEC_GetParams(h()->hCore, &c), 0);
        return c;
    }
    KxAecConfig aec;
    KxAecHostConfig host{nullptr, nullptr, &aec};
    void *handle = nullptr;
    int32_t ret = 0;
    std::string err;  // what creation wrote to standard error
};

bool same_record(const AecCfg &a, const AecCfg &b) {  // every field, not the pad byte
    return std::memcmp(&a.u8CnEnable, &b.u8CnEnable, 5) == 0 &&
           std::memcmp(&a.s16CohThr, &b.s16CohThr, sizeof(AecCfg) - 6) == 0;
}

TEST(PluginDescriptor, NameAndEntryPoints) {
    const KxAecWorkHandle &d = g_Audio_AEC_WorkHandle;
    EXPECT_EQ(std::string(d.acName, sizeof d.acName), std::string("AEC") + std::string(29, '\0'));
    EXPECT_EQ(d.pfnInit, &KX_AEC_Init);
    EXPECT_EQ(d.pfnProcess, &KX_AEC_Process);
    EXPECT_EQ(d.pfnDeInit, &KX_AEC_DeInit);
}

TEST(PluginInit, CoreSeesTheBuiltInRecordOrTheHostValuesByField) {
    constexpr KxAecConfig distinct{
        1, 0, 2, {}, 111, 2, 3, 4, 6, {7, 8, 9, 10, 11, 12}, {1, 2, 3, 4, 5, 6, 7}, 13, 14};
    KxAecConfig ignored = distinct;  // s32UseCfg 0: every other host field is ignored
    ignored.s32UseCfg = 0;
    for (auto [rate, frame, byte] :
         {std::tuple{8000, 80u, uint8_t{0}}, std::tuple{16000, 160u, uint8_t{1}}}) {
        for (const KxAecConfig &c : {ignored, kBuiltinHost}) {
            Plugin p(rate, c);
            ASSERT_EQ(p.ret, 0);
            EXPECT_EQ(p.err, "");
            EXPECT_EQ(p.h()->u32FrameLen, frame);
            EXPECT_EQ(p.h()->hCore, p.h()->pMem);
            EXPECT_TRUE(same_record(p.core_params(), builtin_record(byte))) << rate;
        }
    }
    Plugin p(16000, distinct);
    ASSERT_EQ(p.ret, 0);
    EXPECT_TRUE(same_record(
        p.core_params(),
        {0, 0, 2, 0, 1, 111, 2, 3, 4, 6, {7, 8, 9, 10, 11, 12}, 13, 14, {1, 2, 3, 4, 5, 6, 7}}));
}

TEST(PluginInit, RefusalsReportExactlyAndLeaveTheHandle) {
    KxAecConfig zero{}, refused = kBuiltinHost;
    refused.s16CohThr = -1;  // the core refuses the record: its code appears in the diagnostic only
    const KxAecHostConfig ok{nullptr, nullptr, &zero}, noAec{}, bad{nullptr, nullptr, &refused};
    void *handle = reinterpret_cast<void *>(0x1);
    auto init = [](int line, const std::string &msg) { return diag("KX_AEC_Init", line, msg); };
    const struct {
        void **out;
        int32_t rate;
        const KxAecHostConfig *cfg;
        std::string err;
    } cases[] = {
        {&handle, 48000, &ok, init(79, "AEC Unsupport 48k samplerate!\n")},
        {&handle, 16000, nullptr, init(50, "pstConfig is NULL!")},
        {&handle, 16000, &noAec, init(52, "pstAecConfig is NULL!")},
        {nullptr, 16000, &ok, init(54, "phHandle is NULL!")},
        {&handle, 8000, &bad, init(180, "Sonvel_AEC_Init") + "s32Ret is -26\n"},
    };
    for (const auto &c : cases) {
        CaptureStderr();
        EXPECT_EQ(KX_AEC_Init(c.out, c.rate, c.cfg), -1) << c.err;
        EXPECT_EQ(GetCapturedStderr(), c.err);
    }
    EXPECT_EQ(handle, reinterpret_cast<void *>(0x1)) << "out-pointer written only on success";
    EXPECT_EQ(KX_AEC_DeInit(nullptr), 0);
}

TEST(PluginProcess, BuffersOfSeveralFramesMatchTheCorePath) {
    for (auto [rate, byte] : {std::pair{8000, uint8_t{0}}, std::pair{16000, uint8_t{1}}}) {
        Plugin p(rate, KxAecConfig{});
        ASSERT_EQ(p.ret, 0);
        const size_t f = p.h()->u32FrameLen;
        const auto far = sonvel::test::test_signal(f * 11, 41);
        auto near = sonvel::test::echo_of(far, 23, 2);
        std::vector<int16_t> out(near.size(), int16_t{0x7777});
        size_t pos = 0;
        for (size_t count : {3, 1, 0, 5, 2}) {
            KxAecFrame in{
                near.data() + pos, const_cast<int16_t *>(far.data()) + pos, nullptr, nullptr,
                static_cast<int32_t>(count * f * 2 + (count == 1))};  // an odd byte is no sample
            KxAecFrame o{out.data() + pos, nullptr, nullptr, nullptr, -5};
            ASSERT_EQ(KX_AEC_Process(p.handle, &in, &o), 0);
            EXPECT_EQ(o.ps16Ref, in.ps16Ref);
            EXPECT_EQ(o.s32Bytes, in.s32Bytes);
            EXPECT_EQ(o.ps16Main, out.data() + pos) << "the record's own pointer is not moved";
            pos += count * f;
        }
        // The core path: the same record through Sonvel_AEC_Init and Sonvel_AEC_Apply frame by
        // frame.
        sonvel::test::GuardedBlock block;
        void *core = nullptr;
        const AecCfg cfg = builtin_record(byte);
        ASSERT_EQ(Sonvel_AEC_Init(&core, block.data(), 62064, &cfg), 0);
        EXPECT_EQ(out, sonvel::test::apply_frames(core, near, far, static_cast<int>(f))) << rate;
    }
}

TEST(PluginProcess, RefusalsWriteNothingAndReportExactly) {
    Plugin p(8000, KxAecConfig{}), unsupported(44100, KxAecConfig{}), broken(16000, KxAecConfig{});
    ASSERT_EQ(p.ret | unsupported.ret | broken.ret, 0);
    EXPECT_EQ(unsupported.err, "");
    EXPECT_EQ(unsupported.h()->u32FrameLen, 0u);
    EXPECT_EQ(unsupported.core_params().u8SampleRate, 1) << "the table's rate byte stays";
    reinterpret_cast<AecState *>(static_cast<uint8_t *>(broken.h()->pMem) + 3880)->u32GuardB = 0;

    std::vector<int16_t> nearBuf(441, 100), farBuf(441, 50), out(441, 0x3333);
    int16_t *n = nearBuf.data(), *f = farBuf.data(), *o = out.data();
    const std::string frames = "byte count is not a whole number of frames!";
    auto proc = [](int line, const std::string &msg) { return diag("KX_AEC_Process", line, msg); };
    auto core = [&](int ret) {
        return proc(227, "Sonvel_AEC_Apply") + "s32Return is " + std::to_string(ret) + "\n";
    };
    const struct {  // handle, input record (or none), destination (or no output record), result
        void *handle;
        int16_t *main, *ref;
        int32_t bytes;
        int16_t *dest;
        bool nullIn, nullOut;
        int32_t ret;
        std::string err;
    } cases[] = {
        {nullptr, n, f, 480, o, false, false, -1, proc(200, "hHandle is NULL!")},
        {p.handle, n, f, 480, o, true, false, -1, proc(202, "pstIn is NULL!")},
        {p.handle, n, f, 480, o, false, true, -1, proc(204, "pstOut is NULL!")},
        {p.handle, n, f, -160, o, false, false, -1, proc(208, frames)},  // negative count
        {p.handle, n, f, 162, o, false, false, -1, proc(208, frames)},   // partial frame
        {p.handle, n, f, 163, o, false, false, -1, proc(208, frames)},   // odd count, partial frame
        {p.handle, nullptr, f, 160, o, false, false, -12,
         core(-12)},  // the core refuses null samples
        {p.handle, n, nullptr, 160, o, false, false, -14, core(-14)},
        {p.handle, n, f, 480, nullptr, false, false, -16, core(-16)},
        {unsupported.handle, n, f, 882, o, false, false, -1,
         proc(206, "Unsupported samplerate, no frame length!")},
        {broken.handle, n, f, 640, o, false, false, -18, core(-18)},
    };
    const std::vector<uint8_t> before(static_cast<uint8_t *>(p.h()->pMem),
                                      static_cast<uint8_t *>(p.h()->pMem) + 62064);
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto &c = cases[i];
        KxAecFrame in{c.main, c.ref, nullptr, nullptr, c.bytes},
            dest{c.dest, nullptr, nullptr, nullptr, 0};
        CaptureStderr();
        EXPECT_EQ(KX_AEC_Process(c.handle, c.nullIn ? nullptr : &in, c.nullOut ? nullptr : &dest),
                  c.ret)
            << "case " << i;
        EXPECT_EQ(GetCapturedStderr(), c.err) << "case " << i;
        if (c.ret == -1) {
            EXPECT_EQ(dest.ps16Ref, nullptr) << "case " << i;  // refused: record untouched
        } else {
            EXPECT_TRUE(dest.ps16Ref == c.ref && dest.s32Bytes == c.bytes)
                << "case " << i;  // passed through first
        }
        for (int16_t v : out) ASSERT_EQ(v, 0x3333) << "case " << i;
    }
    EXPECT_EQ(std::memcmp(before.data(), p.h()->pMem, 62064), 0) << "no frame was processed";
}

}  // namespace
