// zirk-probe: looks inside a media file through the extractor plug-in, the
// way a media framework would: sniff, build the extractor, list file and track
// formats, read every sample (optionally after a seek) and summarise each.
//
// Exit codes: 0 success, 1 bad usage, 2 unreadable path, 3 file not
// recognised (or no extractor for the requested container), 4 no tracks.
// A fatal check inside the library ends the process (SIGABRT), after the tool
// has said which file it was reading.
#include <dlfcn.h>
#include <stdio.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <zlib.h>

#include <cutils/properties.h>
#include <log/log.h>
#include <log/log_host.h>
#include <media/stagefright/DataSource.h>
#include <media/stagefright/FileSource.h>
#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MediaExtractor.h>
#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/AMessage.h>

#include "entry/ZIRKExtractorEntry.h"
#include "common/ZIRKCachedFileSource.h"

using namespace android;
using json = nlohmann::ordered_json;

namespace {

const char kToolVersion[] = "zirk-probe 1.0.0";

enum ExitCode {
    kExitOk = 0,
    kExitUsage = 1,
    kExitUnreadable = 2,
    kExitUnrecognised = 3,
    kExitNoTracks = 4,
};

// Bytes of a data value shown in hex; longer values are cut.
const size_t kHexPreviewBytes = 64;

std::string fourcc(uint32_t code) {
    std::string s;
    for (int shift = 24; shift >= 0; shift -= 8) s.push_back(static_cast<char>((code >> shift) & 0xFF));
    return s;
}

bool isPrintableFourcc(uint32_t code) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        int c = (code >> shift) & 0xFF;
        if (c < 0x20 || c > 0x7E) return false;
    }
    return true;
}

const std::map<uint32_t, const char*>& friendlyNames() {
    static const std::map<uint32_t, const char*> kNames = {
        {kKeyMIMEType, "mime"},           {kKeyWidth, "width"},
        {kKeyHeight, "height"},           {kKeyDisplayWidth, "display width"},
        {kKeyDisplayHeight, "display height"}, {kKeyRotation, "rotation"},
        {kKeyTrackID, "track id"},        {kKeyChannelCount, "channels"},
        {kKeySampleRate, "sample rate"},  {kKeyBitRate, "bit rate"},
        {kKeyFrameRate, "frame rate"},    {kKeyDuration, "duration"},
        {kKeyMaxInputSize, "max input size"}, {kKeyThumbnailTime, "thumbnail time"},
        {kKeyESDS, "esds"},               {kKeyAVCC, "avcc"},
        {kKeyD263, "d263"},               {'rcsd', "raw codec data"},
        {'263A', "h263 advanced features"}, {'gmcw', "gmc warp points"},
        {'nbbf', "sample count"},         {kKeyTextFormatData, "text format"},
        {kKeyTitle, "title"},             {kKeyArtist, "artist"},
        {kKeyAlbum, "album"},             {kKeyAlbumArtist, "album artist"},
        {kKeyGenre, "genre"},             {kKeyYear, "year"},
        {kKeyCDTrackNumber, "cd track"},  {kKeyDiscNumber, "disc"},
        {kKeyCompilation, "compilation"}, {kKeyWriter, "writer"},
        {kKeyDate, "date"},               {kKeyLocation, "location"},
        {kKeyAlbumArt, "album art"},      {kKeyAlbumArtMIME, "album art mime"},
        {kKeyEncoderDelay, "encoder delay"}, {kKeyEncoderPadding, "encoder padding"},
    };
    return kNames;
}

bool isMicroseconds(uint32_t key) {
    return key == kKeyDuration || key == kKeyThumbnailTime || key == kKeyTime || key == kKeyTargetTime;
}

std::string hexPreview(const void* data, size_t size, const char* separator) {
    static const char kDigits[] = "0123456789abcdef";
    const uint8_t* p = static_cast<const uint8_t*>(data);
    std::string out;
    size_t n = size < kHexPreviewBytes ? size : kHexPreviewBytes;
    for (size_t i = 0; i < n; ++i) {
        if (i && separator) out.append(separator);
        out.push_back(kDigits[p[i] >> 4]);
        out.push_back(kDigits[p[i] & 15]);
    }
    return out;
}

json typeJson(uint32_t type) {
    if (isPrintableFourcc(type)) return fourcc(type);
    return type;
}

