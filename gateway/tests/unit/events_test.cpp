// The JSON of reads and events, byte for byte as uhfctl writes it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "events.h"

namespace uhfd {
namespace {

Read read_of(int64_t time_ms, int16_t rssi, uint8_t data_len = 0) {
    return Read{.antenna = 1,
                .epc_len = 4,
                .data_len = data_len,
                .pc = 0x3000,
                .rssi = rssi,
                .time_ms = time_ms,
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
         R"({"time":1795504220.714,"reader":"dock-1","epc":"E200340F","pc":"3000","rssi":-74.3,"antenna":1})"},
        {read_of(1795504220700, -700, 2), "dock-1",
         R"({"time":1795504220.7,"reader":"dock-1","epc":"E200340F","pc":"3000","data":"AB01","rssi":-70,"antenna":1})"},
        {read_of(1795504220000, 5), "a\"b\\c\n",
         R"({"time":1795504220,"reader":"a\"b\\c\u000a","epc":"E200340F","pc":"3000","rssi":0.5,"antenna":1})"},
    };
    for (const Row& row : rows) {
        std::string out = "kept,";
        append_read_json(row.read, row.reader, out);
        EXPECT_EQ(out, std::string("kept,") + row.json);
    }
}

TEST(EventJson, CarriesTheVisitWithTheMeanToATenth) {
    const Event e{.kind = Event::Depart,
                  .antenna = 2,
                  .epc_len = 2,
                  .epc = {0xE2, 0x0A},
                  .time_ms = 1795504225001,
                  .reads = 12,
                  .rssi_peak = -600,
                  .rssi_mean = -74.26};
    std::string out;
    append_event_json(e, "dock-1", out);
    EXPECT_EQ(out, R"({"event":"depart","time":1795504225.001,"reader":"dock-1","epc":"E20A","antenna":2,)"
                   R"("reads":12,"rssi_peak":-60,"rssi_mean":-74.3})");
}

TEST(Hub, EverySinkGetsTheReadUnderItsReadersName) {
    Hub hub({"dock-1", "gate"});
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

}  // namespace
}  // namespace uhfd
