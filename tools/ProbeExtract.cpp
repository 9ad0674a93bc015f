#include "tools/ProbeExtract.h"
#include "tools/ProbeSupport.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>

#include <vector>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/foundation/ABitReader.h>
#include <media/stagefright/foundation/ESDS.h>

#include <zirk/ZIRKByteReader.h>
#include "common/ZIRKMetaKeys.h"

using android::ABitReader;
using android::ESDS;
using android::MetaData;
using android::sp;
using android::ZIRKByteReader;

namespace zirk_probe {
namespace {

constexpr size_t kOutputBufferBytes = 1 << 20;
const uint8_t kStartCode[4] = {0, 0, 0, 1};

// The output file, written through a large stdio buffer. Keeps the first
// error; later writes are dropped.
class OutputFile {
public:
    ~OutputFile() {
        if (mFile != nullptr) fclose(mFile);
    }

    bool open(const std::string& path, std::string* error) {
        mFile = fopen(path.c_str(), "wb");
        if (mFile == nullptr) {
            *error = errnoText("cannot create the file", errno);
            return false;
        }
        mBuffer.resize(kOutputBufferBytes);
        setvbuf(mFile, mBuffer.data(), _IOFBF, mBuffer.size());
        struct stat st;
        mRegular = fstat(fileno(mFile), &st) == 0 && S_ISREG(st.st_mode);
        return true;
    }

    // A regular file can be patched after writing; a pipe or device cannot.
    bool regular() const { return mRegular; }
    bool failed() const { return !mError.empty(); }
    void fail(const std::string& error) {
        if (mError.empty()) mError = error;
    }

    void write(const void* data, size_t size) {
        if (failed() || size == 0) return;
        if (fwrite(data, 1, size, mFile) != size) fail(errnoText("write failed", errno));
    }

    // Overwrites 4 bytes at `offset` with `value`, little-endian, and goes
    // back to the end.
    void patchLE32(long offset, uint32_t value) {
        if (failed()) return;
        uint8_t bytes[4] = {uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16), uint8_t(value >> 24)};
        if (fseek(mFile, offset, SEEK_SET) != 0 || fwrite(bytes, 1, 4, mFile) != 4 ||
            fseek(mFile, 0, SEEK_END) != 0) {
            fail(errnoText("cannot complete the header", errno));
        }
    }

    bool close(std::string* error) {
        if (mFile != nullptr) {
            if (fflush(mFile) != 0) fail(errnoText("write failed", errno));
            if (fclose(mFile) != 0) fail(errnoText("closing failed", errno));
            mFile = nullptr;
        }
        if (failed()) *error = mError;
        return !failed();
    }

private:
    FILE* mFile = nullptr;
    std::vector<char> mBuffer;  // stdio's buffer: outlives mFile
    bool mRegular = false;
    std::string mError;
};

// The common part: an output file and what goes in front of the samples.
class ExtractSink : public ProbeSampleSink {
public:
    bool open(const std::string& path, std::string* error) {
        if (!mOut.open(path, error)) return false;
        writeStart();
        return true;
    }

    void onSample(const ProbeSample& sample) override {
        if (!mOut.failed()) writeSample(sample);
    }

    bool finish(std::string* error) override {
        if (!mOut.failed()) finishStream();
        return mOut.close(error);
    }

protected:
    virtual void writeStart() {}
    virtual void writeSample(const ProbeSample& sample) = 0;
    virtual void finishStream() {}
    OutputFile mOut;
};

// Samples as they are, behind a header written once (a decoder configuration,
// or nothing).
class RawSink : public ExtractSink {
public:
    explicit RawSink(std::vector<uint8_t> header) : mHeader(std::move(header)) {}

private:
    void writeSample(const ProbeSample& sample) override {
        if (!mHeaderWritten) mOut.write(mHeader.data(), mHeader.size());
        mHeaderWritten = true;
        mOut.write(sample.data, sample.size);
    }
    void finishStream() override {
        if (!mHeaderWritten) mOut.write(mHeader.data(), mHeader.size());
    }

