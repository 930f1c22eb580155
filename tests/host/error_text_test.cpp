#include <cerrno>
#include <set>
#include <string>

#include "host_fixture.h"
#include "platform/runtime.h"

namespace {

bool is_known(uint32_t code) {
    return std::string(xerr_strerror(code)).rfind("unknown error", 0) != 0;
}

TEST(error_text_t, every_code_of_the_library_and_of_the_platform_has_a_text_of_its_own) {
    const uint32_t codes[] = {0x4030020b, 0x4030020c, 0x4030020d, 0x40300216, 0x40300616, 0xa030060c,
                              0xa030060d, 0xa0300216, 0xa0300611, 0xa0300602, 0xa0300616};
    std::set<std::string> texts{xerr_strerror(0)};
    size_t count = 1;
    for (const uint32_t code : codes) {
        EXPECT_TRUE(is_known(code)) << std::hex << code;
        texts.insert(xerr_strerror(code));
        ++count;
    }
    for (uint32_t code = FWX_HOST_ERR_NO_SERVER; code <= FWX_HOST_ERR_FAULT; ++code) {
        EXPECT_TRUE(is_known(code)) << std::hex << code;
        texts.insert(xerr_strerror(code));
        ++count;
    }
    EXPECT_EQ(texts.size(), count);
}

TEST(error_text_t, errno_values_read_as_the_system_names_them) {
    EXPECT_STREQ(xerr_strerror(EINVAL), "Invalid argument");
    EXPECT_STREQ(xerr_strerror(ENOMEM), "Cannot allocate memory");
    EXPECT_STREQ(xerr_strerror(133), "Memory page has hardware error");
    EXPECT_STREQ(xerr_strerror(0), "success");
}

TEST(error_text_t, an_unknown_code_is_shown_by_its_value) {
    const char *first = xerr_strerror(0x89abcdef);
    const char *second = xerr_strerror(134);
    EXPECT_STREQ(first, "unknown error 0x89abcdef");
    EXPECT_STREQ(second, "unknown error 0x00000086");
}

TEST(error_text_t, a_program_can_name_its_own_codes) {
    EXPECT_FALSE(is_known(0x6fff));
    fwx_host_error_text_add(0x6fff, "table full");
    EXPECT_STREQ(xerr_strerror(0x6fff), "table full");
}

}  // namespace
