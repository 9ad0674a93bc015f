// Byte builder for RIFF/AVI test files: low-level chunk and list helpers
// (which can write wrong sizes on purpose) and AVIFile, which lays out
// hdrl/strl/strh/strf, a movi list, an idx1 index (relative or absolute
// offsets) and/or OpenDML indx super indexes with ix## standard indexes.
#ifndef ZIRK_TEST_AVI_BUILDER_H_
#define ZIRK_TEST_AVI_BUILDER_H_

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

namespace android {
namespace test {
namespace avi {

using Bytes = std::vector<uint8_t>;

inline void putLE16(Bytes* b, uint32_t v) {
    b->push_back(v & 0xFF);
    b->push_back((v >> 8) & 0xFF);
}
inline void putLE32(Bytes* b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b->push_back((v >> (8 * i)) & 0xFF);
}
inline void putLE64(Bytes* b, uint64_t v) {
    for (int i = 0; i < 8; ++i) b->push_back((v >> (8 * i)) & 0xFF);
}
inline void putFourcc(Bytes* b, const std::string& f) {
    for (int i = 0; i < 4; ++i) b->push_back(i < static_cast<int>(f.size()) ? f[i] : ' ');
}
inline void append(Bytes* b, const Bytes& more) { b->insert(b->end(), more.begin(), more.end()); }
inline void setLE32(Bytes* b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) (*b)[at + i] = (v >> (8 * i)) & 0xFF;
}

// Offset of the first `id` at or after `from` in a built file, for patching
// one field of it; b.size() when absent.
inline size_t findFourcc(const Bytes& b, const std::string& id, size_t from = 0) {
    for (size_t i = from; i + 4 <= b.size(); ++i) {
        if (!memcmp(b.data() + i, id.data(), 4)) return i;
    }
    return b.size();
}

// A chunk: id, size (the real one unless sizeOverride >= 0), data, and a pad
// byte after odd-sized data.
inline Bytes chunk(const std::string& id, const Bytes& data, int64_t sizeOverride = -1) {
    Bytes b;
    putFourcc(&b, id);
    putLE32(&b, sizeOverride >= 0 ? static_cast<uint32_t>(sizeOverride) : static_cast<uint32_t>(data.size()));
    append(&b, data);
    if (data.size() & 1) b.push_back(0);
    return b;
}

inline Bytes list(const std::string& type, const std::vector<Bytes>& children,
                  const std::string& id = "LIST", int64_t sizeOverride = -1) {
    Bytes data;
    putFourcc(&data, type);
    for (const Bytes& c : children) append(&data, c);
    return chunk(id, data, sizeOverride);
}

inline Bytes riff(const std::vector<Bytes>& children, const std::string& form = "AVI ") {
    return list(form, children, "RIFF");
}

inline Bytes strh(const std::string& type, const std::string& handler, uint32_t scale, uint32_t rate,
                  uint32_t sampleSize = 0) {
    Bytes b;
    putFourcc(&b, type);
    putFourcc(&b, handler);
    putLE32(&b, 0);      // flags
    putLE32(&b, 0);      // priority, language
    putLE32(&b, 0);      // initial frames
    putLE32(&b, scale);  // 20
    putLE32(&b, rate);   // 24
    putLE32(&b, 0);      // start
    putLE32(&b, 0);      // length
    putLE32(&b, 0);      // suggested buffer size
    putLE32(&b, 0);      // quality
    putLE32(&b, sampleSize);  // 44
    putLE32(&b, 0);      // frame rectangle
    putLE32(&b, 0);
    return b;
}

inline Bytes bitmapInfo(int32_t width, int32_t height, const std::string& compression,
                        const Bytes& extra = {}) {
    Bytes b;
    putLE32(&b, 40 + static_cast<uint32_t>(extra.size()));
    putLE32(&b, static_cast<uint32_t>(width));
    putLE32(&b, static_cast<uint32_t>(height));
    putLE16(&b, 1);
    putLE16(&b, 24);
    putFourcc(&b, compression);
    for (int i = 0; i < 5; ++i) putLE32(&b, 0);
    append(&b, extra);
    return b;
}

// WAVEFORMATEX; with `withCbSize` the cbSize field and `extra` follow.
inline Bytes waveFormat(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t blockAlign,
                        uint16_t bits, const Bytes& extra = {}, bool withCbSize = true) {
    Bytes b;
    putLE16(&b, tag);
    putLE16(&b, channels);
    putLE32(&b, rate);
    putLE32(&b, rate * blockAlign);
    putLE16(&b, blockAlign);
    putLE16(&b, bits);
    if (withCbSize) {
        putLE16(&b, static_cast<uint32_t>(extra.size()));
        append(&b, extra);
    }
    return b;
}

struct IndexEntry {
    std::string mId;
    uint32_t mFlags;
    uint32_t mOffset;
    uint32_t mSize;
};

inline Bytes idx1(const std::vector<IndexEntry>& entries) {
    Bytes data;
    for (const IndexEntry& e : entries) {
        putFourcc(&data, e.mId);
        putLE32(&data, e.mFlags);
        putLE32(&data, e.mOffset);
        putLE32(&data, e.mSize);
    }
    return chunk("idx1", data);
}

struct SuperIndexEntry {
    uint64_t mOffset;
    uint32_t mSize;
    uint32_t mDuration;
};

inline Bytes indx(const std::string& chunkId, const std::vector<SuperIndexEntry>& entries,
                  int64_t entriesInUse = -1) {
    Bytes data;
    putLE16(&data, 4);
    data.push_back(0);
    data.push_back(0);  // AVI_INDEX_OF_INDEXES
    putLE32(&data, entriesInUse >= 0 ? static_cast<uint32_t>(entriesInUse)
                                     : static_cast<uint32_t>(entries.size()));
    putFourcc(&data, chunkId);
    for (int i = 0; i < 3; ++i) putLE32(&data, 0);
    for (const SuperIndexEntry& e : entries) {
        putLE64(&data, e.mOffset);
        putLE32(&data, e.mSize);
        putLE32(&data, e.mDuration);
    }
    return chunk("indx", data);
}

struct StandardIndexEntry {
    uint32_t mOffset;  // from the base offset to the chunk's data
    uint32_t mSize;    // bit 31 set: not a key frame
};

inline Bytes ixChunk(const std::string& id, const std::string& chunkId, uint64_t baseOffset,
                     const std::vector<StandardIndexEntry>& entries) {
    Bytes data;
    putLE16(&data, 2);
    data.push_back(0);
    data.push_back(1);  // AVI_INDEX_OF_CHUNKS
    putLE32(&data, static_cast<uint32_t>(entries.size()));
    putFourcc(&data, chunkId);
    putLE64(&data, baseOffset);
    putLE32(&data, 0);
    for (const StandardIndexEntry& e : entries) {
        putLE32(&data, e.mOffset);
        putLE32(&data, e.mSize);
    }
    return chunk(id, data);
}

inline std::string streamChunkId(int stream, const std::string& suffix) {
    char id[5];
    snprintf(id, sizeof(id), "%02d%s", stream, suffix.c_str());
    return id;
}

// A whole file from streams and samples.
class AVIFile {
public:
    struct Stream {
        Bytes mStrh;
        Bytes mStrf;
        std::string mSuffix;  // "dc", "wb", ...
    };
    struct Sample {
        int mStream;
        Bytes mData;
        bool mKey;
        std::string mId;  // chunk id written in movi (default: stream + suffix)
        std::string mIndexId;  // id written in the index (default: mId)
        int64_t mIndexSize;    // size written in the index (default: data size)
    };
    enum IndexKind { kIdx1Relative, kIdx1Absolute, kOpenDML, kNoIndex };