json metaToJson(const sp<MetaData>& meta) {
    json out = json::object();
    if (meta == nullptr) return out;
    for (size_t i = 0; i < meta->countEntries(); ++i) {
        uint32_t key, type;
        const void* data;
        size_t size;
        meta->getEntryAt(i, &key, &type, &data, &size);
        std::string name = isPrintableFourcc(key) ? fourcc(key) : std::to_string(key);
        switch (type) {
            case MetaData::TYPE_C_STRING:
                out[name] = std::string(static_cast<const char*>(data), size ? strnlen(static_cast<const char*>(data), size) : 0);
                break;
            case MetaData::TYPE_INT32: {
                int32_t v;
                memcpy(&v, data, sizeof(v));
                out[name] = v;
                break;
            }
            case MetaData::TYPE_INT64: {
                int64_t v;
                memcpy(&v, data, sizeof(v));
                out[name] = v;
                break;
            }
            case MetaData::TYPE_FLOAT: {
                float v;
                memcpy(&v, data, sizeof(v));
                out[name] = v;
                break;
            }
            default:
                out[name] = {{"type", typeJson(type)}, {"size", size}, {"hex", hexPreview(data, size, nullptr)}};
                break;
        }
    }
    return out;
}

void printMeta(const sp<MetaData>& meta, const char* indent) {
    if (meta == nullptr) return;
    for (size_t i = 0; i < meta->countEntries(); ++i) {
        uint32_t key, type;
        const void* data;
        size_t size;
        meta->getEntryAt(i, &key, &type, &data, &size);
        auto named = friendlyNames().find(key);
        std::string label = named != friendlyNames().end() ? named->second : "";
        std::string code = isPrintableFourcc(key) ? fourcc(key) : std::to_string(key);
        printf("%s%-22s [%s] ", indent, label.empty() ? code.c_str() : label.c_str(), code.c_str());
        switch (type) {
            case MetaData::TYPE_C_STRING:
                printf("%.*s\n", static_cast<int>(size ? strnlen(static_cast<const char*>(data), size) : 0),
                       static_cast<const char*>(data));
                break;
            case MetaData::TYPE_INT32: {
                int32_t v;
                memcpy(&v, data, sizeof(v));
                printf("%d\n", v);
                break;
            }
            case MetaData::TYPE_INT64: {
                int64_t v;
                memcpy(&v, data, sizeof(v));
                if (isMicroseconds(key)) {
                    printf("%lld us (%.3f s)\n", static_cast<long long>(v), v / 1e6);
                } else {
                    printf("%lld\n", static_cast<long long>(v));
                }
                break;
            }
            case MetaData::TYPE_FLOAT: {
                float v;
                memcpy(&v, data, sizeof(v));
                printf("%g\n", v);
                break;
            }
            default: {
                std::string t = isPrintableFourcc(type) ? "'" + fourcc(type) + "'" : std::to_string(type);
                printf("data type %s, %zu bytes: %s%s\n", t.c_str(), size, hexPreview(data, size, " ").c_str(),
                       size > kHexPreviewBytes ? " ..." : "");
                break;
            }
        }
    }
}

json messageToJson(const sp<AMessage>& msg) {
    json out = json::object();
    if (msg == nullptr) return out;
    for (size_t i = 0; i < msg->countEntries(); ++i) {
        char type = 0;
        const char* name = msg->getEntryNameAt(i, &type);
        if (type == 'i') {
            int32_t v = 0;
            msg->findInt32(name, &v);
            out[name] = v;
        } else if (type == 'l') {
            int64_t v = 0;
            msg->findInt64(name, &v);
            out[name] = v;
        } else if (type == 's') {
            AString v;
            msg->findString(name, &v);
            out[name] = v.c_str();
        }
    }
    return out;
}

std::string statusName(status_t err) {
    switch (err) {
        case OK: return "OK";
        case ERROR_IO: return "ERROR_IO";
        case ERROR_MALFORMED: return "ERROR_MALFORMED";
        case ERROR_OUT_OF_RANGE: return "ERROR_OUT_OF_RANGE";
        case ERROR_UNSUPPORTED: return "ERROR_UNSUPPORTED";
        case ERROR_END_OF_STREAM: return "ERROR_END_OF_STREAM";
        case NO_MEMORY: return "NO_MEMORY";
        case NO_INIT: return "NO_INIT";
        case UNKNOWN_ERROR: return "UNKNOWN_ERROR";
        default: return std::to_string(err);
    }
}

