// One stream's decoder input ring, as the player side sees it: a simulated
// HAL stream (libhalavstream.so) whose consumer writes every committed byte,
// in ring order, to an output file. The converters reach the same ring
// through the library's port; pass-through units are written here directly.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "zarn_types.h"

namespace codecutil_tool {

class OutputRing {
public:
    OutputRing() = default;
    OutputRing(const OutputRing&) = delete;
    OutputRing& operator=(const OutputRing&) = delete;
    ~OutputRing();

    // Creates a ring of `capacity` bytes whose write position starts at
    // `write_pos` (< capacity; places the first wrap anywhere) and opens
    // `path` for its output. False with `error` set on failure.
    [[nodiscard]] bool open(const std::string& path, uint32_t capacity, uint32_t write_pos,
                            std::string& error);

    // The HAL stream handle handed to Zarn_CodecUtil_ConvPushBuffer.
    [[nodiscard]] void* stream() const { return stream_; }

    // Writes a unit unchanged: reserves `size` bytes (one or two pieces),
    // copies them and commits. False when the ring grants no space or the
    // commit is refused. A unit of 0 bytes writes nothing and succeeds.
    [[nodiscard]] bool write_unchanged(const uint8_t* data, uint32_t size, uint64_t pts);

    // Commits `size` bytes a converter wrote at `data` (the start of the
    // space it was granted). False when the ring refuses the commit.
    [[nodiscard]] bool commit(uint8_t* data, uint32_t size, uint64_t pts);

    // Space requests the ring refused so far (larger than its capacity).
    [[nodiscard]] uint32_t refused_grants() const;

    // Releases the ring and closes the file. False with `error` set when
    // writing the output failed at any point.
    [[nodiscard]] bool close(std::string& error);

private:
    static void consume(void* user, const zarn_uint8* data, zarn_uint32 size, zarn_uint64 pts);

    void* stream_ = nullptr;
    std::FILE* file_ = nullptr;
    std::string path_;
    bool write_failed_ = false;
};

}  // namespace codecutil_tool
