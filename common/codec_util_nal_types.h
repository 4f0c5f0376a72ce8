// NAL unit types the converters and the splitter act on (ITU-T H.264
// Table 7-1, ITU-T H.265 Table 7-1) and one classification per codec, so
// routing and timing read a kind, not a number.
#pragma once

#include <cstdint>

namespace codecutil {

namespace avc {
inline constexpr int kSliceNonIdr = 1;
inline constexpr int kSliceIdr = 5;
inline constexpr int kSei = 6;
inline constexpr int kSps = 7;
inline constexpr int kPps = 8;
inline constexpr int kAud = 9;
// nal_unit_type: the low five bits of the header byte.
[[nodiscard]] constexpr int nal_type(uint8_t header) { return header & 0x1F; }
}  // namespace avc

namespace hevc {
inline constexpr int kTrailN = 0;
inline constexpr int kRaslR = 9;    // last of the non-IRAP slice types
inline constexpr int kBlaWLp = 16;  // first IRAP type
inline constexpr int kBlaNLp = 18;
inline constexpr int kIdrWRadl = 19;
inline constexpr int kIdrNLp = 20;
inline constexpr int kCraNut = 21;
inline constexpr int kVps = 32;
inline constexpr int kSps = 33;
inline constexpr int kPps = 34;
inline constexpr int kAud = 35;
inline constexpr int kPrefixSei = 39;
// nal_unit_type: six bits after forbidden_zero_bit.
[[nodiscard]] constexpr int nal_type(uint8_t header) { return (header >> 1) & 0x3F; }
}  // namespace hevc

enum class NalKind {
    kOther,
    kSlice,  // a picture's slice that is not an IDR (BLA and CRA count here)
    kIdr,    // an IDR slice: H.264 type 5, H.265 IDR_W_RADL or IDR_N_LP
    kAud,
    kSei,
    kSps,
    kPps,
    kVps,
};

[[nodiscard]] constexpr NalKind classify_avc(int t) {
    switch (t) {
        case avc::kSliceNonIdr:
            return NalKind::kSlice;
        case avc::kSliceIdr:
            return NalKind::kIdr;
        case avc::kSei:
            return NalKind::kSei;
        case avc::kSps:
            return NalKind::kSps;
        case avc::kPps:
            return NalKind::kPps;
        case avc::kAud:
            return NalKind::kAud;
        default:
            return NalKind::kOther;
    }
}

[[nodiscard]] constexpr NalKind classify_hevc(int t) {
    if ((t >= hevc::kTrailN && t <= hevc::kRaslR) || (t >= hevc::kBlaWLp && t <= hevc::kBlaNLp) ||
        t == hevc::kCraNut)
        return NalKind::kSlice;
    switch (t) {
        case hevc::kIdrWRadl:
        case hevc::kIdrNLp:
            return NalKind::kIdr;
        case hevc::kPrefixSei:
            return NalKind::kSei;
        case hevc::kVps:
            return NalKind::kVps;
        case hevc::kSps:
            return NalKind::kSps;
        case hevc::kPps:
            return NalKind::kPps;
        case hevc::kAud:
            return NalKind::kAud;
        default:
            return NalKind::kOther;
    }
}

[[nodiscard]] constexpr NalKind classify_nal(bool hevc, int t) {
    return hevc ? classify_hevc(t) : classify_avc(t);
}

}  // namespace codecutil
