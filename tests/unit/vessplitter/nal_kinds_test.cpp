// NAL unit kinds against ITU-T H.264 and H.265 Table 7-1, every type value.
#include <gtest/gtest.h>

#include <map>

#include "codec_util_nal_types.h"

namespace {

using codecutil::classify_nal;
using codecutil::NalKind;

TEST(NalKinds, EveryTypeOfBothTables) {
    const std::map<int, NalKind> avc = {{1, NalKind::kSlice}, {5, NalKind::kIdr},
                                        {6, NalKind::kSei},   {7, NalKind::kSps},
                                        {8, NalKind::kPps},   {9, NalKind::kAud}};
    // H.265: TRAIL..RASL (0-9) and BLA/CRA (16-18, 21) are slices; 10-15 and
    // 22-31 are reserved; IDR_W_RADL and IDR_N_LP are both IDRs.
    std::map<int, NalKind> hevc = {{19, NalKind::kIdr}, {20, NalKind::kIdr},  {32, NalKind::kVps},
                                   {33, NalKind::kSps}, {34, NalKind::kPps},  {35, NalKind::kAud},
                                   {39, NalKind::kSei}, {21, NalKind::kSlice}};
    for (int t : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 16, 17, 18}) hevc[t] = NalKind::kSlice;
    for (int t = 0; t < 64; ++t) {
        SCOPED_TRACE(t);
        const auto a = avc.find(t);
        if (t < 32) {
            EXPECT_EQ(classify_nal(false, t), a == avc.end() ? NalKind::kOther : a->second);
        }
        const auto h = hevc.find(t);
        EXPECT_EQ(classify_nal(true, t), h == hevc.end() ? NalKind::kOther : h->second);
    }
}

}  // namespace
