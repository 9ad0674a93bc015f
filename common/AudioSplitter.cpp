#include "common/AudioSplitter.h"

#include <string.h>
#include <strings.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/Utils.h>
#include <media/stagefright/foundation/ABitReader.h>
#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Log.h>
#include <zirk/ZIRKByteReader.h>

#include "common/ZIRKESDescriptor.h"

namespace android {

namespace {

constexpr uint32_t kAACSamplesPerFrame = 1024;
constexpr uint32_t kAC3SamplesPerFrame = 1536;
// Frames that must follow a candidate ADTS header for a resync to accept it.
constexpr int kADTSResyncFollowingFrames = 3;
// PCM and G.711 are cut in 20 ms pieces: rate / 50 frames.
constexpr int32_t kPiecesPerSecond = 50;
constexpr int64_t kPieceDurationUs = 20000;
// The ADTS fields read (sync, rate index, frame length) end in byte 5.
constexpr size_t kADTSParsedBytes = 6;
constexpr size_t kAC3MinHeaderSize = 6;  // bsid sits in byte 5

const int32_t kAC3SampleRates[] = {48000, 44100, 32000};

const int32_t kAC3ChannelsForAcmod[] = {2, 1, 2, 3, 3, 4, 4, 5};

// A/52 frame sizes in 16-bit words, by frmsizecod, for 48, 44.1 and 32 kHz.
const uint16_t kAC3FrameSizeWords[38][3] = {
    {64, 69, 96},       {64, 70, 96},       {80, 87, 120},      {80, 88, 120},
    {96, 104, 144},     {96, 105, 144},     {112, 121, 168},    {112, 122, 168},
    {128, 139, 192},    {128, 140, 192},    {160, 174, 240},    {160, 175, 240},
    {192, 208, 288},    {192, 209, 288},    {224, 243, 336},    {224, 244, 336},
    {256, 278, 384},    {256, 279, 384},    {320, 348, 480},    {320, 349, 480},
    {384, 417, 576},    {384, 418, 576},    {448, 487, 672},    {448, 488, 672},
    {512, 557, 768},    {512, 558, 768},    {640, 696, 960},    {640, 697, 960},
    {768, 835, 1152},   {768, 836, 1152},   {896, 975, 1344},   {896, 976, 1344},
    {1024, 1114, 1536}, {1024, 1115, 1536}, {1152, 1253, 1728}, {1152, 1254, 1728},
    {1280, 1393, 1920}, {1280, 1394, 1920},
};

const int16_t kIMAStepTable[89] = {
    7,     8,     9,     10,    11,    12,    13,    14,    16,    17,    19,    21,    23,
    25,    28,    31,    34,    37,    41,    45,    50,    55,    60,    66,    73,    80,
    88,    97,    107,   118,   130,   143,   157,   173,   190,   209,   230,   253,   279,
    307,   337,   371,   408,   449,   494,   544,   598,   658,   724,   796,   876,   963,
    1060,  1166,  1282,  1411,  1552,  1707,  1878,  2066,  2272,  2499,  2749,  3024,  3327,
    3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845,  8630,  9493,  10442, 11487,
    12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};

const int8_t kIMAIndexTable[8] = {-1, -1, -1, -1, 2, 4, 6, 8};
constexpr int kIMAMaxStepIndex = 88;

struct IMAChannelState {
    int32_t mPredictor;
    int32_t mStepIndex;
};

int16_t decodeIMANibble(IMAChannelState* state, uint8_t nibble) {
    int32_t step = kIMAStepTable[state->mStepIndex];
    state->mStepIndex += kIMAIndexTable[nibble & 7];
    if (state->mStepIndex < 0) state->mStepIndex = 0;
    if (state->mStepIndex > kIMAMaxStepIndex) state->mStepIndex = kIMAMaxStepIndex;
    int32_t diff = step * (2 * (nibble & 7) + 1) / 8;
    int32_t value = (nibble & 8) ? state->mPredictor - diff : state->mPredictor + diff;
    if (value < -32768) value = -32768;
    if (value > 32767) value = 32767;
    state->mPredictor = value;
    return static_cast<int16_t>(value);
}

}  // namespace

AudioSplitter::AudioSplitter(const ZIRKSplitterChecks& checks, const sp<MetaData>& meta,
                             uint32_t audioType, uint32_t bytesPerSample, uint32_t blockAlign)
    : DataSplitter(checks),
      mAudioType(static_cast<int32_t>(audioType)),
      mIsADTS(false),
      mBytesPerSample(bytesPerSample),
      mBlockAlign(blockAlign),
      mSampleRate(0),
      mChannelCount(0) {
    const char* mime;
    // Must stay fatal.
    ZIRK_CHECK_SITE(mChecks.component, mChecks.mimeType, meta->findCString(kKeyMIMEType, &mime));
    if (audioType == kAudioUnknown) {
        if (!strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_AAC)) {
            mAudioType = kAudioAAC;
        } else if (!strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_WMA)) {
            mAudioType = kAudioWMA;
        } else if (!strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_RAW)) {
            mAudioType = kAudioPCM;
        } else if (!strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_AC3)) {
            mAudioType = kAudioAC3;
        } else {
            mAudioType = -1;
            __android_log_print(ANDROID_LOG_ERROR, mChecks.component.tag, "Not Supported audio format");
        }
    }
    meta->findInt32(kKeySampleRate, &mSampleRate);
    meta->findInt32(kKeyChannelCount, &mChannelCount);
}

