#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "engine/tag_field.h"

using uhfsim::Tag;
using uhfsim::TagField;
using Bytes = std::vector<uint8_t>;

TEST(SimTagField, Crc16MatchesGen2CheckValues) {
    struct Row {
        Bytes in;
        uint16_t crc;
    };
    const Row rows[] = {
        {{'1', '2', '3', '4', '5', '6', '7', '8', '9'}, 0xD64E},  // the standard check value
        {{}, 0x0000},                                             // init 0xFFFF, inverted
        {{0x30, 0x00}, 0xE765},
    };
    for (const auto& r : rows) EXPECT_EQ(uhfsim::gen2_crc16(r.in), r.crc) << r.in.size();
}

TEST(SimTagField, SetEpcKeepsPcLengthAndCrcConsistent) {
    struct Row {
        Bytes epc;
        uint16_t pc_flags;
        uint16_t pc;
    };
    const Row rows[] = {
        {{0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}, 0, 0x3000},
        {{0xAA, 0xBB}, 0, 0x0800},
        {{}, 0, 0x0000},
        // Length bits given by the caller are replaced; the other PC bits stay.
        {{0x11, 0x22, 0x33, 0x44}, 0xF8FF, 0x10FF},
    };
    for (const auto& r : rows) {
        Tag t;
        t.set_epc(r.epc, r.pc_flags);
        EXPECT_EQ(t.pc(), r.pc);
        EXPECT_EQ(t.epc(), r.epc);
        EXPECT_EQ(t.stored_crc(), uhfsim::gen2_crc16(t.uii()));  // over PC and EPC
    }
}

TEST(SimTagField, LoadsTheDocumentedExampleFileAndJsonDefaults) {
    std::string err;
    const auto field = TagField::load_file(UHFSIM_EXAMPLES "/tags.json", &err);
    ASSERT_TRUE(field) << err;
    ASSERT_EQ(field->size(), 4u);
    EXPECT_EQ(field->tags()[0].reserved,
              (std::vector<uint16_t>{0, 0, 0x1234, 0x5678}));  // kill password 0, access password
    EXPECT_FALSE(field->tags()[0].visible_on(3));
    EXPECT_EQ(field->tags()[3].sensor->centi_celsius, 2375);

    const auto f = TagField::from_json(R"({"tags":[{"epc":"3000"},
      {"epc":"1122 3344","kill_password":"DEADBEEF","killed":true,"sensor":{"temperature":-5.5,"code":513}},
      {"epc":"AABB","public_epc":"0102","qt_public":true}]})");
    ASSERT_TRUE(f);
    EXPECT_EQ(f->tags()[0].rssi[0], -600);  // default: antenna 1 at -60.0 dBm
    EXPECT_TRUE(f->tags()[0].tid.empty());
    EXPECT_FALSE(f->tags()[0].shows_public());
    const Tag& b = f->tags()[1];
    EXPECT_EQ(b.reserved[0], 0xDEAD);
    EXPECT_EQ(b.reserved[1], 0xBEEF);
    EXPECT_FALSE(b.visible_on(1)) << "a killed tag never answers";
    EXPECT_EQ(b.sensor->centi_celsius, -550);
    EXPECT_EQ(b.sensor->code, 513);
    EXPECT_EQ(f->tags()[2].uii(), (Bytes{0x08, 0x00, 0x01, 0x02})) << "the public view shows the public EPC";
}
