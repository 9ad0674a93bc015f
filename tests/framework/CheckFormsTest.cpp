// The fatal-check message forms, which are part of the library's observable
// behaviour (logs are matched on them), plus the host logger and property
// store the checks and the demultiplexers report through.
#define CHECK_SOURCE_PATH "tests/CheckForms"
#define LOG_TAG "CheckFormsTest"

#include <gtest/gtest.h>

#include <string>

#include <cutils/properties.h>
#include <log/log.h>
#include <log/log_host.h>
#include <media/stagefright/foundation/ADebug.h>

#include "CheckMatchers.h"
#include "LogCapture.h"

using namespace android;
using android::test::checkMessage;
using android::test::checkMessageAt;
using android::test::LogCapture;

namespace {

const char kSource[] = "tests/CheckForms";

// The line a failing check writes, tag included.
std::string fatalLine(const std::string& pattern) {
    return "F/" LOG_TAG ": " + pattern;
}

struct DeathCase {
    const char* mName;
    void (*mBody)();
    std::string mPattern;
};

// Operands as written (with the macro's odd spacing) and their values, signed
// where negative; an explicit line replaces __LINE__; NULL is not expanded.
const DeathCase kDeathCases[] = {
    {"Plain", [] { bool started = false; CHECK(started); }, fatalLine(checkMessage(kSource, "CHECK(started) failed."))},
    {"Eq", [] { int a = 1, b = 2; CHECK_EQ(a, b); }, fatalLine(checkMessage(kSource, "CHECK_EQ( a,b) failed: 1 vs. 2"))},
    {"Ne", [] { int a = 1; CHECK_NE(a, 1); }, checkMessage(kSource, "CHECK_NE( a,1) failed: 1 vs. 1")},
    {"Gt", [] { int a = 1, b = 2; CHECK_GT(a, b); }, checkMessage(kSource, "CHECK_GT( a,b) failed: 1 vs. 2")},
    {"NegativeSigned", [] { long long index = -1; CHECK_GE(index, 0); },
     checkMessage(kSource, "CHECK_GE( index,0) failed: -1 vs. 0")},
    {"ExplicitLine", [] { CHECK_AT(1234, 1 + 1 == 3); },
     fatalLine(checkMessageAt(kSource, 1234, "CHECK(1 + 1 == 3) failed."))},
    {"ExplicitLineCompare", [] { size_t count = 0; CHECK_GT_AT(77, count, 0u); },
     checkMessageAt(kSource, 77, "CHECK_GT( count,0u) failed: 0 vs. 0")},
    {"Trespass", [] { TRESPASS(); }, checkMessage(kSource, "CHECK(!\"Should not be here.\") failed.")},
    {"NullKept", [] { const char* p = "x"; CHECK(p == NULL); }, checkMessage(kSource, "CHECK(p == NULL) failed.")},
};

TEST(CheckFormsDeathTest, MessageForms) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (const DeathCase& c : kDeathCases) EXPECT_DEATH(c.mBody(), c.mPattern) << c.mName;
    // The number is the check's own line: both __LINE__ below sit on one line.
    bool started = false;
    // clang-format off
    EXPECT_DEATH(CHECK(started), checkMessageAt(kSource, __LINE__, "CHECK(started) failed."));
    // clang-format on
}

TEST(CheckFormsTest, PassingChecksDoNothingAndCompareHelpersAreEmpty) {
    int a = 3;
    CHECK(a == 3);
    CHECK_EQ(a, 3);
    CHECK_GE(a, -1);
    CHECK_LT(static_cast<size_t>(a), 4u);
    EXPECT_TRUE(Compare_EQ(1, 1).empty());
    EXPECT_STREQ(Compare_EQ(-5, 7).c_str(), "-5 vs. 7");
}

// ---- logger ----

class LogTest : public ::testing::Test {
protected:
    void SetUp() override { mSavedMin = zirk_log_get_min_priority(); }
    void TearDown() override { zirk_log_set_min_priority(mSavedMin); }
    int mSavedMin = ANDROID_LOG_WARN;
};