struct SeekRequest {
    bool present = false;
    int64_t timeUs = 0;
    MediaSource::ReadOptions::SeekMode mode = MediaSource::ReadOptions::SEEK_CLOSEST_SYNC;
};

bool parseSeek(const std::string& text, SeekRequest* seek, std::string* error) {
    std::string timePart = text, modePart;
    size_t colon = text.find(':');
    if (colon != std::string::npos) {
        timePart = text.substr(0, colon);
        modePart = text.substr(colon + 1);
    }
    char* end = nullptr;
    errno = 0;
    long long t = strtoll(timePart.c_str(), &end, 10);
    if (timePart.empty() || *end != '\0' || errno != 0) {
        *error = "--seek wants microseconds, optionally followed by :MODE, got '" + text + "'";
        return false;
    }
    static const std::map<std::string, MediaSource::ReadOptions::SeekMode> kModes = {
        {"prev", MediaSource::ReadOptions::SEEK_PREVIOUS_SYNC},
        {"next", MediaSource::ReadOptions::SEEK_NEXT_SYNC},
        {"closest-sync", MediaSource::ReadOptions::SEEK_CLOSEST_SYNC},
        {"closest", MediaSource::ReadOptions::SEEK_CLOSEST},
    };
    if (!modePart.empty()) {
        auto it = kModes.find(modePart);
        if (it == kModes.end()) {
            *error = "unknown seek mode '" + modePart + "' (prev, next, closest-sync, closest)";
            return false;
        }
        seek->mode = it->second;
    }
    seek->present = true;
    seek->timeUs = t;
    return true;
}

const char* containerMimeFor(const std::string& name) {
    std::string lower;
    for (char c : name) lower.push_back(static_cast<char>(tolower(static_cast<unsigned char>(c))));
    if (lower == "asf") return MEDIA_MIMETYPE_CONTAINER_ASF;
    if (lower == "wma") return MEDIA_MIMETYPE_CONTAINER_WMA;
    if (lower == "avi") return MEDIA_MIMETYPE_CONTAINER_AVI;
    if (lower == "mov" || lower == "mp4") return MEDIA_MIMETYPE_CONTAINER_MOV;
    if (lower == "flv") return MEDIA_MIMETYPE_CONTAINER_FLV;
    if (lower == "rm" || lower == "realmedia") return MEDIA_MIMETYPE_CONTAINER_REALMEDIA;
    return nullptr;
}

int parseLogLevel(const std::string& text) {
    static const std::map<std::string, int> kLevels = {
        {"debug", ANDROID_LOG_DEBUG}, {"info", ANDROID_LOG_INFO}, {"warn", ANDROID_LOG_WARN},
        {"warning", ANDROID_LOG_WARN}, {"error", ANDROID_LOG_ERROR}, {"silent", ANDROID_LOG_SILENT},
    };
    auto it = kLevels.find(text);
    if (it != kLevels.end()) return it->second;
    char* end = nullptr;
    long v = strtol(text.c_str(), &end, 10);
    if (!text.empty() && *end == '\0' && v >= 0 && v <= ANDROID_LOG_SILENT) return static_cast<int>(v);
    return -1;
}

std::string gCurrentFile;

void onFatalCheck(void*, const char*, const char*) {
    fprintf(stderr, "zirk-probe: fatal check in the extractor library while reading %s:\n",
            gCurrentFile.c_str());
    fflush(stderr);
}

void printVersions() {
    printf("%s\n", kToolVersion);
    static const struct {
        const char* container;
        const char* symbol;
    } kVersions[] = {
        {"asf", "getAsfParserVer"},
        {"avi", "getZirkAviExtractorVersion"},
        {"mov", "getZirkMovExtractorVersion"},
        {"flv", "getZirkFlvExtractorVersion"},
    };
    for (const auto& v : kVersions) {
        // Looked up by name so that a plug-in without a container still runs.
        auto fn = reinterpret_cast<const char* (*)()>(dlsym(RTLD_DEFAULT, v.symbol));
        printf("%s: %s\n", v.container, fn ? fn() : "(not in this build)");
    }
}

double nowSeconds() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec + ts.tv_nsec / 1e9;
}

struct TrackTotals {
    uint64_t samples = 0;
    uint64_t bytes = 0;
};

