// ASFSource: the MediaSource of one exposed ASF track. Each read gathers the
// payloads of one media object (first, middle... last, or one whole payload)
// from the parser's payload reader straight into the source's single buffer,
// stamps it with the object's time, puts the VC-1 frame start code in front
// of every WVC1/WMVA object, and carries out seek requests through the
// parser's seek lookup.
//
// Owner: the framework, through sp<>; created by ASFExtractor::getTrack. It
// holds the parser and the file (sp<>), so it may outlive the extractor.
// Threads: start, stop and read take the source's lock. The read position
// is the parser's AsfTrack of this track, which sources on other threads
// may share (getTrack makes a new source per call): every use of it also
// takes a lock of that (parser, track) pair, see ASFSource.cpp.
#ifndef ZIRK_ASF_SOURCE_H_
#define ZIRK_ASF_SOURCE_H_

#include <stdint.h>

#include <mutex>

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaBufferGroup.h>
#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

#include "asf/parser/ASFParser.h"

namespace android {

class ASFSource : public MediaSource {
public:
    // Largest sample buffer a source allocates. The track's maximum input
    // size comes from the file (a packet size, or an extended stream's
    // declared largest object, up to 2^31 - 1); a compressed WMV/WMA object
    // is far below this, so a larger claim is refused by start() rather
    // than allocated.
    static constexpr int32_t kMaxBufferBytes = 64 * 1024 * 1024;
    // The VC-1 frame start code put in front of every WVC1/WMVA object.
    static constexpr uint8_t kVC1StartCode[4] = {0x00, 0x00, 0x01, 0x0D};

    ASFSource(const sp<ASFParser>& parser, const sp<DataSource>& dataSource, unsigned int trackIndex);

    status_t start(MetaData* params = nullptr) override;
    status_t stop() override;
    sp<MetaData> getFormat() override;
    status_t read(MediaBuffer** out, const ReadOptions* options = nullptr) override;

protected:
    ~ASFSource() override;

private:
    // read() after the source's lock is held.
    status_t readLocked(MediaBuffer** out, const ReadOptions* options);
    status_t stopLocked();
    // Reads payloads up to the current object's last one, discarding them
    // (for an object that does not fit the buffer); false when the data
    // end first. Called with the track's position lock held.
    bool skipRestOfObject();

    sp<ASFParser> mParser;
    sp<DataSource> mDataSource;
    uint32_t mTrackIndex;
    const ASFParser::Track* mTrack;  // the parser's; its track list is fixed after construction
    MediaBufferGroup* mBufferGroup;
    bool mPrependStartCode;
    std::mutex mLock;

    ASFSource(const ASFSource&) = delete;
    ASFSource& operator=(const ASFSource&) = delete;
};

}  // namespace android

#endif
