#include <cerrno>
#include <set>
#include <string>
#include <vector>

#include "host_fixture.h"
#include "platform/runtime.h"

namespace {

constexpr uint32_t of_the_library[] = {0x4030020b, 0x4030020c, 0x4030020d, 0x40300216, 0x40300616, 0xa030060c,
                                       0xa030060d, 0xa0300216, 0xa0300611, 0xa0300602, 0xa0300616};

TEST(error_text_t, every_code_of_the_library_and_of_the_platform_has_a_text_of_its_own) {
    std::vector<uint32_t> codes(std::begin(of_the_library), std::end(of_the_library));
    for (uint32_t code = FWX_HOST_ERR_NO_SERVER; code <= FWX_HOST_ERR_FORKED; ++code) {
        codes.push_back(code);
    }
    std::set<std::string> texts{"success"};
    for (const uint32_t code : codes) {
        const std::string text = xerr_strerror(code);
        EXPECT_NE(text.rfind("unknown error", 0), 0u) << text;
        EXPECT_TRUE(texts.insert(text).second) << text;
    }
}

TEST(error_text_t, other_codes_have_the_texts_of_the_system_or_the_program_and_unknown_ones_show_their_value) {
    const char *first = xerr_strerror(0x89abcdef);
    EXPECT_STREQ(xerr_strerror(134), "unknown error 0x00000086");
    EXPECT_STREQ(first, "unknown error 0x89abcdef");
    EXPECT_STREQ(xerr_strerror(EINVAL), "Invalid argument");
    EXPECT_STREQ(xerr_strerror(ENOMEM), "Cannot allocate memory");
    EXPECT_STREQ(xerr_strerror(133), "Memory page has hardware error");
    EXPECT_STREQ(xerr_strerror(0), "success");
    EXPECT_STREQ(xerr_strerror(0x6fff), "unknown error 0x00006fff");
    fwx_host_error_text_add(0x6fff, "table full");
    EXPECT_STREQ(xerr_strerror(0x6fff), "table full");
}

}  // namespace
