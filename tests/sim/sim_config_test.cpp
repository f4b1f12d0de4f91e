// The virtual reader's settings: replies, what is kept across a power cycle,
// and what they change in reports.
#include <gtest/gtest.h>

#include "engine/tag_field.h"
#include "sim_test_util.h"

using namespace simtest;
using namespace std::chrono_literals;
using uhfsim::TagField;

namespace {

// A: EPC E200 0001..., TID 6 words, USER 2 words, 23.75 degC sensor, -50.0 dBm on antenna 1
// B: EPC E200 0002..., no TID, USER or sensor, -60.0 dBm on antenna 1
TagField field_ab() {
    return *TagField::from_json(R"({"tags":[
    {"epc":"E200 0001 0000 0000 0000 00A1","tid":"E280 1160 0000 0001 0000 00A1","user":"1234 5678",
     "rssi":{"1":-50.0},"sensor":{"temperature":23.75}},
    {"epc":"E200 0002 0000 0000 0000 00B2","rssi":{"1":-60.0}}]})");
}

Bytes freq(uint32_t khz) { return {uint8_t(khz >> 16), uint8_t(khz >> 8), uint8_t(khz)}; }

// The default FCC table: 50 channels from 902.75 MHz, 500 kHz apart.
Bytes fcc_table() {
    Bytes t = {50};
    for (uint32_t k = 0; k < 50; ++k) t = t + freq(902750 + 500 * k);
    return t;
}

const Bytes kPowerDefaults = {0x01, 0x01, 0x0B, 0xB8, 0x0B, 0xB8, 0x02, 0x0B, 0xB8, 0x0B, 0xB8,
                              0x03, 0x0B, 0xB8, 0x0B, 0xB8, 0x04, 0x0B, 0xB8, 0x0B, 0xB8};

}  // namespace

TEST(SimConfig, DefaultsSetThenGetAndWhatAPowerCycleKeeps) {
    struct Row {
        const char* what;
        Bytes lost, kept;  // a set a power cycle forgets, and one it keeps (empty: none)
        Bytes get, defaults, after_set;
    };
    Bytes power_after = kPowerDefaults;
    power_after[7] = 0x09, power_after[8] = 0xC4, power_after[9] = 0x07, power_after[10] = 0xD0;
    const Bytes power = {0x02, 0x09, 0xC4, 0x07, 0xD0};  // antenna 2: 25 dBm read, 20 dBm write
    // clang-format off
    const Row rows[] = {
        {"power", frame(0x10, Bytes{0x00} + power), frame(0x10, Bytes{0x02} + power), frame(0x12), kPowerDefaults, power_after},
        {"antennas", frame(0x28, {0x00, 0x00, 0x05}), frame(0x28, {0x01, 0x00, 0x05}), frame(0x2A), {0x00, 0x01}, {0x00, 0x05}},
        {"antenna work time, saved in the high nibble", frame(0x4A, {0x02, 0x01, 0xF4}), frame(0x4A, {0x12, 0x01, 0xF4}),
         frame(0x4C, {0x02, 0x00}), {0x01, 0x02, 0x00, 0xC8}, {0x01, 0x02, 0x01, 0xF4}},
        {"region", frame(0x2C, {0x00, 0x03}), frame(0x2C, {0x01, 0x03}), frame(0x2E), {0x01, 0x01}, {0x01, 0x03}},
        {"hopping table (no save byte)", {}, frame(0x14, Bytes{1} + freq(915250)), frame(0x16), fcc_table(), Bytes{1} + freq(915250)},
        {"RF link", frame(0x52, {0x00, 0x00, 0x02}), frame(0x52, {0x00, 0x01, 0x02}), frame(0x54, {0x00, 0x00}), {0x01, 0x00, 0x01}, {0x01, 0x00, 0x02}},
        {"CW is never kept", frame(0x24, {0x01}), {}, frame(0x26), {0x00}, {0x01}},
        {"parameter (never set reads as refused)", {}, frame(0x18, {0x07, 0xA, 0xB, 0xC, 0xD, 1, 2, 3, 4}),
         frame(0x1A, {0x07, 0xA, 0xB, 0xC, 0xD}), {0x00}, {0x01, 0xA, 0xB, 0xC, 0xD, 1, 2, 3, 4}},
        {"Gen2 block", {}, frame(0x20, {0xA5, 0x52, 0xFC, 0x96}), frame(0x22), {0x01, 0x40, 0xFD, 0x53}, {0xA5, 0x52, 0xFC, 0x96}},
        {"FastID", {}, frame(0x5C, {0x01, 0x00}), frame(0x5E, {0x00, 0x00}), {0x01, 0x00}, {0x01, 0x01}},
        {"TagFocus", {}, frame(0x60, {0x01, 0x00}), frame(0x62, {0x00, 0x00}), {0x01, 0x00}, {0x01, 0x01}},
        {"report mode", frame(0x70, {0x00, 0x02, 0x04, 0x02}), frame(0x70, {0x01, 0x02, 0x04, 0x02}), frame(0x72, {0x00, 0x00}),
         {0x01, 0x00, 0x00, 0x00}, {0x01, 0x02, 0x04, 0x02}},
        {"dual/single", frame(0x6A, {0x00, 0x01}), frame(0x6A, {0x01, 0x01}), frame(0x6C), {0x01, 0x00}, {0x01, 0x01}},
        {"work mode", {}, frame(0xA1, {0x05, 0x01}), frame(0xA1, {0x06}), {0x06, 0x00}, {0x06, 0x01}},
        {"work mode parameters", {}, frame(0xA1, {0x0B, 6, 5, 4, 3, 2, 1}), frame(0xA1, {0x0C}), {0x0C, 0, 0, 0, 0, 0, 0}, {0x0C, 6, 5, 4, 3, 2, 1}},
        {"work time", frame(0x3C, {0x00, 9, 8, 7, 6}), frame(0x3C, {0x01, 9, 8, 7, 6}), frame(0x3E), {0x01, 0, 0, 0, 0}, {0x01, 9, 8, 7, 6}},
        {"protocol type", {}, frame(0x06, {0x00, 0x02}), frame(0x06, {0x01}), {0x01, 0x00}, {0x01, 0x02}},
    };
    // clang-format on
    auto data_of = [](const std::vector<Reply>& r) { return r.size() == 1 ? r[0].data : Bytes{0xBA, 0xD0}; };
    for (const auto& r : rows) {
        for (bool kept : {false, true}) {
            const Bytes& set = kept ? r.kept : r.lost;
            if (set.empty()) continue;
            Bench b;
            EXPECT_EQ(data_of(last_replies(b, {r.get})), r.defaults) << r.what;
            EXPECT_NE(data_of(last_replies(b, {set})), Bytes{0x00}) << r.what << ": set refused";
            EXPECT_EQ(data_of(last_replies(b, {r.get})), r.after_set) << r.what;
            b.reader.power_cycle();
            EXPECT_EQ(data_of(last_replies(b, {r.get})), kept ? r.after_set : r.defaults) << r.what << " kept=" << kept;
        }
    }
}

