// Inspectors for the payload-header video formats the decoder receives.
//
// "corvid": a run of 16-byte payload headers (00 00 01, type 0x31/0x32,
// L[23:16], L[15:8], 'N', L[7:0], CodecID, version 1, width BE16, 'X',
// height BE16, 'P'; L = payload + 12), each followed by its payload. The
// first header decides the stream:
//   0x38 DivX 3.11      frames only
//   0x39 SPARK          empty configuration payload, then frames
//   0x36 VP6            as SPARK
//   0x36 VP8            configuration payload = 32-byte IVF file header
//                       ("VP80"), again at each size change; frame payload =
//                       8 zero bytes + frame
//   0x10/0x11 VC-1      configuration payload = 36-byte RCV sequence layer
//                       (SMPTE 421M Annex L); frame payload = 8-byte frame
//                       layer + frame
// --extract writes DIR/video.rcv (VC-1: the sequence layer and the frame
// layers with their frames, a file FFmpeg's vc1test demuxer reads) or
// DIR/video.ivf (the others: a plain IVF whose four-character code FFmpeg
// maps to the codec: DIV3, FLV1, VP6F, VP80; frame index as time stamp).
//
// "ivf": an IVF file as the VP9 converter writes it: the 32-byte file header
// ("VP90" headers carry width and height big-endian), then per frame a
// 12-byte header (size LE32, time stamp LE64 in 90 kHz ticks,
// 0xFFFFFFFFFFFFFFFE for none) and the frame. --extract writes DIR/video.ivf
// with little-endian sizes and a 1/90000 time base when the file has none.
#include <cstdarg>
#include <cstring>
#include <string>

#include "inspect_common.h"
#include "inspect_format.h"

