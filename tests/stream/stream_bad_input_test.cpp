// Refused calls of the streaming layer and the front end: each null pointer, a misaligned or
// short block, a bad record, a count above the limit and a block never initialised give their
// status code, and neither the instance nor any output buffer is written.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "sonvel_aec.h"
#include "sonvel_aec_frontend.h"

namespace {

AecCfg record16k() {
    AecCfg cfg = Sonvel_AEC_gastMrvAecCfgTab;
    cfg.u8SampleRate = 1;
    return cfg;
}

std::vector<uint8_t> bytes_of(const std::vector<uint64_t> &m) {
    const auto *p = reinterpret_cast<const uint8_t *>(m.data());
    return {p, p + m.size() * 8};
}

TEST(StreamBadInput, InitRefusalsWriteNothing) {
    uint32_t size = 0;
    ASSERT_EQ(Sonvel_AEC_StreamGetSize(&size), SONVEL_AEC_OK);
    EXPECT_EQ(Sonvel_AEC_StreamGetSize(nullptr), SONVEL_AEC_ERR_FE_NULL);
    std::vector<uint64_t> mem(size / 8 + 2, 0x7777777777777777ull);
    const std::vector<uint8_t> before = bytes_of(mem);
    const AecCfg cfg = record16k();
    void *h = reinterpret_cast<void *>(0x1);
    EXPECT_EQ(Sonvel_AEC_StreamInit(nullptr, mem.data(), size, &cfg, nullptr),
              SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(Sonvel_AEC_StreamInit(&h, nullptr, size, &cfg, nullptr), SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(Sonvel_AEC_StreamInit(&h, mem.data(), size, nullptr, nullptr),
              SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(
        Sonvel_AEC_StreamInit(&h, reinterpret_cast<uint8_t *>(mem.data()) + 4, size, &cfg, nullptr),
        SONVEL_AEC_ERR_FE_MEM_ALIGN);
    EXPECT_EQ(Sonvel_AEC_StreamInit(&h, mem.data(), size - 1, &cfg, nullptr),
              SONVEL_AEC_ERR_FE_MEM_SIZE);
    AecCfg bad = cfg;
    bad.u8NlpLevel = 7;
    EXPECT_EQ(Sonvel_AEC_StreamInit(&h, mem.data(), size, &bad, nullptr),
              SONVEL_AEC_ERR_CFG_NLP_LEVEL);
    AecFrontendCfg fe{};
    fe.u8DelayMode = 3;
    EXPECT_EQ(Sonvel_AEC_StreamInit(&h, mem.data(), size, &cfg, &fe), SONVEL_AEC_ERR_FE_DELAY_MODE);
    fe = {};
    fe.u16DelayMs = SONVEL_AEC_FRONTEND_MAX_DELAY_MS + 1;
    EXPECT_EQ(Sonvel_AEC_StreamInit(&h, mem.data(), size, &cfg, &fe), SONVEL_AEC_ERR_FE_DELAY_MS);
    fe = {};
    fe.u8Reserved = 1;
    EXPECT_EQ(Sonvel_AEC_StreamInit(&h, mem.data(), size, &cfg, &fe), SONVEL_AEC_ERR_FE_RESERVED);
    EXPECT_EQ(h, reinterpret_cast<void *>(0x1));
    EXPECT_EQ(bytes_of(mem), before);
    // A block never initialised is refused by every call.
    int16_t s[4] = {1, 2, 3, 4}, out[4] = {9, 9, 9, 9};
    AecFrontendEstimate est{};
    AecCfg back{};
    EXPECT_EQ(Sonvel_AEC_StreamProcess(mem.data(), s, s, out, 4),
              SONVEL_AEC_ERR_FE_NOT_INITIALISED);
    EXPECT_EQ(Sonvel_AEC_StreamGetEstimate(mem.data(), &est), SONVEL_AEC_ERR_FE_NOT_INITIALISED);
    EXPECT_EQ(Sonvel_AEC_StreamGetParams(mem.data(), &back), SONVEL_AEC_ERR_FE_NOT_INITIALISED);
    EXPECT_EQ(Sonvel_AEC_StreamSetParams(mem.data(), &cfg), SONVEL_AEC_ERR_FE_NOT_INITIALISED);
    EXPECT_EQ(Sonvel_AEC_StreamSetFrontend(mem.data(), nullptr), SONVEL_AEC_ERR_FE_NOT_INITIALISED);
    EXPECT_EQ(out[0], 9);
    EXPECT_EQ(bytes_of(mem), before);
}

TEST(StreamBadInput, ProcessRefusalsWriteNothing) {
    uint32_t size = 0;
    ASSERT_EQ(Sonvel_AEC_StreamGetSize(&size), SONVEL_AEC_OK);
    std::vector<uint64_t> mem(size / 8 + 1, 0);
    const AecCfg cfg = record16k();
    void *h = nullptr;
    ASSERT_EQ(Sonvel_AEC_StreamInit(&h, mem.data(), size, &cfg, nullptr), SONVEL_AEC_OK);
    std::vector<int16_t> nearv(500, 1000), farv(500, -1000), out(500, 0);
    ASSERT_EQ(Sonvel_AEC_StreamProcess(h, nearv.data(), farv.data(), out.data(), 237),
              SONVEL_AEC_OK);
    const std::vector<uint8_t> before = bytes_of(mem);
    std::vector<int16_t> sentinel(500, 0x1234);
    EXPECT_EQ(Sonvel_AEC_StreamProcess(nullptr, nearv.data(), farv.data(), sentinel.data(), 10),
              SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(Sonvel_AEC_StreamProcess(h, nullptr, farv.data(), sentinel.data(), 10),
              SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(Sonvel_AEC_StreamProcess(h, nearv.data(), nullptr, sentinel.data(), 10),
              SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(Sonvel_AEC_StreamProcess(h, nearv.data(), farv.data(), nullptr, 10),
              SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(Sonvel_AEC_StreamProcess(h, nearv.data(), farv.data(), sentinel.data(),
                                       SONVEL_AEC_STREAM_MAX_SAMPLES + 1),
              SONVEL_AEC_ERR_STREAM_COUNT);
    EXPECT_EQ(Sonvel_AEC_StreamProcess(h, nullptr, nullptr, nullptr, 0), SONVEL_AEC_OK);
    EXPECT_EQ(Sonvel_AEC_StreamProcess(reinterpret_cast<uint8_t *>(h) + 2, nearv.data(),
                                       farv.data(), sentinel.data(), 10),
              SONVEL_AEC_ERR_FE_NOT_INITIALISED);
    AecFrontendCfg fe{};
    fe.u8DelayMode = 9;
    EXPECT_EQ(Sonvel_AEC_StreamSetFrontend(h, &fe), SONVEL_AEC_ERR_FE_DELAY_MODE);
    EXPECT_EQ(Sonvel_AEC_StreamSetParams(h, nullptr), SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(Sonvel_AEC_StreamGetParams(h, nullptr), SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(Sonvel_AEC_StreamGetEstimate(h, nullptr), SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(bytes_of(mem), before);
    EXPECT_EQ(sentinel, std::vector<int16_t>(500, 0x1234));
    // Odd addresses are fine: the FIFO copies bytes.
    std::vector<uint8_t> raw(2 * 101 + 1, 0);
    auto *odd = reinterpret_cast<int16_t *>(raw.data() + 1);
    EXPECT_EQ(Sonvel_AEC_StreamProcess(h, odd, odd, odd, 100), SONVEL_AEC_OK);
}

TEST(FrontendBadInput, RefusalsWriteNothing) {
    uint32_t size = 0;
    ASSERT_EQ(Sonvel_AEC_FrontendGetSize(&size), SONVEL_AEC_OK);
    std::vector<uint64_t> mem(size / 8 + 1, 0x4242424242424242ull);
    const std::vector<uint8_t> before = bytes_of(mem);
    void *h = nullptr;
    EXPECT_EQ(Sonvel_AEC_FrontendInit(&h, mem.data(), size, 44100, nullptr),
              SONVEL_AEC_ERR_FE_RATE);
    EXPECT_EQ(Sonvel_AEC_FrontendInit(&h, mem.data(), size - 8, 16000, nullptr),
              SONVEL_AEC_ERR_FE_MEM_SIZE);
    EXPECT_EQ(Sonvel_AEC_FrontendInit(nullptr, mem.data(), size, 16000, nullptr),
              SONVEL_AEC_ERR_FE_NULL);
    int16_t in[160] = {}, o1[160], o2[160];
    EXPECT_EQ(Sonvel_AEC_FrontendProcess(mem.data(), in, in, o1, o2, nullptr),
              SONVEL_AEC_ERR_FE_NOT_INITIALISED);
    EXPECT_EQ(bytes_of(mem), before);
    EXPECT_EQ(h, nullptr);
    ASSERT_EQ(Sonvel_AEC_FrontendInit(&h, mem.data(), size, 16000, nullptr), SONVEL_AEC_OK);
    const std::vector<uint8_t> live = bytes_of(mem);
    EXPECT_EQ(Sonvel_AEC_FrontendProcess(h, nullptr, in, o1, o2, nullptr), SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(Sonvel_AEC_FrontendProcess(h, in, in, o1, nullptr, nullptr), SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(Sonvel_AEC_FrontendSetCfg(h, nullptr), SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(Sonvel_AEC_FrontendGetEstimate(h, nullptr), SONVEL_AEC_ERR_FE_NULL);
    EXPECT_EQ(bytes_of(mem), live);
}

}  // namespace
