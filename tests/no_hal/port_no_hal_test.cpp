// The HAL port when no libhalavstream.so can be found: built apart from the
// unit tests, which link the stand-in service directly.
#include <gtest/gtest.h>

#include "log_capture.h"
#include "zarn_codec_util_port.h"

namespace {

TEST(NoHalPort, EveryCallFailsAndLogsTheOpenFailure) {
    codecutil_test::LogCapture log;
    zarn_uint8* mem2 = nullptr;
    zarn_uint32 size2 = 0;
    int stream = 0;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Conv_Port_Stream_Getbuffer(&stream, 8, &mem2, &size2, -1), nullptr);
        EXPECT_EQ(Conv_Port_Stream_Append(&stream, &stream, 1, 0), FALSE);
    }
    EXPECT_EQ(log.count("dlopen libhalavstream.so failed: "), 4);
    EXPECT_EQ(log.level_of("dlopen libhalavstream.so failed: "), ZARN_LEVEL_ERROR);
}

}  // namespace
