// zirk-probe: looks inside a media file through the extractor plug-in, the
// way a media framework would: sniff, build the extractor, list file and track
// formats as the track sources report them, read every sample (optionally
// after a seek) and summarise each track.
//
// main runs the steps in order: read and check the options, open the file,
// choose the extractor, check the track selection, print, read. Every option
// is checked before anything is printed. Exit codes: kExitCodes below.
// A fatal check inside the library ends the process (SIGABRT), after the tool
// has said which file it was reading.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

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

#include "common/ZIRKCachedFileSource.h"
#include "entry/ZIRKContainerRegistry.h"
#include "entry/ZIRKExtractorEntry.h"
#include "tools/ProbeBatch.h"
#include "tools/ProbeExtract.h"
#include "tools/ProbeSink.h"
#include "tools/ProbeSupport.h"
#include "tools/ProbeTimeline.h"

using namespace android;
using json = nlohmann::ordered_json;
using namespace zirk_probe;

namespace {

const char kToolVersion[] = "zirk-probe 1.2.0";

enum ExitCode {
    kExitOk = 0,
    kExitUsage = 1,
    kExitUnreadable = 2,
    kExitUnrecognised = 3,
    kExitNoTracks = 4,
    kExitTrackError = 5,
    kExitOutputFailed = 6,
    kExitSomeFilesFailed = 7,
};

const struct {
    ExitCode code;
    const char* meaning;
} kExitCodes[] = {
    {kExitOk, "success"},
    {kExitUsage, "bad usage: an unknown option, a bad value, or a --track the file does not have"},
    {kExitUnreadable, "FILE cannot be read or is not a regular file"},
    {kExitUnrecognised, "not a container this library recognises (or no extractor for --container)"},
    {kExitNoTracks, "the file has no tracks the library can read"},
    {kExitTrackError, "samples were read and some track ended with an error other than the end of its stream"},
    {kExitOutputFailed, "an --extract or --timeline file could not be written"},
    {kExitSomeFilesFailed, "several files: some file could not be probed (any of the codes above, or a fatal check)"},
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

// As a status reads in text: its name and, for a named one, its value.
std::string describeStatus(status_t err) {
    std::string name = statusName(err);
    return name == std::to_string(err) ? name : name + " (" + std::to_string(err) + ")";
}

// ---------------------------------------------------------------------------
// Options

struct SeekRequest {
    bool present = false;
    int64_t timeUs = 0;
    MediaSource::ReadOptions::SeekMode mode = MediaSource::ReadOptions::SEEK_CLOSEST_SYNC;
};

struct ExtractRequest {
    size_t track = 0;
    std::string path;
};

struct Options {
    std::vector<std::string> paths;  // as given
    std::string file;                // the one file, when not a batch
    bool batch = false;              // several paths, a directory, or --jobs
    bool json = false;
    bool samples = false;
    bool quiet = false;
    bool version = false;
    std::vector<size_t> tracks;  // empty: every track
    long long count = -1;        // -1: no limit
    SeekRequest seek;
    std::string containerMime;  // empty: sniff
    bool cache = true;
    std::vector<ExtractRequest> extracts;
    std::string timeline;  // empty: none
    unsigned jobs = 0;     // 0: not given
    std::vector<std::string> extensions;
    std::vector<std::string> childArgs;  // a batch child's options, rebuilt from the checked ones

    // Tracks are read when samples are listed or an output wants them.
    bool reads() const { return samples || !extracts.empty() || !timeline.empty(); }
};

// The options as typed, before they are checked.
struct RawOptions {
    std::vector<std::string> tracks, props, extracts;
    std::string count, seek, container, logLevel, cache = "on", jobs, ext;
    bool verbose = false;
};

const char kSeekModes[] = "prev, next, closest-sync or closest";
const char kLogLevels[] = "debug, info, warn, error, silent or a priority 0-8";

// A decimal number, 0 or more, digits only.
bool parseNonNegative(const std::string& text, long long* value) {
    if (text.empty() || text.size() > 18) return false;
    for (char c : text) {
        if (!isdigit(static_cast<unsigned char>(c))) return false;
    }
    *value = strtoll(text.c_str(), nullptr, 10);
    return true;
}

bool parseSeek(const std::string& text, SeekRequest* seek, std::string* error) {
    static const std::map<std::string, MediaSource::ReadOptions::SeekMode> kModes = {
        {"prev", MediaSource::ReadOptions::SEEK_PREVIOUS_SYNC},
        {"next", MediaSource::ReadOptions::SEEK_NEXT_SYNC},
        {"closest-sync", MediaSource::ReadOptions::SEEK_CLOSEST_SYNC},
        {"closest", MediaSource::ReadOptions::SEEK_CLOSEST},
    };
    size_t colon = text.find(':');
    long long timeUs = 0;
    if (!parseNonNegative(text.substr(0, colon), &timeUs)) {
        *error = "--seek wants US[:MODE], US microseconds (0 or more), got '" + text + "'";
        return false;
    }
    if (colon != std::string::npos) {
        auto it = kModes.find(text.substr(colon + 1));
        if (it == kModes.end()) {
            *error = "unknown seek mode '" + text.substr(colon + 1) + "' (" + kSeekModes + ")";
            return false;
        }
        seek->mode = it->second;
    }
    seek->present = true;
    seek->timeUs = timeUs;
    return true;
}

int parseLogLevel(const std::string& text) {
    static const std::map<std::string, int> kLevels = {
        {"debug", ANDROID_LOG_DEBUG}, {"info", ANDROID_LOG_INFO}, {"warn", ANDROID_LOG_WARN},
        {"warning", ANDROID_LOG_WARN}, {"error", ANDROID_LOG_ERROR}, {"silent", ANDROID_LOG_SILENT},
    };
    auto it = kLevels.find(text);
    if (it != kLevels.end()) return it->second;
    long long v = 0;
    if (parseNonNegative(text, &v) && v <= ANDROID_LOG_SILENT) return static_cast<int>(v);
    return -1;
}

// The registry's --container names, or its MIME types, joined by ", ".
std::string registeredNames(bool mimeTypes) {
    std::string out;
    for (const ZIRKContainerInfo& c : kZIRKContainers) {
        for (size_t i = 0; i < ZIRKContainerInfo::kMaxListed; ++i) {
            const char* name = mimeTypes ? (c.mimeTypes[i] ? *c.mimeTypes[i] : nullptr) : c.cliNames[i];
            if (name == nullptr) break;
            out += (out.empty() ? "" : ", ") + std::string(name);
        }
    }
    return out;
}

// The MIME type a --container value stands for: a registered name's, or a
// registered MIME type as given; empty for anything else.
std::string containerMimeFor(const std::string& value) {
    if (const ZIRKContainerInfo* c = ZIRKContainerForCliName(value.c_str())) return c->mimeType();
    if (ZIRKContainerForMimeType(value.c_str()) != nullptr) return value;
    return "";
}

// --extract, --timeline, and whether this is a batch (several paths, a
// directory, --jobs or --ext), with the options a batch's children get.
bool checkOutputsAndBatch(const RawOptions& raw, Options* options, std::string* error) {
    for (const std::string& e : raw.extracts) {
        size_t colon = e.find(':');
        long long track = 0;
        if (colon == std::string::npos || colon + 1 == e.size() || !parseNonNegative(e.substr(0, colon), &track)) {
            *error = "--extract wants N:OUT, a track number and an output file, got '" + e + "'";
            return false;
        }
        options->extracts.push_back({static_cast<size_t>(track), e.substr(colon + 1)});
    }
    if (!raw.jobs.empty()) {
        long long jobs = 0;
        if (!parseNonNegative(raw.jobs, &jobs) || jobs < 1 || jobs > 256) {
            *error = "--jobs wants a number of files probed at once (1 to 256), got '" + raw.jobs + "'";
            return false;
        }
        options->jobs = static_cast<unsigned>(jobs);
    }
    for (size_t start = 0; !raw.ext.empty() && start <= raw.ext.size();) {
        size_t comma = std::min(raw.ext.find(',', start), raw.ext.size());
        std::string e = raw.ext.substr(start, comma - start);
        if (!e.empty() && e[0] == '.') e.erase(0, 1);
        std::transform(e.begin(), e.end(), e.begin(), [](unsigned char c) { return std::tolower(c); });
        if (!e.empty()) options->extensions.push_back(e);
        start = comma + 1;
    }
    struct stat st;
    options->batch = options->paths.size() > 1 || !raw.jobs.empty() || !raw.ext.empty() ||
                     (options->paths.size() == 1 && stat(options->paths[0].c_str(), &st) == 0 && S_ISDIR(st.st_mode));
    if (!options->batch) {
        if (!options->paths.empty()) options->file = options->paths[0];
        return true;
    }
    if (!options->extracts.empty() || !options->timeline.empty()) {
        *error = "--extract and --timeline take one FILE, not several paths";
        return false;
    }
    std::vector<std::string>& a = options->childArgs;
    for (const std::string& t : raw.tracks) a.insert(a.end(), {"--track", t});
    for (const std::string& p : raw.props) a.insert(a.end(), {"--prop", p});
    if (!raw.count.empty()) a.insert(a.end(), {"--count", raw.count});
    if (!raw.seek.empty()) a.insert(a.end(), {"--seek", raw.seek});
    if (!raw.container.empty()) a.insert(a.end(), {"--container", raw.container});
    if (!raw.logLevel.empty()) a.insert(a.end(), {"--log-level", raw.logLevel});
    if (raw.verbose) a.push_back("-v");
    a.insert(a.end(), {"--cache", raw.cache});
    if (options->samples) a.push_back("--samples");
    if (options->quiet) a.push_back("--quiet");
    if (options->json) a.push_back("--json");
    return true;
}

// Checks every value and fills `options`; sets the log level and the
// properties, which must be in place before the library runs.
bool checkOptions(const RawOptions& raw, Options* options, std::string* error) {
    for (const std::string& t : raw.tracks) {
        long long track = 0;
        if (!parseNonNegative(t, &track)) {
            *error = "--track wants a track number (0, 1, ...), got '" + t + "'";
            return false;
        }
        options->tracks.push_back(static_cast<size_t>(track));
    }
    if (!raw.count.empty() && !parseNonNegative(raw.count, &options->count)) {
        *error = "--count wants a number of buffers (0 or more), got '" + raw.count + "'";
        return false;
    }
    if (!raw.seek.empty() && !parseSeek(raw.seek, &options->seek, error)) return false;
    if (!raw.container.empty()) {
        options->containerMime = containerMimeFor(raw.container);
        if (options->containerMime.empty()) {
            *error = "unknown --container '" + raw.container + "' (" + registeredNames(false) +
                     ", or a container MIME type: " + registeredNames(true) + ")";
            return false;
        }
    }
    if (raw.cache != "on" && raw.cache != "off") {
        *error = "--cache wants on or off, got '" + raw.cache + "'";
        return false;
    }
    options->cache = raw.cache == "on";
    int level = raw.verbose ? ANDROID_LOG_DEBUG : ANDROID_LOG_SILENT;
    if (!raw.logLevel.empty() && (level = parseLogLevel(raw.logLevel)) < 0) {
        *error = "unknown log level '" + raw.logLevel + "' (" + kLogLevels + ")";
        return false;
    }
    zirk_log_set_min_priority(level);
    for (const std::string& p : raw.props) {
        size_t eq = p.find('=');
        if (eq == std::string::npos || eq == 0 ||
            property_set(p.substr(0, eq).c_str(), p.substr(eq + 1).c_str()) != 0) {
            *error = "bad --prop '" + p + "' (KEY=VALUE, KEY shorter than " + std::to_string(PROPERTY_KEY_MAX) +
                     " bytes, VALUE shorter than " + std::to_string(PROPERTY_VALUE_MAX) + ")";
            return false;
        }
    }
    if (!checkOutputsAndBatch(raw, options, error)) return false;
    // Each of these only means something while reading.
    options->samples = options->samples || options->quiet || options->seek.present || options->count >= 0;
    return true;
}

std::string exitCodesHelp() {
    std::string out = "Exit codes:\n";
    for (const auto& e : kExitCodes) out += "  " + std::to_string(e.code) + "  " + e.meaning + "\n";
    return out;
}

void describeOptions(CLI::App& app, Options& options, RawOptions& raw) {
    app.add_option("PATH", options.paths,
                   "media file to probe; several files or directories (walked) make a batch, one child process "
                   "per file")->type_name("FILE|DIR");
    app.add_flag("--json", options.json, "write one JSON document instead of text");
    app.add_flag("--samples", options.samples, "read every sample of each track and list it");
    app.add_flag("--quiet", options.quiet, "print only totals (samples, bytes, seconds); implies --samples");
    // One value per occurrence, so that a repeated option never takes FILE.
    app.add_option("--track", raw.tracks, "only track N (repeat for more)")->type_name("N")->allow_extra_args(false);
    app.add_option("--count", raw.count, "read at most N buffers per track (0 or more); implies --samples")
            ->type_name("N");
    app.add_option("--seek", raw.seek,
                   std::string("the first read of each track seeks to US microseconds (0 or more); MODE: ") +
                           kSeekModes + " (default closest-sync); implies --samples")
            ->type_name("US[:MODE]");
    app.add_option("--container", raw.container,
                   "skip sniffing: " + registeredNames(false) + ", or a container MIME type")
            ->type_name("NAME");
    app.add_option("--prop", raw.props, "set a system property before anything runs (repeat for more)")
            ->type_name("KEY=VALUE")
            ->allow_extra_args(false);
    app.add_flag("-v", raw.verbose, "show the library's log lines (debug and up) on stderr");
    app.add_option("--log-level", raw.logLevel, std::string("minimum priority of the log lines shown: ") + kLogLevels)
            ->type_name("LEVEL");
    app.add_option("--cache", raw.cache, "read through the caching file source (on, the default) or plain pread (off)")
            ->type_name("on|off");
    app.add_option("--extract", raw.extracts,
                   "write track N to OUT as a stream a decoder reads without a container (repeat for more); "
                   "honours --seek and --count")
            ->type_name("N:OUT")
            ->allow_extra_args(false);
    app.add_option("--timeline", options.timeline,
                   "draw each selected track (sample sizes, key frames, bit rate, seek points) into an SVG file")
            ->type_name("OUT.svg");
    app.add_option("--jobs", raw.jobs, "batch: files probed at once (default: the number of cores)")->type_name("N");
    app.add_option("--ext", raw.ext, "batch: only files with these extensions (comma-separated, e.g. mp4,flv)")
            ->type_name("LIST");
    app.add_flag("--version", options.version, "print the tool's and every demultiplexer's version");
    app.footer(exitCodesHelp());
}

int usageError(const std::string& message) {
    fprintf(stderr, "zirk-probe: %s\n", message.c_str());
    return kExitUsage;
}

// Reads and checks the command line. False when the tool should end at once
// with *exitCode (after --help or a usage error).
bool readOptions(int argc, char** argv, Options* options, int* exitCode) {
    CLI::App app{"zirk-probe: look inside a media file through the ZIRK extractor plug-in"};
    RawOptions raw;
    describeOptions(app, *options, raw);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ExtrasError&) {
        std::string first = app.remaining().empty() ? std::string() : app.remaining()[0];
        *exitCode = usageError("unknown option '" + first + "' (see --help)");
        return false;
    } catch (const CLI::ParseError& e) {
        *exitCode = app.exit(e) == 0 ? kExitOk : kExitUsage;
        return false;
    }
    std::string error;
    if (!checkOptions(raw, options, &error)) {
        *exitCode = usageError(error);
        return false;
    }
    return true;
}

void printVersions() {
    printf("%s\n", kToolVersion);
    for (const ZIRKContainerInfo& c : kZIRKContainers) {
        if (c.versionSymbol == nullptr) continue;
        // Looked up by name so that a plug-in without a container still runs.
        auto fn = reinterpret_cast<const char* (*)()>(dlsym(RTLD_DEFAULT, c.versionSymbol));
        printf("%s: %s\n", c.cliNames[0], fn ? fn() : "(not in this build)");
    }
}

// ---------------------------------------------------------------------------
// Reading

std::string gCurrentFile;

void onFatalCheck(void*, const char*, const char*) {
    fprintf(stderr, "zirk-probe: fatal check in the extractor library while reading %s:\n",
            gCurrentFile.c_str());
    fflush(stderr);
}

struct TrackTotals {
    uint64_t samples = 0;
    uint64_t bytes = 0;
};

// How the reading of a track ended.
struct TrackEnd {
    enum Kind { kEndOfStream, kCountReached, kNoSource, kStartFailed, kReadFailed } kind = kEndOfStream;
    status_t status = OK;

