// The outbox on a real SQLite file: what survives a reopen, when rows go, and
// what the bound drops and counts.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>
#include <vector>

#include "outbox.h"

namespace uhfd {
namespace {

// A fresh directory per test, removed after it.
struct TempDir {
    std::string path;
    TempDir() {
        char name[] = "/tmp/uhfd-outbox-XXXXXX";
        path = mkdtemp(name);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
};

// 99 bytes of JSON, 100 with its line end: row sizes are easy to count.
std::string item(uint64_t seq) {
    std::string json = "{\"seq\":" + std::to_string(seq) + ",\"pad\":\"";
    json.append(99 - json.size() - 2, 'x');
    return json + "\"}";
}

std::unique_ptr<Outbox> open(const std::string& dir, uint64_t max_bytes, std::vector<std::string> outputs) {
    std::string err;
    auto box = Outbox::open({dir, max_bytes, {"dock", "gate"}, std::move(outputs), "b00t"}, err);
    EXPECT_TRUE(box) << err;
    return box;
}

void add_run(Outbox& box, uint16_t reader, uint64_t first, uint64_t last, bool event = false) {
    for (uint64_t seq = first; seq <= last; seq++) box.add(reader, seq, event, item(seq));
    box.commit(true);
}

std::vector<uint64_t> seqs_after(Outbox& box, uint16_t reader, uint64_t after) {
    std::vector<OutboxItem> items;
    box.fetch(reader, after, 100, items);
    std::vector<uint64_t> seqs;
    for (const OutboxItem& i : items) seqs.push_back(i.seq);
    return seqs;
}

TEST(Outbox, AReopenKeepsTheRowsTheCountersAndTheProgress) {
    TempDir dir;
    {
        auto box = open(dir.path, 1 << 20, {"mqtt"});
        add_run(*box, 0, 1, 3);
        add_run(*box, 0, 4, 4, true);
        box->delivered(0, 0, 2);
        box->commit(true);
    }
    auto box = open(dir.path, 1 << 20, {"mqtt"});
    EXPECT_EQ(box->last_seq(0), 4u);
    EXPECT_EQ(box->last_seq(1), 0u);
    EXPECT_EQ(box->delivered_up_to(0, 0), 2u);
    std::vector<OutboxItem> items;
    box->fetch(0, 2, 10, items);  // from the middle of a row
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].json, item(3));
    EXPECT_FALSE(items[0].event);
    EXPECT_EQ(items[1].seq, 4u);
    EXPECT_TRUE(items[1].event);
}

// Reads are kept binary and come back as the hub's JSON, with the boot id of
// the start that gave their seqs, also after a restart with another one.
TEST(Outbox, BinaryReadsComeBackAsTheirJsonWithTheirBoot) {
    TempDir dir;
    Read r;
    r.reader = 1;
    r.antenna = 2;
    r.epc_len = 2;
    r.epc[0] = 0xE2;
    r.epc[1] = 0x80;
    r.data_len = 1;
    r.data[0] = 0x5A;
    r.rssi = -615;
    r.time_ms = 1795504220714;
    std::vector<std::string> want;
    {
        auto box = open(dir.path, 1 << 20, {"mqtt"});
        for (uint64_t seq = 1; seq <= 3; seq++) {
            r.seq = seq;
            r.pc = static_cast<uint16_t>(0x3000 + seq);
            box->add(r);
            want.emplace_back();
            append_read_json(r, "gate", "b00t", want.back());
        }
        box->add(1, 4, true, item(4));
        box->commit(true);
    }
    std::string err;
    auto box = Outbox::open({dir.path, 1 << 20, {"dock", "gate"}, {"mqtt"}, "next"}, err);
    ASSERT_TRUE(box) << err;
    std::vector<OutboxItem> items;
    box->fetch(1, 1, 10, items);
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].json, want[1]);
    EXPECT_EQ(items[1].json, want[2]);
    EXPECT_EQ(items[2].json, item(4));
    EXPECT_TRUE(items[2].event);
    items.clear();
    box->fetch(1, 0, 2, items);  // at most max, from a row's start
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].json, want[0]);
}

