// The parsers' reading layer against golden vectors (data/vessplitter_reader.txt):
// bit and byte reads, seeks, Exp-Golomb and SEI byte-run codes, emulation
// prevention. The write device, the registries and parser creation below.
#include <map>

#include "vessplit_test.h"

namespace {

using vestest::Bytes;

using Op = std::function<int64_t(bbio_handle_t)>;
const std::map<std::string, Op> kOps = {
    {"bit", [](bbio_handle_t r) -> int64_t { return src_read_bit(r); }},
    {"c", [](bbio_handle_t r) -> int64_t { return src_bits_cached(r); }},
    {"pos", [](bbio_handle_t r) -> int64_t { return r->position(r); }},
    {"left", [](bbio_handle_t r) -> int64_t { return src_following_bit_num(r); }},
    {"u8", [](bbio_handle_t r) -> int64_t { return src_read_u8(r); }},
    {"u16", [](bbio_handle_t r) -> int64_t { return src_read_u16(r); }},
    {"u24", [](bbio_handle_t r) -> int64_t { return src_read_u24(r); }},
    {"u32", [](bbio_handle_t r) -> int64_t { return src_read_u32(r); }},
    {"u64", [](bbio_handle_t r) -> int64_t { return static_cast<int64_t>(src_read_u64(r)); }},
    {"ue", [](bbio_handle_t r) -> int64_t { return read_ue(r); }},
    {"se", [](bbio_handle_t r) -> int64_t { return read_se(r); }},
    {"z4", [](bbio_handle_t r) -> int64_t { return read_0_bits(r, 4), 0; }},
    {"more", [](bbio_handle_t r) -> int64_t { return r->is_more_byte(r); }},
    {"more2", [](bbio_handle_t r) -> int64_t { return r->is_more_byte2(r); }},
    {"eod", [](bbio_handle_t r) -> int64_t { return r->is_EOD(r); }},
    {"size", [](bbio_handle_t r) -> int64_t { return r->size(r); }},
};

// Ops with an argument: bN, pN.D, sN, skip.N, read.N, seek.OFFSET.ORIGIN; tv.
std::string op(bbio_handle_t r, const std::string& o) {
    if (kOps.count(o)) return std::to_string(kOps.at(o)(r));
    const size_t dot = o.find('.');
    const auto arg = [&](size_t at) { return static_cast<uint32_t>(std::stoul(o.substr(at))); };
    uint8_t buf[16];
    uint32_t size = 0;
    switch (o[0]) {
        case 'b':
            return std::to_string(src_read_bits(r, arg(1)));
        case 'p':
            return std::to_string(src_peek_bits(r, arg(1), static_cast<int32_t>(arg(dot + 1))));
        case 'r':
            return std::to_string(r->read(r, buf, arg(dot + 1)));
        case 't': {
            const uint32_t value = read_sei_tv(r, &size);
            return std::to_string(value) + ":" + std::to_string(size);
        }
    }
    if (o[1] == 'k') return std::to_string(r->skip_bytes(r, std::stoll(o.substr(dot + 1))));
    if (o[1] != 'e') return src_skip_bits(r, arg(1)), "-";
    const size_t dot2 = o.find('.', dot + 2);
    const int res =
        r->seek(r, std::stoll(o.substr(dot + 1, dot2 - dot - 1)), std::stoi(o.substr(dot2 + 1)));
    return std::to_string(res) + "@" + std::to_string(r->position(r));
}

TEST(Reader, Golden) {
    vestest::EdrCapture log(4);
    testing::internal::CaptureStdout();  // "read beyond buffer"
    vestest::check_vectors("vessplitter_reader.txt", [&](const std::vector<std::string>& w) {
        std::string got;
        if (w[0] == "rbsp") {
            const Bytes in = vestest::unhex(w[1]);
            Bytes out(in.size() + 1, 0xEE);
            size_t len = 99;
            parser_remove_0x03(out.data(), &len, in.data(), in.size());
            got = vestest::hex(out.data(), len) + (out[in.size()] == 0xEE ? "" : " overrun");
        } else {
            vestest::Reader r(vestest::unhex(w[1]));
            for (size_t i = 2; i < w.size(); ++i) {
                if (i > 2) got += ' ';
                got += op(r, w[i]);
            }
        }
        return got + " | " + log.take();
    });
    (void)testing::internal::GetCapturedStdout();
    EXPECT_STREQ(get_sei_payloadType_dscr(11), "sub_seq-layer_characteristics");
    EXPECT_STREQ(get_sei_payloadType_dscr(19), "not care");
}

TEST(WriteDevice, GrowsByHalfFromCapacityPlusFourOrRefuses) {
    parser_env_init();
    bbio_handle_t w = reg_bbio_get('b', 'w');
    auto* dev = reinterpret_cast<bbio_buf_t*>(w);
    w->set_buffer(w, nullptr, 0, 1);
    const uint8_t bytes[20] = {9, 8, 7, 6, 5, 4, 3, 2, 1};
    EXPECT_EQ(w->write(w, bytes, 1), 1u);
    EXPECT_EQ(dev->buf_size, 6u);  // (0 + 4) * 1.5
    EXPECT_EQ(w->write(w, bytes, 6), 6u);
    EXPECT_EQ(dev->buf_size, 15u);  // 10 -> 15 holds 7
    // An unrepresentable end neither writes nor changes the device.
    EXPECT_EQ(w->write(w, bytes, SIZE_MAX), 0u);
    EXPECT_EQ(w->position(w), 7);
    size_t data_size = 0, buf_size = 0;
    uint8_t* block = w->get_buffer(w, &data_size, &buf_size);
    EXPECT_EQ(vestest::hex(block, data_size) + " " + std::to_string(buf_size), "09090807060504 15");
    EXPECT_EQ(dev->buf, nullptr);
    std::free(block);
    w->set_buffer(w, nullptr, 0, 0);  // fixed storage
    EXPECT_EQ(w->write(w, bytes, 1), 0u);
    w->set_buffer(w, nullptr, 2, 0);  // fresh block of 2
    EXPECT_EQ(w->write(w, bytes, 2), 2u);
    EXPECT_EQ(w->write(w, bytes, 1), 0u);
    std::free(w->get_buffer(w, &data_size, nullptr));
    EXPECT_EQ(data_size, 2u);
    w->destroy(w);
    vestest::Reader r({1, 2, 3});
    r->seek(r, 0, 2);
    EXPECT_EQ(r->get_buffer(r, &data_size, nullptr),
              reinterpret_cast<bbio_buf_t*>(static_cast<bbio_handle_t>(r))->buf);
    EXPECT_EQ(data_size, 0u);
    bbio_handle_t owner = reg_bbio_get('b', 'r');  // releases its block: leak checkers see it
    owner->set_buffer(owner, static_cast<uint8_t*>(std::malloc(4)), 4, 1);
    owner->destroy(owner);
}

parser_handle_t fake_parser(uint32_t dsi_type) {
    return reinterpret_cast<parser_handle_t>(static_cast<uintptr_t>(0x1000 + dsi_type));
}
parser_handle_t other_parser(uint32_t) { return nullptr; }

TEST(Registries, NamesIgnoreCaseFirstWinsAndParsersNeedABufferDevice) {
    reg_parser_init();
    char avc[] = "avc", avc2[] = "AVC";
    reg_parser_set(avc, fake_parser);
    reg_parser_set(avc2, other_parser);
    EXPECT_EQ(reg_parser_get("AVC", 7), fake_parser(7));
    EXPECT_EQ(reg_parser_get("hevc", 7), nullptr);
    reg_parser_init();
    EXPECT_EQ(reg_parser_get("avc", 7), nullptr);
    parser_env_init();  // only "w" and "r" are registered
    EXPECT_EQ(reg_bbio_get('b', 'e'), nullptr);
    EXPECT_EQ(reg_bbio_get('B', 'r'), nullptr);
    reg_bbio_init();
    EXPECT_EQ(avc_parser_create(1, 1), nullptr);
    EXPECT_EQ(hevc_parser_create(1, 1), nullptr);
    parser_env_init();
    EXPECT_EQ(parser_get_bp_num(nullptr) + parser_get_sei_timing_num(nullptr), 0);
}

}  // namespace
