#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "sim_test_util.h"

using namespace simtest;
using namespace std::chrono_literals;
using uhfsim::EngineOptions;
using uhfsim::TagField;

namespace {

// Two known tags, so every report byte can be written down.
//   A: EPC E200 3412 0123 4567 89AB CDEF, -52.5 dBm on 1, -71.0 on 2
//   B: EPC AABB CCDD, -80.0 dBm on 2 and -70.0 on 3
TagField two_tags() {
    return *TagField::from_json(R"({"tags":[
    {"epc":"E200 3412 0123 4567 89AB CDEF","rssi":{"1":-52.5,"2":-71.0}},
    {"epc":"AABB CCDD","rssi":{"2":-80.0,"3":-70.0}}]})");
}

const Bytes kUiiA = {0x30, 0x00, 0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
const Bytes kUiiB = {0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD};
const Bytes kA1 = kUiiA + Bytes{0xFD, 0xF3, 0x01};  // A's report on antenna 1
const Bytes kStart = frame(0x82, {0x00, 0x00});

}  // namespace

TEST(SimEngine, UnsavedChangeIsLostWhileALaterSavedOneOfAnotherSettingStays) {
    Bench b;
    b.send(frame(0x2C, {0x00, 0x07}));        // region 7, not saved
    b.send(frame(0x28, {0x01, 0x00, 0x02}));  // antenna 2, saved
    b.reader.power_cycle();
    b.take();
    b.send(frame(0x2E) + frame(0x2A));
    EXPECT_EQ(b.take(), (std::vector<Reply>{{0x2F, {0x01, 0x01}}, {0x2B, {0x00, 0x02}}}));
}

TEST(SimEngine, InventoryVisitsEachTagOnEachEnabledAntennaInTurn) {
    // Antennas 1 and 2 enabled: A@1, A@2, B@2, again; B on disabled antenna 3 never.
    const std::vector<Bytes> plan = {kA1, kUiiA + Bytes{0xFD, 0x3A, 0x02}, kUiiB + Bytes{0xFC, 0xE0, 0x02}, kA1};
    for (bool stream : {false, true}) {
        Bench b(two_tags(), quiet(100));
        b.send(frame(0x28, {0x00, 0x00, 0x03}));
        b.take();
        if (stream) {
            b.send(kStart);
            b.advance(40ms);
        } else {
            for (int i = 0; i < 4; ++i) b.send(frame(0x80, {0x00, 0x64}));
        }
        std::vector<Reply> want;
        for (const auto& p : plan) want.push_back({uint8_t(stream ? 0x83 : 0x81), p});
        EXPECT_EQ(b.take(), want) << "stream=" << stream;
    }
}

// Each link streams on its own: a stop ends the stream of its link, a restart every link's.
TEST(SimEngine, StopEndsTheLinksStreamUnlessIgnoredARestartEndsEvery) {
    for (bool ignored : {false, true}) {
        auto opts = quiet(300);
        if (ignored) opts.ignored_codes = {0x8C};
        Bench b(TagField::random(5, 2), opts), other(b.reader.radio(), quiet(300));
        other.send(kStart);
        b.send(kStart);
        b.advance(100ms);
        EXPECT_EQ(b.take().size(), 30u);
        b.send(frame(0x8C));
        b.advance(100ms);
        const auto got = b.take();
        EXPECT_EQ(b.reader.stats().requests[0x8C], 1u);
        EXPECT_EQ(b.reader.stats().ignored, ignored ? 1u : 0u);
        EXPECT_EQ(b.reader.inventory_running(), ignored);
        EXPECT_EQ(b.reader.next_deadline().has_value(), ignored);
        EXPECT_TRUE(other.reader.inventory_running());
        if (ignored) {
            EXPECT_EQ(got.size(), 30u);
            for (const auto& g : got) EXPECT_EQ(g.code, 0x83);
        } else {
            EXPECT_EQ(got, (std::vector<Reply>{{0x8D, {0x01}}}));
        }
        other.send(frame(0x68));
        EXPECT_FALSE(b.reader.inventory_running() || b.reader.next_deadline());
    }
}
