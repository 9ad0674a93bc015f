// The platform stand-in's pieces whose rules the demultiplexer tests do not
// reach: the fatal-check message forms (logs are matched on them) and the
// host logger the checks and the demultiplexers report through, the bit
// reader's edges, MetaData's type codes, String8's UTF-16 conversion, and
// MediaBufferGroup's blocking and lifetime rules.
#define CHECK_SOURCE_PATH "tests/CheckForms"
#define LOG_TAG "CheckFormsTest"

#include <gtest/gtest.h>

#include <string.h>

#include <chrono>
#include <future>
#include <string>

#include <log/log.h>
#include <log/log_host.h>
#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaBufferGroup.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/ABitReader.h>
#include <media/stagefright/foundation/ADebug.h>
#include <utils/String8.h>

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
        {"Plain", [] { bool started = false; CHECK(started); },
         fatalLine(checkMessage(kSource, "CHECK(started) failed."))},
        {"Eq", [] { int a = 1, b = 2; CHECK_EQ(a, b); },
         fatalLine(checkMessage(kSource, "CHECK_EQ( a,b) failed: 1 vs. 2"))},
        {"Signed", [] { long long i = -1; CHECK_GE(i, 0); }, checkMessage(kSource, "CHECK_GE( i,0) failed: -1 vs. 0")},
        {"Line", [] { CHECK_AT(1234, 1 + 1 == 3); },
         fatalLine(checkMessageAt(kSource, 1234, "CHECK(1 + 1 == 3) failed."))},
        {"LineCompare", [] { size_t n = 0; CHECK_GT_AT(77, n, 0u); },
         checkMessageAt(kSource, 77, "CHECK_GT( n,0u) failed: 0 vs. 0")},
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

// ABitReader edges that header parsers lean on: never touch memory past the
// array, and report running out instead of aborting. (Reads across byte
// boundaries are checked by every exact value of the codec-helper, FLV tag
// and AC-3 header tests.)

// Distinct nibbles so that any misaligned read shows up as a wrong value.
const uint8_t kBytes[] = {0x12, 0x34, 0x56, 0x78, 0x9A};

TEST(ABitReaderTest, EndEdgesAndGracefulFailure) {
    ABitReader exact(kBytes, sizeof(kBytes)), past(kBytes, sizeof(kBytes)), skipped(kBytes, sizeof(kBytes));
    exact.skipBits(40);  // exactly the end is not an over-read
    EXPECT_TRUE(!exact.overRead() && exact.numBitsLeft() == 0u);
    past.skipBits(36);
    EXPECT_EQ(past.getBits(8), 0xA0u);  // last nibble, then zeros
    EXPECT_TRUE(past.overRead());
    EXPECT_EQ(past.getBits(32), 0u);
    EXPECT_EQ(past.data(), kBytes + sizeof(kBytes));
    skipped.skipBits(41);
    EXPECT_TRUE(skipped.overRead() && skipped.numBitsLeft() == 0u);
    ABitReader empty(nullptr, 0);
    EXPECT_EQ(empty.getBits(7), 0u);
    EXPECT_TRUE(empty.overRead());
    ABitReader r(kBytes, sizeof(kBytes));  // a graceful failure leaves the state unchanged
    r.skipBits(30);
    uint32_t v = 0xDEADBEEF;
    EXPECT_FALSE(r.getBitsGraceful(11, &v) || r.getBitsGraceful(33, &v));  // 33: wider than a result
    EXPECT_EQ(v, 0xDEADBEEFu);
    EXPECT_EQ(r.numBitsLeft(), 10u);
    EXPECT_FALSE(r.overRead());
    ASSERT_TRUE(r.getBitsGraceful(10, &v));
    EXPECT_EQ(v, 0x09Au);
}