namespace codecutil_tool {
namespace {

constexpr uint32_t kPayloadHeaderSize = 16;
constexpr uint32_t kIvfFileHeaderSize = 32;
constexpr uint32_t kIvfFrameHeaderSize = 12;
constexpr uint32_t kRcvSeqLayerSize = 36;
constexpr uint32_t kRcvFrameLayerSize = 8;
constexpr uint32_t kVp8FramePad = 8;
constexpr uint64_t kNoTimestamp = 0xFFFFFFFFFFFFFFFEull;

std::string fourcc_text(const uint8_t* p) {
    std::string s;
    for (int i = 0; i < 4; ++i) s += (p[i] >= 0x20 && p[i] < 0x7F) ? static_cast<char>(p[i]) : '.';
    return s;
}

// An extraction target; inactive (every call a no-op) without a folder.
class OutFile {
public:
    OutFile() = default;
    OutFile(const OutFile&) = delete;
    OutFile& operator=(const OutFile&) = delete;
    ~OutFile() {
        if (f_ != nullptr) std::fclose(f_);
    }
    bool open(const char* dir, const char* name) {
        if (dir == nullptr) return true;
        path_ = std::string(dir) + "/" + name;
        f_ = std::fopen(path_.c_str(), "wb");
        return f_ != nullptr;
    }
    void write(const uint8_t* p, size_t n) {
        if (f_ != nullptr && n != 0 && std::fwrite(p, 1, n, f_) != n) failed_ = true;
    }
    void patch_le32(long offset, uint32_t v) {
        if (f_ == nullptr) return;
        uint8_t b[4];
        put_le32(b, v);
        if (std::fseek(f_, offset, SEEK_SET) != 0 || std::fwrite(b, 1, 4, f_) != 4) failed_ = true;
    }
    bool close() {
        if (f_ == nullptr) return true;
        const bool ok = std::fclose(f_) == 0 && !failed_;
        f_ = nullptr;
        return ok;
    }
    [[nodiscard]] bool active() const { return f_ != nullptr; }
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::FILE* f_ = nullptr;
    std::string path_;
    bool failed_ = false;
};

// A plain IVF written frame by frame; the frame count is patched at the end.
class IvfOut {
public:
    bool open(const char* dir, const uint8_t fourcc[4], uint32_t width, uint32_t height,
              uint32_t rate, uint32_t scale) {
        if (!file_.open(dir, "video.ivf")) return false;
        uint8_t h[kIvfFileHeaderSize] = {'D', 'K', 'I', 'F', 0, 0, 32, 0};
        std::memcpy(h + 8, fourcc, 4);
        put_le16(h + 12, width);
        put_le16(h + 14, height);
        put_le32(h + 16, rate);
        put_le32(h + 20, scale);
        file_.write(h, sizeof h);
        return true;
    }
    void frame(const uint8_t* data, uint32_t size, uint64_t pts) {
        uint8_t h[kIvfFrameHeaderSize];
        put_le32(h, size);
        put_le64(h + 4, pts);
        file_.write(h, sizeof h);
        file_.write(data, size);
        ++frames_;
    }
    bool close() {
        file_.patch_le32(24, frames_);
        return file_.close();
    }
    OutFile& file() { return file_; }

private:
    OutFile file_;
    uint32_t frames_ = 0;
};

struct PayloadHeader {
    uint8_t type;
    uint32_t length;  // L
    uint8_t codec;
    uint32_t width;
    uint32_t height;
};

enum class Corvid { kDivx, kSpark, kVp6, kVp8, kRcv };

const char* corvid_name(Corvid c) {
    switch (c) {
        case Corvid::kDivx:
            return "DivX 3.11";
        case Corvid::kSpark:
            return "SPARK";
        case Corvid::kVp6:
            return "VP6";
        case Corvid::kVp8:
            return "VP8";
        case Corvid::kRcv:
            return "VC-1 simple/main";
    }
    return "?";
}

int run_corvid(const uint8_t* data, size_t size, const char* extract_dir, FILE* out, FILE* err) {
    const Faults fault("corvid", err);
    if (size == 0) return fault.at(0, "empty stream, no payload header");
    Corvid kind = Corvid::kDivx;
    uint8_t codec = 0;
    uint32_t width = 0, height = 0;  // size the frame headers must carry
    uint64_t packets = 0, frames = 0, keys = 0;
    IvfOut ivf;
    OutFile rcv;
    size_t pos = 0;
    while (pos < size) {
        if (size - pos < kPayloadHeaderSize)
            return fault.at(pos, "%zu bytes left, a payload header needs 16", size - pos);
        const uint8_t* h = data + pos;
        if (h[0] != 0 || h[1] != 0 || h[2] != 1)
            return fault.at(pos, "no 00 00 01 payload header prefix");
        if (h[3] != 0x31 && h[3] != 0x32) return fault.at(pos + 3, "payload type 0x%02x", h[3]);
        if (h[6] != 'N' || h[12] != 'X' || h[15] != 'P')
            return fault.at(pos, "marker bytes N/X/P missing");
        if (h[9] != 0x01) return fault.at(pos + 9, "version 0x%02x, expected 0x01", h[9]);
        const PayloadHeader ph{h[3], static_cast<uint32_t>(h[4] << 16 | h[5] << 8 | h[7]), h[8],
                               be16(h + 10), be16(h + 13)};
        if (ph.length < 12) return fault.at(pos + 4, "length %u below 12", ph.length);
        const uint32_t payload_size = ph.length - 12;
        if (payload_size > size - pos - kPayloadHeaderSize)
            return fault.at(pos, "payload of %u bytes runs past the end", payload_size);
        const uint8_t* payload = h + kPayloadHeaderSize;
        const bool config = ph.type == 0x31;
        std::fprintf(out, "%10zu  %s  L=%-8u codec=0x%02x  %ux%u", pos,
                     config ? "config" : "frame ", ph.length, ph.codec, ph.width, ph.height);

        if (packets == 0) {
            codec = ph.codec;
            switch (codec) {
                case 0x38:
                    kind = Corvid::kDivx;
                    break;
                case 0x39:
                    kind = Corvid::kSpark;
                    break;
                case 0x36:
                    kind = payload_size == kIvfFileHeaderSize ? Corvid::kVp8 : Corvid::kVp6;
                    break;
                case 0x10:
                case 0x11:
                    kind = Corvid::kRcv;
                    break;
                default:
                    return fault.at(pos + 8, "unknown CodecID 0x%02x", codec);
            }
            if (config != (kind != Corvid::kDivx))
                return fault.at(pos + 3, "%s stream must begin with %s", corvid_name(kind),
                                kind == Corvid::kDivx ? "a frame" : "a configuration packet");
            width = ph.width;
            height = ph.height;
        } else if (ph.codec != codec) {
            return fault.at(pos + 8, "CodecID 0x%02x after 0x%02x", ph.codec, codec);
        } else if (config && kind != Corvid::kVp8) {
            return fault.at(pos + 3, "second configuration packet in a %s stream",
                            corvid_name(kind));
        }

        if (config) {
            if (kind == Corvid::kRcv) {
                // RCV sequence layer: NUMFRAMES(24) 0xC5, 4, STRUCT_C, STRUCT_A, 12, STRUCT_B.
                const uint8_t* s = payload;
                if (payload_size != kRcvSeqLayerSize)
                    return fault.at(pos, "sequence layer of %u bytes, expected 36", payload_size);
                if (s[3] != 0xC5)
                    return fault.at(pos + 19, "RCV version byte 0x%02x, expected 0xC5", s[3]);
                if (le32(s + 4) != 4)
                    return fault.at(pos + 20, "STRUCT_C length %u, expected 4", le32(s + 4));
                if (le32(s + 20) != 12)
                    return fault.at(pos + 36, "STRUCT_B length %u, expected 12", le32(s + 20));
                const uint32_t struct_c =
                    static_cast<uint32_t>(s[8] << 24 | s[9] << 16 | s[10] << 8 | s[11]);
                const uint32_t vert = le32(s + 12), horiz = le32(s + 16);
                if ((struct_c >> 28 == 4) != (codec == 0x11))
                    return fault.at(pos + 8, "CodecID 0x%02x does not match STRUCT_C profile %u",
                                    codec, struct_c >> 28);
                if (horiz != ph.width || vert != ph.height)
                    return fault.at(pos + 28, "STRUCT_A %ux%u differs from the header's %ux%u",
                                    horiz, vert, ph.width, ph.height);
                std::fprintf(out,
                             "  rcv frames=%u struct_c=%08x %ux%u level=%u cbr=%u framerate=%u",
                             le32(s) & 0xFFFFFF, struct_c, horiz, vert, s[24] >> 5,
                             (s[24] >> 4) & 1, le32(s + 32));
                if (extract_dir != nullptr) {
                    if (!rcv.open(extract_dir, "video.rcv"))
                        return fault.plain("cannot create %s/video.rcv", extract_dir);
                    rcv.write(s, kRcvSeqLayerSize);
                }
            } else if (kind == Corvid::kVp8) {
                const uint8_t* f = payload;
                if (payload_size != kIvfFileHeaderSize)
                    return fault.at(pos, "VP8 configuration payload of %u bytes, expected 32",
                                    payload_size);
                if (std::memcmp(f, "DKIF", 4) != 0) return fault.at(pos + 16, "no DKIF signature");
                if (le16(f + 4) != 0) return fault.at(pos + 20, "IVF version %u", le16(f + 4));
                if (std::memcmp(f + 8, "VP80", 4) != 0)
                    return fault.at(pos + 24, "IVF four-character code %s, expected VP80",
                                    fourcc_text(f + 8).c_str());
                if (le16(f + 12) != ph.width || le16(f + 14) != ph.height)
                    return fault.at(pos + 28, "IVF size %ux%u differs from the header's %ux%u",
                                    le16(f + 12), le16(f + 14), ph.width, ph.height);
                std::fprintf(out, "  ivf %s %ux%u header-size=%u", fourcc_text(f + 8).c_str(),
                             le16(f + 12), le16(f + 14), le16(f + 6));
                width = ph.width;
                height = ph.height;
                if (packets == 0 && extract_dir != nullptr &&
                    !ivf.open(extract_dir, f + 8, width, height, 25, 1))
                    return fault.plain("cannot create %s/video.ivf", extract_dir);
            } else if (payload_size != 0) {
                return fault.at(pos, "%s configuration payload of %u bytes, expected none",
                                corvid_name(kind), payload_size);
            } else if (extract_dir != nullptr) {
                const uint8_t* cc =
                    reinterpret_cast<const uint8_t*>(kind == Corvid::kSpark ? "FLV1" : "VP6F");
                if (!ivf.open(extract_dir, cc, width, height, 25, 1))
                    return fault.plain("cannot create %s/video.ivf", extract_dir);
            }
        } else {
            if (ph.width != width || ph.height != height)
                return fault.at(pos + 10, "frame header size %ux%u, expected %ux%u", ph.width,
                                ph.height, width, height);
            const uint8_t* frame = payload;
            uint32_t frame_size = payload_size;
            bool key = false;
            if (kind == Corvid::kRcv) {
                if (payload_size < kRcvFrameLayerSize)
                    return fault.at(pos, "frame payload of %u bytes has no frame layer",
                                    payload_size);
                const uint32_t word = le32(payload);
                frame_size = payload_size - kRcvFrameLayerSize;
                if ((word & 0xFFFFFF) != (frame_size & 0xFFFFFF))
                    return fault.at(pos + 16, "frame layer size %u, payload holds %u",
                                    word & 0xFFFFFF, frame_size);
                if ((word & 0x7F000000) != 0)
                    return fault.at(pos + 19, "frame layer reserved bits set");
                key = (word & 0x80000000) != 0;
                frame = payload + kRcvFrameLayerSize;
                std::fprintf(out, "  size=%u key=%d timestamp=%u", frame_size, key,
                             le32(payload + 4));
                rcv.write(payload, payload_size);
            } else if (kind == Corvid::kVp8) {
                if (payload_size < kVp8FramePad)
                    return fault.at(pos, "frame payload of %u bytes, VP8 needs 8 zero bytes first",
                                    payload_size);
                for (uint32_t i = 0; i < kVp8FramePad; ++i)
                    if (payload[i] != 0)
                        return fault.at(pos + 16 + i, "non-zero byte after the payload header");
                frame = payload + kVp8FramePad;
                frame_size = payload_size - kVp8FramePad;
                // RFC 6386 9.1: key_frame flag is 0; key frames carry start code and size.
                key = frame_size >= 3 && (frame[0] & 1) == 0;
                std::fprintf(out, "  size=%u key=%d", frame_size, key);
                if (key && frame_size >= 10 && frame[3] == 0x9D && frame[4] == 0x01 &&
                    frame[5] == 0x2A)
                    std::fprintf(out, " %ux%u", le16(frame + 6) & 0x3FFF, le16(frame + 8) & 0x3FFF);
                ivf.frame(frame, frame_size, frames);
            } else {
                std::fprintf(out, "  size=%u", frame_size);
                if (kind == Corvid::kDivx && frames == 0 && extract_dir != nullptr &&
                    !ivf.open(extract_dir, reinterpret_cast<const uint8_t*>("DIV3"), width, height,
                              25, 1))
                    return fault.plain("cannot create %s/video.ivf", extract_dir);
                ivf.frame(frame, frame_size, frames);
            }
            ++frames;
            keys += key ? 1 : 0;
        }
        std::fputc('\n', out);
        ++packets;
        pos += kPayloadHeaderSize + payload_size;
    }
    std::fprintf(out, "corvid: %s, %llu packets, %llu frames", corvid_name(kind),
                 static_cast<unsigned long long>(packets), static_cast<unsigned long long>(frames));
    if (kind == Corvid::kRcv || kind == Corvid::kVp8)
        std::fprintf(out, " (%llu key)", static_cast<unsigned long long>(keys));
    std::fputc('\n', out);
    OutFile& written = kind == Corvid::kRcv ? rcv : ivf.file();
    const std::string path = written.path();
    if (!(kind == Corvid::kRcv ? rcv.close() : ivf.close()))
        return fault.plain("cannot write %s", path.c_str());
    if (extract_dir != nullptr) std::fprintf(out, "extracted %s\n", path.c_str());
    return 0;
}

int run_ivf(const uint8_t* data, size_t size, const char* extract_dir, FILE* out, FILE* err) {
    const Faults fault("ivf", err);
    if (size < kIvfFileHeaderSize)
        return fault.at(0, "%zu bytes, an IVF file header needs 32", size);
    if (std::memcmp(data, "DKIF", 4) != 0) return fault.at(0, "no DKIF signature");
    if (le16(data + 4) != 0) return fault.at(4, "IVF version %u, expected 0", le16(data + 4));
    if (le16(data + 6) != kIvfFileHeaderSize)
        return fault.at(6, "header size %u, expected 32", le16(data + 6));
    const bool vp9 = std::memcmp(data + 8, "VP90", 4) == 0;
    const uint32_t width = vp9 ? be16(data + 12) : le16(data + 12);
    const uint32_t height = vp9 ? be16(data + 14) : le16(data + 14);
    const uint32_t rate = le32(data + 16), scale = le32(data + 20), count = le32(data + 24);
    std::fprintf(out, "%10d  header  %s %ux%u rate=%u scale=%u frames=%u\n", 0,
                 fourcc_text(data + 8).c_str(), width, height, rate, scale, count);
    IvfOut ivf;
    const bool no_time_base = rate == 0 || scale == 0;
    if (!ivf.open(extract_dir, data + 8, width, height, no_time_base ? 90000 : rate,
                  no_time_base ? 1 : scale))
        return fault.plain("cannot create %s/video.ivf", extract_dir);
    uint32_t frames = 0;
    size_t pos = kIvfFileHeaderSize;
    while (pos < size) {
        if (size - pos < kIvfFrameHeaderSize)
            return fault.at(pos, "%zu bytes left, a frame header needs 12", size - pos);
        const uint32_t frame_size = le32(data + pos);
        const uint64_t pts = le64(data + pos + 4);
        if (frame_size > size - pos - kIvfFrameHeaderSize)
            return fault.at(pos, "frame of %u bytes runs past the end", frame_size);
        if (pts == kNoTimestamp) {
            std::fprintf(out, "%10zu  frame %-6u size=%-8u pts=none\n", pos, frames, frame_size);
        } else {
            std::fprintf(out, "%10zu  frame %-6u size=%-8u pts=%llu\n", pos, frames, frame_size,
                         static_cast<unsigned long long>(pts));
        }
        ivf.frame(data + pos + kIvfFrameHeaderSize, frame_size, pts);
        ++frames;
        pos += kIvfFrameHeaderSize + frame_size;
    }
    if (count != 0 && count != frames)
        return fault.at(24, "header counts %u frames, the file holds %u", count, frames);
    std::fprintf(out, "ivf: %s %ux%u, %u frames\n", fourcc_text(data + 8).c_str(), width, height,
                 frames);
    const std::string path = ivf.file().path();
    if (!ivf.close()) return fault.plain("cannot write %s", path.c_str());
    if (extract_dir != nullptr) std::fprintf(out, "extracted %s\n", path.c_str());
    return 0;
}

}  // namespace

const InspectFormat kPayloadInspectFormats[] = {
    {"corvid", run_corvid},
    {"ivf", run_ivf},
    {nullptr, nullptr},
};

}  // namespace codecutil_tool