status_t AudioSplitter::append(MediaBuffer* buffer) {
    bool first = mBaseTimeUs < 0;
    status_t err = appendBytes(buffer);
    if (err != OK) return err;
    if (first && mAudioType == kAudioAAC) {
        FrameInfo info;
        mIsADTS = ParseADTSHeader(static_cast<const uint8_t*>(buffer->data()) + buffer->range_offset(),
                                  buffer->range_length(), &info);
    }
    int64_t timeUs;
    if (buffer->meta_data()->findInt64(kKeyTime, &timeUs)) mBuffer->meta()->setInt64("timeUs", timeUs);
    return OK;
}

bool AudioSplitter::ParseADTSHeader(const uint8_t* data, size_t size, FrameInfo* info) {
    return CheckADTSHeader(data, size, info) == kHeaderGood;
}

// Judges from the bytes there are: the sync bits and the rate index refuse a
// header as soon as their bytes are in, the frame length needs byte 5.
AudioSplitter::HeaderCheck AudioSplitter::CheckADTSHeader(const uint8_t* data, size_t size,
                                                          FrameInfo* info) {
    if (size >= 1 && data[0] != 0xFF) return kHeaderBad;
    if (size >= 2 && (data[1] & 0xF6) != 0xF0) return kHeaderBad;
    if (size >= 3 && ((data[2] >> 2) & 15) > 11) return kHeaderBad;
    if (size < kADTSParsedBytes) return kHeaderShort;
    size_t headerSize = (data[1] & 1) ? 7 : 9;
    size_t frameSize = ((data[3] & 3) << 11) | (data[4] << 3) | (data[5] >> 5);
    if (frameSize < headerSize) return kHeaderBad;
    uint32_t rateIndex = (data[2] >> 2) & 15;
    info->mFrameSize = frameSize;
    info->mHeaderSize = headerSize;
    info->mSampleRate = kZIRKAACSampleRates[rateIndex];
    info->mChannels = ((data[2] & 1) << 2) | (data[3] >> 6);
    info->mSamples = kAACSamplesPerFrame;
    return kHeaderGood;
}