    int addStream(const Bytes& strhData, const Bytes& strfData, const std::string& suffix) {
        mStreams.push_back({strhData, strfData, suffix});
        return static_cast<int>(mStreams.size()) - 1;
    }
    int addVideo(const std::string& handler, uint32_t scale, uint32_t rate, int32_t width = 64,
                 int32_t height = 48, const Bytes& extra = {}) {
        return addStream(strh("vids", handler, scale, rate),
                         bitmapInfo(width, height, handler, extra), "dc");
    }
    int addAudio(const Bytes& format, uint32_t scale, uint32_t rate, uint32_t sampleSize) {
        return addStream(strh("auds", "\0\0\0\0", scale, rate, sampleSize), format, "wb");
    }
    void addSample(int stream, const Bytes& data, bool key = true, const std::string& id = "",
                   const std::string& indexId = "", int64_t indexSize = -1) {
        std::string realId = id.empty() ? streamChunkId(stream, mStreams[stream].mSuffix) : id;
        mSamples.push_back({stream, data, key, realId, indexId.empty() ? realId : indexId, indexSize});
    }

    // Chunks put at the end of the hdrl list (odml, JUNK, ...).
    std::vector<Bytes> mExtraHeaderChunks;

    Bytes build(IndexKind kind = kIdx1Relative) const {
        // Pass 1 with zero ix## offsets: the layout does not depend on them.
        std::vector<uint64_t> ixOffsets(mStreams.size(), 0);
        Bytes first = buildWith(kind, ixOffsets, nullptr);
        if (kind != kOpenDML) return first;
        buildWith(kind, ixOffsets, &ixOffsets);
        return buildWith(kind, ixOffsets, nullptr);
    }

