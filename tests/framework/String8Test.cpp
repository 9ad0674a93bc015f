// UTF-16 to UTF-8 conversion as ASF and MOV titles use it: every encoded
// length (1-4 bytes) and the lone-surrogate replacement, which keeps the
// output valid UTF-8 for consumers that reject anything else.
#include <gtest/gtest.h>

#include <string>

#include <utils/String8.h>

using namespace android;

namespace {

struct Utf16Case {
    const char* mName;
    std::u16string mInput;
    size_t mLength;  // code units converted
    std::string mExpected;
};

class String8Utf16Test : public ::testing::TestWithParam<Utf16Case> {};

TEST_P(String8Utf16Test, Converts) {
    const Utf16Case& c = GetParam();
    String8 s;
    ASSERT_EQ(s.setTo(c.mInput.data(), c.mLength), OK);
    EXPECT_EQ(std::string(s.c_str(), s.size()), c.mExpected);
    // The constructor takes the same path.
    String8 t(c.mInput.data(), c.mLength);
    EXPECT_EQ(std::string(t.c_str(), t.size()), c.mExpected);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, String8Utf16Test,
    ::testing::Values(
        Utf16Case{"Ascii", u"Title", 5, "Title"},
        Utf16Case{"Empty", u"", 0, ""},
        // U+00E9 and U+07FF: the two ends of the 2-byte form.
        Utf16Case{"TwoByte", u"\u00E9\u07FF", 2, "\xC3\xA9\xDF\xBF"},
        // U+0800 (the first 3-byte code point) and U+20AC.
        Utf16Case{"ThreeByte", u"\u0800\u20AC", 2, "\xE0\xA0\x80\xE2\x82\xAC"},
        // U+1F600 as D83D DE00.
        Utf16Case{"SurrogatePair", u"\U0001F600", 2, "\xF0\x9F\x98\x80"},
        // U+10FFFF, the highest code point: DBFF DFFF.
        Utf16Case{"HighestCodePoint", u"\U0010FFFF", 2, "\xF4\x8F\xBF\xBF"},
        Utf16Case{"LoneHighThenAscii", std::u16string{0xD83D, u'A'}, 2, "\xEF\xBF\xBD" "A"},
        Utf16Case{"LoneLow", std::u16string{0xDE00}, 1, "\xEF\xBF\xBD"},
        Utf16Case{"LowThenHigh", std::u16string{0xDE00, 0xD83D}, 2, "\xEF\xBF\xBD\xEF\xBF\xBD"},
        // The length cuts a pair in half: the high half must not be paired
        // with the unit past the limit.
        Utf16Case{"PairCutByLength", u"\U0001F600", 1, "\xEF\xBF\xBD"},
        // Embedded NUL within the length is kept; the limit is the length.
        Utf16Case{"EmbeddedNulAndLimit", std::u16string{u'a', 0, u'b', u'c'}, 3,
                  std::string("a\0b", 3)}),
    [](const ::testing::TestParamInfo<Utf16Case>& info) { return info.param.mName; });

TEST(String8Test, NullUtf16GivesEmpty) {
    String8 s("old");
    EXPECT_EQ(s.setTo(static_cast<const char16_t*>(nullptr), 4), OK);
    EXPECT_TRUE(s.isEmpty());
}

TEST(String8Test, AppendFormat) {
    String8 s("x=");
    s.appendFormat("%d/%s", 42, "y");
    EXPECT_STREQ(s.c_str(), "x=42/y");
}

}  // namespace
