// The JSON of reads and events, byte for byte as uhfctl writes it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "events.h"

namespace uhfd {
namespace {

constexpr const char* kBoot = "00c0ffee00c0ffee";

Read read_of(int64_t time_ms, int16_t rssi, uint8_t data_len = 0) {
    return Read{.antenna = 1,
                .epc_len = 4,
                .data_len = data_len,
                .pc = 0x3000,
                .rssi = rssi,
                .time_ms = time_ms,
                .seq = 7,
                .epc = {0xE2, 0x00, 0x34, 0x0F},
                .data = {0xAB, 0x01}};
}

TEST(ReadJson, MatchesTheToolsFormat) {
    struct Row {
        Read read;
        const char* reader;
        const char* json;
    };
    const Row rows[] = {
        {read_of(1795504220714, -743), "dock-1",
         R"({"time":1795504220.714,"reader":"dock-1","epc":"E200340F","pc":"3000","rssi":-74.3,"antenna":1,)"
         R"("seq":7,"boot":"00c0ffee00c0ffee"})"},
        {read_of(1795504220700, -700, 2), "dock-1",
         R"({"time":1795504220.7,"reader":"dock-1","epc":"E200340F","pc":"3000","data":"AB01","rssi":-70,"antenna":1,)"
         R"("seq":7,"boot":"00c0ffee00c0ffee"})"},
        {read_of(1795504220000, 5), "a\"b\\c\n",
         R"({"time":1795504220,"reader":"a\"b\\c\u000a","epc":"E200340F","pc":"3000","rssi":0.5,"antenna":1,)"
         R"("seq":7,"boot":"00c0ffee00c0ffee"})"},
    };
    for (const Row& row : rows) {
        std::string out = "kept,";
        append_read_json(row.read, row.reader, kBoot, out);
        EXPECT_EQ(out, std::string("kept,") + row.json);
    }
}

TEST(EventJson, CarriesTheVisitWithTheMeanToATenth) {
    const Event e{.kind = Event::Depart,
                  .antenna = 2,
                  .epc_len = 2,
                  .epc = {0xE2, 0x0A},
                  .time_ms = 1795504225001,
                  .seq = 8,
                  .reads = 12,
                  .rssi_peak = -600,
                  .rssi_mean = -74.26};
    std::string out;
    append_event_json(e, "dock-1", kBoot, out);
    EXPECT_EQ(out, R"({"event":"depart","time":1795504225.001,"reader":"dock-1","epc":"E20A","antenna":2,)"
                   R"("reads":12,"rssi_peak":-60,"rssi_mean":-74.3,"seq":8,"boot":"00c0ffee00c0ffee"})");
}

TEST(Hub, EverySinkGetsTheReadUnderItsReadersName) {
    Hub hub({"dock-1", "gate"}, kBoot);
    std::vector<std::string> seen;
    for (int i = 0; i < 2; i++) hub.on_read([&](const Read&, std::string_view json) { seen.emplace_back(json); });
    Read r = read_of(1795504220714, -743);
    r.reader = 1;
    hub.publish(r);
    r.reader = 9;  // not configured
    hub.publish(r);
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[0], seen[1]);
    EXPECT_NE(seen[0].find(R"("reader":"gate")"), std::string::npos);
    EXPECT_NE(seen[2].find(R"("reader":"")"), std::string::npos);
}

// One counter per reader, shared by its reads and events, going on from where
// the last start left it.
TEST(Hub, SeqsCountPerReaderAcrossReadsAndEvents) {
    Hub hub({"dock-1", "gate"}, kBoot);
    hub.continue_seq(1, 41);
    std::vector<std::pair<uint16_t, uint64_t>> seqs;
    hub.on_read([&](const Read& r, std::string_view) { seqs.emplace_back(r.reader, r.seq); });
    hub.on_event([&](const Event& e, std::string_view) { seqs.emplace_back(e.reader, e.seq); });
    Read r = read_of(0, 0);
    Event e;
    for (uint16_t reader : {0, 1, 0}) {
        r.reader = e.reader = reader;
        hub.publish(r);
        hub.publish(e);
    }
    const std::vector<std::pair<uint16_t, uint64_t>> want = {{0, 1}, {0, 2}, {1, 42}, {1, 43}, {0, 3}, {0, 4}};
    EXPECT_EQ(seqs, want);
}

}  // namespace
}  // namespace uhfd