    // File offsets of each sample's chunk header in the last build layout.
    std::vector<uint64_t> samplePositions(IndexKind kind = kIdx1Relative) const {
        std::vector<uint64_t> pos;
        layout(kind, &pos);
        return pos;
    }

    size_t movieOffset(IndexKind kind = kIdx1Relative) const {
        std::vector<uint64_t> pos;
        return layout(kind, &pos);
    }

private:
    std::vector<Stream> mStreams;
    std::vector<Sample> mSamples;

    Bytes header(IndexKind kind, const std::vector<uint64_t>& ixOffsets) const {
        std::vector<Bytes> hdrl;
        Bytes avih(56, 0);
        hdrl.push_back(chunk("avih", avih));
        for (size_t s = 0; s < mStreams.size(); ++s) {
            std::vector<Bytes> strl = {chunk("strh", mStreams[s].mStrh), chunk("strf", mStreams[s].mStrf)};
            if (kind == kOpenDML) {
                uint32_t ixSize = static_cast<uint32_t>(ixChunkFor(static_cast<int>(s), 0).size());
                strl.push_back(indx(streamChunkId(static_cast<int>(s), mStreams[s].mSuffix),
                                    {{ixOffsets[s], ixSize, 0}}));
            }
            hdrl.push_back(list("strl", strl));
        }
        for (const Bytes& c : mExtraHeaderChunks) hdrl.push_back(c);
        return list("hdrl", hdrl);
    }

    Bytes ixChunkFor(int stream, uint64_t moviDataStart) const {
        std::vector<StandardIndexEntry> entries;
        uint64_t pos = moviDataStart;
        for (const Sample& s : mSamples) {
            uint64_t chunkBytes = 8 + s.mData.size() + (s.mData.size() & 1);
            if (s.mStream == stream) {
                uint32_t size = s.mIndexSize >= 0 ? static_cast<uint32_t>(s.mIndexSize)
                                                  : static_cast<uint32_t>(s.mData.size());
                entries.push_back({static_cast<uint32_t>(pos + 8), size | (s.mKey ? 0 : 0x80000000u)});
            }
            pos += chunkBytes;
        }
        char id[5];
        snprintf(id, sizeof(id), "ix%02d", stream);
        return ixChunk(id, streamChunkId(stream, mStreams[stream].mSuffix), 0, entries);
    }

    // Returns the movi list's offset; fills each sample's header position.
    size_t layout(IndexKind kind, std::vector<uint64_t>* positions) const {
        std::vector<uint64_t> zero(mStreams.size(), 0);
        size_t moviOffset = 12 + header(kind, zero).size();
        uint64_t pos = moviOffset + 12;
        positions->clear();
        for (const Sample& s : mSamples) {
            positions->push_back(pos);
            pos += 8 + s.mData.size() + (s.mData.size() & 1);
        }
        return moviOffset;
    }

    Bytes buildWith(IndexKind kind, const std::vector<uint64_t>& ixOffsets,
                    std::vector<uint64_t>* ixPositionsOut) const {
        Bytes hdr = header(kind, ixOffsets);
        size_t moviOffset = 12 + hdr.size();
        std::vector<Bytes> movi;
        std::vector<IndexEntry> entries;
        uint64_t pos = moviOffset + 12;
        for (const Sample& s : mSamples) {
            movi.push_back(chunk(s.mId, s.mData));
            uint64_t base = kind == kIdx1Absolute ? 0 : moviOffset + 8;
            uint32_t size = s.mIndexSize >= 0 ? static_cast<uint32_t>(s.mIndexSize)
                                              : static_cast<uint32_t>(s.mData.size());
            entries.push_back({s.mIndexId, s.mKey ? 0x10u : 0u, static_cast<uint32_t>(pos - base), size});
            pos += 8 + s.mData.size() + (s.mData.size() & 1);
        }
        std::vector<Bytes> top = {hdr, list("movi", movi)};
        if (kind == kIdx1Relative || kind == kIdx1Absolute) top.push_back(idx1(entries));
        if (kind == kOpenDML) {
            uint64_t ixPos = pos;
            for (size_t s = 0; s < mStreams.size(); ++s) {
                Bytes ix = ixChunkFor(static_cast<int>(s), moviOffset + 12);
                if (ixPositionsOut) (*ixPositionsOut)[s] = ixPos;
                ixPos += ix.size();
                top.push_back(ix);
            }
        }
        return riff(top);
    }
};

}  // namespace avi
}  // namespace test
}  // namespace android

#endif