TEST(Outbox, ARowGoesOnceEveryOutputDeliveredIt) {
    TempDir dir;
    auto box = open(dir.path, 1 << 20, {"mqtt", "webhook"});
    add_run(*box, 0, 1, 3);
    add_run(*box, 1, 1, 2);
    box->delivered(0, 0, 3);
    box->commit(true);
    EXPECT_EQ(box->depth(0, 0).rows, 0u);
    EXPECT_EQ(box->depth(1, 0).reads, 3u);
    EXPECT_EQ(box->bytes(), 500u);
    box->delivered(1, 0, 3);
    box->commit(true);
    EXPECT_EQ(box->bytes(), 200u);  // the other reader's rows stay
    EXPECT_EQ(seqs_after(*box, 1, 0), (std::vector<uint64_t>{1, 2}));
}

// Over the bound the oldest reads go, events stay, and each output counts the
// reads it had not delivered.
TEST(Outbox, AFullOutboxDropsTheOldestReadsAndCountsThemPerOutput) {
    TempDir dir;
    auto box = open(dir.path, 1500, {"mqtt", "webhook"});
    add_run(*box, 0, 1, 10);  // 1,000 bytes
    box->delivered(0, 0, 4);
    add_run(*box, 0, 11, 11, true);
    add_run(*box, 0, 12, 21);  // 2,100 bytes: the first row goes
    EXPECT_EQ(box->bytes(), 1100u);
    EXPECT_EQ(box->reads_dropped(0, 0), 6u);
    EXPECT_EQ(box->reads_dropped(1, 0), 10u);
    EXPECT_EQ(seqs_after(*box, 0, 0).front(), 11u);
    EXPECT_EQ(box->last_seq(0), 0u);  // as it was at open
}

// A reader a reload adds under the name of one it removed goes on with that
// one's items, counter, progress and counts; the earlier index falls silent.
TEST(Outbox, AReaderAddedUnderARemovedOnesNameTakesOverItsSlot) {
    TempDir dir;
    auto box = open(dir.path, 1500, {"mqtt"});
    add_run(*box, 1, 1, 10);
    box->delivered(0, 1, 2);
    add_run(*box, 1, 11, 20);  // past the bound: 3..10 dropped
    std::string err;
    ASSERT_TRUE(box->add_reader(2, "gate", err)) << err;
    EXPECT_EQ(box->readers(), 3u);
    EXPECT_EQ(box->last_seq(2), 20u);
    EXPECT_EQ(box->delivered_up_to(0, 2), 2u);
    EXPECT_EQ(box->reads_dropped(0, 2), 8u);
    EXPECT_FALSE(box->serves(1));
    EXPECT_TRUE(seqs_after(*box, 1, 0).empty());
    box->add(1, 21, false, item(21));  // the old index takes nothing more
    add_run(*box, 2, 21, 22);
    EXPECT_EQ(seqs_after(*box, 2, 19), (std::vector<uint64_t>{20, 21, 22}));

    EXPECT_FALSE(box->add_reader(2, "door", err));  // taken
    EXPECT_FALSE(box->add_reader(Outbox::kSlots, "door", err));
    ASSERT_TRUE(box->add_reader(3, "door", err)) << err;
    EXPECT_EQ(box->last_seq(3), 0u);
    EXPECT_TRUE(box->serves(3));
}

TEST(Outbox, OneStateDirectoryServesOneGateway) {
    TempDir dir;
    auto first = open(dir.path, 1 << 20, {"mqtt"});
    std::string err;
    EXPECT_FALSE(Outbox::open({dir.path, 1 << 20, {"dock"}, {"mqtt"}, "b00t"}, err));
    EXPECT_NE(err.find("another uhfd"), std::string::npos) << err;
}

}  // namespace
}  // namespace uhfd