    std::vector<uint8_t> mHeader;
    bool mHeaderWritten = false;
};

// H.264 in start-code form, with the parameter sets in front of the first
// access unit and of every key frame so that a decoder can start at any of
// them.
class AvcSink : public ExtractSink {
public:
    explicit AvcSink(std::vector<uint8_t> parameterSets) : mParameterSets(std::move(parameterSets)) {}

private:
    void writeSample(const ProbeSample& sample) override {
        if (sample.size == 0) return;  // an end-of-sequence marker carries no NAL unit
        if (!mWarned && !startsWithStartCode(sample.data, sample.size)) {
            fprintf(stderr, "zirk-probe: --extract: an H.264 sample does not start with a start code; "
                            "the stream may not decode\n");
            mWarned = true;
        }
        if (!mStarted || sample.sync || startsWithIdr(sample.data, sample.size)) {
            mOut.write(mParameterSets.data(), mParameterSets.size());
        }
        mStarted = true;
        mOut.write(sample.data, sample.size);
    }

    // Whether the first coded slice of the access unit is an IDR slice: some
    // containers flag key frames only after a seek.
    static bool startsWithIdr(const uint8_t* p, size_t n) {
        for (size_t i = 0; i + 3 < n; ++i) {
            if (p[i] != 0 || p[i + 1] != 0 || p[i + 2] != 1) continue;
            const uint8_t type = p[i + 3] & 0x1F;
            if (type >= 1 && type <= 5) return type == 5;
            i += 3;
        }
        return false;
    }

    static bool startsWithStartCode(const uint8_t* p, size_t n) {
        return (n >= 3 && p[0] == 0 && p[1] == 0 && p[2] == 1) || (n >= 4 && memcmp(p, kStartCode, 4) == 0);
    }

    std::vector<uint8_t> mParameterSets;
    bool mStarted = false;
    bool mWarned = false;
};

// AAC in ADTS: a 7-byte header (no CRC) in front of each raw frame.
class AdtsSink : public ExtractSink {
public:
    AdtsSink(uint32_t profile, uint32_t rateIndex, uint32_t channels)
        : mProfile(profile), mRateIndex(rateIndex), mChannels(channels) {}

private:
    static constexpr size_t kHeaderBytes = 7;
    static constexpr size_t kMaxFrameBytes = (1 << 13) - 1;  // 13-bit frame length, header included

    void writeSample(const ProbeSample& sample) override {
        if (isAdtsFrame(sample.data, sample.size)) {  // already framed in the container
            mOut.write(sample.data, sample.size);
            return;
        }
        if (sample.size > kMaxFrameBytes - kHeaderBytes) {
            mOut.fail("an AAC frame of " + std::to_string(sample.size) + " bytes is larger than ADTS carries");
            return;
        }
        const uint32_t length = static_cast<uint32_t>(sample.size + kHeaderBytes);
        const uint8_t header[kHeaderBytes] = {
            0xFF, 0xF1,  // sync word, MPEG-4, layer 0, no CRC
            uint8_t(mProfile << 6 | mRateIndex << 2 | mChannels >> 2),
            uint8_t((mChannels & 3) << 6 | length >> 11),
            uint8_t(length >> 3),
            uint8_t((length & 7) << 5 | 0x1F),  // buffer fullness 0x7FF: variable rate
            0xFC,                               // one raw data block
        };
        mOut.write(header, sizeof(header));
        mOut.write(sample.data, sample.size);
    }

    static bool isAdtsFrame(const uint8_t* p, size_t n) {
        if (n < kHeaderBytes || p[0] != 0xFF || (p[1] & 0xF6) != 0xF0) return false;
        size_t length = (size_t(p[3] & 3) << 11) | (size_t(p[4]) << 3) | (p[5] >> 5);
        return length == n;
    }

