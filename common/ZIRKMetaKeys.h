// Track metadata keys of this library that the platform does not name. Their
// four-character codes are fixed: consumers look them up by code.
#ifndef ZIRK_META_KEYS_H_
#define ZIRK_META_KEYS_H_

namespace android {

enum {
    kKeyRawCodecSpecificData = 'rcsd',  // data: the container's codec private bytes as found
    kKey263AdvancedFeatures = '263A',   // int32: Detect263AdvancedFeatures result
    kKeyGMCWarpPoints = 'gmcw',         // int32: ParseMPEG4GMCWarpPoint result
    kKeyBufferCount = 'nbbf',           // int32: entries in the track's sample table
};

}  // namespace android

#endif
