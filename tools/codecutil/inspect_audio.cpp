// Inspectors for the audio formats the decoder receives.
//
// "adts": ADTS frames (ISO/IEC 14496-3 1.A.2.2, 13818-7 6.2) back to back.
// Every frame: syncword 0xFFF, layer 0, a sampling_frequency_index of the
// table (0..12), an aac_frame_length covering at least its header (7 bytes,
// 9 with a CRC) and no more than what is left; the fixed header (ID, layer,
// protection_absent, profile, sampling index, private bit, channel
// configuration, original/copy, home) the same in every frame.
//
// "packets": the Vorbis and Opus converters' streams: per packet a 44-byte
// header (sync text zero-padded to 16 bytes, then big-endian bytes, b_o_s,
// e_o_s, granulepos, packetno) and the packet. The first sync text decides
// the codec ("gstvorbis" or "gst_opus") and every header repeats it; b_o_s is
// 0 or 1 and only the first packet may carry 1; e_o_s is 0 or 1 and only the
// last may carry 1; granulepos and packetno are 0. Vorbis packets are audio
// (type bit 0 clear) or the identification, comment and setup headers (type
// 1, 3, 5 + "vorbis"; Vorbis I 4.2.1); Opus packets are audio or OpusHead /
// OpusTags (RFC 7845 5).
//
// --extract DIR writes what libavcodec's decoder for the codec takes:
//   DIR/codec.txt      "aac", "vorbis" or "opus"
//   DIR/extradata.bin  AAC: the 2-byte AudioSpecificConfig of the first fixed
//                      header; Vorbis: the three header packets Xiph-laced
//                      (as Matroska's CodecPrivate); Opus: the OpusHead packet
//   DIR/packets.bin    every raw AAC frame (header and CRC removed) or audio
//                      packet, each as a 32-bit big-endian length and its bytes
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "inspect_common.h"
#include "inspect_format.h"

namespace codecutil_tool {
namespace {

constexpr size_t kAdtsHeaderSize = 7;
constexpr size_t kAdtsCrcSize = 2;
constexpr size_t kPacketHeaderSize = 44;
constexpr size_t kSyncSize = 16;
constexpr uint32_t kAdtsRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                   22050, 16000, 12000, 11025, 8000,  7350};

// What --extract writes, gathered while the stream is walked.
struct Extraction {
    std::string codec;
    std::vector<uint8_t> extradata;
    std::vector<uint8_t> packets;

    void add_packet(const uint8_t* p, size_t n) {
        const auto len = static_cast<uint32_t>(n);
        for (int shift = 24; shift >= 0; shift -= 8)
            packets.push_back(static_cast<uint8_t>(len >> shift));
        packets.insert(packets.end(), p, p + n);
    }
};

bool write_file(const std::string& path, const uint8_t* p, size_t n) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    const bool ok = (n == 0 || std::fwrite(p, 1, n, f) == n);
    return std::fclose(f) == 0 && ok;
}

int write_extraction(const char* dir, const Extraction& x, const Faults& faults) {
    const std::string base = std::string(dir) + "/";
    const std::string codec_line = x.codec + "\n";
    const struct {
        const char* name;
        const uint8_t* data;
        size_t size;
    } files[] = {
        {"codec.txt", reinterpret_cast<const uint8_t*>(codec_line.data()), codec_line.size()},
        {"extradata.bin", x.extradata.data(), x.extradata.size()},
        {"packets.bin", x.packets.data(), x.packets.size()},
    };
    for (const auto& f : files) {
        if (!write_file(base + f.name, f.data, f.size))
            return faults.plain("cannot write '%s%s'", base.c_str(), f.name);
    }
    return 0;
}

// ---------------------------------------------------------------------------
// ADTS
// ---------------------------------------------------------------------------