    bool isError() const { return kind != kEndOfStream && kind != kCountReached; }
    // As JSON has it: the status name, "COUNT_REACHED", "NO_SOURCE" or "start: <status>".
    std::string code() const {
        switch (kind) {
            case kCountReached: return "COUNT_REACHED";
            case kNoSource: return "NO_SOURCE";
            case kStartFailed: return "start: " + statusName(status);
            default: return statusName(status);
        }
    }
    std::string text() const {
        switch (kind) {
            case kEndOfStream: return "end of stream";
            case kCountReached: return "--count reached";
            case kNoSource: return "no source (getTrack failed)";
            case kStartFailed: return "start failed: " + describeStatus(status);
            default: return "read failed: " + describeStatus(status);
        }
    }
};

// Reads one track, a sample at a time, from its start (or the seek) to the
// end or the count limit, and stops its source as soon as it is done. Each
// sample goes to `samples` (JSON), to stdout (text) or nowhere (quiet).
class TrackReader {
public:
    TrackReader(size_t index, const sp<MediaSource>& source, const Options& options)
        : mIndex(index), mSource(source), mCountLimit(options.count), mAsJson(options.json),
          mQuiet(options.quiet || !options.samples) {
        if (mSource == nullptr) {
            finish(TrackEnd::kNoSource, OK);
            return;
        }
        status_t err = mSource->start();
        if (err != OK) {
            mSource = nullptr;
            finish(TrackEnd::kStartFailed, err);
            return;
        }
        if (options.seek.present) mOptions.setSeekTo(options.seek.timeUs, options.seek.mode);
    }
    ~TrackReader() { stop(); }

