// Byte builder for RIFF/AVI test files: chunk and list helpers (which can
// write wrong sizes on purpose) and AVIFile, which lays out hdrl/strl/strh/
// strf, a movi list, an idx1 index (relative or absolute offsets) and/or
// OpenDML indx super indexes with ix## standard indexes.
#ifndef ZIRK_TEST_AVI_BUILDER_H_
#define ZIRK_TEST_AVI_BUILDER_H_

#include <string>
#include <utility>
#include <vector>

#include "ByteWriter.h"

namespace android {
namespace test {
namespace avi {

// A chunk: id, size (the real one unless sizeOverride >= 0), data, and a pad
// byte after odd-sized data.
inline Bytes chunk(const std::string& id, const Bytes& data, int64_t sizeOverride = -1) {
    Bytes b;
    putFourcc(&b, id);
    putLE32(&b, sizeOverride >= 0 ? static_cast<uint64_t>(sizeOverride) : data.size());
    append(&b, data);
    if (data.size() & 1) b.push_back(0);
    return b;
}

inline Bytes list(const std::string& type, const std::vector<Bytes>& children, const std::string& id = "LIST") {
    Bytes data;
    putFourcc(&data, type);
    for (const Bytes& c : children) append(&data, c);
    return chunk(id, data);
}

inline Bytes strh(const std::string& type, const std::string& handler, uint32_t scale, uint32_t rate,
                  uint32_t sampleSize = 0) {
    Bytes b;
    putFourcc(&b, type);
    putFourcc(&b, handler);
    // flags, priority/language, initial frames, scale (20), rate (24), start,
    // length, buffer size, quality, sample size (44), frame rectangle
    putLE(&b, 4, {0, 0, 0, scale, rate, 0, 0, 0, 0, sampleSize, 0, 0});
    return b;
}

inline Bytes bitmapInfo(int32_t width, int32_t height, const std::string& compression, const Bytes& extra = {}) {
    Bytes b;
    putLE(&b, 4, {40 + extra.size(), static_cast<uint32_t>(width), static_cast<uint32_t>(height)});
    putLE(&b, 2, {1, 24});
    putFourcc(&b, compression);
    putLE(&b, 4, {0, 0, 0, 0, 0});
    append(&b, extra);
    return b;
}

// WAVEFORMATEX; with `withCbSize` the cbSize field and `extra` follow.
inline Bytes waveFormat(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t blockAlign, uint16_t bits,
                        const Bytes& extra = {}, bool withCbSize = true) {
    Bytes b;
    putLE(&b, 2, {tag, channels});
    putLE(&b, 4, {rate, static_cast<uint32_t>(rate * blockAlign)});
    putLE(&b, 2, {blockAlign, bits});
    if (withCbSize) {
        putLE16(&b, extra.size());
        append(&b, extra);
    }
    return b;
}

// "%02d" and the suffix, cut to a FourCC.
inline std::string streamChunkId(int stream, const std::string& suffix) {
    return ((stream < 10 ? "0" : "") + std::to_string(stream) + suffix).substr(0, 4);
}

// A whole file from streams and samples.
class AVIFile {
public:
    enum IndexKind { kIdx1Relative, kIdx1Absolute, kOpenDML, kNoIndex };

    int addStream(const Bytes& strhData, const Bytes& strfData, const std::string& suffix) {
        mStreams.push_back({strhData, strfData, suffix});
        return static_cast<int>(mStreams.size()) - 1;
    }
    int addVideo(const std::string& handler, uint32_t scale, uint32_t rate, int32_t width = 64, int32_t height = 48,
                 const Bytes& extra = {}) {
        return addStream(strh("vids", handler, scale, rate), bitmapInfo(width, height, handler, extra), "dc");
    }
    int addAudio(const Bytes& format, uint32_t scale, uint32_t rate, uint32_t sampleSize) {
        return addStream(strh("auds", "", scale, rate, sampleSize), format, "wb");
    }
    // `id`: the chunk id written in movi (default: stream + suffix);
    // `indexId` and `indexSize`: what the index says (default: the chunk's).
    void addSample(int stream, const Bytes& data, bool key = true, const std::string& id = "",
                   const std::string& indexId = "", int64_t indexSize = -1) {
        std::string realId = id.empty() ? chunkId(stream) : id;
        mSamples.push_back({stream, data, key, realId, indexId.empty() ? realId : indexId,
                            static_cast<uint32_t>(indexSize >= 0 ? indexSize : static_cast<int64_t>(data.size()))});
    }

