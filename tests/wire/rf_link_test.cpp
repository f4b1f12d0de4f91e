// Frequency hopping, RF link, CW, generic parameters and the amplifier status.
#include <thread>

#include "command_rows.h"

using namespace uhftest;

namespace {

constexpr uint8_t kUntouched = 0xEE;
constexpr unsigned kNoFreq = 0xEEEEEEEE;

using RfLinkCommands = CommandTest;

// The Gen2 blocks sent after an RF link preset.
const Bytes kMode3Gen2 = {0x01, 0x00, 0x0D, 0x53, 0x00, 0x00, 0x00, 0x00};
const Bytes kMode012Gen2 = {0x01, 0x40, 0xFD, 0x53, 0x00, 0x00, 0x00, 0x00};

auto set_jump(std::vector<unsigned> freqs, unsigned nums) {
    return [=]() mutable { return Outcome{UHFSetJumpFrequency(static_cast<unsigned char>(nums), freqs.data()), {}}; };
}

// Count, the first three frequencies, entry 255 and the one past it.
Outcome get_jump() {
    std::vector<unsigned> buf(258, kNoFreq);
    int r = UHFGetJumpFrequency(buf.data());
    return {r, {buf[0], buf[1], buf[2], buf[3], buf[255], buf[256]}};
}

Outcome get_rf_link_preset() {
    uint8_t m = kUntouched;
    int r = UHF_Get_RFLink(&m);
    return {r, {m}};
}

}  // namespace

TEST_F(RfLinkCommands, SetJumpFrequency) {
    std::vector<unsigned> many(85);
    Bytes wire84 = {84};
    for (unsigned i = 0; i < 85; i++) {
        many[i] = 902000 + 500 * i;
        if (i < 84) wire84 = wire84 + Bytes{uint8_t(many[i] >> 16), uint8_t(many[i] >> 8), uint8_t(many[i])};
    }
    // clang-format off
    check_steps({
        {"two frequencies", set_jump({902750, 915250}, 2),
         {{0x14, {0x02, 0x0D, 0xC6, 0x5E, 0x0D, 0xF7, 0x32}, answer(0x14, {0x01})}}, {0, {}}},
        {"bits above 23 dropped", set_jump({0xFFABCDEF}, 1), {{0x14, {0x01, 0xAB, 0xCD, 0xEF}, answer(0x14, {0x01})}}, {0, {}}},
        {"84 frequencies fit", set_jump(many, 84), {{0x14, wire84, answer(0x14, {0x01})}}, {0, {}}},
    });
    // clang-format on
}

TEST_F(RfLinkCommands, GetJumpFrequency) {
    Bytes full = {255};
    for (unsigned k = 0; k < 255; k++) full = full + Bytes{0x0D, uint8_t(k >> 8), uint8_t(k)};
    const unsigned last = 0x0D0000 + 254;
    // clang-format off
    check_steps({
        {"two frequencies", get_jump, {{0x16, {}, answer(0x16, {0x02, 0x0D, 0xC6, 0x5E, 0x0D, 0xF7, 0x32})}},
         {0, {2, 902750, 915250, kNoFreq, kNoFreq, kNoFreq}}},
        {"no status byte: a count of 1", get_jump, {{0x16, {}, answer(0x16, {0x01, 0xFF, 0xFF, 0xFF})}},
         {0, {1, 0xFFFFFF, kNoFreq, kNoFreq, kNoFreq, kNoFreq}}},
        {"255 frequencies fill 256 entries", get_jump, {{0x16, {}, answer(0x16, full)}},
         {0, {255, 0x0D0000, 0x0D0001, 0x0D0002, last, kNoFreq}}},
        {"truncated list", get_jump, {{0x16, {}, answer(0x16, {0x02, 0x0D, 0xC6, 0x5E, 0x0D, 0xF7})}},
         {-1, {kNoFreq, kNoFreq, kNoFreq, kNoFreq, kNoFreq, kNoFreq}}},
    });
    // clang-format on
}

TEST_F(RfLinkCommands, RfLinkPresets) {
    auto set = [](uint8_t mode) { return [=] { return Outcome{UHF_Set_RFLink(mode), {}}; }; };
    // clang-format off
    check_steps({
        {"mode 3 then its Gen2 block", set(3),
         {{0x52, {0x00, 0x01, 0x03}, answer(0x52, {0x01})}, {0x20, kMode3Gen2, answer(0x20, {0x01})}}, {0, {}}},
        {"mode 0", set(0), {{0x52, {0x00, 0x01, 0x00}, answer(0x52, {0x01})}, {0x20, kMode012Gen2, answer(0x20, {0x01})}}, {0, {}}},
        {"mode 2", set(2), {{0x52, {0x00, 0x01, 0x02}, answer(0x52, {0x01})}, {0x20, kMode012Gen2, answer(0x20, {0x01})}}, {0, {}}},
        {"Gen2 block refused still succeeds", set(1),
         {{0x52, {0x00, 0x01, 0x01}, answer(0x52, {0x01})}, {0x20, kMode012Gen2, answer(0x20, {0x00})}}, {0, {}}},
        {"get mode 1: one exchange", get_rf_link_preset, {{0x54, {0x00, 0x00}, answer(0x54, {0x01, 0x00, 0x01})}}, {0, {1}}},
        {"get mode 3 re-applies its Gen2 block", get_rf_link_preset,
         {{0x54, {0x00, 0x00}, answer(0x54, {0x01, 0x00, 0x03})}, {0x20, kMode3Gen2, answer(0x20, {0x00})}}, {0, {3}}},
    });
    // clang-format on
}

// The amplifier status travels in the escaped AA..55 frame, not the command frame.
class PaStatus : public WireTest {
protected:
    void TearDown() override {
        UHF_FlafCrcOff();
        WireTest::TearDown();
    }
};

TEST_F(PaStatus, RequestAndReplyInBothCrcModes) {
    struct Case {
        const char* name;
        bool crc;
        Bytes reply;
        int result;
    } cases[] = {
        {"plain, status 0", false, {0xAA, 0x03, 0x00, 0x00, 0x55}, 0},
        {"plain, CRC-mode command in the reply", false, {0xAA, 0x03, 0x80, 0x00, 0x55}, -1},
        {"CRC, status 0", true, {0xAA, 0x05, 0x80, 0x00, 0xC3, 0x0B, 0x55}, 0},
        {"CRC, escaped status byte after the code", true, {0xAA, 0x05, 0x80, 0xFF, 0xFF, 0x12, 0x34, 0x55}, -1},
        {"CRC, plain command in the reply", true, {0xAA, 0x03, 0x00, 0x00, 0x55}, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.crc)
            UHF_FlagCrcOn();
        else
            UHF_FlafCrcOff();
        size_t before = reader.requests().size();
        reader.reply(c.reply);
        EXPECT_EQ(RmuGetPaStatus(), c.result);
        auto reqs = reader.requests();
        ASSERT_EQ(reqs.size(), before + 1);
        Bytes want = c.crc ? Bytes{0xAA, 0x04, 0x80, 0xBF, 0xBC, 0x55} : Bytes{0xAA, 0x02, 0x00, 0x55};
        EXPECT_EQ(reqs.back(), want);
    }
}
