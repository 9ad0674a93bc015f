// zirk-probe's outputs on a hostile track: the format blob a file hands on
// (avcC, ES descriptor or the container's raw codec bytes), odd audio
// parameters, and samples of any size, time and flag, through the --extract
// sink for the track's codec and the timeline, both written to /dev/null.
//
// Input: byte 0 picks the codec and the blob's key, bytes 1-2 the blob's
// length (little-endian), byte 3 the channel count and byte 4 the rate's
// table entry; then the blob; then samples, each a length byte, a flags byte
// (bit 0 sync, bit 1 no time) and a 32-bit time in ms, followed by its bytes.
#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <memory>
#include <string>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MetaData.h>

#include "common/ZIRKMetaKeys.h"
#include "tools/ProbeExtract.h"
#include "tools/ProbeTimeline.h"

using namespace android;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 5) return 0;
    const char* const kMimes[] = {MEDIA_MIMETYPE_VIDEO_AVC, MEDIA_MIMETYPE_AUDIO_AAC, MEDIA_MIMETYPE_AUDIO_RAW,
                                  MEDIA_MIMETYPE_VIDEO_MPEG4, MEDIA_MIMETYPE_AUDIO_MPEG, "video/x-unknown"};
    const uint32_t kKeys[] = {kKeyAVCC, kKeyESDS, kKeyRawCodecSpecificData};
    const int32_t kRates[] = {0, 8000, 44100, 48000, 96000, INT32_MAX, -1};
    const size_t blob = std::min<size_t>(data[1] | data[2] << 8, size - 5);
    sp<MetaData> format = new MetaData;
    format->setCString(kKeyMIMEType, kMimes[data[0] % 6]);
    format->setData(kKeys[(data[0] / 6) % 3], MetaData::TYPE_NONE, data + 5, blob);
    format->setInt32(kKeyChannelCount, static_cast<int8_t>(data[3]));
    format->setInt32(kKeySampleRate, kRates[data[4] % 7]);

    std::string error;
    std::unique_ptr<zirk_probe::ProbeSampleSink> extract = zirk_probe::openExtractSink(format, "/dev/null", &error);
    zirk_probe::TimelineWriter timeline("/dev/null", "fuzz");
    zirk_probe::ProbeSampleSink* picture = timeline.addTrack(0, format);
    for (size_t pos = 5 + blob; size - pos >= 6;) {
        zirk_probe::ProbeSample sample;
        const size_t length = std::min<size_t>(data[pos], size - pos - 6);
        sample.sync = data[pos + 1] & 1;
        sample.hasTime = !(data[pos + 1] & 2);
        sample.timeUs = int64_t(static_cast<int32_t>(data[pos + 2] | data[pos + 3] << 8 | data[pos + 4] << 16 |
                                                      uint32_t(data[pos + 5]) << 24)) * 1000;
        sample.data = data + pos + 6;
        sample.size = length;
        if (extract) extract->onSample(sample);
        picture->onSample(sample);
        pos += 6 + length;
    }
    if (extract) extract->finish(&error);
    timeline.write(&error);
    return 0;
}
