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

// The wrapper's built-in host values, written as a host record.
KxAecConfig builtin_as_host_record() {
    KxAecConfig c{};
    c.s32UseCfg = 1;
    c.u8CnEnable = 1;
    c.u8NlpLevel = 1;
    c.s16CohThr = 20000;
    c.s16HfBinLo = 7;
    c.s16HfBinHi = 38;
    c.s16CohBinLo = 8;
    c.s16CohBinHi = 17;
    const int16_t edges[6] = {5, 17, 28, 32, 45, 56};
    const int16_t shifts[7] = {11, 12, 16, 14, 15, 12, 16};
    std::memcpy(c.as16BandEdge, edges, sizeof edges);
    std::memcpy(c.as16BandShift, shifts, sizeof shifts);
    c.s16ClampBinLo = 5;
    c.s16ClampBinHi = 10;
    return c;
}

AecCfg builtin_record(uint8_t rate) {
    AecCfg c = Sonvel_AEC_gastMrvAecCfgTab;
    c.u8SampleRate = rate;
    c.s16CohThr = 20000;
    c.s16CohBinLo = 8;
    c.s16CohBinHi = 17;
    const int16_t edges[6] = {5, 17, 28, 32, 45, 56};
    const int16_t shifts[7] = {11, 12, 16, 14, 15, 12, 16};
    std::memcpy(c.as16BandEdge, edges, sizeof edges);
    std::memcpy(c.as16BandShift, shifts, sizeof shifts);
    c.s16ClampBinLo = 5;
    c.s16ClampBinHi = 10;
    return c;
}

