// The three fetch calls unpack one queued report each, in their own layouts.
#include <gtest/gtest.h>

#include <vector>

#include "UHF.h"
#include "bytes_ops.h"

namespace {

using Bytes = std::vector<uint8_t>;

const Bytes kUii = {0x30, 0x00, 0xE2, 0x00, 0x00, 0x17, 0x22,
                    0x11, 0x01, 0x44, 0x55, 0x66, 0x77, 0x88};  // PC + 12-byte EPC
const Bytes kTid = {0xE2, 0x80, 0x11, 0x05, 0x20, 0x00, 0x71, 0x3A, 0x9B, 0x0C, 0x0D, 0x1E};
const Bytes kRssi = {0xFD, 0x7A};  // -646: -64.6 dBm

class Fetch : public ::testing::Test {
protected:
    void SetUp() override { flushTagBuf(); }
    void TearDown() override { flushTagBuf(); }
    void queue(const Bytes& report, INVENTORY_MODE mode = NORMAL_INVENTORY, int id = 0x0102) {
        ASSERT_EQ(addTagData(mode, report.data(), uint16_t(report.size()), id), report.size() + 3);
    }
    Bytes ex(int expect = 0) {
        uint8_t out[512];
        int n = -7;
        EXPECT_EQ(UHF_GetReceived_EX(&n, out), expect);
        return expect == 0 ? Bytes(out, out + n) : Bytes{};
    }
    Bytes tlv(int expect = 0) {
        uint8_t out[512];
        int n = -7;
        EXPECT_EQ(UHFGetTagData(&n, out), expect);
        if (expect == 0) {
            EXPECT_EQ(out[n], 0);  // terminator after the items
        }
        return expect == 0 ? Bytes(out, out + n) : Bytes{};
    }
};

}  // namespace

TEST_F(Fetch, ReceivedExLayouts) {
    // clang-format off
    struct Case {
        const char* name;
        Bytes report;
        Bytes expected;
        INVENTORY_MODE mode = NORMAL_INVENTORY;
    } cases[] = {
        {"antenna, no data", kUii + kRssi + Bytes{2}, Bytes{14} + kUii + Bytes{0} + kRssi + Bytes{2}},
        {"no antenna: defaults to 1", kUii + kRssi, Bytes{14} + kUii + Bytes{0} + kRssi + Bytes{1}},
        {"TID data", kUii + kTid + kRssi + Bytes{3}, Bytes{14} + kUii + Bytes{12} + kTid + kRssi + Bytes{3}},
        {"short EPC", Bytes{0x08, 0x00, 0xAB, 0xCD} + kRssi + Bytes{4}, Bytes{4, 0x08, 0x00, 0xAB, 0xCD, 0} + kRssi + Bytes{4}},
        {"sensor value is data", kUii + Bytes{0x01, 0x9A} + kRssi + Bytes{1}, Bytes{14} + kUii + Bytes{2, 0x01, 0x9A} + kRssi + Bytes{1}, SENSOR_INVENTORY},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        queue(c.report, c.mode);
        EXPECT_EQ(ex(), c.expected);
    }
    EXPECT_EQ(ex(-1), Bytes{});  // empty queue
}

TEST_F(Fetch, TagDataItems) {
    // clang-format off
    struct Case {
        const char* name;
        Bytes report;
        INVENTORY_MODE mode;
        Bytes expected;
    } cases[] = {
        {"antenna", kUii + kRssi + Bytes{2}, NORMAL_INVENTORY, Bytes{0x01, 2, 0x01, 0x02, 0x06, 14} + kUii + Bytes{0x04, 2} + kRssi + Bytes{0x05, 1, 2}},
        {"no antenna", kUii + kRssi, NORMAL_INVENTORY, Bytes{0x01, 2, 0x01, 0x02, 0x06, 14} + kUii + Bytes{0x04, 2} + kRssi},
        // The data item stops one byte short of the RSSI.
        {"TID minus its last byte", kUii + kTid + kRssi + Bytes{2}, NORMAL_INVENTORY,
         Bytes{0x01, 2, 0x01, 0x02, 0x06, 14} + kUii + Bytes{0x07, 11} + Bytes(kTid.begin(), kTid.end() - 1) +
             Bytes{0x04, 2} + kRssi + Bytes{0x05, 1, 2}},
        {"sensor value", kUii + Bytes{0x01, 0x9A} + kRssi + Bytes{1}, SENSOR_INVENTORY,
         Bytes{0x01, 2, 0x01, 0x02, 0x06, 14} + kUii + Bytes{0x0B, 2, 0x01, 0x9A, 0x04, 2} + kRssi + Bytes{0x05, 1, 1}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        queue(c.report, c.mode);
        EXPECT_EQ(tlv(), c.expected);
    }
}

// The last 17 bytes of the report are copied even when the report is shorter:
// they then begin in the record's link id and mode bytes. Only a report too
// short for that (under 14 bytes) is refused.
TEST_F(Fetch, TempTagLayout) {
    const Bytes uii8 = {0x20, 0x00, 1, 2, 3, 4, 5, 6, 7, 8};                 // PC + 8-byte EPC
    const Bytes long_report = kUii + Bytes{0xAA, 0xBB} + kRssi + Bytes{2};   // 19 bytes
    const Bytes short_report = uii8 + Bytes{0xAA, 0xBB} + kRssi + Bytes{1};  // 15 bytes
    struct Case {
        Bytes report, uii, tail;
        int result;
    } cases[] = {
        {long_report, kUii, Bytes(long_report.end() - 17, long_report.end()), 0},
        {short_report, uii8, Bytes{0x02, NORMAL_INVENTORY} + short_report, 0},
        {Bytes(short_report.begin() + 2, short_report.end()), {}, {}, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.report.size());
        queue(c.report);
        uint8_t out[96];
        int n = 0;
        ASSERT_EQ(UHF_GetTempTagReceived(&n, out), c.result);
        if (c.result != 0) continue;
        EXPECT_EQ(n, int(c.report.size()) + 2);
        Bytes want = Bytes{uint8_t(c.uii.size())} + c.uii + Bytes{0} + c.tail;
        EXPECT_EQ(Bytes(out, out + want.size()), want);
    }
    int n = 0;
    uint8_t out[96];
    EXPECT_EQ(UHF_GetTempTagReceived(&n, out), -1);  // empty
}
