// Codec bitstream helpers: H.264 SPS and avcC, MPEG audio frame headers,
// H.263 picture headers and the MPEG-4 Visual VOL header. All input is
// untrusted; every read goes through ABitReader (which never leaves its
// array) or an explicit bounds check, and nothing here aborts.
#include <media/stagefright/foundation/avc_utils.h>

#include <string.h>

#include <vector>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/foundation/ABitReader.h>

namespace android {

namespace {

// ---- H.264 sequence parameter set ----

// The fields up to frame cropping fit well within this even with every
// scaling list present (480 entries of at most 17 bits each); anything after
// it (VUI) is never read, so a longer SPS is only copied this far.
constexpr size_t kMaxSPSPayloadBytes = 4096;
// Level 6.2 caps a frame at 139264 macroblocks, hence either side at
// sqrt(8 * 139264) = 1055 macroblocks; larger values are not a real stream.
constexpr uint64_t kMaxMacroblocksPerSide = 1055;
// ue(v) values are defined up to 2^32 - 2: at most 31 leading zeros.
constexpr int kMaxExpGolombLeadingZeros = 31;
// H.264 7.4.2.1.1: num_ref_frames_in_pic_order_cnt_cycle is 0..255.
constexpr uint32_t kMaxRefFramesInPOCCycle = 255;
// H.264 7.4.2.1.1: seq_parameter_set_id is 0..31.
constexpr uint32_t kMaxSPSId = 31;
// H.264 7.4.2.1.1: bit_depth_*_minus8 is 0..6.
constexpr uint32_t kMaxBitDepthMinus8 = 6;
// H.264 7.4.2.1.1: log2_max_frame_num_minus4 and
// log2_max_pic_order_cnt_lsb_minus4 are 0..12.
constexpr uint32_t kMaxLog2Minus4 = 12;
constexpr uint8_t kNALTypeSPS = 7;
constexpr uint8_t kNALTypePPS = 8;

// Exp-Golomb reads over an ABitReader; any failure latches mFailed.
class GolombReader {
public:
    GolombReader(const uint8_t* data, size_t size) : mBits(data, size), mFailed(false) {}

    uint32_t bits(size_t n) {
        uint32_t v = 0;
        if (!mBits.getBitsGraceful(n, &v)) mFailed = true;
        return v;
    }
    bool flag() { return bits(1) != 0; }

    uint32_t ue() {
        int zeros = 0;
        while (!mFailed && bits(1) == 0) {
            if (++zeros > kMaxExpGolombLeadingZeros) {
                mFailed = true;
                return 0;
            }
        }
        if (mFailed) return 0;
        uint64_t value = (uint64_t(1) << zeros) - 1 + bits(static_cast<size_t>(zeros));
        return static_cast<uint32_t>(value);
    }

    int64_t se() {
        uint64_t k = ue();
        return (k & 1) ? static_cast<int64_t>((k + 1) / 2) : -static_cast<int64_t>(k / 2);
    }

