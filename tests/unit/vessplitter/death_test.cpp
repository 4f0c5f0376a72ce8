// The stream conditions that end the process, and the I/O layer's
// preconditions. Each case runs in a child process: the default ("fast")
// style forks the single-threaded test process; "threadsafe" would
// re-execute the binary, which qemu-user cannot do without a binfmt
// registration.
#include "vessplit_test.h"

namespace {

void parse(bool hevc, bool sps, const std::string& nal_hex) {
    vestest::EdrCapture log(0);
    parser_env_init();
    parser_handle_t p = hevc ? hevc_parser_create(1, 1) : avc_parser_create(1, 1);
    vestest::Bytes nal = vestest::unhex(nal_hex);
    (sps ? p->parse_sps : p->parse_sei_messages)(nal.data(), static_cast<int32_t>(nal.size()), 4,
                                                 p);
}

TEST(ParserDeathTest, EmptySeiRbspAndMultiviewProfileAtAnotherLevel) {
    // An SEI payload of zero bytes only: dropped as trailing zeros, the RBSP
    // is empty. exit(1001): the parent sees the status modulo 256.
    EXPECT_EXIT(parse(false, false, "00000001060000"), testing::ExitedWithCode(1001 & 0xFF), "");
    EXPECT_EXIT(parse(true, false, "000000014e010000"), testing::ExitedWithCode(1001 & 0xFF), "");
    // Subset SPS of profile 128 and 134 at level 3.0.
    EXPECT_EXIT(parse(false, true, "000000016f80001eac80"), testing::ExitedWithCode(1), "");
    EXPECT_EXIT(parse(false, true, "000000016f86001eac80"), testing::ExitedWithCode(1), "");
}

#ifndef NDEBUG
TEST(ParserDeathTest, ReadDeviceRequiresStorage) {
    parser_env_init();
    bbio_handle_t r = reg_bbio_get('b', 'r');
    EXPECT_DEATH(r->set_buffer(r, nullptr, 4, 0), "buf && buf_size");
    uint8_t byte = 0;
    EXPECT_DEATH(r->set_buffer(r, &byte, 0, 0), "buf && buf_size");
    r->destroy(r);
}

bbio_t* no_device(char) { return nullptr; }

void fill_registries(int devices, int parsers) {
    static char name[] = "p";
    reg_bbio_init();
    for (int i = 0; i < devices; ++i) reg_bbio_set('x', 'r', no_device);
    reg_parser_init();
    for (int i = 0; i < parsers; ++i) reg_parser_set(name, nullptr);
}

TEST(ParserDeathTest, RegistryCapacity) {
    EXPECT_DEATH(fill_registries(7, 0), "reg_bbio_num < BBIO_MAX_NUM");
    EXPECT_DEATH(fill_registries(0, 21), "reg_parser_num < PARSER_NUM_MAX");
    fill_registries(6, 20);  // the capacity itself is fine
    reg_parser_init();
    parser_env_init();
}
#endif

}  // namespace
