// Captures the library's log lines for the lifetime of the object, so tests
// can assert the exact messages. One capture at a time per process.
#ifndef ZIRK_TEST_LOG_CAPTURE_H_
#define ZIRK_TEST_LOG_CAPTURE_H_

#include <mutex>
#include <string>
#include <vector>

#include <log/log.h>
#include <log/log_host.h>

namespace android {
namespace test {

struct LogLine {
    int prio;
    std::string tag;
    std::string text;
};

class LogCapture {
public:
    LogCapture() { zirk_log_set_capture(&LogCapture::hook, this); }
    ~LogCapture() { zirk_log_set_capture(nullptr, nullptr); }

    std::vector<LogLine> lines() const {
        std::lock_guard<std::mutex> lock(mLock);
        return mLines;
    }
    // Number of lines with exactly this text (and priority, unless -1).
    size_t count(const std::string& text, int prio = -1) const {
        std::lock_guard<std::mutex> lock(mLock);
        size_t n = 0;
        for (const LogLine& l : mLines) {
            if (l.text == text && (prio < 0 || l.prio == prio)) ++n;
        }
        return n;
    }
    bool contains(const std::string& text, int prio = -1) const { return count(text, prio) > 0; }
    // The lines joined as "|prio/tag: text" each; given a priority, only its lines, as "|text" each.
    std::string joined(int prio = -1) const {
        std::string s;
        for (const LogLine& l : lines()) {
            if (prio < 0) s += "|" + std::to_string(l.prio) + "/" + l.tag + ": " + l.text;
            if (l.prio == prio) s += "|" + l.text;
        }
        return s;
    }

private:
    static void hook(void* cookie, int prio, const char* tag, const char* text) {
        LogCapture* self = static_cast<LogCapture*>(cookie);
        std::lock_guard<std::mutex> lock(self->mLock);
        self->mLines.push_back({prio, tag, text});
    }

    mutable std::mutex mLock;
    std::vector<LogLine> mLines;
};

}  // namespace test
}  // namespace android

#endif