TEST_F(LogTest, CaptureSeesEveryLineWithPriorityTagAndText) {
    LogCapture capture;
    zirk_log_set_min_priority(ANDROID_LOG_SILENT);
    __android_log_print(ANDROID_LOG_DEBUG, "ZIRKFLVExtractor", "Fail (%d): %s(%d)[%s]", -1007,
                        "flv", 12, "step");
    __android_log_print(ANDROID_LOG_ERROR, "ASFParser", "%s,line:%d", "parsePacket", 600);
    std::vector<android::test::LogLine> lines = capture.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].prio, ANDROID_LOG_DEBUG);
    EXPECT_EQ(lines[0].tag, "ZIRKFLVExtractor");
    EXPECT_EQ(lines[0].text, "Fail (-1007): flv(12)[step]");
    EXPECT_EQ(lines[1].prio, ANDROID_LOG_ERROR);
    EXPECT_EQ(lines[1].text, "parsePacket,line:600");
}

TEST_F(LogTest, MinimumPriorityFiltersStderrOnly) {
    LogCapture capture;
    zirk_log_set_min_priority(ANDROID_LOG_WARN);
    EXPECT_EQ(zirk_log_get_min_priority(), ANDROID_LOG_WARN);
    ::testing::internal::CaptureStderr();
    __android_log_print(ANDROID_LOG_INFO, "T", "quiet");
    __android_log_print(ANDROID_LOG_WARN, "T", "loud");
    std::string err = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(err.find("quiet"), std::string::npos);
    EXPECT_NE(err.find("W/T: loud"), std::string::npos);
    EXPECT_TRUE(capture.contains("quiet", ANDROID_LOG_INFO));
    EXPECT_TRUE(capture.contains("loud", ANDROID_LOG_WARN));
}

TEST_F(LogTest, NoCaptureAfterTheCaptureEnds) {
    { LogCapture capture; }
    zirk_log_set_min_priority(ANDROID_LOG_SILENT);
    __android_log_print(ANDROID_LOG_ERROR, "T", "after");  // would call into the destroyed capture
}

// ---- properties ----

class PropertyTest : public ::testing::Test {
protected:
    void SetUp() override { zirk_property_clear_all(); }
    void TearDown() override { zirk_property_clear_all(); }
    char mValue[PROPERTY_VALUE_MAX];
};

TEST_F(PropertyTest, DefaultSetGetRemove) {
    EXPECT_EQ(property_get("debug.media.disableFlvSorensen", mValue, nullptr), 0);
    EXPECT_STREQ(mValue, "");
    ASSERT_EQ(property_set("debug.media.disableFlvSorensen", "true"), 0);
    EXPECT_EQ(property_get("debug.media.disableFlvSorensen", mValue, "0"), 4);
    EXPECT_STREQ(mValue, "true");
    ASSERT_EQ(property_set("debug.media.disableFlvSorensen", ""), 0);  // removes
    EXPECT_EQ(property_get("debug.media.disableFlvSorensen", mValue, "0"), 1);
    EXPECT_STREQ(mValue, "0");
}

TEST_F(PropertyTest, LimitsAndTruncation) {
    const std::string longKey(PROPERTY_KEY_MAX, 'k');
    EXPECT_EQ(property_set(longKey.c_str(), "1"), -1);
    const std::string longValue(PROPERTY_VALUE_MAX, 'v');
    EXPECT_EQ(property_set("a", longValue.c_str()), -1);
    const std::string maxValue(PROPERTY_VALUE_MAX - 1, 'v');
    ASSERT_EQ(property_set("a", maxValue.c_str()), 0);
    EXPECT_EQ(property_get("a", mValue, nullptr), PROPERTY_VALUE_MAX - 1);
    EXPECT_EQ(std::string(mValue), maxValue);

    // A default longer than a value may be is cut to fit the caller's array.
    mValue[PROPERTY_VALUE_MAX - 1] = 'X';
    const std::string longDefault(200, 'd');
    EXPECT_EQ(property_get("unset", mValue, longDefault.c_str()), PROPERTY_VALUE_MAX - 1);
    EXPECT_EQ(mValue[PROPERTY_VALUE_MAX - 1], '\0');
}

}  // namespace