    uint32_t mProfile, mRateIndex, mChannels;
};

// 16-bit little-endian PCM in a WAV file. The sizes are written at the end
// when the output is a regular file; a pipe or device gets the "unknown
// length" sizes readers accept for streams.
class WavSink : public ExtractSink {
public:
    WavSink(uint16_t channels, uint32_t rate) : mChannels(channels), mRate(rate) {}

private:
    static constexpr size_t kHeaderBytes = 44;
    // The RIFF size (the file less 8 bytes) is 32 bits: 36 header bytes,
    // the data, and a pad byte when the data size is odd.
    static constexpr uint64_t kMaxDataBytes = 0xFFFFFFFFull - 36 - 1;

    void writeStart() override {
        const uint32_t unknown = mOut.regular() ? 0 : 0xFFFFFFFF;
        const uint16_t blockAlign = static_cast<uint16_t>(mChannels * 2);
        const uint32_t byteRate = mRate * blockAlign;  // checked by the factory
        uint8_t h[kHeaderBytes];
        memcpy(h, "RIFF", 4);
        putLE32(h + 4, unknown);
        memcpy(h + 8, "WAVEfmt ", 8);
        putLE32(h + 16, 16);
        putLE16(h + 20, 1);  // integer PCM
        putLE16(h + 22, mChannels);
        putLE32(h + 24, mRate);
        putLE32(h + 28, byteRate);
        putLE16(h + 32, blockAlign);
        putLE16(h + 34, 16);
        memcpy(h + 36, "data", 4);
        putLE32(h + 40, unknown);
        mOut.write(h, sizeof(h));
    }

    void writeSample(const ProbeSample& sample) override {
        if (sample.size > kMaxDataBytes - mDataBytes) {
            mOut.fail("the PCM data exceeds the 4 GiB a WAV file holds");
            return;
        }
        mDataBytes += sample.size;
        mOut.write(sample.data, sample.size);
    }

    void finishStream() override {
        const bool odd = (mDataBytes & 1) != 0;
        if (odd) mOut.write("", 1);
        if (!mOut.regular()) return;
        mOut.patchLE32(4, static_cast<uint32_t>(36 + mDataBytes + (odd ? 1 : 0)));
        mOut.patchLE32(40, static_cast<uint32_t>(mDataBytes));
    }

    static void putLE16(uint8_t* p, uint16_t v) {
        p[0] = uint8_t(v);
        p[1] = uint8_t(v >> 8);
    }
    static void putLE32(uint8_t* p, uint32_t v) {
        for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i));
    }

    uint16_t mChannels;
    uint32_t mRate;
    uint64_t mDataBytes = 0;
};

// ---------------------------------------------------------------------------
// Reading the track format

bool findBlob(const sp<MetaData>& format, uint32_t key, const uint8_t** data, size_t* size) {
    uint32_t type = 0;
    const void* p = nullptr;
    if (!format->findData(key, &type, &p, size) || p == nullptr) return false;
    *data = static_cast<const uint8_t*>(p);
    return true;
}

// The SPS and PPS NAL units of an AVCDecoderConfigurationRecord, each behind
// a start code. Extensions after the PPS list are not needed and not read.
bool avcParameterSets(const uint8_t* data, size_t size, std::vector<uint8_t>* out, std::string* error) {
    ZIRKByteReader r(data, size);
    uint8_t version = 0, countByte = 0;
    if (!r.readU8(&version) || version != 1 || !r.skip(4) || !r.readU8(&countByte)) {
        *error = "the track's avcC is malformed (bad header)";
        return false;
    }
    for (int list = 0; list < 2; ++list) {
        size_t count = list == 0 ? (countByte & 0x1F) : countByte;
        for (size_t i = 0; i < count; ++i) {
            uint16_t length = 0;
            ZIRKByteReader nal;
            if (!r.readBE16(&length) || !r.subReader(length, &nal)) {
                *error = std::string("the track's avcC is malformed (a ") + (list == 0 ? "SPS" : "PPS") +
                         " runs past its end)";
                return false;
            }
            if (length == 0) continue;
            out->insert(out->end(), kStartCode, kStartCode + 4);
            out->insert(out->end(), nal.current(), nal.current() + length);
        }
        if (list == 0 && !r.readU8(&countByte)) {
            *error = "the track's avcC is malformed (no PPS count)";
            return false;
        }
    }
    return true;
}

