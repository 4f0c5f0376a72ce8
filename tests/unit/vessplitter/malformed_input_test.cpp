// Every unit of the parser vectors, corrupted by bit flips and cuts, and
// random bytes: each parse returns one of its results without reading or
// writing out of bounds (the sanitizer build checks the memory side).
#include <fstream>
#include <random>

#include "vessplit_test.h"

namespace {

using vestest::Bytes;

void run_corpus(bool hevc, uint32_t rounds) {
    std::vector<std::pair<bool, Bytes>> seeds;  // SPS?, unit
    std::ifstream in(std::string(UNIT_DATA_DIR) + "/vessplitter_parsers.txt");
    bool in_codec = false;
    for (std::string line; std::getline(in, line);) {
        const std::vector<std::string> w = vestest::words(line);
        if (!w.empty() && (w[0] == "avc" || w[0] == "hevc")) in_codec = (w[0] == "hevc") == hevc;
        if (in_codec && w.size() == 2 && (w[0] == "sps" || w[0] == "sei") && w[1].size() > 14)
            seeds.emplace_back(w[0] == "sps", vestest::unhex(w[1]));
    }
    ASSERT_GT(seeds.size(), 20u);
    parser_env_init();
    parser_handle_t p = hevc ? hevc_parser_create(1, 1) : avc_parser_create(1, 1);
    const size_t head = hevc ? 6 : 5;
    std::mt19937 rng(hevc ? 265 : 264);
    testing::internal::CaptureStdout();  // "read beyond buffer" lines
    for (uint32_t round = 0; round < rounds; ++round) {
        auto [sps, nal] = seeds[rng() % seeds.size()];
        if (round % 7 == 3) {  // random payload of random length
            nal.resize(head + rng() % 80);
            for (size_t i = head; i < nal.size(); ++i) nal[i] = static_cast<uint8_t>(rng());
        } else {
            for (uint32_t flips = 1 + rng() % 4; flips > 0; --flips) {
                const size_t bit = head * 8 + rng() % ((nal.size() - head) * 8);
                nal[bit / 8] = static_cast<uint8_t>(nal[bit / 8] ^ (0x80 >> (bit % 8)));
            }
            nal.resize(nal.size() - rng() % 3);
        }
        // Left out, as they end the process by design: an AVC SPS of profile
        // 128 or 134, an SEI payload of zero bytes only.
        if (sps && !hevc && nal.size() > head && (nal[head] == 128 || nal[head] == 134)) continue;
        if (!sps && std::all_of(nal.begin() + static_cast<long>(head), nal.end(),
                                [](uint8_t b) { return b == 0; }))
            continue;
        auto* copy = new uint8_t[nal.size()];  // exact size: reads past it are caught
        std::copy(nal.begin(), nal.end(), copy);
        const int32_t ret = (sps ? p->parse_sps : p->parse_sei_messages)(
            copy, static_cast<int32_t>(nal.size()), 4, p);
        EXPECT_TRUE(ret == 0 || ret == (sps ? 1 : -1));
        delete[] copy;
        (void)p->parser_get_dpb_output_time(p, round % 10);
        if (round % 300 == 299) p->parser_reset(p);
    }
    (void)testing::internal::GetCapturedStdout();
    p->parser_destroy(p);
}

TEST(MalformedInput, AvcUnitsStayInBounds) { run_corpus(false, 6000); }
TEST(MalformedInput, HevcUnitsStayInBounds) { run_corpus(true, 6000); }

}  // namespace