int run_adts(const uint8_t* data, size_t size, const char* extract_dir, FILE* out, FILE* err) {
    const Faults faults("adts", err);
    if (size == 0) return faults.plain("empty stream: no ADTS frame");
    Extraction x;
    x.codec = "aac";
    uint8_t fixed[3] = {};
    size_t at = 0;
    size_t frames = 0;
    while (at < size) {
        const size_t left = size - at;
        const uint8_t* h = data + at;
        if (left < kAdtsHeaderSize)
            return faults.at(at, "truncated ADTS header: %zu bytes left, 7 needed", left);
        if (h[0] != 0xFF || (h[1] & 0xF0) != 0xF0)
            return faults.at(at, "no ADTS syncword: %02X %02X", h[0], h[1]);
        const unsigned id = (h[1] >> 3) & 1;
        const unsigned layer = (h[1] >> 1) & 3;
        const unsigned protection_absent = h[1] & 1;
        const unsigned profile = h[2] >> 6;
        const unsigned sf_index = (h[2] >> 2) & 0xF;
        const unsigned channels = (h[2] & 1u) << 2 | h[3] >> 6;
        const uint32_t frame_length =
            static_cast<uint32_t>(h[3] & 3) << 11 | static_cast<uint32_t>(h[4]) << 3 | h[5] >> 5;
        const unsigned fullness = static_cast<unsigned>(h[5] & 0x1F) << 6 | h[6] >> 2;
        const unsigned blocks = h[6] & 3;  // number_of_raw_data_blocks_in_frame
        const size_t header = kAdtsHeaderSize + (protection_absent != 0 ? 0 : kAdtsCrcSize);
        if (layer != 0) return faults.at(at, "layer %u, ADTS has 0", layer);
        if (sf_index > 12) return faults.at(at, "reserved sampling_frequency_index %u", sf_index);
        if (frame_length < header)
            return faults.at(at, "aac_frame_length %u is shorter than its %zu-byte header",
                             frame_length, header);
        if (frame_length > left)
            return faults.at(at, "aac_frame_length %u runs past the end (%zu bytes left)",
                             frame_length, left);
        const uint8_t this_fixed[3] = {h[1], h[2], static_cast<uint8_t>(h[3] & 0xF0)};
        if (frames == 0) {
            std::memcpy(fixed, this_fixed, sizeof fixed);
        } else if (std::memcmp(fixed, this_fixed, sizeof fixed) != 0) {
            // A new configuration after a codec-data change is legitimate;
            // extraction writes one AudioSpecificConfig, so it cannot follow.
            if (extract_dir != nullptr)
                return faults.at(at,
                                 "fixed header changed: %02X %02X %02X, before %02X %02X %02X: "
                                 "cannot extract two configurations into one stream",
                                 this_fixed[0], this_fixed[1], this_fixed[2], fixed[0], fixed[1],
                                 fixed[2]);
            std::fprintf(
                out, "change offset %zu fixed header %02X %02X %02X, before %02X %02X %02X\n", at,
                this_fixed[0], this_fixed[1], this_fixed[2], fixed[0], fixed[1], fixed[2]);
            std::memcpy(fixed, this_fixed, sizeof fixed);
        }
        if (extract_dir != nullptr && blocks != 0)
            return faults.at(at, "%u raw data blocks in one frame: cannot extract them apart",
                             blocks + 1);
        std::fprintf(out,
                     "frame %zu offset %zu size %u payload %zu id %u layer %u protection_absent %u "
                     "profile %u sf_index %u rate %u channels %u fullness 0x%03x blocks %u\n",
                     frames, at, frame_length, frame_length - header, id, layer, protection_absent,
                     profile, sf_index, kAdtsRates[sf_index], channels, fullness, blocks + 1);
        x.add_packet(h + header, frame_length - header);
        at += frame_length;
        ++frames;
    }
    std::fprintf(out, "frames %zu bytes %zu\n", frames, size);
    if (extract_dir == nullptr) return 0;
    // AudioSpecificConfig: audioObjectType = profile + 1 (5), sampling index
    // (4), channel configuration (4), GASpecificConfig flags 000.
    const unsigned aot = (fixed[1] >> 6) + 1;
    const unsigned sf_index = (fixed[1] >> 2) & 0xF;
    const unsigned channels = (fixed[1] & 1u) << 2 | fixed[2] >> 6;
    const unsigned asc = aot << 11 | sf_index << 7 | channels << 3;
    x.extradata = {static_cast<uint8_t>(asc >> 8), static_cast<uint8_t>(asc)};
    return write_extraction(extract_dir, x, faults);
}

