// Fatal checks of the framework's form, used where an invariant must end the
// process. A failed check formats
//   "<source>:<line> CHECK(<expression>) failed."            or
//   "<source>:<line> CHECK_EQ( <lhs>,<rhs>) failed: <a> vs. <b>"
// and calls __android_log_assert, which aborts.
//
// <source> is CHECK_SOURCE_PATH, which each component defines before its
// includes as its path in the library's tree (e.g. "flv/ZIRKFLVExtractor");
// it defaults to __FILE__. <line> is __LINE__; the _AT forms take the line
// explicitly where a component's check message carries a fixed line number.
#ifndef A_DEBUG_H_
#define A_DEBUG_H_

#include <string.h>

#include <log/log.h>
#include <media/stagefright/foundation/AString.h>

#ifndef CHECK_SOURCE_PATH
#define CHECK_SOURCE_PATH __FILE__
#endif

#ifndef LOG_TAG
#define LOG_TAG NULL
#endif

namespace android {

// Empty when the comparison holds; otherwise "<a> vs. <b>". Checks compare
// fields of mixed signedness exactly as their messages spell them (an
// unsigned header field against an int literal), so sign-compare warnings
// are off inside the helpers.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wsign-compare"
#define ZIRK_MAKE_COMPARE(suffix, op)                                       \
    template <class A, class B>                                             \
    AString Compare_##suffix(const A& a, const B& b) {                      \
        AString res;                                                        \
        if (!(a op b)) {                                                    \
            res.append(a);                                                  \
            res.append(" vs. ");                                            \
            res.append(b);                                                  \
        }                                                                   \
        return res;                                                         \
    }

ZIRK_MAKE_COMPARE(EQ, ==)
ZIRK_MAKE_COMPARE(NE, !=)
ZIRK_MAKE_COMPARE(LE, <=)
ZIRK_MAKE_COMPARE(LT, <)
ZIRK_MAKE_COMPARE(GE, >=)
ZIRK_MAKE_COMPARE(GT, >)

#undef ZIRK_MAKE_COMPARE
#pragma GCC diagnostic pop

// Formats "<source>:<line><rest>" and aborts through __android_log_assert.
[[noreturn]] void zirkCheckFailed(const char* tag, const char* source, int line,
                                  const char* conditionText, const AString& rest);

}  // namespace android

// Every public macro stringifies its own arguments, so the message shows the
// expression as written (NULL stays NULL).
#define ZIRK_CHECK_IMPL(line, condition, text)                                        \
    do {                                                                              \
        if (!(condition)) {                                                           \
            ::android::zirkCheckFailed(LOG_TAG, CHECK_SOURCE_PATH, (line), text,      \
                                       ::android::AString(" CHECK(" text ") failed.")); \
        }                                                                             \
    } while (false)

#define ZIRK_CHECK_OP_IMPL(line, suffix, x, y, head)                                  \
    do {                                                                              \
        ::android::AString ___res = ::android::Compare_##suffix(x, y);                \
        if (!___res.empty()) {                                                        \
            ::android::AString ___full(head);                                         \
            ___full.append(___res);                                                   \
            ::android::zirkCheckFailed(LOG_TAG, CHECK_SOURCE_PATH, (line), head, ___full); \
        }                                                                             \
    } while (false)

#define CHECK_AT(line, condition) ZIRK_CHECK_IMPL(line, condition, #condition)
#define CHECK_EQ_AT(line, x, y) ZIRK_CHECK_OP_IMPL(line, EQ, x, y, " CHECK_EQ( " #x "," #y ") failed: ")
#define CHECK_NE_AT(line, x, y) ZIRK_CHECK_OP_IMPL(line, NE, x, y, " CHECK_NE( " #x "," #y ") failed: ")
#define CHECK_LE_AT(line, x, y) ZIRK_CHECK_OP_IMPL(line, LE, x, y, " CHECK_LE( " #x "," #y ") failed: ")
#define CHECK_LT_AT(line, x, y) ZIRK_CHECK_OP_IMPL(line, LT, x, y, " CHECK_LT( " #x "," #y ") failed: ")
#define CHECK_GE_AT(line, x, y) ZIRK_CHECK_OP_IMPL(line, GE, x, y, " CHECK_GE( " #x "," #y ") failed: ")
#define CHECK_GT_AT(line, x, y) ZIRK_CHECK_OP_IMPL(line, GT, x, y, " CHECK_GT( " #x "," #y ") failed: ")

#define CHECK(condition) ZIRK_CHECK_IMPL(__LINE__, condition, #condition)
#define CHECK_EQ(x, y) ZIRK_CHECK_OP_IMPL(__LINE__, EQ, x, y, " CHECK_EQ( " #x "," #y ") failed: ")
#define CHECK_NE(x, y) ZIRK_CHECK_OP_IMPL(__LINE__, NE, x, y, " CHECK_NE( " #x "," #y ") failed: ")
#define CHECK_LE(x, y) ZIRK_CHECK_OP_IMPL(__LINE__, LE, x, y, " CHECK_LE( " #x "," #y ") failed: ")
#define CHECK_LT(x, y) ZIRK_CHECK_OP_IMPL(__LINE__, LT, x, y, " CHECK_LT( " #x "," #y ") failed: ")
#define CHECK_GE(x, y) ZIRK_CHECK_OP_IMPL(__LINE__, GE, x, y, " CHECK_GE( " #x "," #y ") failed: ")
#define CHECK_GT(x, y) ZIRK_CHECK_OP_IMPL(__LINE__, GT, x, y, " CHECK_GT( " #x "," #y ") failed: ")

#define TRESPASS() CHECK(!"Should not be here.")

#endif