    size_t index() const { return mIndex; }
    bool done() const { return mDone; }
    // How far the track has been read, in time: the largest sample time so
    // far (0 before the first), for reading several tracks in time order.
    int64_t progressUs() const { return mProgressUs; }
    const TrackEnd& end() const { return mEnd; }
    const TrackTotals& totals() const { return mTotals; }
    json& samples() { return mSamples; }
    // Hands every sample to `sink` too (not owned; outlives the reader's reading).
    void addSink(ProbeSampleSink* sink) { mSinks.push_back(sink); }

    void step() {
        if (mDone) return;
        if (mCountLimit >= 0 && static_cast<long long>(mTotals.samples) >= mCountLimit) {
            finish(TrackEnd::kCountReached, OK);
            return;
        }
        MediaBuffer* buffer = nullptr;
        status_t err = mSource->read(&buffer, &mOptions);
        mOptions.clearSeekTo();
        if (err != OK || buffer == nullptr) {
            if (buffer) buffer->release();
            if (err == OK) err = UNKNOWN_ERROR;
            finish(err == ERROR_END_OF_STREAM ? TrackEnd::kEndOfStream : TrackEnd::kReadFailed, err);
            return;
        }
        mTotals.samples++;
        mTotals.bytes += buffer->range_length();
        int64_t timeUs = 0;
        bool hasTime = buffer->meta_data()->findInt64(kKeyTime, &timeUs);
        if (hasTime) advance(timeUs);
        if (!mQuiet) record(buffer, hasTime, timeUs);
        if (!mSinks.empty()) {
            ProbeSample sample;
            sample.data = static_cast<const uint8_t*>(buffer->data()) + buffer->range_offset();
            sample.size = buffer->range_length();
            sample.hasTime = hasTime;
            sample.timeUs = timeUs;
            int32_t sync = 0;
            sample.sync = buffer->meta_data()->findInt32(kKeyIsSyncFrame, &sync) && sync != 0;
            for (ProbeSampleSink* sink : mSinks) sink->onSample(sample);
        }
        buffer->release();
    }

private:
    void advance(int64_t timeUs) {
        // Some containers hand out times in 32 bits of microseconds, which
        // wrap after 71.6 minutes; a step back by more than half that range
        // is taken as a wrap. Other times (and a hostile file's extremes) are
        // taken as they are.
        constexpr int64_t kWrapUs = int64_t(1) << 32;
        int64_t progressUs = timeUs;
        if (timeUs >= 0 && timeUs < kWrapUs && mWrapBaseUs <= INT64_MAX / 2) {
            if (timeUs + mWrapBaseUs < mProgressUs - kWrapUs / 2) mWrapBaseUs += kWrapUs;
            progressUs = timeUs + mWrapBaseUs;
        }
        mProgressUs = std::max(mProgressUs, progressUs);
    }

