// Shared driver of the fuzz targets. Each target is one small file that calls
// one of these with the fuzzer's input.
//
// Fatal checks: the library ends the process on its deliberate fatal
// checks; under fuzzing such a check is an expected outcome, not a
// finding. The harness installs an assert hook that throws FatalCheck out of
// __android_log_assert; the target catches it, records which check fired (by
// its message without the line number) and goes on with the next input.
// Every other crash, sanitizer report, leak, slow input or memory blow-up is
// a finding.
#ifndef ZIRK_FUZZ_HARNESS_H_
#define ZIRK_FUZZ_HARNESS_H_

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include <media/stagefright/DataSource.h>

namespace android {
namespace fuzz {

struct FatalCheck {
    std::string message;
};

// Installs the throwing assert hook and silences the logger. Idempotent.
void initHarness();

// Records a fired check; prints it to stderr the first time it is seen.
void noteFatalCheck(const FatalCheck& check);

// A DataSource over the fuzzer's bytes (valid while they are).
sp<DataSource> makeFuzzSource(const uint8_t* data, size_t size);

// Sniffs the input, then builds the extractor for the sniffed type and lists
// its tracks and formats.
int runSniffAndCreate(const uint8_t* data, size_t size);

// Forces the extractor for `containerMime`, lists every track and format,
// reads every track to the end, then seeks in each of the four modes and
// reads again.
int runExtractor(const uint8_t* data, size_t size, const char* containerMime);

// The same over any source, with what it found: the tracks, the buffers
// each track's first pass read (-1: the track did not start), and the fatal
// check that ended the run, if one did.
struct RunOutcome {
    size_t tracks = 0;
    std::vector<int> samples;
    std::string fatal;
};
RunOutcome runExtractor(const sp<DataSource>& source, const char* containerMime);

}  // namespace fuzz
}  // namespace android

#endif
