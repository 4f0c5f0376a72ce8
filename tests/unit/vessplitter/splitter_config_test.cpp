// Splitter lifecycle: decoder configuration records, layer switches, dumps,
// debug settings from the environment.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "splitter_test_util.h"

namespace {

using splittest::Bytes;
using splittest::cat;
using splittest::Delivery;
using splittest::sc4;
using splittest::SplitterHarness;

// AVCDecoderConfigurationRecord with one SPS of 10 bytes and one PPS of 4.
Bytes avc_record(uint8_t length_size_byte = 0xFF) {
    return {
        0x01,
        0x64,
        0x00,
        0x28,              // version, profile, compatibility, level
        length_size_byte,  // reserved | lengthSizeMinusOne
        0xE1,              // reserved | numOfSequenceParameterSets 1
        0x00,
        0x0A,  // SPS length 10
        0x67,
        0x64,
        0x00,
        0x28,
        0xAC,
        0xD9,
        0x40,
        0x78,
        0x02,
        0x27,
        0x01,  // numOfPictureParameterSets 1
        0x00,
        0x04,  // PPS length 4
        0x68,
        0xEB,
        0xE3,
        0xCB,
    };
}

// HEVCDecoderConfigurationRecord head: 21 bytes of profile/format fields,
// then lengthSizeMinusOne, then numOfArrays.
Bytes hevc_record(Bytes arrays, uint8_t num_arrays) {
    Bytes r(21, 0);
    r[0] = 1;
    r.push_back(0x0F);  // ... | lengthSizeMinusOne 3
    r.push_back(num_arrays);
    return cat({r, arrays});
}

Bytes hevc_head_without_arrays() {
    Bytes r = hevc_record({}, 0);
    r.pop_back();
    return r;
}

struct RecordRow {
    const char* name;
    int codec;
    Bytes record;
    int result;
    int nal_length_size;  // after the call
    Bytes block;          // stored units
    const char* message;  // expected diagnostic, or nullptr
};

TEST(SplitterCodecData, RecordsTable) {
    const Bytes hevc_vps = {0x40, 0x01, 0x0C};
    const RecordRow rows[] = {
        {"avc_one_sps_one_pps", VES_AVC, avc_record(), 0, 4,
         cat({{0, 0, 0, 10, 0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9, 0x40, 0x78, 0x02, 0x27},
              {0, 0, 0, 4, 0x68, 0xEB, 0xE3, 0xCB}}),
         "parsed sps_pps_nal_units_size 22"},
        {"avc_length_size_2", VES_AVC, avc_record(0xFD), 0, 2,
         cat({{0, 10, 0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9, 0x40, 0x78, 0x02, 0x27},
              {0, 4, 0x68, 0xEB, 0xE3, 0xCB}}),
         "nal_length_size is 2, num PPS 1"},
        {"avc_len_4", VES_AVC, {1, 0x64, 0, 0x28}, -1, 0, {}, "invalid AVC codec_data, len is 4"},
        // The SPS runs past the end: reported at its first byte, offset 8.
        {"avc_sps_past_end",
         VES_AVC,
         {1, 0x64, 0, 0x28, 0xFF, 0xE1, 0x00, 0x0A, 0x67},
         -1,
         4,
         {},
         "wrong AVC codec data, pos 8, nalUnitLength 10, len 9"},
        // Ends right before numOfSequenceParameterSets.
        {"avc_len_5",
         VES_AVC,
         {1, 0x64, 0, 0x1F, 0xFF},
         -1,
         4,
         {},
         "wrong AVC codec data, pos 5, nalUnitLength 0, len 5"},
        // Ends inside the SPS length field.
        {"avc_cut_length",
         VES_AVC,
         {1, 0x64, 0, 0x28, 0xFF, 0xE1, 0x00},
         -1,
         4,
         {},
         "wrong AVC codec data, pos 6, nalUnitLength 0, len 7"},
        // No PPS count after the SPS.
        {"avc_no_pps_count",
         VES_AVC,
         {1, 0x64, 0, 0x28, 0xFF, 0xE1, 0x00, 0x01, 0x67},
         -1,
         4,
         {},
         "wrong AVC codec data, pos 9, nalUnitLength 0, len 9"},
        {"hevc_len_21", VES_HEVC, Bytes(21, 0), -1, 0, {}, "invalid HEVC codec_data, len is 21"},
        {"hevc_no_arrays",
         VES_HEVC,
         hevc_record({}, 0),
         0,
         4,
         {},
         "parsed sps_pps_nal_units_size 0"},
        // 22 bytes: numOfArrays missing.
        {"hevc_no_array_count",
         VES_HEVC,
         hevc_head_without_arrays(),
         -1,
         4,
         {},
         "wrong HEVC codec data, pos 22, nalUnitLength 0, len 22"},
        {"hevc_two_units", VES_HEVC,
         hevc_record(cat({{0x20, 0x00, 0x02}, {0x00, 0x03}, hevc_vps, {0x00, 0x01, 0xAA}}), 1), 0,
         4, cat({{0, 0, 0, 3}, hevc_vps, {0, 0, 0, 1, 0xAA}}),
         "SPS/PPS at 33, size 1, sps_pps_nal_units_size 7"},
        {"hevc_unit_past_end",
         VES_HEVC,
         hevc_record({0x20, 0x00, 0x01, 0x00, 0x05, 0x40}, 1),
         -1,
         4,
         {},
         "wrong HEVC codec data, pos 28, nalUnitLength 5, len 29"},
        {"hevc_cut_array_header",
         VES_HEVC,
         hevc_record({0x20, 0x00}, 1),
         -1,
         4,
         {},
         "wrong HEVC codec data, pos 23, nalUnitLength 0, len 25"},
    };
    for (const RecordRow& row : rows) {
        SCOPED_TRACE(row.name);
        SplitterHarness h(row.codec);
        Bytes rec = row.record;
        EXPECT_EQ(ves_split_set_codec_data(h.handle(), rec.data(), static_cast<int>(rec.size())),
                  row.result);
        EXPECT_EQ(h.split()->nal_length_size, row.nal_length_size);
        ASSERT_EQ(h.split()->sps_pps_nal_units_size, static_cast<int>(row.block.size()));
        if (!row.block.empty()) {
            EXPECT_EQ(Bytes(h.split()->sps_pps_nal_units,
                            h.split()->sps_pps_nal_units + row.block.size()),
                      row.block);
        }
        EXPECT_TRUE(h.logged(row.message)) << h.log();
    }
}

TEST(SplitterCodecData, EmptyRecordChangesNothingAndErrorsSendNothing) {
    SplitterHarness h(VES_AVC);
    Bytes rec = avc_record();
    EXPECT_EQ(ves_split_set_codec_data(h.handle(), rec.data(), 0), 0);
    EXPECT_EQ(ves_split_set_codec_data(h.handle(), nullptr, 10), 0);
    EXPECT_EQ(h.split()->nal_length_size, 0);
    ASSERT_EQ(ves_split_set_codec_data(h.handle(), rec.data(), static_cast<int>(rec.size())), 0);
    // A failing replacement leaves nothing to send, and the length size just read.
    Bytes bad = {1, 0x64, 0, 0x28, 0xFD, 0xE1, 0x00, 0x0A, 0x67};
    EXPECT_EQ(ves_split_set_codec_data(h.handle(), bad.data(), static_cast<int>(bad.size())), -1);
    EXPECT_EQ(h.split()->sps_pps_nal_units_size, 0);
    EXPECT_EQ(h.split()->nal_length_size, 2);
    EXPECT_EQ(h.finish(), 0);
    EXPECT_TRUE(h.rec.got.empty());
    EXPECT_EQ(ves_split_set_codec_data(nullptr, rec.data(), static_cast<int>(rec.size())), -1);
}

TEST(SplitterCodecData, ParameterSetsGoOutOnceAheadOfTheStream) {
    SplitterHarness h(VES_AVC);
    Bytes rec = avc_record();
    ASSERT_EQ(ves_split_set_codec_data(h.handle(), rec.data(), static_cast<int>(rec.size())), 0);
    const Bytes slice = {0x65, 0x88, 0x84};
    ASSERT_EQ(h.push(splittest::len4(slice), 40), 0);
    ASSERT_EQ(h.push(splittest::len4({0x41, 0x9A}), 60), 0);
    ASSERT_EQ(h.finish(80), 0);
    const Bytes sps = {0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9, 0x40, 0x78, 0x02, 0x27};
    const std::vector<Delivery> want = {
        {VES_BL, sc4(sps), 40},
        {VES_BL, sc4({0x68, 0xEB, 0xE3, 0xCB}), 40},
        {VES_BL, sc4(slice), 40},
        {VES_BL, sc4({0x41, 0x9A}), 60},
    };
    EXPECT_EQ(h.rec.got, want);
    EXPECT_TRUE(h.logged("push SPS/PPS 22 bytes"));
    // Set again: sent again with the next push.
    ASSERT_EQ(ves_split_set_codec_data(h.handle(), rec.data(), static_cast<int>(rec.size())), 0);
    EXPECT_EQ(h.split()->sps_pps_nal_units_size, 22);
}

TEST(SplitterLayers, SwitchesSetSingleTrack) {
    SplitterHarness h;
    const struct {
        ves_type type;
        int enable;
        int single_track;
    } steps[] = {
        {VES_EL, 0, 1}, {VES_EL, 1, 0}, {VES_BL, 0, 1},
        {VES_MD, 0, 1}, {VES_BL, 1, 0}, {VES_MD, 1, 0},
    };
    for (const auto& s : steps) {
        EXPECT_EQ(ves_split_enable_layer(h.handle(), s.type, s.enable), 0);
        EXPECT_EQ(h.split()->single_track, s.single_track) << s.type << " " << s.enable;
    }
    EXPECT_TRUE(h.logged("set layer EL from 1 to 0"));
}

std::string read_file(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

TEST(SplitterLayers, SwitchedOffLayerIsStillDumped) {
    const std::string dir = ::testing::TempDir();
    const std::string in_path = dir + "/split_dump_in.bin";
    const std::string el_path = dir + "/split_dump_el.bin";
    splittest::clear_splitter_env();
    Bytes stream =
        cat({sc4({0x09, 0xF0}), sc4({0x7E, 0x01, 0x41, 0x01}), sc4({0x7C, 0x01, 0x19, 0x55})});
    {
        splittest::Recorder rec;
        setenv("EDR_DUMP_IN", in_path.c_str(), 1);
        setenv("EDR_DUMP_EL", el_path.c_str(), 1);
        const int saved_level = edr_debug_level;
        void* s = ves_split_init(VES_AVC, &splittest::Recorder::output, &rec, 0);
        splittest::clear_splitter_env();
        ASSERT_NE(s, nullptr);
        edr_debug_file = nullptr;
        ves_split_enable_layer(s, VES_EL, 0);
        Bytes copy = stream;
        EXPECT_EQ(ves_split_push(s, copy.data(), static_cast<int>(copy.size()), 7), 0);
        EXPECT_EQ(ves_split_push(s, nullptr, 0, 7), 0);
        EXPECT_EQ(static_cast<ves_splitter*>(s)->dump_pos[VES_EL], 6u);
        EXPECT_EQ(ves_split_free(s), 0);
        edr_debug_level = saved_level;
        // The callback saw the metadata and the base layer, never the EL.
        ASSERT_EQ(rec.got.size(), 2u);
        EXPECT_EQ(rec.got[0].type, VES_MD);
        EXPECT_EQ(rec.got[1].type, VES_BL);
    }
    const Bytes el = sc4({0x41, 0x01});
    const Bytes original =
        cat({sc4({0x09, 0xF0}), sc4({0x7E, 0x01, 0x41, 0x01}), sc4({0x7C, 0x01, 0x19, 0x55})});
    EXPECT_EQ(read_file(in_path), std::string(original.begin(), original.end()));  // as pushed
    EXPECT_EQ(read_file(el_path), std::string(el.begin(), el.end()));
    std::remove(in_path.c_str());
    std::remove(el_path.c_str());
}

TEST(SplitterLifecycle, DebugSettingsFromTheEnvironment) {
    splittest::clear_splitter_env();
    const int saved_level = edr_debug_level;
    const std::string path = ::testing::TempDir() + "/split_debug.txt";
    splittest::Recorder rec;
    // Unset: level-0 lines go to standard output.
    void* s = ves_split_init(VES_HEVC, &splittest::Recorder::output, &rec, 0);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(edr_debug_file, stdout);
    EXPECT_EQ(static_cast<ves_splitter*>(s)->codec_type, VES_HEVC);
    EXPECT_EQ(ves_split_free(s), 0);
    EXPECT_EQ(edr_debug_file, stdout);

    setenv("EDR_DEBUG_LEVEL", "1", 1);
    setenv("EDR_DEBUG_FILE", path.c_str(), 1);
    s = ves_split_init(7, &splittest::Recorder::output, &rec, 0);  // unknown codec: AVC
    splittest::clear_splitter_env();
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(static_cast<ves_splitter*>(s)->codec_type, VES_AVC);
    EXPECT_EQ(edr_debug_level, 1);
    ves_split_flush(s);
    EXPECT_EQ(ves_split_free(s), 0);
    EXPECT_EQ(edr_debug_file, nullptr);  // closed by free
    EXPECT_NE(read_file(path).find("ves_split_flush:"), std::string::npos);
    EXPECT_NE(read_file(path).find(" flushed\n"), std::string::npos);
    std::remove(path.c_str());
    edr_debug_level = saved_level;
    EXPECT_EQ(ves_split_free(nullptr), 0);
}

}  // namespace
