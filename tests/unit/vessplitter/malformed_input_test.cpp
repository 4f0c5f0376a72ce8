// Corrupted SPS and SEI units, built by flipping bits of valid ones and by
// random bytes: every parse must return one of its results without reading
// or writing out of bounds (the sanitizer build checks the memory side).
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "avc_sei_sps_parser.h"
#include "bit_writer.h"
#include "hevc_sei_sps_parser.h"

namespace {

using vestest_old::BitWriter;
using vestest_old::make_nal;

// Inputs that end the process by design are left out: an SEI payload of zero
// bytes only (empty RBSP) and an AVC SPS of profile 128/134.
bool ends_process(const std::vector<uint8_t>& nal, size_t hdr, bool sps, bool hevc) {
    const size_t start = 4 + hdr;
    if (sps) return !hevc && nal.size() > start && (nal[start] == 128 || nal[start] == 134);
    for (size_t i = start; i < nal.size(); ++i)
        if (nal[i] != 0) return false;
    return true;
}

std::vector<uint8_t> avc_seed_sps() {
    BitWriter w;
    w.u(8, 100).u(8, 0).u(8, 40).ue(0).ue(1).ue(0).ue(0).u(1, 0).u(1, 0);
    w.ue(0).ue(0).ue(2).ue(4).u(1, 0).ue(119).ue(67).u(1, 1).u(1, 1).u(1, 0);
    w.u(1, 1).u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 1).u(32, 1001).u(32, 60000).u(1, 1);
    w.u(1, 1).ue(0).u(4, 0).u(4, 0).ue(1000).ue(2000).u(1, 0).u(5, 23).u(5, 23).u(5, 23).u(5, 24);
    w.u(1, 0).u(1, 0).u(1, 1).u(1, 1).u(1, 1).ue(2).ue(1).ue(16).ue(16).ue(2).ue(4);
    return make_nal({0x67}, w.trailing().bytes());
}

std::vector<uint8_t> hevc_seed_sps() {
    BitWriter w;
    w.u(4, 0).u(3, 1).u(1, 1).u(2, 0).u(1, 0).u(5, 1).u(32, 0x60000000).u(4, 9).u(32, 0).u(12, 0);
    w.u(8, 120).u(1, 1).u(1, 1);
    for (int i = 1; i < 8; ++i) w.u(2, 0);
    w.u(2, 0).u(1, 0).u(5, 1).u(32, 0).u(4, 0).u(32, 0).u(12, 0).u(8, 90);
    w.ue(0).ue(1).ue(1920).ue(1088).u(1, 1).ue(0).ue(0).ue(0).ue(4).ue(0).ue(0).ue(4);
    w.u(1, 1).ue(4).ue(2).ue(0).ue(4).ue(2).ue(0);
    w.ue(0).ue(3).ue(0).ue(3).ue(0).ue(0).u(1, 0).u(1, 1).u(1, 1).u(1, 0);
    w.ue(2).ue(2).ue(1).ue(0).u(1, 1).ue(0).u(1, 1).u(1, 1).u(1, 0).ue(0).u(1, 1).u(1, 1).u(1, 1);
    w.u(1, 1).ue(1).u(8, 5).u(1, 1).u(1, 1).u(1, 1).u(1, 1);
    w.u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 1).u(1, 0).u(1, 1);
    w.u(32, 1001).u(32, 60000).u(1, 0).u(1, 1).u(1, 1).u(1, 0).u(1, 0).u(4, 0).u(4, 0);
    w.u(5, 23).u(5, 23).u(5, 23);
    for (int i = 0; i < 2; ++i)
        w.u(1, 0).u(1, 0).u(1, 0).ue(1).ue(10).ue(20).u(1, 0).ue(11).ue(21).u(1, 0);
    w.u(1, 0).u(1, 0);
    return make_nal({0x42, 0x01}, w.trailing().bytes());
}