// A wrapper instance, released at the end of the test.
struct Plugin {
    Plugin(int32_t rate, KxAecConfig cfg) : aec(cfg) {
        host.pstAecConfig = &aec;
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
    KxAecHostConfig host{};
    void *handle = nullptr;
    int32_t ret = 0;
    std::string err;
};

bool same_record(const AecCfg &a, const AecCfg &b) {
    return std::memcmp(&a.u8CnEnable, &b.u8CnEnable, 5) == 0 &&
           std::memcmp(&a.s16CohThr, &b.s16CohThr, sizeof(AecCfg) - 6) == 0;
}

TEST(PluginDescriptor, NameAndEntryPoints) {
    const KxAecWorkHandle &d = g_Audio_AEC_WorkHandle;
    EXPECT_STREQ(d.acName, "AEC");
    for (size_t i = 3; i < sizeof d.acName; ++i) EXPECT_EQ(d.acName[i], '\0');
    EXPECT_EQ(d.pfnInit, &KX_AEC_Init);
    EXPECT_EQ(d.pfnProcess, &KX_AEC_Process);
    EXPECT_EQ(d.pfnDeInit, &KX_AEC_DeInit);
}

TEST(PluginInit, SupportedRatesSeeTheBuiltInRecord) {
    const KxAecConfig unused{};  // s32UseCfg 0: every other host field is ignored
    for (auto [rate, frame, byte] : {std::tuple{8000, 80u, uint8_t{0}}, std::tuple{16000, 160u, uint8_t{1}}}) {
        Plugin p(rate, unused);
        ASSERT_EQ(p.ret, 0);
        EXPECT_EQ(p.err, "");
        EXPECT_EQ(p.h()->u32FrameLen, frame);
        EXPECT_EQ(p.h()->hCore, p.h()->pMem);
        EXPECT_TRUE(same_record(p.core_params(), builtin_record(byte))) << rate;

        Plugin q(rate, builtin_as_host_record());
        ASSERT_EQ(q.ret, 0);
        EXPECT_TRUE(same_record(q.core_params(), builtin_record(byte))) << rate;
    }
}

TEST(PluginInit, HostValuesAreMappedByField) {
    KxAecConfig c = builtin_as_host_record();
    c.u8CnEnable = 0;
    c.u8NlpLevel = 2;
    c.s16CohThr = 111;
    c.s16HfBinLo = 2, c.s16HfBinHi = 3, c.s16CohBinLo = 4, c.s16CohBinHi = 6;
    const int16_t edges[6] = {7, 8, 9, 10, 11, 12};
    const int16_t shifts[7] = {1, 2, 3, 4, 5, 6, 7};
    std::memcpy(c.as16BandEdge, edges, sizeof edges);
    std::memcpy(c.as16BandShift, shifts, sizeof shifts);
    c.s16ClampBinLo = 13, c.s16ClampBinHi = 14;
    Plugin p(16000, c);
    ASSERT_EQ(p.ret, 0);
    AecCfg want{0, 0, 2, 0, 1, 111, 2, 3, 4, 6, {7, 8, 9, 10, 11, 12}, 13, 14, {1, 2, 3, 4, 5, 6, 7}};
    EXPECT_TRUE(same_record(p.core_params(), want));
}

TEST(PluginInit, RefusedRatesAndArguments) {
    KxAecConfig aec{};
    KxAecHostConfig host{};
    host.pstAecConfig = &aec;
    void *handle = reinterpret_cast<void *>(0x1);

    CaptureStderr();
    EXPECT_EQ(KX_AEC_Init(&handle, 48000, &host), -1);
    EXPECT_EQ(GetCapturedStderr(), diag("KX_AEC_Init", 79, "AEC Unsupport 48k samplerate!\n"));

    CaptureStderr();
    EXPECT_EQ(KX_AEC_Init(&handle, 16000, nullptr), -1);
    EXPECT_EQ(GetCapturedStderr(), diag("KX_AEC_Init", 50, "pstConfig is NULL!"));

    KxAecHostConfig noAec{};
    CaptureStderr();
    EXPECT_EQ(KX_AEC_Init(&handle, 16000, &noAec), -1);
    EXPECT_EQ(GetCapturedStderr(), diag("KX_AEC_Init", 52, "pstAecConfig is NULL!"));

    CaptureStderr();
    EXPECT_EQ(KX_AEC_Init(nullptr, 16000, &host), -1);
    EXPECT_EQ(GetCapturedStderr(), diag("KX_AEC_Init", 54, "phHandle is NULL!"));

    // The core refuses the host's record: its code appears in the diagnostic only.
    aec = builtin_as_host_record();
    aec.s16CohThr = -1;
    CaptureStderr();
    EXPECT_EQ(KX_AEC_Init(&handle, 8000, &host), -1);
    EXPECT_EQ(GetCapturedStderr(), diag("KX_AEC_Init", 180, "Sonvel_AEC_Init") + "s32Ret is -26\n");

    EXPECT_EQ(handle, reinterpret_cast<void *>(0x1)) << "out-pointer written only on success";
    EXPECT_EQ(KX_AEC_DeInit(nullptr), 0);
}

// The core path: the same record through Sonvel_AEC_Init and Sonvel_AEC_Apply frame by frame.
std::vector<int16_t> core_path(const AecCfg &cfg, const std::vector<int16_t> &near,
                               const std::vector<int16_t> &far) {
    sonvel::test::GuardedBlock block;
    void *h = nullptr;
    EXPECT_EQ(Sonvel_AEC_Init(&h, block.data(), 62064, &cfg), 0);
    return sonvel::test::apply_frames(h, near, far, sonvel::test::frame_len(cfg));
}

TEST(PluginProcess, BuffersOfSeveralFramesMatchTheCorePath) {
    for (auto [rate, byte] : {std::pair{8000, uint8_t{0}}, std::pair{16000, uint8_t{1}}}) {
        Plugin p(rate, KxAecConfig{});
        ASSERT_EQ(p.ret, 0);
        const size_t f = p.h()->u32FrameLen;
        const size_t frames = 3 + 1 + 0 + 5 + 2;
        const auto far = sonvel::test::test_signal(f * frames, 41);
        auto near = sonvel::test::echo_of(far, 23, 2);
        std::vector<int16_t> out(near.size(), int16_t{0x7777});

        size_t pos = 0;
        for (size_t count : {3, 1, 0, 5, 2}) {
            KxAecFrame in{near.data() + pos, const_cast<int16_t *>(far.data()) + pos, nullptr, nullptr,
                          static_cast<int32_t>(count * f * 2)};
            KxAecFrame o{out.data() + pos, nullptr, nullptr, nullptr, -5};
            ASSERT_EQ(KX_AEC_Process(p.handle, &in, &o), 0);
            EXPECT_EQ(o.ps16Ref, in.ps16Ref);
            EXPECT_EQ(o.s32Bytes, in.s32Bytes);
            EXPECT_EQ(o.ps16Main, out.data() + pos) << "the record's own pointer is not moved";
            pos += count * f;
        }
        EXPECT_EQ(out, core_path(builtin_record(byte), near, far)) << rate;
    }
}

TEST(PluginProcess, RefusalsWriteNothing) {
    Plugin p(8000, KxAecConfig{});
    ASSERT_EQ(p.ret, 0);
    std::vector<int16_t> near(240, 100), far(240, 50), out(240, 0x3333);
    struct Case {
        const char *what;
        void *handle;
        KxAecFrame in, out;
        bool nullIn, nullOut;
        int line;
        const char *msg;
    };
    const KxAecFrame goodIn{near.data(), far.data(), nullptr, nullptr, 480};
    const KxAecFrame goodOut{out.data(), nullptr, nullptr, nullptr, 0};
    auto with = [](KxAecFrame f, int16_t *main, int16_t *ref, int32_t bytes) {
        f.ps16Main = main, f.ps16Ref = ref, f.s32Bytes = bytes;
        return f;
    };
    const Case cases[] = {
        {"null handle", nullptr, goodIn, goodOut, false, false, 200, "hHandle is NULL!"},
        {"null input record", p.handle, goodIn, goodOut, true, false, 202, "pstIn is NULL!"},
        {"null output record", p.handle, goodIn, goodOut, false, true, 204, "pstOut is NULL!"},
        {"negative count", p.handle, with(goodIn, near.data(), far.data(), -160), goodOut, false, false,
         208, "byte count is not a whole number of frames!"},
        {"partial frame", p.handle, with(goodIn, near.data(), far.data(), 162), goodOut, false, false, 208,
         "byte count is not a whole number of frames!"},
        {"odd count", p.handle, with(goodIn, near.data(), far.data(), 161), goodOut, false, false, 208,
         "byte count is not a whole number of frames!"},
        {"null near", p.handle, with(goodIn, nullptr, far.data(), 160), goodOut, false, false, 210,
         "frame buffer is NULL!"},
        {"null far", p.handle, with(goodIn, near.data(), nullptr, 160), goodOut, false, false, 210,
         "frame buffer is NULL!"},
        {"null destination", p.handle, goodIn, with(goodOut, nullptr, nullptr, 0), false, false, 210,
         "frame buffer is NULL!"},
    };
    std::vector<uint8_t> before(static_cast<uint8_t *>(p.h()->pMem),
                                static_cast<uint8_t *>(p.h()->pMem) + 62064);
    for (const Case &c : cases) {
        KxAecFrame in = c.in, o = c.out;
        CaptureStderr();
        EXPECT_EQ(KX_AEC_Process(c.handle, c.nullIn ? nullptr : &in, c.nullOut ? nullptr : &o), -1) << c.what;
        EXPECT_EQ(GetCapturedStderr(), diag("KX_AEC_Process", c.line, c.msg)) << c.what;
        EXPECT_EQ(o.ps16Ref, c.out.ps16Ref) << c.what;
        for (int16_t v : out) ASSERT_EQ(v, 0x3333) << c.what;
    }
    EXPECT_EQ(std::memcmp(before.data(), p.h()->pMem, 62064), 0) << "no frame was processed";
}

TEST(PluginProcess, UnsupportedRateHandleIsRefused) {
    Plugin p(44100, KxAecConfig{});
    ASSERT_EQ(p.ret, 0);
    EXPECT_EQ(p.err, "");
    EXPECT_EQ(p.h()->u32FrameLen, 0u);
    EXPECT_EQ(p.core_params().u8SampleRate, 1) << "the table's rate byte stays";
    std::vector<int16_t> buf(441, 1);
    KxAecFrame in{buf.data(), buf.data(), nullptr, nullptr, 882};
    std::vector<int16_t> out(441);
    KxAecFrame o{out.data(), nullptr, nullptr, nullptr, 0};
    CaptureStderr();
    EXPECT_EQ(KX_AEC_Process(p.handle, &in, &o), -1);
    EXPECT_EQ(GetCapturedStderr(),
              diag("KX_AEC_Process", 206, "Unsupported samplerate, no frame length!"));
}

TEST(PluginProcess, CoreFailureIsPassedOnWithItsDiagnostic) {
    Plugin p(16000, KxAecConfig{});
    ASSERT_EQ(p.ret, 0);
    auto *st = reinterpret_cast<AecState *>(static_cast<uint8_t *>(p.h()->pMem) + 3880);
    st->u32GuardB = 0;
    std::vector<int16_t> near(320, 7), far(320, 9), out(320, 0x1111);
    KxAecFrame in{near.data(), far.data(), nullptr, nullptr, 640};
    KxAecFrame o{out.data(), nullptr, nullptr, nullptr, 0};
    CaptureStderr();
    EXPECT_EQ(KX_AEC_Process(p.handle, &in, &o), -18);
    EXPECT_EQ(GetCapturedStderr(), diag("KX_AEC_Process", 227, "Sonvel_AEC_Apply") + "s32Return is -18\n");
    for (int16_t v : out) ASSERT_EQ(v, 0x1111);
}

}  // namespace
