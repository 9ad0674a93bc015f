// The codec bitstream helpers (AVC parameter sets, MPEG audio headers, H.263
// picture headers, MPEG-4 VOL headers) on untrusted bytes.
#include <string.h>

#include <vector>

#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/avc_utils.h>


using namespace android;

// Headers tried per input: every 4-byte window of a short input.
static const size_t kMaxHeaderWindows = 4096;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Exact-size copies, so that any over-read is outside an allocation.
    std::vector<uint8_t> copy(data, data + size);

    sp<ABuffer> accessUnit = new ABuffer(size);
    if (size > 0) memcpy(accessUnit->data(), data, size);
    sp<MetaData> avc = MakeAVCCodecSpecificData(accessUnit);
    int32_t width, height;
    FindAVCDimensions(copy.data(), copy.size(), &width, &height);

    for (size_t i = 0; i + 4 <= size && i < kMaxHeaderWindows; ++i) {
        uint32_t header = (uint32_t(data[i]) << 24) | (data[i + 1] << 16) | (data[i + 2] << 8) | data[i + 3];
        size_t frameSize;
        int rate, channels, bitrate, samples;
        GetMPEGAudioFrameSize(header, &frameSize, &rate, &channels, &bitrate, &samples);
    }

    int n = static_cast<int>(size > 0x7FFFFFFF ? 0x7FFFFFFF : size);
    Detect263AdvancedFeatures(copy.data(), n);
    ParseMPEG4GMCWarpPoint(copy.data(), n);
    return 0;
}