// Reads one track, a sample at a time, from its start (or the seek) to the
// end or the count limit. Each sample goes to `samples` (JSON), to stdout
// (text) or nowhere (quiet).
class TrackReader {
public:
    TrackReader(const sp<MediaSource>& source, const SeekRequest& seek, long long countLimit, bool asJson, bool quiet)
        : mSource(source), mCountLimit(countLimit), mAsJson(asJson), mQuiet(quiet) {
        if (mSource == nullptr) {
            finish("NO_SOURCE");
            return;
        }
        status_t err = mSource->start();
        if (err != OK) {
            mSource = nullptr;
            finish("start: " + statusName(err));
            return;
        }
        if (seek.present) mOptions.setSeekTo(seek.timeUs, seek.mode);
    }
    ~TrackReader() {
        if (mSource != nullptr) mSource->stop();
    }

    bool done() const { return mDone; }
    // How far the track has been read, in time: the largest sample time so
    // far (0 before the first), for reading several tracks in time order.
    int64_t progressUs() const { return mProgressUs; }
    const std::string& end() const { return mEnd; }
    const TrackTotals& totals() const { return mTotals; }
    json& samples() { return mSamples; }

    void step() {
        if (mDone) return;
        if (mCountLimit >= 0 && static_cast<long long>(mTotals.samples) >= mCountLimit) {
            finish("COUNT_REACHED");
            return;
        }
        MediaBuffer* buffer = nullptr;
        status_t err = mSource->read(&buffer, &mOptions);
        mOptions.clearSeekTo();
        if (err != OK) {
            if (buffer) buffer->release();
            finish(statusName(err));
            return;
        }
        const uint8_t* data = static_cast<const uint8_t*>(buffer->data()) + buffer->range_offset();
        size_t length = buffer->range_length();
        mTotals.samples++;
        mTotals.bytes += length;
        sp<MetaData> meta = buffer->meta_data();
        int64_t timeUs = 0;
        bool hasTime = meta->findInt64(kKeyTime, &timeUs);
        if (hasTime) {
            // Some containers hand out times in 32 bits of microseconds,
            // which wrap after 71.6 minutes; a step back by more than half
            // that range is taken as a wrap.
            // Other times (and a hostile file's extremes) are taken as they are.
            constexpr int64_t kWrapUs = int64_t(1) << 32;
            int64_t progressUs = timeUs;
            if (timeUs >= 0 && timeUs < kWrapUs && mWrapBaseUs <= INT64_MAX / 2) {
                if (timeUs + mWrapBaseUs < mProgressUs - kWrapUs / 2) mWrapBaseUs += kWrapUs;
                progressUs = timeUs + mWrapBaseUs;
            }
            mProgressUs = std::max(mProgressUs, progressUs);
        }
        if (!mQuiet) {
            int64_t targetUs = 0;
            int32_t sync = 0;
            meta->findInt32(kKeyIsSyncFrame, &sync);
            bool hasTarget = meta->findInt64(kKeyTargetTime, &targetUs);
            uint32_t crc = static_cast<uint32_t>(crc32(0L, data, static_cast<uInt>(length)));
            if (mAsJson) {
                json s = json::object();
                s["time_us"] = hasTime ? json(timeUs) : json(nullptr);
                s["size"] = length;
                s["sync"] = sync ? 1 : 0;
                if (hasTarget) s["target_us"] = targetUs;
                char hex[9];
                snprintf(hex, sizeof(hex), "%08x", crc);
                s["crc32"] = hex;
                mSamples.push_back(s);
            } else {
                printf("  %8llu time_us=%lld size=%zu sync=%d", static_cast<unsigned long long>(mTotals.samples - 1),
                       static_cast<long long>(timeUs), length, sync ? 1 : 0);
                if (hasTarget) printf(" target_us=%lld", static_cast<long long>(targetUs));
                printf(" crc32=%08x\n", crc);
            }
        }
        buffer->release();
    }

private:
    void finish(const std::string& end) {
        mDone = true;
        mEnd = end;
    }

    sp<MediaSource> mSource;
    MediaSource::ReadOptions mOptions;
    long long mCountLimit;
    bool mAsJson, mQuiet;
    bool mDone = false;
    std::string mEnd;
    int64_t mProgressUs = 0;
    int64_t mWrapBaseUs = 0;
    TrackTotals mTotals;
    json mSamples = json::array();
};