    // Chunks put at the end of the hdrl list (odml, JUNK, ...).
    std::vector<Bytes> mExtraHeaderChunks;

    // `samplePositions`, when given, receives the file offset of each
    // sample's chunk header.
    Bytes build(IndexKind kind = kIdx1Relative, std::vector<uint64_t>* samplePositions = nullptr) const {
        // The header's size does not depend on the ix## offsets it holds.
        const size_t moviOffset = 12 + header(kind, std::vector<uint64_t>(mStreams.size())).size();
        const uint64_t base = kind == kIdx1Absolute ? 0 : moviOffset + 8;
        std::vector<Bytes> movi;
        std::vector<uint64_t> positions, ixOffsets;
        Bytes index;
        uint64_t pos = moviOffset + 12;
        for (const Sample& s : mSamples) {
            positions.push_back(pos);
            movi.push_back(chunk(s.mId, s.mData));
            putFourcc(&index, s.mIndexId);
            putLE(&index, 4, {s.mKey ? 0x10u : 0u, pos - base, s.mIndexSize});
            pos += movi.back().size();
        }
        std::vector<Bytes> top = {Bytes(), list("movi", movi)};
        if (kind == kIdx1Relative || kind == kIdx1Absolute) top.push_back(chunk("idx1", index));
        for (size_t s = 0; kind == kOpenDML && s < mStreams.size(); ++s) {
            ixOffsets.push_back(pos);
            top.push_back(ixChunk(static_cast<int>(s), positions));
            pos += top.back().size();
        }
        top[0] = header(kind, ixOffsets);
        if (samplePositions) *samplePositions = positions;
        return list("AVI ", top, "RIFF");
    }

    std::vector<uint64_t> samplePositions(IndexKind kind = kIdx1Relative) const {
        std::vector<uint64_t> positions;
        build(kind, &positions);
        return positions;
    }

private:
    struct Stream {
        Bytes mStrh, mStrf;
        std::string mSuffix;  // "dc", "wb", ...
    };
    struct Sample {
        int mStream;
        Bytes mData;
        bool mKey;
        std::string mId, mIndexId;
        uint32_t mIndexSize;
    };
    std::vector<Stream> mStreams;
    std::vector<Sample> mSamples;

    std::string chunkId(int stream) const { return streamChunkId(stream, mStreams[stream].mSuffix); }

    Bytes header(IndexKind kind, const std::vector<uint64_t>& ixOffsets) const {
        std::vector<Bytes> hdrl = {chunk("avih", Bytes(56, 0))};
        for (size_t s = 0; s < mStreams.size(); ++s) {
            std::vector<Bytes> strl = {chunk("strh", mStreams[s].mStrh), chunk("strf", mStreams[s].mStrf)};
            if (kind == kOpenDML) {
                // wLongsPerEntry 4, AVI_INDEX_OF_INDEXES, one entry: offset, size, duration
                Bytes indx = {4, 0, 0, 0};
                putLE32(&indx, 1);
                putFourcc(&indx, chunkId(static_cast<int>(s)));
                putLE(&indx, 4, {0, 0, 0});
                putLE64(&indx, ixOffsets[s]);
                putLE(&indx, 4, {ixChunk(static_cast<int>(s), {}).size(), 0});
                strl.push_back(chunk("indx", indx));
            }
            hdrl.push_back(list("strl", strl));
        }
        hdrl.insert(hdrl.end(), mExtraHeaderChunks.begin(), mExtraHeaderChunks.end());
        return list("hdrl", hdrl);
    }

    // The standard index of `stream`: base offset 0, so each entry's offset
    // is its chunk's data in the file; bit 31 of the size marks a non-key frame.
    Bytes ixChunk(int stream, const std::vector<uint64_t>& positions) const {
        Bytes entries;
        uint32_t count = 0;
        for (size_t i = 0; i < mSamples.size(); ++i) {
            if (mSamples[i].mStream != stream) continue;
            ++count;
            putLE(&entries, 4, {positions.empty() ? 0 : positions[i] + 8,
                                mSamples[i].mIndexSize | (mSamples[i].mKey ? 0 : 0x80000000u)});
        }
        Bytes data = {2, 0, 0, 1};  // wLongsPerEntry 2, AVI_INDEX_OF_CHUNKS
        putLE32(&data, count);
        putFourcc(&data, chunkId(stream));
        putLE64(&data, 0);
        putLE32(&data, 0);
        append(&data, entries);
        return chunk("ix" + streamChunkId(stream, ""), data);
    }
};

}  // namespace avi
}  // namespace test
}  // namespace android

#endif