std::vector<uint8_t> seed_sei(bool hevc) {
    BitWriter bp;
    bp.ue(0);
    if (hevc) bp.u(1, 1).u(24, 5).u(24, 6).u(1, 0).u(24, 0);
    bp.u(24, 9000).u(24, 0);
    if (hevc) bp.u(24, 0).u(24, 0);
    BitWriter pt;
    pt.u(24, 2).u(24, 4).u(4, 3).u(4, 0);
    std::vector<uint8_t> rbsp;
    vestest_old::sei_message(rbsp, 0, bp.align_zero().bytes());
    vestest_old::sei_message(rbsp, 1, pt.align_zero().bytes());
    vestest_old::sei_message(rbsp, 300, std::vector<uint8_t>(40, 0x11));
    rbsp.push_back(0x80);
    return hevc ? make_nal({0x4E, 0x01}, rbsp) : make_nal({0x06}, rbsp);
}

void run_corpus(bool hevc, uint32_t rounds) {
    parser_env_init();
    parser_handle_t p = hevc ? hevc_parser_create(1, 1) : avc_parser_create(1, 1);
    ASSERT_NE(p, nullptr);
    const size_t hdr = hevc ? 2 : 1;
    const std::vector<uint8_t> seeds[] = {hevc ? hevc_seed_sps() : avc_seed_sps(), seed_sei(hevc)};
    // The seeds themselves are valid: SPS accepted, SEI walked to its trailing bits.
    std::vector<uint8_t> sps_seed = seeds[0], sei_seed = seeds[1];
    EXPECT_EQ(p->parse_sps(sps_seed.data(), vestest_old::nal_size(sps_seed), 4, p), 0);
    EXPECT_EQ(p->parse_sei_messages(sei_seed.data(), vestest_old::nal_size(sei_seed), 4, p), 0);
    EXPECT_EQ(p->sei_timing_num, 1);
    EXPECT_EQ(p->parser_get_num_reorder_frames(p), 2);
    std::mt19937 rng(hevc ? 265 : 264);
    testing::internal::CaptureStdout();  // "read beyond buffer" lines
    for (uint32_t round = 0; round < rounds; ++round) {
        const bool sps = round % 2 == 0;
        std::vector<uint8_t> nal = seeds[sps ? 0 : 1];
        if (round % 7 == 3) {  // random payload of random length
            nal.resize(4 + hdr + rng() % 80);
            for (size_t i = 4 + hdr; i < nal.size(); ++i) nal[i] = static_cast<uint8_t>(rng());
        } else {
            for (uint32_t flips = 1 + rng() % 4; flips > 0; --flips) {
                const size_t bit = (4 + hdr) * 8 + rng() % ((nal.size() - 4 - hdr) * 8);
                nal[bit / 8] = static_cast<uint8_t>(nal[bit / 8] ^ (0x80 >> (bit % 8)));
            }
            nal.resize(nal.size() - rng() % 3);
        }
        if (ends_process(nal, hdr, sps, hevc)) continue;
        // An exact-size heap copy, so any read past the unit is caught.
        auto* copy = new uint8_t[nal.size()];
        std::copy(nal.begin(), nal.end(), copy);
        const int32_t ret =
            (sps ? p->parse_sps : p->parse_sei_messages)(copy, vestest_old::nal_size(nal), 4, p);
        EXPECT_TRUE(ret == 0 || ret == (sps ? 1 : -1));
        delete[] copy;
        (void)p->parser_get_dpb_output_time(p, round % 10);
        (void)p->parser_get_time_scale(p);
        (void)p->parser_get_cts_offset_ticks(p);
        (void)p->parser_get_num_reorder_frames(p);
        if (round % 300 == 299) p->parser_reset(p);
    }
    (void)testing::internal::GetCapturedStdout();
    p->parser_destroy(p);
}

TEST(MalformedInput, AvcUnitsStayInBounds) { run_corpus(false, 6000); }
TEST(MalformedInput, HevcUnitsStayInBounds) { run_corpus(true, 6000); }

}  // namespace
