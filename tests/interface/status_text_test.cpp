// Status texts: every code the public headers define (read from the headers themselves, so a new
// code without a text fails here) has its own non-empty text; too small a memory is named with the
// size needed; any other code gets the one fixed "unknown" text.

#include <climits>
#include <cstdio>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>

#include "interface/instance_block.h"
#include "sonvel_aec_frontend.h"

namespace {

const std::string kUnknown = "unknown status code";

// name -> value of every "SONVEL_AEC_OK = 0" / "SONVEL_AEC_ERR_* = -n" in a public header.
std::map<std::string, int> status_codes_of(const std::string &header) {
    std::ifstream in(std::string(SONVEL_PUBLIC_INCLUDE_DIR) + "/" + header);
    EXPECT_TRUE(in.good()) << header;
    std::stringstream text;
    text << in.rdbuf();
    const std::string s = text.str();
    const std::regex entry(R"((SONVEL_AEC_(?:OK|ERR_\w+))\s*=\s*(-?\d+))");
    std::map<std::string, int> codes;
    for (auto it = std::sregex_iterator(s.begin(), s.end(), entry); it != std::sregex_iterator();
         ++it) {
        codes[(*it)[1]] = std::stoi((*it)[2]);
    }
    return codes;
}

TEST(StatusText, EveryCodeOfThePublicHeadersHasItsOwnText) {
    auto codes = status_codes_of("sonvel_aec.h");
    const auto frontend = status_codes_of("sonvel_aec_frontend.h");
    // The reading found both enumerations, first to last.
    ASSERT_EQ(codes.count("SONVEL_AEC_OK"), 1u);
    ASSERT_EQ(codes["SONVEL_AEC_ERR_CFG_CLAMP_BIN_LO"], SONVEL_AEC_ERR_CFG_CLAMP_BIN_LO);
    ASSERT_EQ(frontend.at("SONVEL_AEC_ERR_FE_NULL"), SONVEL_AEC_ERR_FE_NULL);
    ASSERT_EQ(frontend.at("SONVEL_AEC_ERR_STREAM_COUNT"), SONVEL_AEC_ERR_STREAM_COUNT);
    codes.insert(frontend.begin(), frontend.end());

    std::map<std::string, std::string> owner;  // text -> the code's name
    for (const auto &[name, code] : codes) {
        const char *text = Sonvel_AEC_StatusText(code);
        ASSERT_NE(text, nullptr) << name;
        EXPECT_NE(std::string(text), "") << name;
        EXPECT_NE(std::string(text), kUnknown) << name << " (" << code << ") has no text";
        EXPECT_EQ(text, Sonvel_AEC_StatusText(code)) << name << ": the text is static";
        const auto [it, fresh] = owner.emplace(text, name);
        EXPECT_TRUE(fresh) << name << " and " << it->second << " share \"" << text << "\"";
    }
    std::printf("[ figures ] %zu status codes, each with its own text\n", codes.size());
}

// The memory size names the least size the instance needs (the record fields' texts are checked
// with the record rules).
TEST(StatusText, TooSmallAMemoryIsNamedWithTheSizeNeeded) {
    const AecCfg cfg = sonvel::test::default_cfg(1);
    sonvel::test::GuardedBlock block;
    void *h = nullptr;
    const int32_t status = Sonvel_AEC_Init(&h, block.data(), SONVEL_AEC_INSTANCE_BYTES - 1, &cfg);
    EXPECT_NE(std::string(Sonvel_AEC_StatusText(status)).find("u32MemSize"), std::string::npos);
    EXPECT_NE(std::string(Sonvel_AEC_StatusText(status)).find("62064"), std::string::npos);
}

TEST(StatusText, CodesTheLibraryDoesNotDefineGetOneFixedText) {
    const char *first = Sonvel_AEC_StatusText(1);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(std::string(first), kUnknown);
    for (int32_t code :
         {-7, -19, -32, -52, -102, -209, -213, -299, -308, -309, -311, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(Sonvel_AEC_StatusText(code), first) << code;
    }
}

}  // namespace
