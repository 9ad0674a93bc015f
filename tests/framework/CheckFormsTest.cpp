// The fatal-check message forms (logs are matched on them), and the host
// logger and property store the checks and the demultiplexers report through.
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

namespace {

const char kSource[] = "tests/CheckForms";

std::string fatalLine(const std::string& pattern) { return "F/" LOG_TAG ": " + pattern; }

// Operands as written (with the macro's odd spacing) and their values, signed
// where negative; an explicit line replaces __LINE__; NULL is not expanded.
TEST(CheckFormsDeathTest, MessageForms) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    const struct { const char* mName; void (*mBody)(); std::string mPattern; } kCases[] = {
        {"Plain", [] { bool started = false; CHECK(started); }, fatalLine(checkMessage(kSource, "CHECK(started) failed."))},
        {"Eq", [] { int a = 1, b = 2; CHECK_EQ(a, b); }, fatalLine(checkMessage(kSource, "CHECK_EQ( a,b) failed: 1 vs. 2"))},
        {"Signed", [] { long long i = -1; CHECK_GE(i, 0); }, checkMessage(kSource, "CHECK_GE( i,0) failed: -1 vs. 0")},
        {"Line", [] { CHECK_AT(1234, 1 + 1 == 3); }, fatalLine(checkMessageAt(kSource, 1234, "CHECK(1 + 1 == 3) failed."))},
        {"LineCompare", [] { size_t n = 0; CHECK_GT_AT(77, n, 0u); }, checkMessageAt(kSource, 77, "CHECK_GT( n,0u) failed: 0 vs. 0")},
        {"Trespass", [] { TRESPASS(); }, checkMessage(kSource, "CHECK(!\"Should not be here.\") failed.")},
        {"NullKept", [] { const char* p = "x"; CHECK(p == NULL); }, checkMessage(kSource, "CHECK(p == NULL) failed.")},
    };
    for (const auto& c : kCases) EXPECT_DEATH(c.mBody(), c.mPattern) << c.mName;
    bool started = false;  // the number is the check's own line: keep both on one line
    EXPECT_DEATH(CHECK(started), checkMessageAt(kSource, __LINE__, "CHECK(started) failed."));
    CHECK_EQ(started, false);  // passing checks do nothing
    EXPECT_TRUE(Compare_EQ(1, 1).empty());
}

// A capture sees every line with priority, tag and formatted text; the
// minimum priority filters stderr only; an ended capture gets nothing.
TEST(LogTest, CaptureAndStderrFilter) {
    const int savedMin = zirk_log_get_min_priority();
    zirk_log_set_min_priority(ANDROID_LOG_WARN);
    { android::test::LogCapture ended; }
    __android_log_print(ANDROID_LOG_DEBUG, "T", "after");  // ASan: must not reach the ended capture
    android::test::LogCapture capture;
    ::testing::internal::CaptureStderr();
    __android_log_print(ANDROID_LOG_INFO, "ZIRKFLVExtractor", "Fail (%d): %s(%d)[%s]", -1007, "flv", 12, "step");
    __android_log_print(ANDROID_LOG_WARN, "T", "loud");
    std::string err = ::testing::internal::GetCapturedStderr();
    zirk_log_set_min_priority(savedMin);
    EXPECT_TRUE(err.find("ZIRKFLVExtractor") == std::string::npos && err.find("W/T: loud") != std::string::npos);
    ASSERT_EQ(capture.lines().size(), 2u);
    EXPECT_EQ(capture.lines()[0].tag, "ZIRKFLVExtractor");
    EXPECT_TRUE(capture.contains("Fail (-1007): flv(12)[step]", ANDROID_LOG_INFO));
}

TEST(PropertyTest, SetGetRemoveAndLimits) {
    zirk_property_clear_all();
    char value[PROPERTY_VALUE_MAX];
    const char* key = "debug.media.disableFlvSorensen";
    ASSERT_EQ(property_set(key, "true"), 0);
    EXPECT_TRUE(property_get(key, value, "0") == 4 && std::string(value) == "true");
    ASSERT_EQ(property_set(key, ""), 0);  // removes
    EXPECT_TRUE(property_get(key, value, "0") == 1 && std::string(value) == "0");
    EXPECT_EQ(property_set(std::string(PROPERTY_KEY_MAX, 'k').c_str(), "1"), -1);
    EXPECT_EQ(property_set("a", std::string(PROPERTY_VALUE_MAX, 'v').c_str()), -1);
    // A default longer than a value may be is cut to fit the caller's array.
    EXPECT_EQ(property_get("unset", value, std::string(200, 'd').c_str()), PROPERTY_VALUE_MAX - 1);
    EXPECT_EQ(value[PROPERTY_VALUE_MAX - 1], '\0');
    zirk_property_clear_all();
}

}  // namespace