// MetaData keeps each value's type code: a typed finder must not hand out a value
// stored under another type (an 'avcc' blob read as an int32 is a silent misparse).
// Blobs and their type codes are checked wherever the demultiplexer tests read
// codec data; this is what they do not reach.
TEST(MetaDataTest, TypedFindersRejectOtherTypes) {
    sp<MetaData> meta = new MetaData;
    meta->setInt32(kKeyWidth, 176);
    EXPECT_FALSE(meta->setInt32(kKeyDuration, 5));
    EXPECT_TRUE(meta->setInt64(kKeyDuration, 5));  // replaced, as another type
    meta->setCString(kKeyMIMEType, "video/avc");
    const int32_t raw = 42;
    meta->setData('263A', 0, &raw, sizeof(raw));  // right size, wrong type code
    int32_t i32;
    int64_t i64;
    const char* s;
    EXPECT_FALSE(meta->findInt64(kKeyWidth, &i64) || meta->findCString(kKeyWidth, &s) ||
                 meta->findInt32(kKeyDuration, &i32) || meta->findInt32(kKeyMIMEType, &i32) ||
                 meta->findInt32('263A', &i32) || meta->findInt32('none', &i32));
    EXPECT_TRUE(meta->findInt32(kKeyWidth, &i32) && meta->findInt64(kKeyDuration, &i64));
    EXPECT_EQ(std::make_pair(i32, i64), std::make_pair(176, int64_t(5)));
}

// UTF-16 to UTF-8 as ASF and MOV titles use it: every encoded length, and the
// lone-surrogate replacement that keeps the output valid UTF-8.
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

// MediaBufferGroup hands out pooled buffers, blocks readers when all are out,
// and must survive buffers outliving it. Run under ASan for lifetime faults.
class MediaBufferGroupTest : public ::testing::Test {
protected:
    void SetUp() override {
        mGroup->add_buffer(new MediaBuffer(64));
        mGroup->add_buffer(new MediaBuffer(64));
    }
    void TearDown() override { delete mGroup; }
    MediaBufferGroup* mGroup = new MediaBufferGroup;
};

TEST_F(MediaBufferGroupTest, ThirdAcquireBlocksUntilAReleaseAndGetsItReset) {
    MediaBuffer *a = nullptr, *b = nullptr, *c = reinterpret_cast<MediaBuffer*>(0x1);
    ASSERT_EQ(mGroup->acquire_buffer(&a), OK);
    ASSERT_EQ(mGroup->acquire_buffer(&b, true), OK);
    EXPECT_TRUE(mGroup->acquire_buffer(&c, true) == NO_INIT && c == nullptr);  // non-blocking
    a->set_range(8, 16);
    a->meta_data()->setInt64(kKeyTime, 1234);
    std::future<MediaBuffer*> result = std::async(std::launch::async, [this] {
        MediaBuffer* c = nullptr;
        return mGroup->acquire_buffer(&c) == OK ? c : nullptr;
    });
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    a->release();
    ASSERT_EQ(result.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    c = result.get();
    ASSERT_EQ(c, a);  // the only free buffer
    EXPECT_EQ(std::make_pair(c->range_offset(), c->range_length()), std::make_pair(size_t(0), size_t(64)));
    EXPECT_TRUE(c->meta_data()->countEntries() == 0u && c->refcount() == 1);
    c->release();
    b->release();
    MediaBufferGroup empty;  // nothing to wait for
    EXPECT_EQ(empty.acquire_buffer(&c), NO_INIT);
}

TEST_F(MediaBufferGroupTest, HeldBufferOutlivesItsGroup) {
    MediaBuffer* held;
    ASSERT_EQ(mGroup->acquire_buffer(&held), OK);
    delete mGroup;  // frees the free buffer, detaches the held one
    mGroup = nullptr;
    memset(held->data(), 0xAB, held->size());  // ASan: use after free if it went too
    held->meta_data()->setInt32(kKeyIsSyncFrame, 1);
    held->release();  // deletes it; LeakSanitizer reports it otherwise
}

}  // namespace
