// --timeline OUT.svg: a picture per track of sample sizes against time, key
// frames, the bit rate per second and the seek points the track offers.
#ifndef ZIRK_TOOLS_PROBE_TIMELINE_H
#define ZIRK_TOOLS_PROBE_TIMELINE_H

#include <memory>
#include <string>
#include <vector>

#include <media/stagefright/MediaExtractor.h>
#include <media/stagefright/MetaData.h>

#include "tools/ProbeSink.h"

namespace zirk_probe {

// Collects the samples of each track added, then draws them all into one SVG
// file. Main thread only. Memory is bounded: a track keeps at most
// kMaxSamples samples (16 bytes each); later ones are counted, not drawn.
class TimelineWriter {
public:
    static constexpr size_t kMaxSamples = size_t(1) << 22;

    TimelineWriter(std::string path, std::string file);
    ~TimelineWriter();

    // The sink that collects track `index`'s samples; owned by the writer,
    // valid until it is destroyed.
    ProbeSampleSink* addTrack(size_t index, const android::sp<android::MetaData>& format);
    // Asks a fresh source of track `index` where seeks land (after the
    // track's samples are in): at most 100 seeks to the previous sync sample,
    // spread over the track's duration, and at most about 2 s of work.
    void addSeekPoints(size_t index, const android::sp<android::MediaExtractor>& extractor);
    // Writes the picture; false with *error set when the file cannot be written.
    bool write(std::string* error);

private:
    struct Track;
    std::string mPath, mFile;
    std::vector<std::unique_ptr<Track>> mTracks;
};

}  // namespace zirk_probe

#endif  // ZIRK_TOOLS_PROBE_TIMELINE_H
