#include "common/ZIRKFourCC.h"

#include <media/stagefright/MediaDefs.h>

#include <zirk/ZIRKByteReader.h>

namespace android {

namespace {

// The MIME strings are the framework's imported variables, so the table keeps
// their addresses and reads them at look-up time, never at static init.
struct VideoCodec {
    uint32_t mFourcc;
    const char* const* mMime;
};

const VideoCodec kVideoCodecs[] = {
    {fourcc('3', 'I', 'V', '2'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('3', 'i', 'v', '2'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('B', 'L', 'Z', '0'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('D', 'I', 'G', 'I'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('D', 'I', 'V', '1'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('D', 'I', 'V', 'X'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('D', 'X', '5', '0'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('D', 'X', 'G', 'M'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('E', 'M', '4', 'A'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('E', 'P', 'H', 'V'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('F', 'M', 'P', '4'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('F', 'V', 'F', 'W'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('H', 'D', 'X', '4'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('M', '4', 'C', 'C'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('M', '4', 'S', '2'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('M', 'P', '4', 'S'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('M', 'P', '4', 'V'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('M', 'V', 'X', 'M'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('R', 'M', 'P', '4'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('S', 'E', 'D', 'G'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('S', 'M', 'P', '4'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('U', 'M', 'P', '4'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('W', 'V', '1', 'F'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('X', 'V', 'I', 'D'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('X', 'V', 'I', 'X'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('X', 'v', 'i', 'D'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('d', 'i', 'v', '1'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('d', 'i', 'v', 'x'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('d', 'x', '5', '0'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('f', 'm', 'p', '4'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('h', 'd', 'x', '4'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('m', '4', 's', '2'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('m', 'p', '4', 's'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('m', 'p', '4', 'v'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('x', 'v', 'i', 'd'), &MEDIA_MIMETYPE_VIDEO_MPEG4},
    {fourcc('H', '2', '6', '4'), &MEDIA_MIMETYPE_VIDEO_AVC},
    {fourcc('a', 'v', 'c', '1'), &MEDIA_MIMETYPE_VIDEO_AVC},
    {fourcc('d', 'a', 'v', 'c'), &MEDIA_MIMETYPE_VIDEO_AVC},
    {fourcc('v', 's', 's', 'h'), &MEDIA_MIMETYPE_VIDEO_AVC},
    {fourcc('x', '2', '6', '4'), &MEDIA_MIMETYPE_VIDEO_AVC},
    {fourcc('H', '2', '6', '3'), &MEDIA_MIMETYPE_VIDEO_H263},
    {fourcc('M', 'J', 'P', 'G'), &MEDIA_MIMETYPE_VIDEO_MJPEG},
    {fourcc('m', 'j', 'p', 'g'), &MEDIA_MIMETYPE_VIDEO_MJPEG},
    {fourcc('D', 'I', 'V', '3'), &MEDIA_MIMETYPE_VIDEO_DIVX3},
    {fourcc('M', 'P', '4', '3'), &MEDIA_MIMETYPE_VIDEO_DIVX3},
    {fourcc('M', 'P', 'G', '2'), &MEDIA_MIMETYPE_VIDEO_MPEG2},
    {fourcc('m', 'p', 'g', '2'), &MEDIA_MIMETYPE_VIDEO_MPEG2},
    {fourcc('W', 'M', 'V', '1'), &MEDIA_MIMETYPE_VIDEO_WMV1},
    {fourcc('w', 'm', 'v', '1'), &MEDIA_MIMETYPE_VIDEO_WMV1},
    {fourcc('W', 'M', 'V', '2'), &MEDIA_MIMETYPE_VIDEO_WMV2},
    {fourcc('w', 'm', 'v', '2'), &MEDIA_MIMETYPE_VIDEO_WMV2},
    {fourcc('W', 'M', 'V', '3'), &MEDIA_MIMETYPE_VIDEO_WMV3},
    {fourcc('w', 'm', 'v', '3'), &MEDIA_MIMETYPE_VIDEO_WMV3},
    {fourcc('W', 'V', 'C', '1'), &MEDIA_MIMETYPE_VIDEO_WVC1},
    {fourcc('V', 'P', '8', '0'), &MEDIA_MIMETYPE_VIDEO_VPX},
};

}  // namespace

const char* ZIRKVideoMimeForFourcc(uint32_t code) {
    for (const VideoCodec& c : kVideoCodecs) {
        if (c.mFourcc == code) return *c.mMime;
    }
    return nullptr;
}

bool ZIRKReadBitmapInfoHeader(const uint8_t* data, size_t size, ZIRKBitmapInfo* out) {
    if (size < kZIRKBitmapInfoHeaderSize) return false;
    ZIRKByteReader r(data, size);
    uint32_t width = 0, height = 0;
    r.skip(4);  // biSize
    r.readLE32(&width);
    r.readLE32(&height);
    r.skip(4);  // biPlanes, biBitCount
    r.readBE32(&out->compression);
    r.seek(kZIRKBitmapInfoHeaderSize);
    out->width = static_cast<int32_t>(width);
    out->height = static_cast<int32_t>(height);
    out->extra = r.current();
    out->extraSize = r.remaining();
    return true;
}

}  // namespace android