    bool failed() const { return mFailed; }
    void fail() { mFailed = true; }

private:
    ABitReader mBits;
    bool mFailed;
};

bool isHighProfile(uint32_t profileIdc) {
    switch (profileIdc) {
        case 100: case 110: case 122: case 244: case 44: case 83: case 86:
        case 118: case 128: case 138: case 139: case 134: case 135:
            return true;
        default:
            return false;
    }
}

// H.264 7.3.2.1.1.1; only the syntax is walked, the values are not kept.
void skipScalingList(GolombReader& r, int count) {
    int lastScale = 8;
    int nextScale = 8;
    for (int j = 0; j < count && !r.failed(); ++j) {
        if (nextScale != 0) {
            int64_t delta = r.se();
            // 7.4.2.1.1.1: delta_scale is -128..127.
            if (delta < -128 || delta > 127) {
                r.fail();
                return;
            }
            nextScale = static_cast<int>((lastScale + delta + 256) % 256);
        }
        lastScale = nextScale == 0 ? lastScale : nextScale;
    }
}

// Copies the SPS payload (after the NAL header byte) without its
// emulation-prevention bytes, up to kMaxSPSPayloadBytes.
std::vector<uint8_t> unescapeRBSP(const uint8_t* data, size_t size) {
    std::vector<uint8_t> out;
    out.reserve(size < kMaxSPSPayloadBytes ? size : kMaxSPSPayloadBytes);
    int zeros = 0;
    for (size_t i = 0; i < size && out.size() < kMaxSPSPayloadBytes; ++i) {
        uint8_t b = data[i];
        if (zeros >= 2 && b == 0x03) {
            zeros = 0;
            continue;
        }
        out.push_back(b);
        zeros = b == 0 ? zeros + 1 : 0;
    }
    return out;
}

// ---- Annex-B NAL scanning ----

// Offset of the first byte after the next 00 00 01 at or after `from`, or
// `size` when there is none.
size_t nextNALStart(const uint8_t* data, size_t size, size_t from) {
    for (size_t i = from; size >= 3 && i <= size - 3; ++i) {
        if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1) return i + 3;
    }
    return size;
}

struct NALUnit {
    const uint8_t* mData = nullptr;
    size_t mSize = 0;
};

// Every start-code-delimited unit; trailing zero bytes (the leading zero of
// a 4-byte start code, or trailing_zero_8bits) are not part of a unit.
std::vector<NALUnit> splitAnnexB(const uint8_t* data, size_t size) {
    std::vector<NALUnit> units;
    size_t start = nextNALStart(data, size, 0);
    while (start < size) {
        size_t next = nextNALStart(data, size, start);
        size_t end = next == size ? size : next - 3;
        while (end > start && data[end - 1] == 0) --end;
        if (end > start) units.push_back({data + start, end - start});
        start = next;
    }
    return units;
}

// ---- MPEG audio ----

// Bit rates in kbps by bitrate_index 1..14 (ISO 11172-3 2.4.2.3,
// ISO 13818-3 2.4.2.3).
const int kBitrateV1L1[14] = {32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448};
const int kBitrateV1L2[14] = {32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
const int kBitrateV1L3[14] = {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
const int kBitrateV2L1[14] = {32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256};
const int kBitrateV2L23[14] = {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
const int kSampleRateV1[3] = {44100, 48000, 32000};

// ---- H.263 ----

// The picture start code may follow this many bytes of stuffing at most.
constexpr int kMaxH263StartCodeOffset = 32;
constexpr uint32_t kH263SourceFormatExtended = 7;
constexpr uint32_t kH263SourceFormatReserved = 6;

// ---- MPEG-4 Visual ----

constexpr uint8_t kVOLStartCodeFirst = 0x20;
constexpr uint8_t kVOLStartCodeLast = 0x2F;
constexpr uint8_t kVisualObjectStartCode = 0xB5;
constexpr uint32_t kShapeRectangular = 0;
constexpr uint32_t kShapeBinaryOnly = 2;
constexpr uint32_t kShapeGrayscale = 3;
constexpr uint32_t kAspectRatioExtendedPAR = 15;
constexpr uint32_t kSpriteStatic = 1;
constexpr uint32_t kSpriteGMC = 2;

bool isStartCodeAt(const uint8_t* data, size_t size, size_t i) {
    return size >= 4 && i <= size - 4 && data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1;
}

// Bits needed for values 0..resolution-1, at least one (ISO 14496-2 6.3.3,
// vop_time_increment).
size_t timeIncrementBits(uint32_t resolution) {
    size_t bits = 1;
    while (bits < 16 && (uint32_t(1) << bits) < resolution) ++bits;
    return bits;
}

}  // namespace

bool FindAVCDimensions(const uint8_t* sps, size_t size, int32_t* width, int32_t* height) {
    if (sps == nullptr || size < 2 || (sps[0] & 0x1F) != kNALTypeSPS) return false;
    std::vector<uint8_t> rbsp = unescapeRBSP(sps + 1, size - 1);
    GolombReader r(rbsp.data(), rbsp.size());

    uint32_t profileIdc = r.bits(8);
    r.bits(8);  // constraint_set flags and reserved_zero_2bits
    r.bits(8);  // level_idc
    if (r.ue() > kMaxSPSId) return false;

    uint32_t chromaFormatIdc = 1;  // 4:2:0 unless a high profile says otherwise
    bool separateColourPlane = false;
    if (isHighProfile(profileIdc)) {
        chromaFormatIdc = r.ue();
        if (chromaFormatIdc > 3) return false;
        if (chromaFormatIdc == 3) separateColourPlane = r.flag();
        if (r.ue() > kMaxBitDepthMinus8 || r.ue() > kMaxBitDepthMinus8) return false;
        r.flag();  // qpprime_y_zero_transform_bypass_flag
        if (r.flag()) {  // seq_scaling_matrix_present_flag
            int lists = chromaFormatIdc != 3 ? 8 : 12;
            for (int i = 0; i < lists && !r.failed(); ++i) {
                if (r.flag()) skipScalingList(r, i < 6 ? 16 : 64);
            }
        }
    }

    if (r.ue() > kMaxLog2Minus4) return false;  // log2_max_frame_num_minus4
    uint32_t pocType = r.ue();
    if (pocType == 0) {
        if (r.ue() > kMaxLog2Minus4) return false;  // log2_max_pic_order_cnt_lsb_minus4
    } else if (pocType == 1) {
        r.flag();  // delta_pic_order_always_zero_flag
        r.se();    // offset_for_non_ref_pic
        r.se();    // offset_for_top_to_bottom_field
        uint32_t cycle = r.ue();
        if (cycle > kMaxRefFramesInPOCCycle) return false;
        for (uint32_t i = 0; i < cycle && !r.failed(); ++i) r.se();
    } else if (pocType != 2) {
        return false;
    }

    r.ue();    // max_num_ref_frames
    r.flag();  // gaps_in_frame_num_value_allowed_flag
    uint64_t widthInMbs = uint64_t(r.ue()) + 1;
    uint64_t heightInMapUnits = uint64_t(r.ue()) + 1;
    bool frameMbsOnly = r.flag();
    if (!frameMbsOnly) r.flag();  // mb_adaptive_frame_field_flag
    r.flag();                     // direct_8x8_inference_flag
    uint64_t cropLeft = 0, cropRight = 0, cropTop = 0, cropBottom = 0;
    if (r.flag()) {
        cropLeft = r.ue();
        cropRight = r.ue();
        cropTop = r.ue();
        cropBottom = r.ue();
    }
    if (r.failed()) return false;

    uint64_t heightInMbs = heightInMapUnits * (frameMbsOnly ? 1 : 2);
    if (widthInMbs > kMaxMacroblocksPerSide || heightInMbs > kMaxMacroblocksPerSide) return false;
    uint64_t frameWidth = widthInMbs * 16;
    uint64_t frameHeight = heightInMbs * 16;

    // H.264 7.4.2.1.1, frame_crop_*_offset: crop units follow ChromaArrayType.
    uint64_t cropUnitX = 1;
    uint64_t cropUnitY = frameMbsOnly ? 1 : 2;
    uint32_t chromaArrayType = separateColourPlane ? 0 : chromaFormatIdc;
    if (chromaArrayType != 0) {
        uint64_t subWidthC = chromaArrayType == 3 ? 1 : 2;
        uint64_t subHeightC = chromaArrayType == 1 ? 2 : 1;
        cropUnitX = subWidthC;
        cropUnitY *= subHeightC;
    }
    // Each offset is below 2^32 and each unit at most 4: no 64-bit overflow.
    uint64_t cropX = (cropLeft + cropRight) * cropUnitX;
    uint64_t cropY = (cropTop + cropBottom) * cropUnitY;
    if (cropX >= frameWidth || cropY >= frameHeight) return false;

    if (width) *width = static_cast<int32_t>(frameWidth - cropX);
    if (height) *height = static_cast<int32_t>(frameHeight - cropY);
    return true;
}

sp<MetaData> MakeAVCCodecSpecificData(const sp<ABuffer>& accessUnit) {
    if (accessUnit == nullptr || accessUnit->base() == nullptr) return nullptr;
    const uint8_t* data = accessUnit->data();
    size_t size = accessUnit->size();

    NALUnit sps, pps;
    for (const NALUnit& unit : splitAnnexB(data, size)) {
        uint8_t type = unit.mData[0] & 0x1F;
        if (type == kNALTypeSPS && sps.mData == nullptr) sps = unit;
        if (type == kNALTypePPS && pps.mData == nullptr) pps = unit;
    }
    // The record stores each unit's length in 16 bits, and needs the SPS's
    // profile, compatibility and level bytes.
    if (sps.mData == nullptr || pps.mData == nullptr || sps.mSize < 4 || sps.mSize > 0xFFFF ||
        pps.mSize > 0xFFFF) {
        return nullptr;
    }

    int32_t width, height;
    if (!FindAVCDimensions(sps.mData, sps.mSize, &width, &height)) return nullptr;

    std::vector<uint8_t> avcc;
    avcc.reserve(11 + sps.mSize + pps.mSize);
    avcc.push_back(1);             // configurationVersion
    avcc.push_back(sps.mData[1]);  // AVCProfileIndication
    avcc.push_back(sps.mData[2]);  // profile_compatibility
    avcc.push_back(sps.mData[3]);  // AVCLevelIndication
    avcc.push_back(0xFF);          // reserved 6 bits, lengthSizeMinusOne = 3
    avcc.push_back(0xE1);          // reserved 3 bits, one SPS
    avcc.push_back(static_cast<uint8_t>(sps.mSize >> 8));
    avcc.push_back(static_cast<uint8_t>(sps.mSize));
    avcc.insert(avcc.end(), sps.mData, sps.mData + sps.mSize);
    avcc.push_back(1);  // one PPS
    avcc.push_back(static_cast<uint8_t>(pps.mSize >> 8));
    avcc.push_back(static_cast<uint8_t>(pps.mSize));
    avcc.insert(avcc.end(), pps.mData, pps.mData + pps.mSize);

    sp<MetaData> meta = new MetaData;
    meta->setCString(kKeyMIMEType, MEDIA_MIMETYPE_VIDEO_AVC);
    meta->setData(kKeyAVCC, kTypeAVCC, avcc.data(), avcc.size());
    meta->setInt32(kKeyWidth, width);
    meta->setInt32(kKeyHeight, height);
    return meta;
}

bool GetMPEGAudioFrameSize(uint32_t header, size_t* frameSize, int* sampleRate, int* channels,
                           int* bitrate, int* samplesPerFrame) {
    if ((header & 0xFFE00000u) != 0xFFE00000u) return false;
    uint32_t version = (header >> 19) & 3;  // 0: MPEG-2.5, 1: reserved, 2: MPEG-2, 3: MPEG-1
    uint32_t layerBits = (header >> 17) & 3;  // 3: I, 2: II, 1: III, 0: reserved
    uint32_t bitrateIndex = (header >> 12) & 0xF;
    uint32_t rateIndex = (header >> 10) & 3;
    uint32_t padding = (header >> 9) & 1;
    uint32_t channelMode = (header >> 6) & 3;
    if (version == 1 || layerBits == 0) return false;
    // Index 0 is "free format", whose frame size the header cannot give.
    if (bitrateIndex == 0 || bitrateIndex == 15 || rateIndex == 3) return false;

    const int layer = 4 - static_cast<int>(layerBits);
    const bool mpeg1 = version == 3;
    int rate = kSampleRateV1[rateIndex];
    if (version == 2) rate /= 2;
    if (version == 0) rate /= 4;

    const int* table;
    if (mpeg1) {
        table = layer == 1 ? kBitrateV1L1 : layer == 2 ? kBitrateV1L2 : kBitrateV1L3;
    } else {
        table = layer == 1 ? kBitrateV2L1 : kBitrateV2L23;
    }
    int kbps = table[bitrateIndex - 1];

    // Bit rates are at most 448000 and the factors at most 144: the products
    // stay far below 2^31.
    size_t size;
    int samples;
    if (layer == 1) {
        size = static_cast<size_t>((12 * kbps * 1000 / rate + static_cast<int>(padding)) * 4);
        samples = 384;
    } else if (layer == 2 || mpeg1) {
        size = static_cast<size_t>(144 * kbps * 1000 / rate + static_cast<int>(padding));
        samples = 1152;
    } else {
        size = static_cast<size_t>(72 * kbps * 1000 / rate + static_cast<int>(padding));
        samples = 576;
    }

    if (frameSize) *frameSize = size;
    if (sampleRate) *sampleRate = rate;
    if (channels) *channels = channelMode == 3 ? 1 : 2;
    if (bitrate) *bitrate = kbps;
    if (samplesPerFrame) *samplesPerFrame = samples;
    return true;
}

int Detect263AdvancedFeatures(uint8_t* data, int size) {
    if (data == nullptr || size < 3) return -1;
    const size_t length = static_cast<size_t>(size);
    size_t start = length;
    for (size_t i = 0; i <= static_cast<size_t>(kMaxH263StartCodeOffset) && i <= length - 3; ++i) {
        // 22 bits: 0000 0000 0000 0000 1000 00
        if (data[i] == 0 && data[i + 1] == 0 && (data[i + 2] & 0xFC) == 0x80) {
            start = i;
            break;
        }
    }
    if (start == length) return -1;

    ABitReader bits(data + start, length - start);
    uint32_t v;
    auto read = [&bits, &v](size_t n) { return bits.getBitsGraceful(n, &v); };
    if (!read(22)) return -1;  // picture start code
    if (!read(8)) return -1;   // temporal reference
    // PTYPE bits 1-2 are always "1 0"; 3-5 are split screen, document camera
    // and freeze release.
    if (!read(2) || v != 2) return -1;
    if (!read(3)) return -1;
    if (!read(3)) return -1;
    const uint32_t sourceFormat = v;
    if (sourceFormat == 0 || sourceFormat == kH263SourceFormatReserved) return -1;

    int features = 0;
    if (sourceFormat != kH263SourceFormatExtended) {
        if (!read(1)) return -1;  // picture coding type
        if (!read(4)) return -1;
        if (v & 8) features |= kH263UnrestrictedMV;
        if (v & 4) features |= kH263SyntaxArithmeticCoding;
        if (v & 2) features |= kH263AdvancedPrediction;
        if (v & 1) features |= kH263PBFrames;
        return features;
    }

    if (!read(3)) return -1;  // UFEP
    if (v == 0) return 0;     // this picture repeats the earlier modes
    if (v != 1) return -1;
    if (!read(18)) return -1;  // OPPTYPE
    const uint32_t opptype = v;
    // Bits 1-3 source format (000 forbidden, 111 reserved), bit 15 always 1,
    // bits 16-18 always 0.
    const uint32_t extendedFormat = opptype >> 15;
    if (extendedFormat == 0 || extendedFormat == kH263SourceFormatExtended ||
        (opptype & 0xF) != 0x8) {
        return -1;
    }
    static const struct {
        int mBit;  // OPPTYPE bit number, 1 = most significant of 18
        int mFeature;
    } kOptionalModes[] = {
        {5, kH263UnrestrictedMV},           {6, kH263SyntaxArithmeticCoding},
        {7, kH263AdvancedPrediction},       {8, kH263AdvancedIntraCoding},
        {9, kH263DeblockingFilter},         {10, kH263SliceStructured},
        {11, kH263ReferencePictureSelection}, {12, kH263IndependentSegmentDecoding},
        {13, kH263AlternativeInterVLC},     {14, kH263ModifiedQuantization},
    };
    for (const auto& mode : kOptionalModes) {
        if ((opptype >> (18 - mode.mBit)) & 1) features |= mode.mFeature;
    }
    return features;
}

int ParseMPEG4GMCWarpPoint(uint8_t* data, int size) {
    if (data == nullptr || size < 4) return -1;
    const size_t length = static_cast<size_t>(size);

    uint32_t verid = 1;
    size_t vol = length;
    for (size_t i = 0; i + 4 <= length; ++i) {
        if (!isStartCodeAt(data, length, i)) continue;
        uint8_t code = data[i + 3];
        if (code == kVisualObjectStartCode && length - i > 4) {
            // is_visual_object_identifier, then visual_object_verid
            uint8_t b = data[i + 4];
            if (b & 0x80) verid = (b >> 3) & 0xF;
        } else if (code >= kVOLStartCodeFirst && code <= kVOLStartCodeLast) {
            vol = i + 4;
            break;
        }
    }
    if (vol == length) return -1;

    ABitReader bits(data + vol, length - vol);
    uint32_t v;
    auto read = [&bits, &v](size_t n) { return bits.getBitsGraceful(n, &v); };

    if (!read(1)) return -1;  // random_accessible_vol
    if (!read(8)) return -1;  // video_object_type_indication
    if (!read(1)) return -1;  // is_object_layer_identifier
    if (v) {
        if (!read(4)) return -1;
        verid = v;
        if (!read(3)) return -1;  // video_object_layer_priority
    }
    if (!read(4)) return -1;  // aspect_ratio_info
    if (v == kAspectRatioExtendedPAR && !read(16)) return -1;  // par_width, par_height
    if (!read(1)) return -1;  // vol_control_parameters
    if (v) {
        if (!read(3)) return -1;  // chroma_format, low_delay
        if (!read(1)) return -1;  // vbv_parameters
        // Bit rate, buffer size and occupancy halves with their markers.
        if (v && (!read(15 + 1 + 15 + 1) || !read(15 + 1 + 3 + 11 + 1) || !read(15 + 1))) {
            return -1;
        }
    }
    if (!read(2)) return -1;  // video_object_layer_shape
    const uint32_t shape = v;
    if (shape == kShapeGrayscale && verid != 1 && !read(4)) return -1;  // shape extension
    if (!read(1)) return -1;  // marker
    if (!read(16)) return -1;  // vop_time_increment_resolution
    const uint32_t resolution = v;
    if (resolution == 0) return -1;
    if (!read(1)) return -1;  // marker
    if (!read(1)) return -1;  // fixed_vop_rate
    if (v && !read(timeIncrementBits(resolution))) return -1;  // fixed_vop_time_increment

    if (shape == kShapeBinaryOnly) return 0;  // no texture, no sprite fields
    if (shape == kShapeRectangular) {
        // marker, width 13, marker, height 13, marker
        if (!read(1 + 13 + 1) || !read(13 + 1)) return -1;
    }
    if (!read(1)) return -1;  // interlaced
    if (!read(1)) return -1;  // obmc_disable
    if (!read(verid == 1 ? 1 : 2)) return -1;  // sprite_enable
    const uint32_t sprite = v;
    if (sprite == 0) return 0;
    if (sprite != kSpriteStatic && sprite != kSpriteGMC) return -1;
    if (sprite == kSpriteStatic) {
        // sprite width, height, left and top, each 13 bits and a marker
        for (int i = 0; i < 4; ++i) {
            if (!read(13 + 1)) return -1;
        }
    }
    if (!read(6)) return -1;  // no_of_sprite_warping_points
    const int warpPoints = static_cast<int>(v);
    // sprite_warping_accuracy, sprite_brightness_change, and for static
    // sprites low_latency_sprite_enable: the header must hold them too.
    if (!read(sprite == kSpriteStatic ? 4 : 3)) return -1;
    return sprite == kSpriteGMC ? warpPoints : 0;
}

}  // namespace android
