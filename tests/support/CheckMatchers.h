// Death-test helpers: a fatal check prints "F/<tag>: <source>:<line> <text>"
// on stderr before aborting. These build the regular expression that matches
// a given check text literally.
#ifndef ZIRK_TEST_CHECK_MATCHERS_H_
#define ZIRK_TEST_CHECK_MATCHERS_H_

#include <algorithm>
#include <string>

namespace android {
namespace test {

// Escapes every character a POSIX extended regular expression treats
// specially.
inline std::string regexEscape(const std::string& text) {
    static const std::string kSpecial = "\\^$.|?*+()[]{}";
    std::string out;
    for (char c : text) {
        if (kSpecial.find(c) != std::string::npos) out.push_back('\\');
        out.push_back(c);
    }
    return out;
}

// Matches "<source>:<any line> <checkText>", e.g.
//   checkMessage("flv/ZIRKFLVExtractor", "CHECK(mStarted) failed.")
inline std::string checkMessage(const std::string& source, const std::string& checkText) {
    return regexEscape(source) + ":[0-9]+ " + regexEscape(checkText);
}

// The same with a fixed line number.
inline std::string checkMessageAt(const std::string& source, int line, const std::string& checkText) {
    return regexEscape(source + ":" + std::to_string(line) + " " + checkText);
}

// For a check caught in-process (the fuzz harness turns fatal checks into an
// exception): true when `fired` is "<source>:<line> <text>...", `text` being
// the check text up to any point (a comparison's values may be left out).
inline bool isCheckMessage(const std::string& fired, const std::string& text) {
    const size_t digits = std::min(fired.find(':'), fired.size() - 1) + 1;
    size_t i = digits;
    while (i < fired.size() && fired[i] >= '0' && fired[i] <= '9') ++i;
    return i > digits && fired.compare(i, text.size() + 1, " " + text) == 0;
}

}  // namespace test
}  // namespace android

#endif
