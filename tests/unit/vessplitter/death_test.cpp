// The stream conditions that end the process, and the I/O layer's
// preconditions. Each case runs in a child process.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "bit_writer.h"
#include "io_buffer.h"
#include "registry.h"
#include "sei_sps_parser.h"

namespace {

using vestest_old::BitWriter;
using vestest_old::make_nal;

class ParserDeathTest : public testing::Test {
protected:
    // The default ("fast") style forks the single-threaded test process;
    // "threadsafe" would re-execute the binary, which qemu-user cannot do
    // without a binfmt registration.
    void SetUp() override { parser_env_init(); }
};

// An SEI NAL unit whose payload is only zero bytes: they are dropped as
// trailing zeros and the RBSP is empty.
void parse_empty_sei(bool hevc) {
    parser_handle_t p = hevc ? hevc_parser_create(1, 1) : avc_parser_create(1, 1);
    std::vector<uint8_t> nal = hevc ? std::vector<uint8_t>{0, 0, 0, 1, 0x4E, 0x01, 0, 0}
                                    : std::vector<uint8_t>{0, 0, 0, 1, 0x06, 0, 0};
    p->parse_sei_messages(nal.data(), static_cast<int32_t>(nal.size()), 4, p);
}

TEST_F(ParserDeathTest, EmptySeiRbspEndsTheProcess) {
    // exit(1001): the parent sees the status modulo 256.
    EXPECT_EXIT(parse_empty_sei(false), testing::ExitedWithCode(1001 & 0xFF), "");
    EXPECT_EXIT(parse_empty_sei(true), testing::ExitedWithCode(1001 & 0xFF), "");
}

void parse_sps(std::vector<uint8_t> nal) {
    vestest_old::EdrCapture log(0);
    parser_handle_t p = avc_parser_create(1, 1);
    p->parse_sps(nal.data(), static_cast<int32_t>(nal.size()), 4, p);
}

TEST_F(ParserDeathTest, MultiviewProfileAtAnotherLevelEndsTheProcess) {
    for (uint32_t profile : {128u, 134u}) {
        BitWriter w;
        w.u(8, profile).u(8, 0).u(8, 30).ue(0);
        w.ue(1).ue(0).ue(0).u(1, 0).u(1, 0).trailing();
        std::vector<uint8_t> nal = make_nal({0x6F}, w.bytes());
        EXPECT_EXIT(parse_sps(nal), testing::ExitedWithCode(1), "") << profile;
    }
}

#ifndef NDEBUG
TEST_F(ParserDeathTest, ReadDeviceRequiresStorage) {
    bbio_handle_t r = reg_bbio_get('b', 'r');
    EXPECT_DEATH(r->set_buffer(r, nullptr, 4, 0), "buf && buf_size");
    uint8_t byte = 0;
    EXPECT_DEATH(r->set_buffer(r, &byte, 0, 0), "buf && buf_size");
    r->destroy(r);
}

bbio_t* no_device(char) { return nullptr; }

void fill_devices(int n) {
    reg_bbio_init();
    for (int i = 0; i < n; ++i) reg_bbio_set('x', 'r', no_device);
}

void fill_parsers(int n) {
    static char name[] = "p";
    reg_parser_init();
    for (int i = 0; i < n; ++i) reg_parser_set(name, nullptr);
}

TEST_F(ParserDeathTest, RegistryCapacity) {
    EXPECT_DEATH(fill_devices(7), "reg_bbio_num < BBIO_MAX_NUM");
    EXPECT_DEATH(fill_parsers(21), "reg_parser_num < PARSER_NUM_MAX");
    fill_devices(6);  // the capacity itself is fine
    fill_parsers(20);
    reg_parser_init();
    parser_env_init();
}
#endif

}  // namespace
