// The HAL port against the stand-in service, and without it.
#include <gtest/gtest.h>

#include <vector>

#include "log_capture.h"
#include "zarn_codec_util_port.h"
#include "zhal_avstream.h"

namespace {

void collect(void* user, const zarn_uint8* data, zarn_uint32 size, zarn_uint64) {
    auto* out = static_cast<std::vector<uint8_t>*>(user);
    out->insert(out->end(), data, data + size);
}

TEST(Port, GrantsAndCommitsThroughTheService) {
    Zhal_AVStream_ptr s = zhal_sim_stream_create(16);
    ASSERT_NE(s, nullptr);
    std::vector<uint8_t> committed;
    zhal_sim_stream_set_consumer(s, collect, &committed);
    zhal_sim_stream_set_write_pos(s, 12);

    zarn_uint8* mem2 = nullptr;
    zarn_uint32 size2 = 99;
    zarn_uint8* first = Conv_Port_Stream_Getbuffer(s, 6, &mem2, &size2, -1);
    ASSERT_NE(first, nullptr);
    ASSERT_EQ(size2, 2u);  // 4 bytes up to the ring's end, 2 at its start
    ASSERT_NE(mem2, nullptr);
    const uint8_t bytes[6] = {1, 2, 3, 4, 5, 6};
    for (int i = 0; i < 4; ++i) first[i] = bytes[i];
    mem2[0] = bytes[4];
    mem2[1] = bytes[5];
    EXPECT_TRUE(Conv_Port_Stream_Append(s, first, 6, 1234));
    EXPECT_EQ(committed, std::vector<uint8_t>(bytes, bytes + 6));
    EXPECT_EQ(zhal_sim_stream_write_pos(s), 2u);

    // Contiguous grant writes size2 = 0; a grant beyond capacity is refused.
    size2 = 99;
    EXPECT_NE(Conv_Port_Stream_Getbuffer(s, 4, &mem2, &size2, -1), nullptr);
    EXPECT_EQ(size2, 0u);
    EXPECT_EQ(Conv_Port_Stream_Getbuffer(s, 17, &mem2, &size2, -1), nullptr);
    // Committing space that was not granted is refused.
    EXPECT_FALSE(Conv_Port_Stream_Append(s, committed.data(), 1, 0));
    zhal_sim_stream_destroy(s);
}

TEST(Port, BoundPortLogsNothing) {
    Zhal_AVStream_ptr s = zhal_sim_stream_create(8);
    zarn_uint8* mem2 = nullptr;
    zarn_uint32 size2 = 0;
    (void)Conv_Port_Stream_Getbuffer(s, 1, &mem2, &size2, -1);  // binds if not yet bound
    codecutil_test::LogCapture log;
    EXPECT_NE(Conv_Port_Stream_Getbuffer(s, 1, &mem2, &size2, -1), nullptr);
    EXPECT_TRUE(log.lines().empty());
    zhal_sim_stream_destroy(s);
}

}  // namespace
