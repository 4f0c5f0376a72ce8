#include "output_ring.h"

#include <cerrno>
#include <cstring>

#include "run_output.h"
#include "zarn_codec_util_port.h"
#include "zhal_avstream.h"

namespace codecutil_tool {

OutputRing::~OutputRing() {
    std::string ignored;
    (void)close(ignored);
}

bool OutputRing::open(const std::string& path, uint32_t capacity, uint32_t write_pos,
                      std::string& error) {
    path_ = path;
    file_ = std::fopen(stage_output(path).c_str(), "wb");
    if (file_ == nullptr) {
        error = "cannot create '" + path + "': " + std::strerror(errno);
        return false;
    }
    stream_ = zhal_sim_stream_create(capacity);
    if (stream_ == nullptr) {
        error = "cannot allocate a ring of " + std::to_string(capacity) + " bytes";
        return false;
    }
    zhal_sim_stream_set_consumer(stream_, &OutputRing::consume, this);
    zhal_sim_stream_set_write_pos(stream_, write_pos);
    return true;
}

void OutputRing::consume(void* user, const zarn_uint8* data, zarn_uint32 size, zarn_uint64) {
    auto* self = static_cast<OutputRing*>(user);
    if (self->write_failed_) return;
    if (std::fwrite(data, 1, size, self->file_) != size) self->write_failed_ = true;
}

bool OutputRing::write_unchanged(const uint8_t* data, uint32_t size, uint64_t pts) {
    if (size == 0) return true;
    zarn_uint8* mem2 = nullptr;
    zarn_uint32 size2 = 0;
    zarn_uint8* space = Zhal_AVStream_Getbuffer(stream_, size, &mem2, &size2, -1);
    if (space == nullptr || size2 > size || (size2 != 0 && mem2 == nullptr)) return false;
    const uint32_t first = size - size2;
    std::memcpy(space, data, first);
    if (size2 != 0) std::memcpy(mem2, data + first, size2);
    return Conv_Port_Stream_Append(stream_, space, size, pts) != FALSE;
}

bool OutputRing::commit(uint8_t* data, uint32_t size, uint64_t pts) {
    return Conv_Port_Stream_Append(stream_, data, size, pts) != FALSE;
}

uint32_t OutputRing::refused_grants() const {
    return stream_ != nullptr ? zhal_sim_stream_refused(stream_) : 0;
}

bool OutputRing::close(std::string& error) {
    if (stream_ != nullptr) {
        zhal_sim_stream_destroy(stream_);
        stream_ = nullptr;
    }
    if (file_ == nullptr) return true;
    const bool flushed = std::fflush(file_) == 0 && std::ferror(file_) == 0;
    const int saved_errno = errno;
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    if (write_failed_ || !flushed || !closed) {
        error = "writing '" + path_ + "' failed: " + std::strerror(saved_errno);
        return false;
    }
    return true;
}

}  // namespace codecutil_tool
