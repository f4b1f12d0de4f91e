// uhfctl info, get, set, reset and factory-reset against the virtual reader.
#include <gtest/gtest.h>

#include <functional>

#include "cli_helpers.h"
#include "sim_link.h"

using namespace clitest;

namespace {

TEST(CliInfo, TextHasOneLinePerItem) {
    Result r = uhfctl({"--sim", "info"});
    ASSERT_EQ(r.code, 0) << r.err;
    for (const char* item : {"reader",   "library",  "hardware",  "software",    "module",  "device-id", "temperature",
                             "power",    "antennas", "region",    "frequencies", "rflink",  "gen2",      "fastid",
                             "tagfocus", "mode",     "work-mode", "beep",        "outputs", "ip",        "dest-ip"})
        EXPECT_NE(("\n" + r.out).find(std::string("\n") + item + " "), std::string::npos) << item << "\n" << r.out;
    EXPECT_EQ(r.out.find("(no answer)"), std::string::npos);
}

// set on one run, get on the next: the pseudo-terminal keeps one reader
// session across opens, as a serial reader would.
struct RoundTrip {
    const char* name;
    std::vector<std::string> set;
    const char* get_text;  // what `get NAME` prints after the name
    std::function<bool(const uhfsim::ReaderState&)> holds = nullptr;  // what only the reader shows (saved values, bytes)
};

class CliSettings : public PtyReaderTest, public ::testing::WithParamInterface<RoundTrip> {
protected:
    void SetUp() override { start(uhftest::sim_options(2)); }
};

TEST_P(CliSettings, SetThenGet) {
    const RoundTrip& row = GetParam();
    std::vector<std::string> args = {"set"};
    args.insert(args.end(), row.set.begin(), row.set.end());
    Result s = ctl(args);
    ASSERT_EQ(s.code, 0) << s.err;
    EXPECT_EQ(s.out, row.set[0] + " set\n");
    bool held = false;
    pty->for_each_reader([&](uhfsim::VirtualReader& r) { held = !row.holds || row.holds(r.state()); });
    EXPECT_TRUE(held);

    Result g = ctl({"get", row.set[0]});
    ASSERT_EQ(g.code, 0) << g.err;
    EXPECT_NE(g.out.find(row.get_text), std::string::npos) << g.out;
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CliSettings,
    // clang-format off
    ::testing::Values(
        RoundTrip{"output_two_high", {"outputs", "2", "high"}, "1 low, 2 high"},
        RoundTrip{"ip_with_mask", {"ip", "192.0.2.10:5000", "255.255.0.0", "192.0.2.1"}, "192.0.2.10:5000  mask 255.255.0.0  gateway 192.0.2.1",
                  [](const auto& s) { return s.current.own.ip == std::array<uint8_t, 4>{192, 0, 2, 10} && s.current.own.port == std::array<uint8_t, 2>{0x13, 0x88}; }},
        RoundTrip{"user_params", {"user-params", "00 11 aa", "BB"}, "0011AABB"},
        RoundTrip{"power_saved", {"power", "25", "--save"}, "1: 25/25, 2: 25/25, 3: 25/25, 4: 25/25 dBm",
                  [](const auto& s) { return s.saved.antennas[0].read_power == 2500 && s.saved.antennas[3].write_power == 2500; }},
        RoundTrip{"antennas", {"antennas", "1,3", "--save"}, " 1,3\n",
                  [](const auto& s) { return s.current.antenna_mask == 0x0005 && s.saved.antenna_mask == 0x0005; }},
        RoundTrip{"frequencies", {"frequencies", "903250", "904250"}, " 903250 904250 kHz\n"},
        RoundTrip{"gen2_named_fields", {"gen2", "--session", "2", "--q", "0"}, "q=0 startq=4 minq=0 maxq=15 d=1 coding=2 p=1 sel=1 session=2"},
        RoundTrip{"fastid", {"fastid", "on"}, " on\n"},
        RoundTrip{"mode_user", {"mode", "epc+tid+user", "1", "2"}, "epc+tid+user (USER from word 1, 2 words)"}),
    // clang-format on
    [](const auto& info) { return std::string(info.param.name); });

TEST(CliSettingsFailure, RefusedSetExitsOne) {
    auto o = uhftest::sim_options(2);
    o.faults.ignore_codes = {0xA1};  // a reader without the device-settings command
    uhfsim::TcpServer sim(o);
    ASSERT_TRUE(sim.start());
    Result r = uhfctl({"--tcp", "127.0.0.1:" + std::to_string(sim.port()), "set", "beep", "1"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("set beep: tcp 127.0.0.1:"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("refused it or did not answer"), std::string::npos) << r.err;
}

TEST(CliGet, JsonWithSeveralNamesAndReaders) {
    Result r = uhfctl({"--sim", "--sim", "get", "hardware", "beep", "--format", "json"});
    ASSERT_EQ(r.code, 0) << r.err;
    auto lines = json_lines(r.out);
    ASSERT_EQ(lines.size(), 2u);
    for (const auto& j : lines) {
        EXPECT_EQ(str(j.get(), "hardware"), "V1.2.0");
        EXPECT_EQ(num(j.get(), "beep"), 1);
        EXPECT_EQ(str(j.get(), "reader").rfind("sim 127.0.0.1:", 0), 0u);
    }
    EXPECT_NE(str(lines[0].get(), "reader"), str(lines[1].get(), "reader"));
}

TEST(CliRaw, PrintsReplyCodeAndData) {
    Result r = uhfctl({"--sim", "raw", "0x02"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, "0x03 020A04\n");
    Result none = uhfctl({"--sim", "raw", "0x77", "--timeout", "200"});
    EXPECT_EQ(none.code, 1);
    EXPECT_NE(none.err.find("no reply"), std::string::npos);
}

}  // namespace