// ---------------------------------------------------------------------------
// Packet-header streams (Vorbis, Opus)
// ---------------------------------------------------------------------------

enum class Codec { kVorbis, kOpus };

struct Sync {
    const char* text;
    Codec codec;
    const char* name;
};
constexpr Sync kSyncs[] = {{"gstvorbis", Codec::kVorbis, "vorbis"},
                           {"gst_opus", Codec::kOpus, "opus"}};

bool sync_is(const uint8_t* h, const char* text) {
    uint8_t want[kSyncSize] = {};
    std::memcpy(want, text, std::strlen(text));
    return std::memcmp(h, want, kSyncSize) == 0;
}

// Vorbis header packets by type (Vorbis I 4.2.1): 1 identification, 3
// comment, 5 setup; index into Headers::packet.
int vorbis_header_slot(const uint8_t* p, size_t n) {
    if (n < 7 || (p[0] & 1) == 0 || std::memcmp(p + 1, "vorbis", 6) != 0) return -1;
    switch (p[0]) {
        case 1:
            return 0;
        case 3:
            return 1;
        case 5:
            return 2;
        default:
            return -2;  // odd type that is no header
    }
}

struct Headers {
    const uint8_t* packet[3] = {};  // first identification, comment, setup
    size_t size[3] = {};
};

// Describes one packet, checking what its kind requires. Returns the kind's
// name, or NULL after reporting a fault.
const char* describe(Codec codec, const uint8_t* p, size_t n, size_t at, Headers& headers,
                     std::string& details, const Faults& faults) {
    char text[128] = "";
    if (codec == Codec::kVorbis) {
        const int slot = vorbis_header_slot(p, n);
        if (slot == -2 || (slot == -1 && n != 0 && (p[0] & 1) != 0)) {
            faults.at(at, "Vorbis packet type %u is neither audio nor a header", p[0]);
            return nullptr;
        }
        if (slot < 0) return "audio";
        static const char* const kNames[] = {"vorbis-identification", "vorbis-comment",
                                             "vorbis-setup"};
        if (slot == 0) {
            if (n < 30) {  // Vorbis I 4.2.2: 30 bytes
                faults.at(at, "Vorbis identification header of %zu bytes, 30 needed", n);
                return nullptr;
            }
            std::snprintf(text, sizeof text, " channels %u rate %u", p[11], le32(p + 12));
            details = text;
        }
        if (headers.packet[slot] == nullptr) {
            headers.packet[slot] = p;
            headers.size[slot] = n;
        }
        return kNames[slot];
    }
    if (n >= 8 && std::memcmp(p, "OpusHead", 8) == 0) {
        if (n < 19) {  // RFC 7845 5.1
            faults.at(at, "OpusHead of %zu bytes, 19 needed", n);
            return nullptr;
        }
        std::snprintf(text, sizeof text, " version %u channels %u pre_skip %u rate %u", p[8], p[9],
                      le16(p + 10), le32(p + 12));
        details = text;
        if (headers.packet[0] == nullptr) {
            headers.packet[0] = p;
            headers.size[0] = n;
        }
        return "opus-head";
    }
    if (n >= 8 && std::memcmp(p, "OpusTags", 8) == 0) return "opus-tags";
    return "audio";
}

// Matroska's Vorbis CodecPrivate: packet count - 1, the sizes of all but the
// last in Xiph lacing, then the packets.
std::vector<uint8_t> xiph_lace(const Headers& h) {
    std::vector<uint8_t> out = {2};
    for (int i = 0; i < 2; ++i) {
        size_t n = h.size[i];
        for (; n >= 255; n -= 255) out.push_back(255);
        out.push_back(static_cast<uint8_t>(n));
    }
    for (int i = 0; i < 3; ++i) out.insert(out.end(), h.packet[i], h.packet[i] + h.size[i]);
    return out;
}

