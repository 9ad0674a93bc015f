#include <media/stagefright/MediaDefs.h>

namespace android {

// Platform strings.
const char* MEDIA_MIMETYPE_CONTAINER_AVI = "video/avi";
const char* MEDIA_MIMETYPE_VIDEO_AVC = "video/avc";
const char* MEDIA_MIMETYPE_VIDEO_MPEG4 = "video/mp4v-es";
const char* MEDIA_MIMETYPE_VIDEO_H263 = "video/3gpp";
const char* MEDIA_MIMETYPE_VIDEO_MPEG2 = "video/mpeg2";
const char* MEDIA_MIMETYPE_VIDEO_VPX = "video/x-vnd.on2.vp8";
const char* MEDIA_MIMETYPE_AUDIO_AAC = "audio/mp4a-latm";
const char* MEDIA_MIMETYPE_AUDIO_MPEG = "audio/mpeg";
const char* MEDIA_MIMETYPE_AUDIO_MPEG_LAYER_II = "audio/mpeg-L2";
const char* MEDIA_MIMETYPE_AUDIO_AMR_NB = "audio/3gpp";
const char* MEDIA_MIMETYPE_AUDIO_AMR_WB = "audio/amr-wb";
const char* MEDIA_MIMETYPE_AUDIO_AC3 = "audio/ac3";
const char* MEDIA_MIMETYPE_AUDIO_RAW = "audio/raw";
const char* MEDIA_MIMETYPE_AUDIO_G711_ALAW = "audio/g711-alaw";
const char* MEDIA_MIMETYPE_AUDIO_G711_MLAW = "audio/g711-mlaw";
const char* MEDIA_MIMETYPE_AUDIO_QCELP = "audio/qcelp";
const char* MEDIA_MIMETYPE_TEXT_3GPP = "text/3gpp-tt";

// This library's own strings, for types the platform leaves unnamed.
const char* MEDIA_MIMETYPE_CONTAINER_ASF = "video/x-ms-asf";
const char* MEDIA_MIMETYPE_CONTAINER_WMA = "audio/x-ms-wma";
const char* MEDIA_MIMETYPE_CONTAINER_MOV = "video/quicktime";
const char* MEDIA_MIMETYPE_CONTAINER_FLV = "video/x-flv";
const char* MEDIA_MIMETYPE_CONTAINER_REALMEDIA = "application/vnd.rn-realmedia";
const char* MEDIA_MIMETYPE_VIDEO_SORENSEN = "video/x-sorenson-spark";
const char* MEDIA_MIMETYPE_VIDEO_MJPEG = "video/x-motion-jpeg";
const char* MEDIA_MIMETYPE_VIDEO_DIVX = "video/divx";
const char* MEDIA_MIMETYPE_VIDEO_DIVX3 = "video/divx3";
const char* MEDIA_MIMETYPE_VIDEO_WMV1 = "video/x-ms-wmv1";
const char* MEDIA_MIMETYPE_VIDEO_WMV2 = "video/x-ms-wmv2";
const char* MEDIA_MIMETYPE_VIDEO_WMV3 = "video/x-ms-wmv3";
const char* MEDIA_MIMETYPE_VIDEO_WMVA = "video/x-ms-wmva";
const char* MEDIA_MIMETYPE_VIDEO_WVC1 = "video/x-ms-wvc1";
const char* MEDIA_MIMETYPE_AUDIO_WMA = "audio/x-ms-wma-codec";

}  // namespace android
