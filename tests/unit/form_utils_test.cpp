// Frame search, data-cell lists, and the transfer-package codec.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "bytes_ops.h"
#include "form_utils.h"

namespace {

using Bytes = std::vector<uint8_t>;

// ---- searchPack ----------------------------------------------------------

// 00 then a frame of length 9: command 0x81, one data byte, check 0x89.
const Bytes kGolden{0x00, 0xA5, 0x5A, 0x00, 0x09, 0x81, 0x01, 0x89, 0x0D, 0x0A};

TEST(SearchPack, GoldenFrames) {
    const Bytes body{0x00, 0x09, 0x81, 0x01, 0x89, 0x0D, 0x0A};
    const Bytes bad_check{0xA5, 0x5A, 0x00, 0x09, 0x81, 0x01, 0x88, 0x0D, 0x0A};
    struct Case {
        const char* name;
        Bytes bytes;
        int want;
    } cases[] = {
        {"golden", kGolden, 1},
        {"A5 5A at 0", Bytes(kGolden.begin() + 1, kGolden.end()), 0},
        {"C8 8C", Bytes{0xC8, 0x8C} + body, 0},
        {"wrong second byte", Bytes{0xA5, 0x5B} + body, -1},
        {"bad check", bad_check, -1},
        {"bad CR", {0xA5, 0x5A, 0x00, 0x09, 0x81, 0x01, 0x89, 0x0C, 0x0A}, -1},
        {"shortest frame, length 8", {0xA5, 0x5A, 0x00, 0x08, 0x81, 0x89, 0x0D, 0x0A}, 0},
        {"length 7", {0xA5, 0x5A, 0x00, 0x07, 0x81, 0x86, 0x0D, 0x0A}, -1},
        {"length 4097", Bytes{0xA5, 0x5A, 0x10, 0x01} + Bytes(4093, 0x00), -1},
        {"garbage and a false start first", Bytes{0x11, 0xA5, 0x00, 0xC8, 0x22} + kGolden, 6},
        // A byte that breaks the start pair is not looked at again as a start.
        {"A5 A5 5A", Bytes{0xA5} + Bytes(kGolden.begin() + 1, kGolden.end()), -1},
        {"bad frame then good frame", bad_check + kGolden, 10},
        {"first of two frames", kGolden + kGolden, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(searchPack(c.bytes.data(), static_cast<int>(c.bytes.size())), c.want);
    }
}

TEST(SearchPack, EveryTruncationFindsNothing) {
    for (size_t n = 0; n < kGolden.size(); n++) {
        SCOPED_TRACE(n);
        const Bytes cut(kGolden.begin(), kGolden.begin() + n);
        EXPECT_EQ(searchPack(cut.data(), static_cast<int>(n)), -1);
    }
    EXPECT_EQ(searchPack(nullptr, 10), -1);
    EXPECT_EQ(searchPack(kGolden.data(), -1), -1);
}

// ---- CallReceviedEvent -----------------------------------------------------

struct Cell {
    uint8_t type;
    uint16_t len;
    long offset;  // from the start of content
    bool operator==(const Cell&) const = default;
};
using Call = std::vector<Cell>;

std::vector<Call> g_calls;
const uint8_t* g_base = nullptr;

void record_cells(ST_UHF_DATA_CELL* cells) {
    Call call;
    // A list longer than any the codec builds means a broken next chain.
    for (ST_UHF_DATA_CELL* c = cells; c != nullptr && call.size() < 8; c = c->next)
        call.push_back({c->type, c->len, c->pdata - g_base});
    g_calls.push_back(call);
}

class DataEvents : public ::testing::Test {
protected:
    void SetUp() override {
        g_calls.clear();
        setOnDataReceived(record_cells);
    }
    void TearDown() override { setOnDataReceived(nullptr); }

    // Content in its own heap block of exactly its size, so a read past
    // contentLen trips ASan.
    static std::vector<Call> deliver(uint8_t cmd, const Bytes& content) {
        g_calls.clear();
        Bytes copy = content;
        g_base = copy.data();
        CallReceviedEvent(cmd, copy.data(), static_cast<uint16_t>(copy.size()));
        return g_calls;
    }
};

// PC 0x3000 (12-byte EPC), EPC, then whatever follows, padded to n bytes.
Bytes tag_report(size_t n) {
    Bytes r{0x30, 0x00};
    while (r.size() < n) r.push_back(static_cast<uint8_t>(0xE0 + r.size()));
    r.resize(n);
    return r;
}

TEST_F(DataEvents, SingleReportCells) {
    enum { PC = CELL_UHF_PC, RSSI = CELL_UHF_RSSI, EPC = CELL_UHF_EPC, TID = CELL_UHF_TID, USER = CELL_UHF_USER };
    // clang-format off
    struct Case {
        const char* name;
        uint8_t cmd;
        Bytes content;
        Call want;
    } cases[] = {
        {"PC+EPC+RSSI+ant", 0x81, tag_report(17), {{EPC, 12, 2}, {PC, 2, 0}, {RSSI, 2, 14}}},
        {"one byte more claims a whole TID", 0x81, tag_report(18), {{EPC, 12, 2}, {PC, 2, 0}, {RSSI, 2, 15}, {TID, 12, 14}}},
        {"with TID", 0x81, tag_report(29), {{EPC, 12, 2}, {PC, 2, 0}, {RSSI, 2, 26}, {TID, 12, 14}}},
        {"with TID and 4 USER bytes", 0x83, tag_report(33), {{EPC, 12, 2}, {PC, 2, 0}, {RSSI, 2, 30}, {TID, 12, 14}, {USER, 4, 26}}},
        {"2-byte EPC, shortest content", 0x81, {0x08, 0x00, 0xAB, 0xCD, 0xFF}, {{EPC, 2, 2}, {PC, 2, 0}, {RSSI, 2, 2}}},
        {"EPC length ignores low PC bits", 0x81, {0x0B, 0x00, 0xAB, 0xCD, 0xFF, 0x9C}, {{EPC, 2, 2}, {PC, 2, 0}, {RSSI, 2, 3}}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(deliver(c.cmd, c.content), std::vector<Call>{c.want});
    }
}

// ---- transfer packages -----------------------------------------------------

// addPack works in place and needs 2 * Len + 4 bytes.
Bytes stuffed(const Bytes& pkg) {
    Bytes buf(2 * pkg.size() + 4, 0xEE);
    std::copy(pkg.begin(), pkg.end(), buf.begin());
    buf.resize(addPack(buf.data(), static_cast<uint16_t>(pkg.size())));
    return buf;
}

TEST(TransferFrame, StuffingGoldenBytes) {
    struct Case {
        const char* name;
        Bytes pkg;
        Bytes frame;
    } cases[] = {
        {"flag byte, check is a flag too", {0x7E}, {0x7E, 0x7D, 0x02, 0x7D, 0x02, 0x7E}},
        {"escape byte", {0x7D}, {0x7E, 0x7D, 0x01, 0x7D, 0x01, 0x7E}},
        {"empty package", {}, {0x7E, 0x00, 0x7E}},
        {"plain bytes", {0x01, 0x02, 0x04}, {0x7E, 0x01, 0x02, 0x04, 0x07, 0x7E}},
        {"check needs an escape", {0x11, 0x6F}, {0x7E, 0x11, 0x6F, 0x7D, 0x02, 0x7E}},
        {"mixed", {0x7D, 0x7E, 0x00}, {0x7E, 0x7D, 0x01, 0x7D, 0x02, 0x00, 0x03, 0x7E}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(stuffed(c.pkg), c.frame);
    }
}

TEST(TransferFrame, UnstuffingGoldenAndBadFrames) {
    struct Case {
        const char* name;
        Bytes frame;
        unsigned short want;
        Bytes pkg;
    } cases[] = {
        {"check passes", {0x7E, 0x01, 0x02, 0x03, 0x7E}, 2, {0x01, 0x02}},
        {"noise before the flag", {0x00, 0x55, 0x7E, 0x01, 0x02, 0x03, 0x7E, 0x99}, 2, {0x01, 0x02}},
        {"escaped bytes", {0x7E, 0x7D, 0x02, 0x7D, 0x01, 0x03, 0x7E}, 2, {0x7E, 0x7D}},
        {"bad check", {0x7E, 0x01, 0x02, 0x7E}, 0, {}},
        {"bad escape", {0x7E, 0x7D, 0x03, 0x7D, 0x03, 0x7E}, 0, {}},
        {"escape at the end", {0x7E, 0x01, 0x7D}, 0, {}},
        {"no closing flag", {0x7E, 0x01, 0x02, 0x03}, 0, {}},
        {"no check byte", {0x7E, 0x7E}, 0, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes buf = c.frame;
        const unsigned short got = dropPack(buf.data(), static_cast<uint16_t>(buf.size()));
        EXPECT_EQ(got, c.want);
        if (got != 0) {
            EXPECT_EQ(Bytes(buf.begin(), buf.begin() + got), c.pkg);
        }
    }
    // The length bounds the scan even when the closing flag lies behind it.
    Bytes frame{0x7E, 0x01, 0x02, 0x03, 0x7E};
    EXPECT_EQ(dropPack(frame.data(), 4), 0);
    EXPECT_EQ(dropPack(nullptr, 4), 0);
}

}  // namespace