int run_packets(const uint8_t* data, size_t size, const char* extract_dir, FILE* out, FILE* err) {
    const Faults faults("packets", err);
    if (size == 0) return faults.plain("empty stream: no packet");
    if (size < kPacketHeaderSize)
        return faults.at(0, "truncated packet header: %zu bytes left, 44 needed", size);
    const Sync* sync = nullptr;
    for (const Sync& s : kSyncs) {
        if (sync_is(data, s.text)) sync = &s;
    }
    if (sync == nullptr) return faults.at(0, "unknown sync text (neither gstvorbis nor gst_opus)");
    Extraction x;
    x.codec = sync->name;
    Headers headers;
    size_t at = 0;
    size_t count = 0;
    size_t audio = 0;
    while (at < size) {
        const size_t left = size - at;
        const uint8_t* h = data + at;
        if (left < kPacketHeaderSize)
            return faults.at(at, "truncated packet header: %zu bytes left, 44 needed", left);
        if (!sync_is(h, sync->text))
            return faults.at(at, "sync text is not \"%s\" zero-padded to 16 bytes", sync->text);
        const uint32_t bytes = be32(h + 16);
        const uint32_t bos = be32(h + 20);
        const uint32_t eos = be32(h + 24);
        if (bytes > left - kPacketHeaderSize)
            return faults.at(at, "packet of %u bytes runs past the end (%zu bytes left)", bytes,
                             left - kPacketHeaderSize);
        if (bos > 1) return faults.at(at, "b_o_s is %u, not 0 or 1", bos);
        if (bos == 1 && count != 0)
            return faults.at(at, "b_o_s set on packet %zu; only the first may carry it", count);
        if (eos > 1) return faults.at(at, "e_o_s is %u, not 0 or 1", eos);
        if (eos == 1 && bytes != left - kPacketHeaderSize)
            return faults.at(at, "e_o_s set on packet %zu, which is not the last", count);
        if (be64(h + 28) != 0) return faults.at(at, "granulepos is not 0");
        if (be64(h + 36) != 0) return faults.at(at, "packetno is not 0");
        const uint8_t* p = h + kPacketHeaderSize;
        std::string details;
        const char* kind = describe(sync->codec, p, bytes, at, headers, details, faults);
        if (kind == nullptr) return 1;
        std::fprintf(out, "packet %zu offset %zu size %u bos %u eos %u kind %s%s\n", count, at,
                     bytes, bos, eos, kind, details.c_str());
        if (std::strcmp(kind, "audio") == 0) {
            x.add_packet(p, bytes);
            ++audio;
        }
        at += kPacketHeaderSize + bytes;
        ++count;
    }
    std::fprintf(out, "packets %zu headers %zu audio %zu bytes %zu codec %s\n", count,
                 count - audio, audio, size, sync->name);
    if (extract_dir == nullptr) return 0;
    if (sync->codec == Codec::kVorbis) {
        static const char* const kMissing[] = {"identification", "comment", "setup"};
        for (int i = 0; i < 3; ++i) {
            if (headers.packet[i] == nullptr)
                return faults.plain("cannot extract: no Vorbis %s header in the stream",
                                    kMissing[i]);
        }
        x.extradata = xiph_lace(headers);
    } else {
        if (headers.packet[0] == nullptr)
            return faults.plain("cannot extract: no OpusHead packet in the stream");
        x.extradata.assign(headers.packet[0], headers.packet[0] + headers.size[0]);
    }
    return write_extraction(extract_dir, x, faults);
}

}  // namespace

const InspectFormat kAudioInspectFormats[] = {
    {"adts", run_adts},
    {"packets", run_packets},
    {nullptr, nullptr},
};

}  // namespace codecutil_tool
