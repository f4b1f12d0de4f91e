// Single-shot inventory, batch fetch, inventory bank and crypto pass-through
// against the scripted reader.
#include <cstring>

#include "tag_wire.h"

using namespace uhftest;
using namespace tagtest;

namespace {

const Bytes kRssi = {0xFD, 0x8A};  // -62.2 dBm
const Bytes kTid = {0xE2, 0x80, 0x11, 0x60};

// PC+EPC, extra data, RSSI, antenna 2.
Bytes single_reply(const Bytes& extra) { return kUii + extra + kRssi + Bytes{0x02}; }

class SingleInventory : public TagWire {
protected:
    // Output area filled with a marker, so untouched and overrun bytes show.
    void clear_out() {
        memset(out, 0xEE, sizeof out);
        len = 0xAA;
    }
    Bytes written(size_t n) const { return Bytes(out, out + n); }
    bool untouched_from(size_t i) const {
        for (size_t k = i; k < sizeof out; k++)
            if (out[k] != 0xEE) return false;
        return true;
    }

    uint8_t out[600];
    uint8_t len = 0;
};

}  // namespace

TEST_F(SingleInventory, UiiForm) {
    struct Case {
        const char* name;
        Bytes reply;
        int result;
        Bytes uii;  // empty: output untouched
    } cases[] = {
        {"PC, EPC and extra data", single_reply(kTid), 0, kUii},
        {"PC claims 31 words, reply has fewer", Bytes{0xF8, 0x00} + Bytes(20, 0x11), -1, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        clear_out();
        EXPECT_EQ(run(0x81, c.reply, [&] { return UHFInventorySingle(&len, out); }), c.result);
        EXPECT_EQ(sent_cmd, 0x80);
        EXPECT_EQ(sent_data, (Bytes{0x00, 0x64}));
        EXPECT_EQ(written(c.uii.size()), c.uii);
        EXPECT_TRUE(untouched_from(c.uii.size()));
        EXPECT_EQ(len, c.result == 0 ? c.uii.size() : 0xAA);
    }
}

TEST_F(SingleInventory, EpcTidUserForm) {
    struct Case {
        const char* name;
        Bytes reply;
        int result;
        Bytes written;  // also *uLenUii = its size
    } cases[] = {
        {"with TID data", single_reply(kTid), 0, Bytes{14} + kUii + Bytes{4} + kTid + kRssi + Bytes{0x02}},
        {"no extra data", single_reply({}), 0, Bytes{14} + kUii + Bytes{0} + kRssi + Bytes{0x02}},
        {"no room for RSSI and antenna", kUii + Bytes{0xFD}, -1, {}},
        {"length would not fit the 8-bit count", single_reply(Bytes(237, 0x33)), -1, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        clear_out();
        EXPECT_EQ(run(0x81, c.reply, [&] { return UHF_InventorySingleEPCTIDUSER(&len, out); }), c.result);
        EXPECT_EQ(written(c.written.size()), c.written);
        EXPECT_TRUE(untouched_from(c.written.size()));
        EXPECT_EQ(len, c.result == 0 ? c.written.size() : 0xAA);
    }
}

TEST_F(SingleInventory, R2000Form) {
    // Data bytes 3..5 zero: the reply counts as carrying no data.
    const Bytes zero_tail = {0x11, 0x22, 0x33, 0x00, 0x00, 0x00};
    struct Case {
        const char* name;
        Bytes reply;
        int result;
        Bytes written;
        uint8_t len;  // 0xAA: untouched
    } cases[] = {
        {"with TID data", single_reply(kTid), 0, Bytes{14} + kUii + Bytes{4} + kTid + kRssi, 22},
        {"reply of L + 3 bytes", single_reply({}), 0, Bytes{14} + kUii + Bytes{0} + kRssi, 18},
        {"zeros after the data start drop the data", single_reply(zero_tail), 0, Bytes{14} + kUii + Bytes{0} + kRssi,
         24},
        {"255 bytes: above the length rule", single_reply(Bytes(238, 0x44)), -1, {}, 0xAA},
        {"PC claims more than the reply", Bytes{0xF8, 0x00} + Bytes(20, 0x11), -1, {}, 0xAA},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        clear_out();
        EXPECT_EQ(run(0x81, c.reply, [&] { return UHF_InventorySingle_R2000(&len, out); }), c.result);
        EXPECT_EQ(written(c.written.size()), c.written);
        EXPECT_TRUE(untouched_from(c.written.size()));
        EXPECT_EQ(len, c.len);
    }
}

TEST_F(SingleInventory, BatchFetch) {
    const Bytes batch = Bytes{0x01, 0x11} + single_reply({});
    struct Case {
        const char* name;
        Bytes reply;
        int result;
        Bytes written;
    } cases[] = {
        {"one tag", batch, int(batch.size()), batch},
        {"no tags", {0x00, 0x00}, 0, {}},
        {"reply past the 512-byte buffer", Bytes(513, 0x01), -1, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        clear_out();
        EXPECT_EQ(run(0xEC, c.reply, [&] { return UHF_GetTagsData(out); }), c.result);
        EXPECT_EQ(sent_cmd, 0xEB);
        EXPECT_TRUE(sent_data.empty());
        EXPECT_EQ(written(c.written.size()), c.written);
        EXPECT_TRUE(untouched_from(c.written.size()));
    }
}
