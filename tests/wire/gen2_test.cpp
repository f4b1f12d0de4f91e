// Gen2 parameters and inventory modes against the scripted reader.
#include "command_rows.h"

using namespace uhftest;

namespace {

constexpr uint8_t kUntouched = 0xEE;

using Gen2Commands = CommandTest;

// Fields in UHFSetGen2 order: Target Action T Q StartQ MinQ MaxQ D C P Sel Session G LF.
using Fields = std::array<uint8_t, 14>;

auto set_gen2(Fields f) {
    return [=] {
        return Outcome{
            UHFSetGen2(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9], f[10], f[11], f[12], f[13]), {}};
    };
}

Outcome get_gen2() {
    Fields f;
    f.fill(kUntouched);
    int r = UHFGetGen2(&f[0], &f[1], &f[2], &f[3], &f[4], &f[5], &f[6], &f[7], &f[8], &f[9], &f[10], &f[11], &f[12],
                       &f[13]);
    return {r, std::vector<unsigned>(f.begin(), f.end())};
}

std::vector<unsigned> values(Fields f) { return std::vector<unsigned>(f.begin(), f.end()); }

// A byte read into a single output by fn.
template <typename Fn>
Outcome get_byte(Fn fn) {
    uint8_t v = kUntouched;
    int r = fn(&v);
    return {r, {v}};
}

Outcome get_work_mode_para() {
    uint8_t p[7];
    memset(p, kUntouched, sizeof p);
    int r = UHFGetWorkModePara(p);
    return {r, std::vector<unsigned>(p, p + 7)};
}

const std::vector<unsigned> kSevenUntouched(7, kUntouched);
const std::vector<unsigned> kFiveUntouched(5, kUntouched);

}  // namespace

TEST_F(Gen2Commands, Gen2BlockPacking) {
    struct Case {
        const char* name;
        Fields fields;
        Bytes block;
    } cases[] = {
        {"Target", {7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {0xE0, 0x00, 0x00, 0x00}},
        {"StartQ", {0, 0, 0, 0, 15, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {0x00, 0xF0, 0x00, 0x00}},
        {"MaxQ", {0, 0, 0, 0, 0, 0, 15, 0, 0, 0, 0, 0, 0, 0}, {0x00, 0x00, 0xF0, 0x00}},
        {"C", {0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0}, {0x00, 0x00, 0x06, 0x00}},
        {"Session", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0}, {0x00, 0x00, 0x00, 0x30}},
        {"LF", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}, {0x00, 0x00, 0x00, 0x07}},
        {"low fields over range are masked", {0, 0, 2, 3, 0, 0x1F, 0, 2, 5, 2, 0, 5, 2, 9}, {0x01, 0x0F, 0x02, 0x11}},
        {"top fields over range lose their high bits",
         {0x0A, 0, 0, 0, 0x13, 0, 0x1F, 0, 0, 0, 5, 0, 0, 0},
         {0x40, 0x30, 0xF0, 0x40}},
    };
    std::vector<StepRow> rows;
    for (const Case& c : cases)
        rows.push_back({c.name, set_gen2(c.fields), {{0x20, c.block, answer(0x20, {0x01})}}, {0, {}}});
    check_steps(rows);
}

TEST_F(Gen2Commands, GetGen2) {
    const std::vector<unsigned> untouched(14, kUntouched);
    // clang-format off
    check_steps({
        {"all ones", get_gen2, {{0x22, {}, answer(0x22, {0xFF, 0xFF, 0xFF, 0xFF, 0x00})}},
         {0, values({7, 7, 1, 1, 15, 15, 15, 1, 3, 1, 3, 3, 1, 7})}},
    });
    // clang-format on
}

TEST_F(Gen2Commands, FilterEncoding) {
    std::vector<uint8_t> mask(95);
    for (size_t i = 0; i < mask.size(); i++) mask[i] = uint8_t(0x80 + i);
    auto filter = [&](uint8_t flag, uint8_t bank, uint16_t addr, uint16_t len) {
        return [=]() mutable { return Outcome{UHFSetFilter(flag, bank, addr, len, mask.data()), {}}; };
    };
    auto mask_bytes = [&](size_t n) { return Bytes(mask.begin(), mask.begin() + long(n)); };
    // clang-format off
    check_steps({
        {"EPC bank skips CRC and PC", filter(0, 1, 2, 4),
         {{0x6E, Bytes{0x00, 0x01, 0x00, 0x30, 0x00, 0x20} + mask_bytes(4), answer(0x6E, {0x01})}}, {0, {}}},
        {"other banks do not", filter(0, 3, 2, 4),
         {{0x6E, Bytes{0x00, 0x03, 0x00, 0x10, 0x00, 0x20} + mask_bytes(4), answer(0x6E, {0x01})}}, {0, {}}},
        {"EPC bank at 30 loses the carry", filter(0, 1, 30, 1),
         {{0x6E, Bytes{0x00, 0x01, 0x00, 0x10, 0x00, 0x08} + mask_bytes(1), answer(0x6E, {0x01})}}, {0, {}}},
        {"EPC bank at 32 keeps its own high byte", filter(0, 1, 32, 2),
         {{0x6E, Bytes{0x00, 0x01, 0x01, 0x20, 0x00, 0x10} + mask_bytes(2), answer(0x6E, {0x01})}}, {0, {}}},
        {"TID bank, high address", filter(0, 2, 0x120, 1),
         {{0x6E, Bytes{0x00, 0x02, 0x09, 0x00, 0x00, 0x08} + mask_bytes(1), answer(0x6E, {0x01})}}, {0, {}}},
        {"flag is not sent", filter(1, 3, 0, 1),
         {{0x6E, Bytes{0x00, 0x03, 0x00, 0x00, 0x00, 0x08} + mask_bytes(1), answer(0x6E, {0x01})}}, {0, {}}},
        {"no mask", filter(0, 1, 0, 0), {{0x6E, {0x00, 0x01, 0x00, 0x20, 0x00, 0x00}, answer(0x6E, {0x01})}}, {0, {}}},
        {"94 mask bytes fit", filter(0, 3, 0, 94),
         {{0x6E, Bytes{0x00, 0x03, 0x00, 0x00, 0x02, 0xF0} + mask_bytes(94), answer(0x6E, {0x01})}}, {0, {}}},
    });
    // clang-format on
}

TEST_F(Gen2Commands, DualSingleAndWorkMode) {
    // clang-format off
    check_steps({
        {"parameters get, 8 bytes", get_work_mode_para, {{0xA1, {0x0C}, answer(0xA1, {0x0C, 9, 8, 7, 6, 5, 4, 3})}},
         {-1, kSevenUntouched}},
    });
    // clang-format on
}

TEST_F(Gen2Commands, WorkTimeAndProtocolType) {
    // clang-format off
    check_steps({
        {"protocol type: status first", [] { return Outcome{UHFSetProtocolType(2), {}}; },
         {{0x06, {0x00, 0x02}, answer(0x06, {0x01, 0x01})}}, {-1, {}}},
        {"protocol type: 3-byte reply", [] { return Outcome{UHFSetProtocolType(2), {}}; },
         {{0x06, {0x00, 0x02}, answer(0x06, {0x00, 0x01, 0x00})}}, {-1, {}}},
        {"protocol type get, 3-byte reply", [] { return get_byte(UHFGetProtocolType); },
         {{0x06, {0x01}, answer(0x06, {0x01, 0x05, 0x00})}}, {-1, {kUntouched}}},
    });
    // clang-format on
}
