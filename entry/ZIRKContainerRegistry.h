// The containers this library answers for, one row each, in the order their
// sniffers are tried. A container is registered here and nowhere else: the
// rows drive the plug-in's factory and sniffing (ZIRKExtractorEntry.cpp),
// zirk-probe's --container names and --version, the export check and the
// entry tests. Adding a container is one row plus its folder.
//
// ZIRK_CONTAINER_ROWS(X) calls X once per row with:
//   name        display name
//   mimeTypes   (list) container MIME types the factory takes, ignoring case;
//               the sniffer reports one of them (ASF: the WMA type for a
//               file of audio streams only), the first for most files
//   cliNames    (list) names zirk-probe's --container accepts, each standing
//               for the first MIME type
//   extensions  (list) file name extensions, lower case, without the dot
//   sniffer     same signature as sniffZIRKExtractor
//   sniffMeta   whether the sniffer is handed the caller's meta message. Only
//               MOV and FLV are; the others are always given none and so never
//               return sniff metadata.
//   factory     MediaExtractor* (const sp<DataSource>&)
//   version     name of the exported function returning the demultiplexer's
//               version string; nullptr for RealMedia, whose version is its
//               own library's business
// Lists are in parentheses, at most ZIRKContainerInfo::kMaxListed entries.
//
// The sniffer and factory are bound only inside the plug-in (the names they
// use are declared there); everything else is the plain data of
// kZIRKContainers below, which the tool and the tests read without linking
// any demultiplexer.
#ifndef ZIRK_CONTAINER_REGISTRY_H_
#define ZIRK_CONTAINER_REGISTRY_H_

#include <stddef.h>
#include <strings.h>

#include <media/stagefright/MediaDefs.h>

// clang-format off
#define ZIRK_CONTAINER_ROWS(X)                                                                        \
    X("ASF", (&MEDIA_MIMETYPE_CONTAINER_ASF, &MEDIA_MIMETYPE_CONTAINER_WMA), ("asf", "wma"),          \
      ("asf", "wma", "wmv"), SniffASF, ZIRKSniffMeta::kNone, construct<ASFExtractor>,                 \
      "getAsfParserVer")                                                                              \
    X("AVI", (&MEDIA_MIMETYPE_CONTAINER_AVI), ("avi"),                                                \
      ("avi", "divx"), ZIRKSniffAVI, ZIRKSniffMeta::kNone, construct<ZIRKAVIExtractor>,               \
      "getZirkAviExtractorVersion")                                                                   \
    X("MOV", (&MEDIA_MIMETYPE_CONTAINER_MOV), ("mov", "mp4"),                                         \
      ("mov", "mp4", "m4a", "m4v", "3gp", "3g2"), ZIRKSniffMOV, ZIRKSniffMeta::kCallers,              \
      construct<ZIRKMOVExtractor>, "getZirkMovExtractorVersion")                                      \
    X("FLV", (&MEDIA_MIMETYPE_CONTAINER_FLV), ("flv"),                                                \
      ("flv"), ZIRKSniffFLV, ZIRKSniffMeta::kCallers, construct<ZIRKFLVExtractor>,                    \
      "getZirkFlvExtractorVersion")                                                                   \
    X("RealMedia", (&MEDIA_MIMETYPE_CONTAINER_REALMEDIA), ("rm", "realmedia"),                        \
      ("rm", "rmvb", "ra"), sniffRealMedia, ZIRKSniffMeta::kNone, createRealMediaExtractor,           \
      nullptr)
// clang-format on

namespace android {

enum class ZIRKSniffMeta { kNone, kCallers };

struct ZIRKContainerInfo {
    // Room in each list; a row with more entries does not compile.
    static constexpr size_t kMaxListed = 6;

    const char* name;
    // Addresses of the framework's MIME variables, null after the last. They
    // are read when used, so the table needs no load-time fill although the
    // strings live in another library.
    const char* const* mimeTypes[kMaxListed];
    const char* cliNames[kMaxListed];
    const char* extensions[kMaxListed];
    const char* versionSymbol;

    // The container's main MIME type: what each --container name stands for,
    // and what its sniffer reports for most files.
    const char* mimeType() const { return *mimeTypes[0]; }

    bool takesMimeType(const char* mime) const {
        for (size_t i = 0; i < kMaxListed && mimeTypes[i] != nullptr; ++i) {
            if (!strcasecmp(mime, *mimeTypes[i])) return true;
        }
        return false;
    }
    bool hasCliName(const char* cliName) const { return listHas(cliNames, cliName); }
    bool hasExtension(const char* extension) const { return listHas(extensions, extension); }

private:
    static bool listHas(const char* const (&list)[kMaxListed], const char* text) {
        for (size_t i = 0; i < kMaxListed && list[i] != nullptr; ++i) {
            if (!strcasecmp(text, list[i])) return true;
        }
        return false;
    }
};

#define ZIRK_CONTAINER_LIST(...) {__VA_ARGS__}
#define ZIRK_CONTAINER_INFO(name, mimeTypes, cliNames, extensions, sniffer, sniffMeta, factory, version) \
    {name, ZIRK_CONTAINER_LIST mimeTypes, ZIRK_CONTAINER_LIST cliNames, ZIRK_CONTAINER_LIST extensions, version},

inline constexpr ZIRKContainerInfo kZIRKContainers[] = {ZIRK_CONTAINER_ROWS(ZIRK_CONTAINER_INFO)};
inline constexpr size_t kZIRKContainerCount = sizeof(kZIRKContainers) / sizeof(kZIRKContainers[0]);

#undef ZIRK_CONTAINER_INFO

// The row that takes the MIME type, has the --container name or the file
// extension (each ignoring case), or null.
inline const ZIRKContainerInfo* ZIRKContainerForMimeType(const char* mime) {
    for (const ZIRKContainerInfo& c : kZIRKContainers) {
        if (mime != nullptr && c.takesMimeType(mime)) return &c;
    }
    return nullptr;
}
inline const ZIRKContainerInfo* ZIRKContainerForCliName(const char* cliName) {
    for (const ZIRKContainerInfo& c : kZIRKContainers) {
        if (cliName != nullptr && c.hasCliName(cliName)) return &c;
    }
    return nullptr;
}
inline const ZIRKContainerInfo* ZIRKContainerForExtension(const char* extension) {
    for (const ZIRKContainerInfo& c : kZIRKContainers) {
        if (extension != nullptr && c.hasExtension(extension)) return &c;
    }
    return nullptr;
}

}  // namespace android

#endif
