// MP3Splitter: the DataSplitter of MPEG audio tracks (layers I-III), cutting
// the buffered bytes at MPEG audio frame boundaries.
// Owner: the track's source (sp<>). Threads: its reading thread only.
#ifndef ZIRK_COMMON_MP3_SPLITTER_H_
#define ZIRK_COMMON_MP3_SPLITTER_H_

#include "common/DataSplitter.h"

namespace android {

struct MP3Splitter : public DataSplitter {
    explicit MP3Splitter(const ZIRKSplitterChecks& checks);

    status_t append(MediaBuffer* buffer) override;
    status_t read(MediaBuffer** out, int64_t* seekTimeUs) override;

protected:
    ~MP3Splitter() override {}

private:
    bool resync();
};

}  // namespace android

#endif