// The 16-bit sync word is skipped, not tested: a header is whatever its
// fields say, so a resync takes the first position whose fields parse, and
// the reserved-value checks below fire on whatever bytes stand there.
bool AudioSplitter::ParseAC3Header(const ZIRKSplitterChecks& checks, const uint8_t* data, size_t size,
                                   FrameInfo* info) {
    if (size < kAC3MinHeaderSize) return false;
    uint32_t bsid = data[5] >> 3;
    ABitReader bits(data, size);
    info->mHeaderSize = 0;
    info->mSamples = kAC3SamplesPerFrame;
    if (bsid < 11 || bsid > 16) {
        bits.skipBits(32);  // sync word, CRC
        uint32_t sampleRateIndex = bits.getBits(2);
        // Must stay fatal: fscod 3 (reserved).
        ZIRK_CHECK_SITE(checks.component, checks.ac3SampleRate, sampleRateIndex != 3);
        uint32_t frmsizecod = bits.getBits(6);
        // Codes past the table are reserved; they do not parse.
        if (frmsizecod >= sizeof(kAC3FrameSizeWords) / sizeof(kAC3FrameSizeWords[0])) return false;
        info->mSampleRate = kAC3SampleRates[sampleRateIndex];
        info->mFrameSize = 2u * kAC3FrameSizeWords[frmsizecod][sampleRateIndex];
        info->mChannels = 0;
        if (bits.numBitsLeft() >= 17) {
            bits.skipBits(5 + 3);  // bsid, bsmod
            info->mChannels = kAC3ChannelsForAcmod[bits.getBits(3)];
        }
        return true;
    }
    bits.skipBits(16);  // sync word
    uint32_t strmtyp = bits.getBits(2);
    // Must stay fatal: stream type 3 (reserved).
    ZIRK_CHECK_SITE(checks.component, checks.eac3StreamType, strmtyp <= 2);
    bits.skipBits(3);  // substreamid
    uint32_t frmsiz = bits.getBits(11);
    uint32_t fscod = bits.getBits(2);
    uint32_t fscod2 = bits.getBits(2);
    uint32_t acmod = bits.getBits(3);
    uint32_t lfeon = bits.getBits(1);
    info->mFrameSize = (frmsiz + 1) * 2;
    if (fscod < 3) {
        info->mSampleRate = kAC3SampleRates[fscod];
    } else {
        // fscod2 3 is reserved and has no rate: it does not parse.
        if (fscod2 == 3) return false;
        // Twice the table value (not half), as this system has always done.
        info->mSampleRate = 2 * kAC3SampleRates[fscod2];
    }
    info->mChannels = kAC3ChannelsForAcmod[acmod] + static_cast<int32_t>(lfeon);
    return true;
}

void AudioSplitter::DecodeIMABlock(const uint8_t* block, size_t blockBytes, int32_t channels,
                                   size_t samples, int16_t* out) {
    // Slots the block's data do not reach (the part-group at the end of a
    // multi-channel block, the odd sample of the MS ADPCM geometry) are
    // silence: the whole output is zeroed first rather than left as it was.
    memset(out, 0, samples * sizeof(int16_t));
    size_t ch = static_cast<size_t>(channels);
    IMAChannelState states[8];
    // Channel states live on the stack for up to 8 channels; more channels
    // than that are decoded in groups of 8 by the outer loop.
    for (size_t group = 0; group < ch; group += 8) {
        size_t groupEnd = group + 8 < ch ? group + 8 : ch;
        size_t next[8];
        for (size_t c = group; c < groupEnd; ++c) {
            const uint8_t* header = block + 4 * c;
            IMAChannelState& s = states[c - group];
            uint16_t predictor = 0;
            ZIRKByteReader(header, 2).readLE16(&predictor);
            s.mPredictor = static_cast<int16_t>(predictor);
            s.mStepIndex = header[2] > kIMAMaxStepIndex ? kIMAMaxStepIndex : header[2];
            if (c < samples) out[c] = static_cast<int16_t>(s.mPredictor);
            next[c - group] = 1;
        }
        const uint8_t* data = block + 4 * ch;
        size_t dataBytes = blockBytes - 4 * ch;
        auto put = [&](size_t c, uint8_t nibble) {
            IMAChannelState& s = states[c - group];
            int16_t v = decodeIMANibble(&s, nibble);
            size_t j = next[c - group]++;
            // Slots past the block's sample count are never written.
            if (j * ch + c < samples) out[j * ch + c] = v;
        };
        if (ch == 1) {
            for (size_t i = 0; i < dataBytes; ++i) {
                put(0, data[i] & 0x0F);
                put(0, data[i] >> 4);
            }
        } else {
            for (size_t pos = 0; dataBytes - pos >= 4 * ch; pos += 4 * ch) {
                for (size_t c = group; c < groupEnd; ++c) {
                    for (size_t b = 0; b < 4; ++b) {
                        uint8_t byte = data[pos + 4 * c + b];
                        put(c, byte & 0x0F);
                        put(c, byte >> 4);
                    }
                }
            }
        }
    }
}

