#include "tools/ProbeTimeline.h"

#include <utility>

namespace zirk_probe {

namespace {
class NullSink : public ProbeSampleSink {
public:
    void onSample(const ProbeSample&) override {}
    bool finish(std::string*) override { return true; }
};
}  // namespace

struct TimelineWriter::Track {
    NullSink sink;
};

TimelineWriter::TimelineWriter(std::string path, std::string file) : mPath(std::move(path)), mFile(std::move(file)) {}
TimelineWriter::~TimelineWriter() = default;

ProbeSampleSink* TimelineWriter::addTrack(size_t, const android::sp<android::MetaData>&) {
    mTracks.emplace_back(new Track);
    return &mTracks.back()->sink;
}

void TimelineWriter::addSeekPoints(size_t, const android::sp<android::MediaExtractor>&) {}

bool TimelineWriter::write(std::string* error) {
    *error = "--timeline is not built yet";
    return false;
}

}  // namespace zirk_probe