// Reads the tracks interleaved, always from the one that is furthest behind
// in time, as a player does: an interleaved file is then read front to back
// once instead of once per track.
void readInterleaved(std::vector<std::unique_ptr<TrackReader>>& readers) {
    for (;;) {
        TrackReader* next = nullptr;
        for (auto& r : readers) {
            if (!r->done() && (next == nullptr || r->progressUs() < next->progressUs())) next = r.get();
        }
        if (next == nullptr) return;
        next->step();
    }
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"zirk-probe: look inside a media file through the ZIRK extractor plug-in"};
    std::string file;
    bool asJson = false, samples = false, quiet = false, verbose = false, version = false;
    std::vector<size_t> tracks;
    long long count = -1;
    std::string seekText, container, logLevel, cache = "on";
    std::vector<std::string> props;

    app.add_option("FILE", file, "media file to probe");
    app.add_flag("--json", asJson, "write one JSON document instead of text");
    app.add_flag("--samples", samples, "read every sample of each track and list it");
    app.add_flag("--quiet", quiet, "with --samples: print only totals (samples, bytes, seconds)");
    app.add_option("--track", tracks, "only this track (repeatable)");
    app.add_option("--count", count, "read at most N buffers per track")->check(CLI::NonNegativeNumber);
    app.add_option("--seek", seekText, "first read of each track seeks to US[:prev|next|closest-sync|closest]");
    app.add_option("--container", container, "skip sniffing: asf|avi|mov|flv or a container MIME type");
    app.add_option("--prop", props, "set a system property KEY=VALUE before anything runs (repeatable)");
    app.add_flag("-v", verbose, "show the library's log lines (debug and up) on stderr");
    app.add_option("--log-level", logLevel, "minimum log priority shown: debug|info|warn|error|silent|N");
    app.add_option("--cache", cache, "read through the caching file source (on) or plain pread (off)")
            ->check(CLI::IsMember({"on", "off"}));
    app.add_flag("--version", version, "print the tool's and every demultiplexer's version");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int rc = app.exit(e);
        return rc == 0 ? kExitOk : kExitUsage;
    }

    if (version) {
        printVersions();
        return kExitOk;
    }
    if (file.empty()) {
        fprintf(stderr, "zirk-probe: no FILE given (see --help)\n");
        return kExitUsage;
    }

    zirk_log_set_min_priority(ANDROID_LOG_SILENT);
    if (verbose) zirk_log_set_min_priority(ANDROID_LOG_DEBUG);
    if (!logLevel.empty()) {
        int level = parseLogLevel(logLevel);
        if (level < 0) {
            fprintf(stderr, "zirk-probe: unknown log level '%s'\n", logLevel.c_str());
            return kExitUsage;
        }
        zirk_log_set_min_priority(level);
    }
    for (const std::string& p : props) {
        size_t eq = p.find('=');
        if (eq == std::string::npos || eq == 0 || property_set(p.substr(0, eq).c_str(), p.substr(eq + 1).c_str()) != 0) {
            fprintf(stderr, "zirk-probe: bad --prop '%s' (KEY=VALUE within the platform's length limits)\n", p.c_str());
            return kExitUsage;
        }
    }
    SeekRequest seek;
    if (!seekText.empty()) {
        std::string error;
        if (!parseSeek(seekText, &seek, &error)) {
            fprintf(stderr, "zirk-probe: %s\n", error.c_str());
            return kExitUsage;
        }
    }

    gCurrentFile = file;
    zirk_log_set_assert_hook(&onFatalCheck, nullptr);

    sp<DataSource> source;
    if (cache == "on") {
        source = new ZIRKCachedFileSource(file.c_str());
    } else {
        source = new FileSource(file.c_str());
    }
    if (source->initCheck() != OK) {
        fprintf(stderr, "zirk-probe: cannot read '%s': %s\n", file.c_str(), strerror(errno ? errno : ENOENT));
        return kExitUnreadable;
    }

    json doc = json::object();
    doc["file"] = file;
    double started = nowSeconds();

    const char* containerMime = nullptr;
    String8 sniffedMime;
    if (container.empty()) {
        float confidence = 0.0f;
        sp<AMessage> sniffMeta = new AMessage;
        if (sniffZIRKExtractor(source, &sniffedMime, &confidence, &sniffMeta)) {
            containerMime = sniffedMime.c_str();
            // Single precision shown as written (0.21, not 0.2099999934...).
            double shown = std::round(static_cast<double>(confidence) * 1e6) / 1e6;
            doc["sniff"] = {{"mime", sniffedMime.c_str()}, {"confidence", shown},
                            {"meta", messageToJson(sniffMeta)}};
        } else {
            doc["sniff"] = nullptr;
        }
    } else {
        containerMime = containerMimeFor(container);
        if (containerMime == nullptr) containerMime = container.c_str();
        doc["sniff"] = nullptr;
    }
    doc["container"] = containerMime ? json(containerMime) : json(nullptr);

    if (containerMime == nullptr) {
        if (asJson) std::cout << doc.dump(2) << std::endl;
        fprintf(stderr, "zirk-probe: '%s' is not a container this library recognises (try --container)\n",
                file.c_str());
        return kExitUnrecognised;
    }

    sp<MediaExtractor> extractor = getInstance(source, containerMime);
    if (extractor == nullptr) {
        if (asJson) std::cout << doc.dump(2) << std::endl;
        fprintf(stderr, "zirk-probe: no extractor for container type '%s'\n", containerMime);
        return kExitUnrecognised;
    }

    size_t trackCount = extractor->countTracks();
    sp<MetaData> fileMeta = extractor->getMetaData();
    doc["meta"] = metaToJson(fileMeta);
    if (!asJson && !quiet) {
        printf("file: %s\n", file.c_str());
        if (container.empty()) {
            printf("sniff: %s (confidence %.2f)\n", sniffedMime.c_str(), doc["sniff"]["confidence"].get<double>());
            if (!doc["sniff"]["meta"].empty()) printf("  sniff meta: %s\n", doc["sniff"]["meta"].dump().c_str());
        } else {
            printf("container (given): %s\n", containerMime);
        }
        printf("file metadata:\n");
        printMeta(fileMeta, "  ");
        printf("tracks: %zu\n", trackCount);
    }

    std::vector<size_t> selected;
    if (tracks.empty()) {
        for (size_t i = 0; i < trackCount; ++i) selected.push_back(i);
    } else {
        for (size_t t : tracks) {
            if (t >= trackCount) {
                fprintf(stderr, "zirk-probe: no track %zu (the file has %zu)\n", t, trackCount);
                return kExitUsage;
            }
            selected.push_back(t);
        }
    }

    doc["tracks"] = json::array();
    TrackTotals all;
    // Text output lists each track's samples under it, so the tracks are read
    // one after another; otherwise they are read interleaved.
    const bool streamed = samples && !asJson && !quiet;
    std::vector<std::unique_ptr<TrackReader>> readers;
    for (size_t i : selected) {
        sp<MetaData> trackMeta = extractor->getTrackMetaData(i, 0);
        json t = json::object();
        t["index"] = i;
        t["meta"] = metaToJson(trackMeta);
        if (!asJson && !quiet) {
            printf("track %zu:\n", i);
            printMeta(trackMeta, "  ");
        }
        if (streamed) {
            printf("  samples:\n");
            TrackReader reader(extractor->getTrack(i), seek, count, asJson, quiet);
            while (!reader.done()) reader.step();
            printf("  end: %s after %llu samples\n", reader.end().c_str(),
                   static_cast<unsigned long long>(reader.totals().samples));
            all.samples += reader.totals().samples;
            all.bytes += reader.totals().bytes;
        } else if (samples) {
            readers.emplace_back(new TrackReader(extractor->getTrack(i), seek, count, asJson, quiet));
        }
        doc["tracks"].push_back(t);
    }
    if (!readers.empty()) {
        readInterleaved(readers);
        for (size_t k = 0; k < readers.size(); ++k) {
            json& t = doc["tracks"][k];
            TrackReader& reader = *readers[k];
            if (!quiet) t["samples"] = std::move(reader.samples());
            t["sample_count"] = reader.totals().samples;
            t["bytes"] = reader.totals().bytes;
            t["end"] = reader.end();
            all.samples += reader.totals().samples;
            all.bytes += reader.totals().bytes;
        }
        readers.clear();
    }
    double seconds = nowSeconds() - started;

    if (asJson) {
        if (quiet) doc["totals"] = {{"samples", all.samples}, {"bytes", all.bytes}, {"seconds", seconds}};
        std::cout << doc.dump(2) << std::endl;
    } else if (quiet) {
        printf("samples=%llu bytes=%llu seconds=%.3f\n", static_cast<unsigned long long>(all.samples),
               static_cast<unsigned long long>(all.bytes), seconds);
    }
    if (trackCount == 0) {
        fprintf(stderr, "zirk-probe: '%s' has no tracks this library can read\n", file.c_str());
        return kExitNoTracks;
    }
    return kExitOk;
}
