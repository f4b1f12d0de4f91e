// QT memory-view commands against the scripted reader: the filter family
// (0x97/0x99/0x9B/0x9D) and the UII family, with its single-tag step.
#include <cstring>

#include "tag_wire.h"

using namespace uhftest;
using namespace tagtest;

namespace {

// The filter that singles the sample tag out by its UII: EPC bank from bit
// 16, 14 bytes = 0x70 bits.
const Bytes kUiiFilter = Bytes{0x01, 0x00, 0x10, 0x00, 0x70} + kUii;
// A single-inventory reply for the sample tag: UII, RSSI, antenna.
const Bytes kFound = kUii + Bytes{0xFD, 0x8A, 0x01};

// The single-tag step that the Single and QT-parameter calls start with.
const Step kInventory = {0x80, {0x00, 0x64}, frame(0x81, kFound)};

// Outputs flattened for Outcome.
std::vector<unsigned> flat(std::initializer_list<Bytes> parts) {
    std::vector<unsigned> out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

class Qt : public TagWire {
protected:
    uint8_t data[4] = {0xD1, 0xD2, 0xD3, 0xD4};
    uint8_t uii[64];
    uint8_t out[600];
};

}  // namespace

TEST_F(Qt, FilterFamilyRequestBytes) {
    uint8_t qt = 0, n = 0;
    for (const FilterCase& f : kFilters) {
        SCOPED_TRACE(f.bits);
        const Bytes head = kPwdBytes + f.block;
        // clang-format off
        expect_requests({
            {"set", 0x97, {0x01}, [&] { return UHFSetQT(pwd, 1, 0x20, f.bits, mask, 0x40); }, head + Bytes{0x40}},
            {"get", 0x99, {0x01, 0x40}, [&] { return UHFGetQT(pwd, 1, 0x20, f.bits, mask, &qt); }, head},
            {"read", 0x9B, {0x01, 0x00, 0x00, 0x00},
             [&] { return UHFReadQT(pwd, 1, 0x20, f.bits, mask, 0x40, 2, 0x0102, 6, out, &n); },
             head + Bytes{0x40, 0x02, 0x01, 0x02, 0x00, 0x06}},
            {"write", 0x9D, {0x01, 0x00},
             [&] { return UHFWriteQT(pwd, 1, 0x20, f.bits, mask, 0x00, 3, 0x0004, 2, data); },
             head + Bytes{0x00, 0x03, 0x00, 0x04, 0x00, 0x02, 0xD1, 0xD2, 0xD3, 0xD4}},
            {"read, caller's filter", 0x9B, {0x01, 0x00, 0x00, 0x00},
             [&] { return UHF_ReadQTData_Ex(pwd, 1, 0x20, int(f.bits), mask, 2, 0x0102, 6, out); },
             head + Bytes{0x00, 0x02, 0x01, 0x02, 0x00, 0x06}},
            {"write, caller's filter", 0x9D, {0x01},
             [&] { return UHF_WriteQTData_Ex(pwd, 1, 0x20, int(f.bits), mask, 3, 0x0104, 2, data); },
             head + Bytes{0x00, 0x03, 0x01, 0x04, 0x00, 0x02, 0xD1, 0xD2, 0xD3, 0xD4}},
        });
        // clang-format on
    }
}

TEST_F(Qt, GetQtAndReadQtOutputs) {
    uint8_t qt = 0;
    EXPECT_EQ(run(0x9A, Bytes{0x01, 0x42}, [&] { return UHFGetQT(pwd, 1, 0, 0, mask, &qt); }), 0);
    EXPECT_EQ(qt, 0x42);

    Bytes words(400);
    for (size_t i = 0; i < words.size(); i++) words[i] = uint8_t(i);
    struct Case {
        const char* name;
        Bytes reply;
        int result;
        uint8_t len;  // *uReadDataLen, also the bytes written
    } cases[] = {
        {"two words", Bytes{0x01, 0x00, 0x00, 0x02} + Bytes(words.begin(), words.begin() + 4), 0, 4},
        {"count beyond the reply", Bytes{0x01, 0x00, 0x00, 0x03, 1, 2, 3, 4}, -1, 0xAA},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        uint8_t n = 0xAA;
        memset(out, 0xEE, sizeof out);
        EXPECT_EQ(run(0x9C, c.reply, [&] { return UHFReadQT(pwd, 1, 0, 0, mask, 0, 3, 0, 200, out, &n); }), c.result);
        EXPECT_EQ(n, c.len);
        size_t written = c.result == 0 ? c.len : 0;
        EXPECT_EQ(Bytes(out, out + written), Bytes(words.begin(), words.begin() + long(written)));
        EXPECT_EQ(out[written], 0xEE);
    }
}

TEST_F(Qt, UiiFamilyRequestBytes) {
    memcpy(uii, kUii.data(), kUii.size());
    // Address and count go out as 00 and their low byte.
    const Bytes target = {0x00, 0x03, 0x00, 0x02, 0x00, 0x02};
    EXPECT_EQ(run(0x85, Bytes{0x01, 0x00, 0x00, 0x00}, [&] { return UHF_ReadQTData(pwd, 3, 0x0102, 2, uii, out); }), 0);
    EXPECT_EQ(sent_cmd, 0x84);  // the plain read code
    EXPECT_EQ(sent_data, kPwdBytes + kUiiFilter + target);

    EXPECT_EQ(run(0x87, Bytes{0x01}, [&] { return UHF_WriteQTData(pwd, 3, 0x0102, 2, uii, data); }), 0);
    EXPECT_EQ(sent_cmd, 0x86);  // the plain write code
    EXPECT_EQ(sent_data, (kPwdBytes + kUiiFilter + target + Bytes{0xD1, 0xD2, 0xD3, 0xD4}));
}

TEST_F(Qt, SingleCallsInventoryThenAddressTheTagFound) {
    // Outputs: *uLenUii, the UII written (and the byte after it), the words read.
    auto read_single = [&] {
        uint8_t n = 0xAA, found[15] = {}, words[2] = {};
        int r = UHF_ReadQTDataSingle(pwd, 3, 0x0104, 1, words, found, &n);
        return Outcome{r, flat({{n}, Bytes(found, found + 15), Bytes(words, words + 2)})};
    };
    auto write_single = [&] {
        uint8_t n = 0xAA, found[15] = {};
        int r = UHF_WriteQTDataSingle(pwd, 3, 0, 2, data, found, &n);
        return Outcome{r, flat({{n}, Bytes(found, found + 15)})};
    };
    const Bytes read_req = kPwdBytes + kUiiFilter + Bytes{0x00, 0x03, 0x00, 0x04, 0x00, 0x01};
    const Bytes write_req = kPwdBytes + kUiiFilter + Bytes{0x00, 0x03, 0x00, 0x00, 0x00, 0x02, 0xD1, 0xD2, 0xD3, 0xD4};
    // clang-format off
    check_steps({
        {"read: 0x9B to the tag found", read_single,
         {kInventory, {0x9B, read_req, answer(0x9B, {0x01, 0x00, 0x00, 0x01, 0xAB, 0xCD})}},
         {0, flat({{14}, kUii, {0}, {0xAB, 0xCD}})}},
        {"read refused: the UII is still handed back", read_single,
         {kInventory, {0x9B, read_req, answer(0x9B, {0x00})}}, {-1, flat({{14}, kUii, {0}, {0, 0}})}},
        {"write: 0x9D, status byte alone", write_single, {kInventory, {0x9D, write_req, answer(0x9D, {0x01, 0x05})}},
         {0, flat({{14}, kUii, {0}})}},
    });
    // clang-format on
}

TEST_F(Qt, QtParaMapsInversely) {
    const Bytes no_pwd = {0, 0, 0, 0};
    auto set = [](uint8_t para) { return [para] { return Outcome{UHF_SetQTPara(para), {}}; }; };
    auto get = [] {
        uint8_t para = 0x55;
        int r = UHF_GetQTPara(&para);
        return Outcome{r, {para}};
    };
    auto get_step = [&](Bytes reply) { return Step{0x99, no_pwd + kUiiFilter, answer(0x99, reply)}; };
    // clang-format off
    check_steps({
        {"set 1 sends 00", set(1), {kInventory, {0x97, no_pwd + kUiiFilter + Bytes{0x00}, answer(0x97, {0x01})}},
         {0, {}}},
        {"set 0 sends 02", set(0), {kInventory, {0x97, no_pwd + kUiiFilter + Bytes{0x02}, answer(0x97, {0x01})}},
         {0, {}}},
        {"any non-zero is 1", set(0x80),
         {kInventory, {0x97, no_pwd + kUiiFilter + Bytes{0x00}, answer(0x97, {0x01})}}, {0, {}}},
        {"bit 1 clear reads 1", get, {kInventory, get_step({0x01, 0x00})}, {0, {1}}},
        {"bit 1 set reads 0", get, {kInventory, get_step({0x01, 0x02})}, {0, {0}}},
    });
    // clang-format on
}