    void record(MediaBuffer* buffer, bool hasTime, int64_t timeUs) {
        const uint8_t* data = static_cast<const uint8_t*>(buffer->data()) + buffer->range_offset();
        size_t length = buffer->range_length();
        sp<MetaData> meta = buffer->meta_data();
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

    void finish(TrackEnd::Kind kind, status_t status) {
        mDone = true;
        mEnd.kind = kind;
        mEnd.status = status;
        stop();
    }

    void stop() {
        if (mSource != nullptr) mSource->stop();
        mSource = nullptr;
    }

    size_t mIndex;
    sp<MediaSource> mSource;  // null once stopped
    MediaSource::ReadOptions mOptions;
    long long mCountLimit;
    bool mAsJson, mQuiet;
    bool mDone = false;
    TrackEnd mEnd;
    int64_t mProgressUs = 0;
    int64_t mWrapBaseUs = 0;
    TrackTotals mTotals;
    json mSamples = json::array();
    std::vector<ProbeSampleSink*> mSinks;
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

// ---------------------------------------------------------------------------
// The steps

// What the steps share: the options, the file, its extractor and the JSON
// document being built.
struct Probe {
    Options options;
    sp<DataSource> source;
    sp<MediaExtractor> extractor;
    std::string containerMime;
    size_t trackCount = 0;
    std::vector<size_t> selected;
    json doc = json::object();
    double started = 0;
    std::vector<std::unique_ptr<ProbeSampleSink>> extracts;  // one per --extract
    std::unique_ptr<TimelineWriter> timeline;

    bool text() const { return !options.json && !options.quiet; }
};

int openFile(Probe& p) {
    const char* path = p.options.file.c_str();
    struct stat st;
    // Checked before opening: opening a FIFO would wait for a writer.
    if (stat(path, &st) == 0 && !S_ISREG(st.st_mode)) {
        fprintf(stderr, "zirk-probe: '%s' is not a regular file\n", path);
        return kExitUnreadable;
    }
    // Opened here once to report why it cannot be, with this call's errno;
    // the data source opens it again for itself.
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        int err = errno;
        fprintf(stderr, "zirk-probe: cannot read '%s': %s\n", path, strerror(err));
        return kExitUnreadable;
    }
    close(fd);
    if (p.options.cache) {
        p.source = new ZIRKCachedFileSource(path);
    } else {
        p.source = new FileSource(path);
    }
    if (p.source->initCheck() != OK) {
        fprintf(stderr, "zirk-probe: cannot read '%s'\n", path);
        return kExitUnreadable;
    }
    return kExitOk;
}

// A file no sniffer claims but that starts like an ISO media file (an 'ftyp'
// box first) may still be one the MOV demultiplexer reads when named.
void hintIfIsoMedia(const Probe& p) {
    uint8_t head[8];
    const ZIRKContainerInfo* mov = ZIRKContainerForMimeType(MEDIA_MIMETYPE_CONTAINER_MOV);
    if (mov == nullptr || p.source->readAt(0, head, sizeof(head)) != static_cast<ssize_t>(sizeof(head)) ||
        memcmp(head + 4, "ftyp", 4) != 0) {
        return;
    }
    fprintf(stderr, "zirk-probe: hint: '%s' looks like an ISO media file (an 'ftyp' box at offset 4); "
            "try --container %s\n", p.options.file.c_str(), mov->cliNames[0]);
}

int chooseExtractor(Probe& p) {
    if (!p.options.containerMime.empty()) {
        p.containerMime = p.options.containerMime;
        p.doc["sniff"] = nullptr;
    } else {
        String8 mime;
        float confidence = 0.0f;
        sp<AMessage> sniffMeta = new AMessage;
        if (sniffZIRKExtractor(p.source, &mime, &confidence, &sniffMeta)) {
            p.containerMime = mime.c_str();
            // Single precision shown as written (0.21, not 0.2099999934...).
            double shown = std::round(static_cast<double>(confidence) * 1e6) / 1e6;
            p.doc["sniff"] = {{"mime", p.containerMime}, {"confidence", shown}, {"meta", messageToJson(sniffMeta)}};
        } else {
            p.doc["sniff"] = nullptr;
        }
    }
    p.doc["container"] = p.containerMime.empty() ? json(nullptr) : json(p.containerMime);
    if (!p.containerMime.empty()) p.extractor = getInstance(p.source, p.containerMime.c_str());
    if (p.extractor != nullptr) return kExitOk;
    if (p.options.json) std::cout << p.doc.dump(2) << std::endl;
    if (p.containerMime.empty()) {
        fprintf(stderr, "zirk-probe: '%s' is not a container this library recognises (try --container)\n",
                p.options.file.c_str());
        hintIfIsoMedia(p);
    } else {
        fprintf(stderr, "zirk-probe: no extractor for container type '%s'\n", p.containerMime.c_str());
    }
    return kExitUnrecognised;
}

int selectTracks(Probe& p) {
    p.trackCount = p.extractor->countTracks();
    if (p.options.tracks.empty()) {
        for (size_t i = 0; i < p.trackCount; ++i) p.selected.push_back(i);
        return kExitOk;
    }
    for (size_t t : p.options.tracks) {
        if (t >= p.trackCount) {
            std::string has = p.trackCount == 0 ? "has no tracks"
                                                : "has " + std::to_string(p.trackCount) + ": 0 to " +
                                                          std::to_string(p.trackCount - 1);
            return usageError("no track " + std::to_string(t) + " (the file " + has + ")");
        }
        p.selected.push_back(t);
    }
    return kExitOk;
}

// An --extract names a track the file has; it is read even when --track
// leaves it out.
int checkExtracts(Probe& p) {
    for (const ExtractRequest& e : p.options.extracts) {
        if (e.track >= p.trackCount) {
            return usageError("--extract: no track " + std::to_string(e.track) + " (the file has " +
                              std::to_string(p.trackCount) + ")");
        }
        if (std::find(p.selected.begin(), p.selected.end(), e.track) == p.selected.end()) {
            p.selected.push_back(e.track);
        }
    }
    return kExitOk;
}

void printHeader(Probe& p) {
    sp<MetaData> fileMeta = p.extractor->getMetaData();
    p.doc["meta"] = metaToJson(fileMeta);
    p.doc["tracks"] = json::array();
    if (!p.text()) return;
    printf("file: %s\n", p.options.file.c_str());
    const json& sniff = p.doc["sniff"];
    if (sniff.is_null()) {
        printf("container (given): %s\n", p.containerMime.c_str());
    } else {
        printf("sniff: %s (confidence %.2f)\n", p.containerMime.c_str(), sniff["confidence"].get<double>());
        if (!sniff["meta"].empty()) printf("  sniff meta: %s\n", sniff["meta"].dump().c_str());
    }
    printf("file metadata:\n");
    printMeta(fileMeta, "  ");
    printf("tracks: %zu\n", p.trackCount);
}

// Hands track i's samples to the --extract files and the timeline that want them.
void attachOutputs(Probe& p, size_t i, const sp<MetaData>& format, TrackReader& reader) {
    for (size_t k = 0; k < p.options.extracts.size(); ++k) {
        if (p.options.extracts[k].track == i && p.extracts[k] == nullptr) {
            std::string error;
            p.extracts[k] = openExtractSink(format, p.options.extracts[k].path, &error);
            if (p.extracts[k] == nullptr) {
                fprintf(stderr, "zirk-probe: --extract %zu:%s: %s\n", i, p.options.extracts[k].path.c_str(),
                        error.c_str());
            } else {
                reader.addSink(p.extracts[k].get());
            }
        }
    }
    if (p.timeline) reader.addSink(p.timeline->addTrack(i, format));
}

// Completes the --extract files and draws the timeline; false when one of
// them could not be written.
bool finishOutputs(Probe& p) {
    bool ok = true;
    std::string error;
    for (size_t k = 0; k < p.extracts.size(); ++k) {
        const ExtractRequest& e = p.options.extracts[k];
        if (p.extracts[k] == nullptr) {
            ok = false;
        } else if (!p.extracts[k]->finish(&error)) {
            fprintf(stderr, "zirk-probe: --extract %zu:%s: %s\n", e.track, e.path.c_str(), error.c_str());
            ok = false;
        }
    }
    if (p.timeline) {
        for (size_t i : p.selected) p.timeline->addSeekPoints(i, p.extractor);
        if (!p.timeline->write(&error)) {
            fprintf(stderr, "zirk-probe: --timeline %s: %s\n", p.options.timeline.c_str(), error.c_str());
            ok = false;
        }
    }
    return ok;
}

// Shows each selected track's format as a player sees it, from the source
// (which may add keys to what the extractor lists), and with --samples reads
// the tracks: in text, one after another, each listed under its format;
// otherwise interleaved.
std::vector<std::unique_ptr<TrackReader>> probeTracks(Probe& p) {
    std::vector<std::unique_ptr<TrackReader>> readers;
    const bool streamed = p.options.samples && p.text();
    for (size_t i : p.selected) {
        sp<MediaSource> track = p.extractor->getTrack(i);
        sp<MetaData> format = track != nullptr ? track->getFormat() : p.extractor->getTrackMetaData(i, 0);
        p.doc["tracks"].push_back({{"index", i}, {"meta", metaToJson(format)}});
        if (p.text()) {
            printf("track %zu:\n", i);
            printMeta(format, "  ");
        }
        if (!p.options.reads()) continue;
        readers.emplace_back(new TrackReader(i, track, p.options));
        attachOutputs(p, i, format, *readers.back());
        if (streamed) {
            TrackReader& reader = *readers.back();
            printf("  samples:\n");
            while (!reader.done()) reader.step();
            printf("  end: %s after %llu samples\n", reader.end().text().c_str(),
                   static_cast<unsigned long long>(reader.totals().samples));
        }
    }
    if (!streamed) readInterleaved(readers);
    return readers;
}

// Prints the totals (and the JSON document) and says which tracks ended badly.
int finish(Probe& p, std::vector<std::unique_ptr<TrackReader>>& readers) {
    TrackTotals all;
    bool trackError = false;
    for (size_t k = 0; k < readers.size(); ++k) {
        TrackReader& reader = *readers[k];
        json& t = p.doc["tracks"][k];
        if (p.options.samples && !p.options.quiet) t["samples"] = std::move(reader.samples());
        t["sample_count"] = reader.totals().samples;
        t["bytes"] = reader.totals().bytes;
        t["end"] = reader.end().code();
        all.samples += reader.totals().samples;
        all.bytes += reader.totals().bytes;
        if (reader.end().isError()) {
            trackError = true;
            fprintf(stderr, "zirk-probe: track %zu: %s after %llu samples\n", reader.index(),
                    reader.end().text().c_str(), static_cast<unsigned long long>(reader.totals().samples));
        }
    }
    bool outputsOk = finishOutputs(p);
    double seconds = nowSeconds() - p.started;
    if (p.options.json) {
        if (p.options.quiet) p.doc["totals"] = {{"samples", all.samples}, {"bytes", all.bytes}, {"seconds", seconds}};
        std::cout << p.doc.dump(2) << std::endl;
    } else if (p.options.quiet) {
        printf("samples=%llu bytes=%llu seconds=%.3f\n", static_cast<unsigned long long>(all.samples),
               static_cast<unsigned long long>(all.bytes), seconds);
    }
    if (p.trackCount == 0) {
        fprintf(stderr, "zirk-probe: '%s' has no tracks this library can read\n", p.options.file.c_str());
        return kExitNoTracks;
    }
    if (trackError) return kExitTrackError;
    return outputsOk ? kExitOk : kExitOutputFailed;
}

}  // namespace

int main(int argc, char** argv) {
    Probe p;
    int exitCode = kExitOk;
    if (!readOptions(argc, argv, &p.options, &exitCode)) return exitCode;
    if (p.options.version) {
        printVersions();
        return kExitOk;
    }
    if (p.options.paths.empty()) return usageError("no FILE given (see --help)");
    if (p.options.batch) {
        BatchRequest batch;
        batch.self = "/proc/self/exe";
        batch.paths = p.options.paths;
        batch.extensions = p.options.extensions;
        batch.jobs = p.options.jobs ? p.options.jobs : std::max(1L, sysconf(_SC_NPROCESSORS_ONLN));
        batch.json = p.options.json;
        batch.childArgs = p.options.childArgs;
        return runBatch(batch);
    }

    gCurrentFile = p.options.file;
    zirk_log_set_assert_hook(&onFatalCheck, nullptr);
    p.doc["file"] = p.options.file;
    if ((exitCode = openFile(p)) != kExitOk) return exitCode;
    p.started = nowSeconds();
    if ((exitCode = chooseExtractor(p)) != kExitOk) return exitCode;
    if ((exitCode = selectTracks(p)) != kExitOk) return exitCode;
    if ((exitCode = checkExtracts(p)) != kExitOk) return exitCode;
    p.extracts.resize(p.options.extracts.size());
    if (!p.options.timeline.empty()) p.timeline.reset(new TimelineWriter(p.options.timeline, p.options.file));
    printHeader(p);
    std::vector<std::unique_ptr<TrackReader>> readers = probeTracks(p);
    return finish(p, readers);
}