bool AudioSplitter::resync() {
    size_t length = bufferedSize();
    const uint8_t* data = length ? bufferedData() : nullptr;
    if (mAudioType == kAudioAAC && mIsADTS) {
        for (size_t i = 0; length > 8 && i < length - 8; ++i) {
            FrameInfo info;
            if (!ParseADTSHeader(data + i, length - i, &info)) continue;
            uint32_t first = 0, word = 0;
            ZIRKByteReader(data + i, length - i).readBE32(&first);
            size_t j = i;
            int matched = 0;
            while (matched < kADTSResyncFollowingFrames) {
                if (info.mFrameSize > length - j) break;
                j += info.mFrameSize;
                if (length - j < 4) break;
                ZIRKByteReader(data + j, length - j).readBE32(&word);
                if (((word ^ first) & ~3u) != 0) break;
                if (!ParseADTSHeader(data + j, length - j, &info)) break;
                ++matched;
            }
            if (matched == kADTSResyncFollowingFrames) {
                consume(i);
                return true;
            }
        }
        return false;
    }
    if (mAudioType == kAudioAC3) {
        for (size_t i = 0; length > 5 && i < length - 5; ++i) {
            FrameInfo info;
            if (ParseAC3Header(mChecks, data + i, length - i, &info)) {
                consume(i);
                return true;
            }
        }
        return false;
    }
    return true;
}

status_t AudioSplitter::read(MediaBuffer** out, int64_t* seekTimeUs) {
    *out = nullptr;
    if (mFindSync) {
        if (!resync()) return kSplitterNeedsMoreInput;
        mFindSync = false;
    }
    if (bufferedSize() < 4) return kSplitterNeedsMoreInput;
    switch (mAudioType) {
        case kAudioAAC:
            return readAAC(out);
        case kAudioWMA:
            return readWMA(out);
        case kAudioPCM:
            return readPCM(out, seekTimeUs, false);
        case kAudioAC3:
            return readAC3(out);
        case kAudioIMAADPCM:
        case kAudioMSADPCM:
            return readADPCM(out);
        case kAudioALAW:
        case kAudioMULAW:
            return readPCM(out, seekTimeUs, true);
        default:
            return ERROR_END_OF_STREAM;
    }
}

status_t AudioSplitter::readAAC(MediaBuffer** out) {
    const uint8_t* data = bufferedData();
    size_t length = bufferedSize();
    size_t skip = 0, take = length;
    if (mIsADTS) {
        // A header already wrong in the bytes buffered is malformed at once;
        // one cut short by the chunk's end waits for the next chunk (its
        // fields past the buffered bytes are not there to be read).
        FrameInfo info;
        HeaderCheck check = CheckADTSHeader(data, length, &info);
        if (check == kHeaderBad) return ERROR_MALFORMED;
        if (check == kHeaderShort || length < info.mFrameSize) return kSplitterNeedsMoreInput;
        skip = info.mHeaderSize;
        take = info.mFrameSize;
    }
    MediaBuffer* buffer;
    status_t err = newOutputBuffer(take - skip, currentTimeUs(mSampleRate), &buffer);
    if (err != OK) return err;
    memcpy(buffer->data(), data + skip, take - skip);
    mNumSamplesRead += kAACSamplesPerFrame;
    consume(take);
    *out = buffer;
    return OK;
}

status_t AudioSplitter::readWMA(MediaBuffer** out) {
    int64_t timeUs = mBaseTimeUs;
    mBuffer->meta()->findInt64("timeUs", &timeUs);
    size_t length = bufferedSize();
    MediaBuffer* buffer;
    status_t err = newOutputBuffer(length, timeUs, &buffer);
    if (err != OK) return err;
    memcpy(buffer->data(), bufferedData(), length);
    consume(length);
    *out = buffer;
    return OK;
}

