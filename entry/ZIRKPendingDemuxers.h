// Containers whose demultiplexers are not part of this build yet: their
// sniffers never claim a source and the factory builds nothing for them.
// Each entry leaves this file when its demultiplexer lands.
#ifndef ZIRK_PENDING_DEMUXERS_H_
#define ZIRK_PENDING_DEMUXERS_H_

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaExtractor.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/String8.h>

namespace android {

inline bool SniffASF(const sp<DataSource>&, String8*, float*, sp<AMessage>*) { return false; }
inline MediaExtractor* createASFExtractor(const sp<DataSource>&) { return nullptr; }


}  // namespace android

#endif
