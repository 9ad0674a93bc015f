#include "common/ZIRKCodecConfig.h"

#include <log/log.h>
#include <media/stagefright/foundation/avc_utils.h>
#include <zirk/ZIRKByteReader.h>

#include "common/ZIRKMetaKeys.h"

namespace android {

bool ZIRKReadAVCC(const uint8_t* data, size_t size, ZIRKAVCCInfo* out) {
    if (size < kZIRKAVCCMinSize) return false;
    ZIRKByteReader r(data, size);
    uint8_t lengthSizeByte = 0;
    r.readU8(&out->version);
    r.skip(3);  // profile, compatibility, level
    r.readU8(&lengthSizeByte);
    out->nalLengthSize = (lengthSizeByte & 3) + 1;
    return true;
}

void ZIRKProbeMPEG4GMCWarpPoints(uint8_t* frame, size_t length, const sp<MetaData>& meta, const char* tag) {
    int n = ParseMPEG4GMCWarpPoint(frame, static_cast<int>(length));
    if (n < 0) n = 0;
    __android_log_print(ANDROID_LOG_DEBUG, tag, "MPEG4 GMC Wrap Point: %d", n);
    meta->setInt32(kKeyGMCWarpPoints, n);
}

void ZIRKProbeH263Features(uint8_t* frame, size_t length, const sp<MetaData>& meta, const char* tag) {
    int r = Detect263AdvancedFeatures(frame, static_cast<int>(length));
    __android_log_print(ANDROID_LOG_DEBUG, tag, "Detect263AdvancedFeatures() ret %d", r);
    if (r >= 0) {
        meta->setInt32(kKey263AdvancedFeatures, r);
    } else {
        // Nothing is aborted, whatever the words say.
        __android_log_print(ANDROID_LOG_ERROR, tag, "Fail to detect H.263 advanced features, abort!");
    }
}

}  // namespace android