TEST(SimConfig, RegionLimitsTheHoppingTable) {
    Bench b(field_ab(), quiet(100));
    // ETSI: the FCC channels do not fit, so the table becomes ETSI's own four.
    b.send(frame(0x2C, {0x00, 0x02}));
    b.send(frame(0x16));
    b.send(frame(0x14, Bytes{1} + freq(915250)));  // an FCC channel is now refused
    b.send(frame(0x14, Bytes{2} + freq(866300) + freq(867500)));
    b.send(frame(0x2C, {0x00, 0x09}));  // a custom region keeps what is inside its band
    b.send(frame(0x16));
    EXPECT_EQ(b.take(), (std::vector<Reply>{
                            {0x2D, {0x01}},
                            {0x17, Bytes{4} + freq(865700) + freq(866300) + freq(866900) + freq(867500)},
                            {0x15, {0x00}},
                            {0x15, {0x01}},
                            {0x2D, {0x01}},
                            {0x17, Bytes{2} + freq(866300) + freq(867500)},
                        }));
}

// What the module cannot do is refused, and the setting stays as it was.
TEST(SimConfig, RefusesWhatTheModuleCannotDo) {
    Bench b;
    const Bytes refused[] = {
        frame(0x28, {0x00, 0x01, 0x00}),                    // antenna 9 of 4
        frame(0x28, {0x00, 0x00, 0x00}),                    // no antenna at all
        frame(0x10, {0x00, 0x01, 0x0D, 0xAC, 0x0B, 0xB8}),  // 35 dBm
        frame(0x2C, {0x00, 0x00}),                          // region 0
    };
    for (const Bytes& set : refused) {
        auto r = last_replies(b, {set});
        ASSERT_EQ(r.size(), 1u);
        EXPECT_EQ(r[0].data, Bytes{0x00}) << testing::PrintToString(set);
    }
    EXPECT_EQ(last_replies(b, {frame(0x2A)})[0].data, (Bytes{0x00, 0x01}));
}
