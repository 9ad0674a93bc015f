// ASFExtractor: the MediaExtractor for ASF files (WMV, WMA and the other
// codecs ASF carries). It owns the ASFParser, which parses the whole header
// (and the index objects) in the extractor's constructor; the constructor
// then turns each parsed stream into a track format from the stream's
// type-specific data (WAVEFORMATEX or BITMAPINFOHEADER). Streams whose codec
// is not supported, or whose type-specific data cannot be read, are hidden:
// the exposed tracks are numbered 0, 1, ... in parser order, skipping them.
//
// Owner: the framework, through sp<>. The parser is shared (sp<>) with the
// track sources, so it outlives the extractor when they do.
// Lifetime: all formats are built in the constructor; afterwards only
// getMetaData writes (the container type, into the file metadata).
// Threads: queried from the framework's calling thread.
#ifndef ZIRK_ASF_EXTRACTOR_H_
#define ZIRK_ASF_EXTRACTOR_H_

#include <stddef.h>
#include <stdint.h>

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaExtractor.h>
#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

#include "asf/parser/ASFParser.h"

namespace android {

class ASFExtractor : public MediaExtractor {
public:
    explicit ASFExtractor(const sp<DataSource>& source);

    size_t countTracks() override;
    sp<MediaSource> getTrack(size_t index) override;
    sp<MetaData> getTrackMetaData(size_t index, uint32_t flags) override;
    sp<MetaData> getMetaData() override;

    // The MIME type of an audio format tag or of a video FourCC (read
    // big-endian: "H264" is 0x48323634); null for a codec not supported.
    // Windows Media codecs map only while the system property
    // kSupportWMVAProperty is non-zero, read on every call.
    static const char* codecToMime(uint32_t codec);
    static constexpr const char* kSupportWMVAProperty = "media.tamelordecode.supportwmva";

protected:
    ~ASFExtractor() override;

private:
    sp<DataSource> mDataSource;
    sp<ASFParser> mParser;

    // Builds the format of parser track `trackIndex` and stores it as the
    // track's mMeta (left null, so the track hidden, on any error).
    status_t setMetaData(unsigned int trackIndex);
    status_t setAudioMetaData(ASFParser::Track* track, const sp<MetaData>& meta);
    status_t setVideoMetaData(ASFParser::Track* track, const sp<MetaData>& meta);
    // The parser index of exposed track `index`; false when out of range.
    bool rawTrackIndex(size_t index, size_t* raw) const;

    ASFExtractor(const ASFExtractor&) = delete;
    ASFExtractor& operator=(const ASFExtractor&) = delete;
};

// Sniffing (SniffASF.cpp). SniffASF claims an ASF file with confidence 0.8,
// as the ASF container type when it holds video and the WMA container type
// otherwise; `meta` is never touched.
bool SniffASF(const sp<DataSource>& source, String8* mimeType, float* confidence, sp<AMessage>* meta);
// True for an ASF file, with *isVideo telling whether it holds video: from
// the header's Codec List Object, else from a full parse.
bool SniffASFFormat(const sp<DataSource>& source, bool* isVideo);
// True when the file begins with the Header Object GUID.
bool SniffASFFormat(const sp<DataSource>& source);

}  // namespace android

#endif
