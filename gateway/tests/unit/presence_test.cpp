// Presence on explicit times: the tests are the clock.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "presence.h"

namespace uhfd {
namespace {

Read read_of(std::vector<uint8_t> epc, int64_t time_ms, int16_t rssi = -700, uint16_t reader = 0, uint8_t antenna = 1) {
    Read r;
    r.reader = reader;
    r.antenna = antenna;
    r.epc_len = static_cast<uint8_t>(epc.size());
    std::copy(epc.begin(), epc.end(), r.epc.begin());
    r.time_ms = time_ms;
    r.rssi = rssi;
    return r;
}

Read tag(uint8_t id, int64_t time_ms, int16_t rssi = -700) { return read_of({0xE2, 0x00, id}, time_ms, rssi); }

// Two seconds to depart.
PresenceConfig config(size_t max_tags = 100, std::optional<double> floor = {}, std::string prefix = "") {
    return {2, floor, std::move(prefix), max_tags};
}

std::vector<uint8_t> ids(const std::vector<Event>& events) {
    std::vector<uint8_t> out;
    for (const auto& e : events) out.push_back(e.epc[2]);
    return out;
}

// What an event tells of a visit: kind, time, reads, peak, mean.
using Visit = std::tuple<Event::Kind, int64_t, uint64_t, int16_t, double>;
Visit visit(const Event& e) { return {e.kind, e.time_ms, e.reads, e.rssi_peak, e.rssi_mean}; }

TEST(Presence, ArrivesAtFirstReadAndDepartsWithTheVisitTotals) {
    Presence p(config());
    std::vector<Event> arrived, departed;
    for (auto [time, rssi] : {std::pair{1000, -700}, {1500, -600}, {2000, -803}}) p.add(tag(1, time, rssi), arrived);
    ASSERT_EQ(arrived.size(), 1u);
    EXPECT_EQ(visit(arrived[0]), Visit(Event::Arrive, 1000, 1, -700, -70.0));
    p.expire(3999, departed);
    EXPECT_TRUE(departed.empty());
    p.expire(4000, departed);
    ASSERT_EQ(departed.size(), 1u);
    EXPECT_EQ(visit(departed[0]), Visit(Event::Depart, 4000, 3, -600, -70.1));
    p.add(tag(1, 5000), arrived);  // a new visit
    EXPECT_EQ(arrived.size(), 2u);
}

TEST(Presence, ALateReadCountsButNeverMovesLastSeenBack) {
    Presence p(config());
    std::vector<Event> arrived, departed;
    p.add(tag(1, 3000), arrived);
    p.add(tag(2, 2000), arrived);
    p.add(tag(1, 1000), arrived);  // from a worker that lags behind
    p.expire(4500, departed);
    EXPECT_EQ(ids(departed), std::vector<uint8_t>{2});
    const auto left = p.snapshot();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].first_ms, 1000);
    EXPECT_EQ(left[0].last_ms, 3000);
    EXPECT_EQ(left[0].reads, 2u);
}

TEST(Presence, FiltersDropReadsBeforeTheyCount) {
    struct Row {
        std::optional<double> floor;
        const char* prefix;
        std::vector<uint8_t> epc;
        int16_t rssi;
        bool kept;
    };
    const Row rows[] = {
        {-70.3, "", {0xE2}, -703, true},  // at the floor
        {-70.3, "", {0xE2}, -704, false},
        {std::nullopt, "E2003", {0xE2, 0x00, 0x34}, -900, true},
        {std::nullopt, "e2003", {0xE2, 0x00, 0x3F}, -900, true},
        {std::nullopt, "E2003", {0xE2, 0x00, 0x44}, -900, false},  // the odd nibble differs
        {std::nullopt, "E2003", {0xE2, 0x00}, -900, false},        // shorter than the prefix
        {std::nullopt, "E2", {0xE3}, -900, false},
    };
    for (const Row& row : rows) {
        Presence p(config(100, row.floor, row.prefix));
        std::vector<Event> arrived;
        EXPECT_EQ(p.add(read_of(row.epc, 0, row.rssi), arrived), row.kept) << row.prefix << " " << row.rssi;
        EXPECT_EQ(p.size(), row.kept ? 1u : 0u);
    }
    EXPECT_THROW(Presence(config(100, {}, "E2G")), std::invalid_argument);
}

TEST(Presence, AFullTableEvictsTheLongestUnseenWithoutADepart) {
    Presence p(config(3));
    std::vector<Event> arrived, departed;
    for (uint8_t id = 1; id <= 3; id++) p.add(tag(id, id * 1000), arrived);
    p.add(tag(1, 4000), arrived);
    p.add(tag(4, 5000), arrived);
    EXPECT_EQ(ids(arrived), (std::vector<uint8_t>{1, 2, 3, 4}));
    EXPECT_EQ(p.evictions(), 1u);
    p.expire(60000, departed);
    EXPECT_EQ(ids(departed), (std::vector<uint8_t>{3, 1, 4}));
}

TEST(Presence, CountsPerReaderAndAntenna) {
    Presence p(config());
    std::vector<Event> arrived, departed;
    for (auto [reader, antenna, time] : {std::tuple{0, 1, 1000}, {0, 2, 1000}, {1, 1, 1000}, {1, 1, 1100}})
        p.add(read_of({0xE2}, time, -700, static_cast<uint16_t>(reader), static_cast<uint8_t>(antenna)), arrived);
    EXPECT_EQ(arrived.size(), 3u);  // one EPC, three places
    EXPECT_EQ(p.count(0), 2u);
    EXPECT_EQ(p.count(1), 1u);
    EXPECT_EQ(p.count(7), 0u);
    p.expire(3050, departed);
    EXPECT_EQ(p.count(0), 0u);
    EXPECT_EQ(p.count(1), 1u);
}

}  // namespace
}  // namespace uhfd
