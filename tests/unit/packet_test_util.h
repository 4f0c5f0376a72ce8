// Splits the output of the Vorbis and Opus converters back into packets,
// checking every 44-byte packet header on the way.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "payload_test_util.h"

namespace packet_test {

using payload_test::Bytes;
using payload_test::cat;
using payload_test::ramp;

struct Packet {
    uint32_t bos;
    Bytes data;
};

inline uint32_t be32(const uint8_t* p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

// Packet headers: the sync text zero-padded to 16 bytes, the length, b_o_s,
// then e_o_s, granulepos and packetno all zero. A fault is a test failure.
inline std::vector<Packet> split(const Bytes& out, const std::string& sync) {
    std::vector<Packet> packets;
    size_t at = 0;
    while (at < out.size()) {
        EXPECT_GE(out.size() - at, 44u) << "header cut at " << at;
        if (out.size() - at < 44) break;
        const uint8_t* h = out.data() + at;
        Bytes want_sync(16, 0);
        std::memcpy(want_sync.data(), sync.data(), sync.size());
        EXPECT_EQ(Bytes(h, h + 16), want_sync) << "at " << at;
        for (int i = 24; i < 44; ++i) EXPECT_EQ(h[i], 0) << "byte " << i << " at " << at;
        const uint32_t size = be32(h + 16);
        EXPECT_LE(size, out.size() - at - 44) << "packet cut at " << at;
        if (size > out.size() - at - 44) break;
        packets.push_back({be32(h + 20), Bytes(h + 44, h + 44 + size)});
        at += 44 + size;
    }
    return packets;
}

// Sizes and b_o_s flags of the packets, in order.
inline std::vector<size_t> sizes_of(const std::vector<Packet>& packets) {
    std::vector<size_t> s;
    for (const auto& p : packets) s.push_back(p.data.size());
    return s;
}
inline std::vector<uint32_t> bos_of(const std::vector<Packet>& packets) {
    std::vector<uint32_t> b;
    for (const auto& p : packets) b.push_back(p.bos);
    return b;
}

}  // namespace packet_test
