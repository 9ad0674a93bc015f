// Fatal checks whose messages name a fixed place. Each component that keeps
// such checks holds one table of them (its log tag and source path, and per
// site the line and the check's text as its message spells it), so the code
// states the condition it tests and the table states what the message says;
// shared pieces (the audio splitters) are handed their owner's table and
// report as their owner. The messages have the framework's form:
//   "<source>:<line> CHECK(<text>) failed."
//   "<source>:<line> CHECK_EQ( <text>) failed: <a> vs. <b>"
// Tables are constants with static storage; nothing here holds state.
#ifndef ZIRK_CHECK_SITES_H_
#define ZIRK_CHECK_SITES_H_

#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AString.h>

namespace android {

struct ZIRKCheckComponent {
    const char* tag;     // log tag of the component
    const char* source;  // path the messages carry, e.g. "avi/ZIRKAVIExtractor"
};

struct ZIRKCheckSite {
    int line;
    bool isEquality;   // CHECK_EQ( a,b) rather than CHECK(condition)
    const char* text;  // the condition, or "a,b" for an equality
};

// Formats the site's message (with the compared values of an equality) and
// aborts through __android_log_assert.
[[noreturn]] void zirkFailCheckSite(const ZIRKCheckComponent& component, const ZIRKCheckSite& site,
                                    const AString& values);

}  // namespace android

// Fatal whenever `condition` is false; these must stay fatal where used.
// The _HERE forms are for checks whose message carries no fixed line: the
// line is that of the call, so the message's path and line are the file the
// check is in, while the text stays the one the message must spell.
#define ZIRK_CHECK_HERE(component, text, condition)                                 \
    do {                                                                            \
        if (!(condition)) {                                                         \
            static const ::android::ZIRKCheckSite ___site = {__LINE__, false, text}; \
            ::android::zirkFailCheckSite(component, ___site, ::android::AString());   \
        }                                                                           \
    } while (false)

#define ZIRK_CHECK_EQ_HERE(component, text, a, b)                                   \
    do {                                                                            \
        ::android::AString ___values = ::android::Compare_EQ(a, b);                 \
        if (!___values.empty()) {                                                   \
            static const ::android::ZIRKCheckSite ___site = {__LINE__, true, text};  \
            ::android::zirkFailCheckSite(component, ___site, ___values);            \
        }                                                                           \
    } while (false)

#define ZIRK_CHECK_SITE(component, site, condition)                                 \
    do {                                                                            \
        if (!(condition)) ::android::zirkFailCheckSite(component, site, ::android::AString()); \
    } while (false)

#define ZIRK_CHECK_EQ_SITE(component, site, a, b)                                   \
    do {                                                                            \
        ::android::AString ___values = ::android::Compare_EQ(a, b);                 \
        if (!___values.empty()) ::android::zirkFailCheckSite(component, site, ___values); \
    } while (false)

// "<source>:<line> CHECK_NE( <text>) failed: <a> vs. <b>"; must stay fatal
// where used.
#define ZIRK_CHECK_NE_HERE(component, text, a, b)                                           \
    do {                                                                                     \
        ::android::AString ___values = ::android::Compare_NE(a, b);                          \
        if (!___values.empty()) {                                                            \
            ::android::AString ___rest(" CHECK_NE( " text ") failed: ");                    \
            ___rest.append(___values);                                                       \
            ::android::zirkCheckFailed((component).tag, (component).source, __LINE__, text, \
                                       ___rest);                                             \
        }                                                                                    \
    } while (false)

#endif