std::unique_ptr<ExtractSink> makeAvcSink(const sp<MetaData>& format, std::string* error) {
    const uint8_t* data = nullptr;
    size_t size = 0;
    std::vector<uint8_t> sets;
    // The avcC; or the container's own codec bytes, either an avcC or the
    // parameter sets already in start-code form.
    bool haveAvcc = findBlob(format, android::kKeyAVCC, &data, &size);
    if (!haveAvcc && findBlob(format, android::kKeyRawCodecSpecificData, &data, &size) && size >= 4) {
        if (data[0] == 1) {
            haveAvcc = true;
        } else if (data[0] == 0 && data[1] == 0 && (data[2] == 1 || (data[2] == 0 && data[3] == 1))) {
            sets.assign(data, data + size);
        }
    }
    if (haveAvcc && !avcParameterSets(data, size, &sets, error)) return nullptr;
    if (sets.empty()) {
        fprintf(stderr, "zirk-probe: --extract: the H.264 track lists no SPS/PPS; "
                        "the stream relies on those inside its samples\n");
    }
    return std::unique_ptr<ExtractSink>(new AvcSink(std::move(sets)));
}

// The decoder configuration inside the track's ES descriptor; false when there is
// none (or it does not parse).
bool decoderConfiguration(const sp<MetaData>& format, std::vector<uint8_t>* out) {
    const uint8_t* data = nullptr;
    size_t size = 0;
    if (!findBlob(format, android::kKeyESDS, &data, &size)) return false;
    ESDS esds(data, size);
    const void* info = nullptr;
    size_t infoSize = 0;
    if (esds.InitCheck() != android::OK || esds.getCodecSpecificInfo(&info, &infoSize) != android::OK ||
        info == nullptr) {
        return false;
    }
    const uint8_t* p = static_cast<const uint8_t*>(info);
    out->assign(p, p + infoSize);
    return true;
}

const uint32_t kAacRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                22050, 16000, 12000, 11025, 8000,  7350};

// An AudioSpecificConfig's audio object type: 5 bits, 31 escaping to 6 more.
bool readAudioObjectType(ABitReader* bits, uint32_t* type) {
    if (!bits->getBitsGraceful(5, type)) return false;
    if (*type != 31) return true;
    uint32_t extended = 0;
    if (!bits->getBitsGraceful(6, &extended)) return false;
    *type = 32 + extended;
    return true;
}

// A sampling-frequency index, 15 escaping to an explicit 24-bit rate, which
// ADTS can carry only when it is one of the table's.
bool readRateIndex(ABitReader* bits, uint32_t* index, std::string* error) {
    if (!bits->getBitsGraceful(4, index)) return false;
    if (*index == 15) {
        uint32_t rate = 0;
        if (!bits->getBitsGraceful(24, &rate)) return false;
        for (uint32_t i = 0; i < 13; ++i) {
            if (kAacRates[i] == rate) {
                *index = i;
                return true;
            }
        }
        *error = "AAC at " + std::to_string(rate) + " Hz, a rate ADTS cannot carry";
        return false;
    }
    if (*index > 12) {
        *error = "the AAC configuration has a reserved sampling-frequency index " + std::to_string(*index);
        return false;
    }
    return true;
}

std::unique_ptr<ExtractSink> makeAdtsSink(const sp<MetaData>& format, std::string* error) {
    std::vector<uint8_t> config;
    if (!decoderConfiguration(format, &config)) {
        *error = "the AAC track has no usable ES descriptor (esds) with its AudioSpecificConfig";
        return nullptr;
    }
    ABitReader bits(config.data(), config.size());
    uint32_t type = 0, rateIndex = 0, channels = 0;
    const char* kShort = "the AAC configuration (AudioSpecificConfig) is too short";
    if (!readAudioObjectType(&bits, &type) || !readRateIndex(&bits, &rateIndex, error) ||
        !bits.getBitsGraceful(4, &channels)) {
        if (error->empty()) *error = kShort;
        return nullptr;
    }
    if (type == 5 || type == 29) {
        // SBR / PS: the extension's rate, then the core object type. ADTS
        // carries the core; a decoder finds the extension in the frames.
        uint32_t extensionIndex = 0;
        if (!readRateIndex(&bits, &extensionIndex, error) || !readAudioObjectType(&bits, &type)) {
            if (error->empty()) *error = kShort;
            return nullptr;
        }
    }
    if (type < 1 || type > 4) {
        *error = "AAC object type " + std::to_string(type) + ", which ADTS cannot carry (only 1 to 4)";
        return nullptr;
    }
    if (channels == 0 || channels > 7) {
        *error = "AAC channel configuration " + std::to_string(channels) +
                 ", which ADTS cannot carry without a program config element";
        return nullptr;
    }
    return std::unique_ptr<ExtractSink>(new AdtsSink(type - 1, rateIndex, channels));
}

