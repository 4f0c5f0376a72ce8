// NAL unit kinds against ITU-T H.264 and H.265 Table 7-1, every type value.
#include <gtest/gtest.h>

#include <map>

#include "codec_util_nal_types.h"

namespace {

using codecutil::NalKind;

TEST(NalKinds, EveryTypeOfBothTables) {
    // One letter per type value: Slice, Idr, sEi, sPs, ppS (Q), Aud, Vps, - other.
    // H.265: TRAIL..RASL (0-9) and BLA/CRA (16-18, 21) are slices, 10-15 and
    // 22-31 reserved; IDR_W_RADL and IDR_N_LP are both IDRs.
    const char* const avc = "-S---IEPQA----------------------";
    const char* const hevc = "SSSSSSSSSS------SSSIIS----------VPQA---E------------------------";
    const std::map<char, NalKind> kind = {
        {'S', NalKind::kSlice}, {'I', NalKind::kIdr}, {'E', NalKind::kSei}, {'P', NalKind::kSps},
        {'Q', NalKind::kPps},   {'A', NalKind::kAud}, {'V', NalKind::kVps}, {'-', NalKind::kOther}};
    for (int t = 0; t < 64; ++t) {
        EXPECT_EQ(codecutil::classify_nal(false, t % 32), kind.at(avc[t % 32])) << t;
        EXPECT_EQ(codecutil::classify_nal(true, t), kind.at(hevc[t])) << t;
    }
}

}  // namespace
