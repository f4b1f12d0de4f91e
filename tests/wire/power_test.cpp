// Output power, antennas and region against the scripted reader.
#include "command_rows.h"

using namespace uhftest;

namespace {

constexpr uint8_t kUntouched = 0xEE;

using PowerCommands = CommandTest;

// *nReturned, then the first 12 output bytes.
Outcome get_antenna_power() {
    uint8_t buf[16];
    memset(buf, kUntouched, sizeof buf);
    uint16_t n = 0xEEEE;
    int r = UHFGetAntennaPower(buf, &n);
    std::vector<unsigned> out = {n};
    out.insert(out.end(), buf, buf + 12);
    return {r, out};
}

// 5-byte records: antenna, read power, write power (0.01 dBm).
const Bytes kFourRecords = {0x01, 0x0B, 0xB8, 0x0B, 0xB8,   // 3000, 3000
                            0x02, 0x0A, 0x27, 0x03, 0xE9,   // 2599, 1001
                            0x03, 0x0B, 0xB9, 0x00, 0x63,   // 3001, 99
                            0x04, 0xFF, 0xFF, 0x00, 0x00};  // 65535: 655 cut to a byte
const std::vector<unsigned> kFourDecoded = {12, 1, 30, 30, 2, 25, 10, 3, 30, 0, 4, 655 & 0xFF, 0};
const std::vector<unsigned> kPowerUntouched = {0xEEEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE,
                                               0xEE,   0xEE, 0xEE, 0xEE, 0xEE, 0xEE};

}  // namespace

TEST_F(PowerCommands, SetPower) {
    auto set = [](uint8_t save, uint8_t p) { return [=] { return Outcome{UHFSetPower(save, p), {}}; }; };
    // clang-format off
    check_steps({
        {"any non-zero save is 0x02", set(9, 1), {{0x10, {0x02, 0x01, 0x00, 0x64, 0x00, 0x64}, answer(0x10, {0x01})}}, {0, {}}},
        {"0 dBm refused", set(1, 0), {}, {-1, {}}},
        {"31 dBm refused", set(1, 31), {}, {-1, {}}},
    });
    // clang-format on
}

TEST_F(PowerCommands, GetPower) { check_steps({}); }

TEST_F(PowerCommands, SetAntennaPower) {
    auto set = [](uint8_t save, uint8_t ant, uint16_t rd, uint16_t wr) {
        return [=] { return Outcome{UHFSetAntennaPower(save, ant, rd, wr), {}}; };
    };
    // clang-format off
    check_steps({
        {"save becomes 0x02, no range check", set(3, 200, 0xFFFF, 0), {{0x10, {0x02, 0xC8, 0xFF, 0xFF, 0x00, 0x00}, answer(0x10, {0x01})}}, {0, {}}},
    });
    // clang-format on
}

TEST_F(PowerCommands, GetAntennaPower) {
    std::vector<unsigned> one_record = {3, 1, 30, 30};
    one_record.insert(one_record.end(), 9, 0xEE);
    // clang-format off
    check_steps({
        {"four records", get_antenna_power, {{0x12, {}, answer(0x12, Bytes{0x01} + kFourRecords)}}, {0, kFourDecoded}},
        {"trailing partial record ignored", get_antenna_power,
         {{0x12, {}, answer(0x12, Bytes{0x01} + kFourRecords + Bytes{0x05, 0x0B, 0xB8})}}, {0, kFourDecoded}},
    });
    // clang-format on
}

TEST_F(PowerCommands, AntennaWorkTime) {
    auto set = [](uint8_t ant, uint8_t save, unsigned t) {
        return [=] { return Outcome{UHFSetANTWorkTime(ant, save, t), {}}; };
    };
    // clang-format off
    check_steps({
        {"flag and antenna share a byte", set(0x0F, 0x1F, 300), {{0x4A, {0xFF, 0x01, 0x2C}, answer(0x4A, {0x01})}}, {0, {}}},
    });
    // clang-format on
}
