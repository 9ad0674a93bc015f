// MIME types of containers and codecs. They are exported variables (not
// macros), so tables holding them must be filled at run time.
// Where the platform defines a public string it is used here; the others are
// this library's own and are listed once, below.
#ifndef MEDIA_DEFS_H_
#define MEDIA_DEFS_H_

namespace android {

extern const char* MEDIA_MIMETYPE_CONTAINER_ASF;
extern const char* MEDIA_MIMETYPE_CONTAINER_WMA;
extern const char* MEDIA_MIMETYPE_CONTAINER_AVI;
extern const char* MEDIA_MIMETYPE_CONTAINER_MOV;
extern const char* MEDIA_MIMETYPE_CONTAINER_FLV;
extern const char* MEDIA_MIMETYPE_CONTAINER_REALMEDIA;

extern const char* MEDIA_MIMETYPE_VIDEO_AVC;
extern const char* MEDIA_MIMETYPE_VIDEO_MPEG4;
extern const char* MEDIA_MIMETYPE_VIDEO_H263;
extern const char* MEDIA_MIMETYPE_VIDEO_MPEG2;
extern const char* MEDIA_MIMETYPE_VIDEO_SORENSEN;
extern const char* MEDIA_MIMETYPE_VIDEO_VPX;
extern const char* MEDIA_MIMETYPE_VIDEO_MJPEG;
extern const char* MEDIA_MIMETYPE_VIDEO_DIVX;
extern const char* MEDIA_MIMETYPE_VIDEO_DIVX3;
extern const char* MEDIA_MIMETYPE_VIDEO_WMV1;
extern const char* MEDIA_MIMETYPE_VIDEO_WMV2;
extern const char* MEDIA_MIMETYPE_VIDEO_WMV3;
extern const char* MEDIA_MIMETYPE_VIDEO_WMVA;
extern const char* MEDIA_MIMETYPE_VIDEO_WVC1;

extern const char* MEDIA_MIMETYPE_AUDIO_AAC;
extern const char* MEDIA_MIMETYPE_AUDIO_MPEG;
extern const char* MEDIA_MIMETYPE_AUDIO_MPEG_LAYER_II;
extern const char* MEDIA_MIMETYPE_AUDIO_AMR_NB;
extern const char* MEDIA_MIMETYPE_AUDIO_AMR_WB;
extern const char* MEDIA_MIMETYPE_AUDIO_AC3;
extern const char* MEDIA_MIMETYPE_AUDIO_RAW;
extern const char* MEDIA_MIMETYPE_AUDIO_WMA;
extern const char* MEDIA_MIMETYPE_AUDIO_G711_ALAW;
extern const char* MEDIA_MIMETYPE_AUDIO_G711_MLAW;
extern const char* MEDIA_MIMETYPE_AUDIO_QCELP;

extern const char* MEDIA_MIMETYPE_TEXT_3GPP;

}  // namespace android

#endif