std::unique_ptr<ExtractSink> makeWavSink(const sp<MetaData>& format, std::string* error) {
    int32_t channels = 0, rate = 0;
    if (!format->findInt32(android::kKeyChannelCount, &channels) ||
        !format->findInt32(android::kKeySampleRate, &rate)) {
        *error = "the PCM track does not give its channel count and sample rate";
        return nullptr;
    }
    // The byte rate (rate x channels x 2) and block size must fit the header.
    if (channels < 1 || channels > 0x7FFF || rate < 1 ||
        static_cast<uint64_t>(rate) * static_cast<uint64_t>(channels) * 2 > 0xFFFFFFFFull) {
        *error = "PCM with " + std::to_string(channels) + " channels at " + std::to_string(rate) +
                 " Hz does not fit a WAV header";
        return nullptr;
    }
    return std::unique_ptr<ExtractSink>(new WavSink(static_cast<uint16_t>(channels), static_cast<uint32_t>(rate)));
}

bool is(const char* mime, const char* constant) { return constant != nullptr && strcasecmp(mime, constant) == 0; }

}  // namespace

std::unique_ptr<ProbeSampleSink> openExtractSink(const sp<MetaData>& format, const std::string& path,
                                                 std::string* error) {
    const char* mime = nullptr;
    if (format == nullptr || !format->findCString(android::kKeyMIMEType, &mime) || mime == nullptr) {
        *error = "the track has no MIME type";
        return nullptr;
    }
    std::unique_ptr<ExtractSink> sink;
    error->clear();
    if (is(mime, android::MEDIA_MIMETYPE_VIDEO_AVC)) {
        sink = makeAvcSink(format, error);
    } else if (is(mime, android::MEDIA_MIMETYPE_AUDIO_AAC)) {
        sink = makeAdtsSink(format, error);
    } else if (is(mime, android::MEDIA_MIMETYPE_AUDIO_RAW)) {
        sink = makeWavSink(format, error);
    } else if (is(mime, android::MEDIA_MIMETYPE_AUDIO_MPEG) || is(mime, android::MEDIA_MIMETYPE_AUDIO_MPEG_LAYER_II) ||
               is(mime, android::MEDIA_MIMETYPE_AUDIO_AC3) || is(mime, android::MEDIA_MIMETYPE_VIDEO_H263)) {
        // Each frame starts with its own sync word or picture start code.
        sink.reset(new RawSink({}));
    } else if (is(mime, android::MEDIA_MIMETYPE_VIDEO_MPEG4) || is(mime, android::MEDIA_MIMETYPE_VIDEO_MPEG2)) {
        // The configuration (VOL or sequence header) may also be in the
        // samples; a decoder takes it twice without harm.
        std::vector<uint8_t> config;
        if (!decoderConfiguration(format, &config)) {
            fprintf(stderr, "zirk-probe: --extract: the %s track has no decoder configuration (esds); "
                            "the stream relies on the one inside its samples\n", mime);
        }
        sink.reset(new RawSink(std::move(config)));
    } else {
        fprintf(stderr, "zirk-probe: --extract: %s is written as its samples end to end, "
                        "which no player reads without a container\n", mime);
        sink.reset(new RawSink({}));
    }
    if (sink == nullptr || !sink->open(path, error)) return nullptr;
    return sink;
}

}  // namespace zirk_probe
