// UTF-16 to UTF-8 as ASF and MOV titles use it: every encoded length, and the
// lone-surrogate replacement that keeps the output valid UTF-8.
#include <gtest/gtest.h>

#include <string>

#include <utils/String8.h>

using namespace android;

namespace {

TEST(String8Test, FromUtf16) {
    const struct { const char* mName; std::u16string mInput; size_t mLength; std::string mExpected; } kCases[] = {
        {"Ascii", u"Title", 5, "Title"},
        {"TwoAndThreeByteEdges", u"\u0080\u07FF\u0800", 3, "\xC2\x80\xDF\xBF\xE0\xA0\x80"},
        {"SurrogatePair", u"\U0001F600", 2, "\xF0\x9F\x98\x80"},
        {"HighestCodePoint", u"\U0010FFFF", 2, "\xF4\x8F\xBF\xBF"},
        {"LoneHighThenAscii", {0xD83D, u'A'}, 2, "\xEF\xBF\xBD" "A"},
        {"LowThenHigh", {0xDE00, 0xD83D}, 2, "\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"PairCutByLength", u"\U0001F600", 1, "\xEF\xBF\xBD"},  // not paired with the unit past the limit
        {"EmbeddedNulAndLimit", {u'a', 0, u'b', u'c'}, 3, std::string("a\0b", 3)},
    };
    for (const auto& c : kCases) {
        String8 s("old");
        ASSERT_EQ(s.setTo(c.mInput.data(), c.mLength), OK) << c.mName;
        EXPECT_EQ(std::string(s.c_str(), s.size()), c.mExpected) << c.mName;
        String8 t(c.mInput.data(), c.mLength);
        EXPECT_EQ(std::string(t.c_str(), t.size()), c.mExpected) << c.mName;
    }
    String8 s("old");
    EXPECT_EQ(s.setTo(static_cast<const char16_t*>(nullptr), 4), OK);
    EXPECT_TRUE(s.isEmpty());
}

}  // namespace