status_t AudioSplitter::readPCM(MediaBuffer** out, const int64_t* seekTimeUs, bool g711) {
    // A rate below 50 Hz gives pieces of no frames and no channels gives no
    // frame size. Handing out empty pieces would never consume a byte, so
    // the reader would be given the same empty piece forever; such a track
    // cannot be cut and ends as malformed instead.
    if (mChannelCount <= 0 || mSampleRate < kPiecesPerSecond) return ERROR_MALFORMED;
    size_t channels = static_cast<size_t>(mChannelCount);
    size_t width = g711 ? 1 : (mBytesPerSample == 0 ? 2 : mBytesPerSample);
    size_t frameBytes = width * channels;

    for (;;) {
        size_t length = bufferedSize();
        size_t frames = static_cast<size_t>(mSampleRate / kPiecesPerSecond);
        if (length / frameBytes < frames) frames = length / frameBytes;
        // Less than one whole frame buffered: wait for the next chunk. An
        // empty piece would consume nothing and be handed out again on every
        // read; asking for input moves the source on to its next chunk, and
        // at the last chunk to the end of the stream.
        if (frames == 0) return kSplitterNeedsMoreInput;
        size_t inBytes = frames * frameBytes;
        int64_t timeUs = currentTimeUs(mSampleRate);
        if (seekTimeUs != nullptr && timeUs + kPieceDurationUs < *seekTimeUs &&
            length - inBytes > mBytesPerSample) {
            mNumSamplesRead += frames;
            consume(inBytes);
            continue;
        }

        size_t outBytes = g711 ? inBytes : frames * channels * 2;
        MediaBuffer* buffer;
        status_t err = newOutputBuffer(outBytes, timeUs, &buffer);
        if (err != OK) return err;
        const uint8_t* in = bufferedData();
        uint8_t* dst = static_cast<uint8_t*>(buffer->data());
        size_t count = frames * channels;
        if (g711 || width == 2) {
            memcpy(dst, in, outBytes);
        } else if (width == 1) {
            for (size_t i = 0; i < count; ++i) {
                int16_t v = static_cast<int16_t>((static_cast<int32_t>(in[i]) - 128) * 256);
                dst[2 * i] = static_cast<uint8_t>(v & 0xFF);
                dst[2 * i + 1] = static_cast<uint8_t>((v >> 8) & 0xFF);
            }
        } else if (width == 3) {
            for (size_t i = 0; i < count; ++i) {
                dst[2 * i] = in[3 * i + 1];
                dst[2 * i + 1] = in[3 * i + 2];
            }
        } else {
            // Other widths are not converted; the piece is silence rather
            // than uninitialised memory.
            memset(dst, 0, outBytes);
        }
        mNumSamplesRead += frames;
        consume(inBytes);
        *out = buffer;
        return OK;
    }
}

status_t AudioSplitter::readAC3(MediaBuffer** out) {
    const uint8_t* data = bufferedData();
    size_t length = bufferedSize();
    // With the sync word untested nothing in the first bytes can refuse a
    // header, and bsid (byte 5) picks how the rest reads: fewer bytes wait
    // for the next chunk, which a frame cut by a chunk boundary needs.
    if (length < kAC3MinHeaderSize) return kSplitterNeedsMoreInput;
    FrameInfo info;
    if (!ParseAC3Header(mChecks, data, length, &info)) return ERROR_MALFORMED;
    if (length < info.mFrameSize) return kSplitterNeedsMoreInput;
    MediaBuffer* buffer;
    status_t err = newOutputBuffer(info.mFrameSize, currentTimeUs(mSampleRate), &buffer);
    if (err != OK) return err;
    memcpy(buffer->data(), data, info.mFrameSize);
    mNumSamplesRead += kAC3SamplesPerFrame;
    consume(info.mFrameSize);
    *out = buffer;
    return OK;
}

status_t AudioSplitter::readADPCM(MediaBuffer** out) {
    int64_t ch = mChannelCount;
    int64_t align = mBlockAlign;
    // Samples per block, all channels. MS ADPCM goes through the IMA decoder
    // with its own sample count; that is what this system does.
    int64_t samples = mAudioType == kAudioIMAADPCM ? ch + (align - 4 * ch) * 2
                                                                     : (align - 6 * ch) * 2;
    // No channels (a division by zero below), or a block too small for its
    // channel headers, has no defined layout: malformed. A block of headers
    // alone holds one sample per channel.
    if (ch <= 0 || samples < ch) return ERROR_MALFORMED;
    size_t blockBytes = static_cast<size_t>(4 * ch + (samples - ch) / 2);
    if (bufferedSize() < blockBytes) return kSplitterNeedsMoreInput;
    if (ch > 1 && blockBytes % 4 != 0) {
        __android_log_print(ANDROID_LOG_WARN, mChecks.component.tag,
                            "8 samples of one channel should be packed together for multi-channel IMA ADPCM.");
        return kSplitterNeedsMoreInput;
    }
    MediaBuffer* buffer;
    status_t err = newOutputBuffer(static_cast<size_t>(samples) * 2, currentTimeUs(mSampleRate), &buffer);
    if (err != OK) return err;
    DecodeIMABlock(bufferedData(), blockBytes, static_cast<int32_t>(ch), static_cast<size_t>(samples),
                   static_cast<int16_t*>(buffer->data()));
    mNumSamplesRead += samples / ch;
    consume(blockBytes);
    *out = buffer;
    return OK;
}

}  // namespace android
