// uhfctl info, get, set, reset and factory-reset against the virtual reader.
#include <gtest/gtest.h>

#include <functional>

#include "cli_helpers.h"
#include "sim_link.h"

using namespace clitest;

namespace {

// `info --format json` reports what the reader holds, not defaults.
TEST(CliInfo, JsonShowsTheSimulatorsSettings) {
    auto o = uhftest::sim_options(2);
    auto& st = o.engine.state;
    st.identity.software_version = {3, 14, 1};
    st.identity.device_id = 0x0A0B0C0D;
    st.identity.module_name = "BENCH-7";
    st.temperature_centi = -250;
    st.current.beep_mode = 2;
    st.current.outputs = {1, 0};
    st.current.own.ip = {192, 0, 2, 10};
    st.current.own.port = {0x13, 0x88};
    uhfsim::TcpServer sim(o);
    ASSERT_TRUE(sim.start());
    std::string where = "127.0.0.1:" + std::to_string(sim.port());

    Result r = uhfctl({"--tcp", where, "info", "--format", "json"});
    ASSERT_EQ(r.code, 0) << r.err;
    Json info(cJSON_Parse(r.out.c_str()));
    ASSERT_NE(info, nullptr) << r.out;
    const cJSON* j = info.get();
    EXPECT_EQ(str(j, "reader"), "tcp " + where);
    EXPECT_EQ(str(j, "hardware"), "V1.2.0");
    EXPECT_EQ(str(j, "software"), "V3.14.1");
    EXPECT_EQ(str(j, "module"), "V3.1.7,BENCH-7");
    EXPECT_EQ(str(j, "device-id"), "0A0B0C0D");
    EXPECT_EQ(num(j, "temperature"), -2);
    EXPECT_EQ(num(j, "voltage"), 3300);
    EXPECT_EQ(num(j, "beep"), 2);
    const cJSON* outputs = cJSON_GetObjectItem(j, "outputs");
    EXPECT_EQ(num(outputs, "1"), 1);
    EXPECT_EQ(num(outputs, "2"), 0);
    const cJSON* ip = cJSON_GetObjectItem(j, "ip");
    EXPECT_EQ(str(ip, "ip"), "192.0.2.10");
    EXPECT_EQ(num(ip, "port"), 5000);
    EXPECT_EQ(str(ip, "gateway"), "192.168.1.1");
}

TEST(CliInfo, TextHasOneLinePerItem) {
    Result r = uhfctl({"--sim", "info"});
    ASSERT_EQ(r.code, 0) << r.err;
    for (const char* item : {"reader", "library", "hardware", "software", "module", "device-id", "temperature",
                             "beep", "outputs", "ip", "dest-ip"})
        EXPECT_NE(("\n" + r.out).find(std::string("\n") + item + " "), std::string::npos) << item << "\n" << r.out;
    EXPECT_EQ(r.out.find("(no answer)"), std::string::npos);
}

// set on one run, get on the next: the pseudo-terminal keeps one reader
// session across opens, as a serial reader would.
struct RoundTrip {
    const char* name;
    std::vector<std::string> set;
    const char* get_text;  // what `get NAME` prints after the name
    std::function<bool(const uhfsim::ReaderState&)> holds;
};

class CliSettings : public ::testing::TestWithParam<RoundTrip> {
protected:
    void SetUp() override {
        pty = std::make_unique<uhfsim::PtyServer>(uhftest::sim_options(2));
        ASSERT_TRUE(pty->start());
        port = pty->slave_path();
    }
    Result ctl(std::vector<std::string> args) {
        args.insert(args.begin(), {"--serial", port});
        return uhfctl(args);
    }
    std::unique_ptr<uhfsim::PtyServer> pty;
    std::string port;
};

TEST_P(CliSettings, SetThenGet) {
    const RoundTrip& row = GetParam();
    std::vector<std::string> args = {"set"};
    args.insert(args.end(), row.set.begin(), row.set.end());
    Result s = ctl(args);
    ASSERT_EQ(s.code, 0) << s.err;
    EXPECT_EQ(s.out, row.set[0] + " set\n");
    bool held = false;
    pty->for_each_reader([&](uhfsim::VirtualReader& r) { held = row.holds(r.state()); });
    EXPECT_TRUE(held);

    Result g = ctl({"get", row.set[0]});
    ASSERT_EQ(g.code, 0) << g.err;
    EXPECT_NE(g.out.find(row.get_text), std::string::npos) << g.out;
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CliSettings,
    ::testing::Values(
        RoundTrip{"beep", {"beep", "3"}, " 3\n", [](const auto& s) { return s.current.beep_mode == 3; }},
        RoundTrip{"temp_protect", {"temp-protect", "0"}, " 0\n",
                  [](const auto& s) { return s.current.temperature_protect == 0; }},
        RoundTrip{"output_two_high", {"outputs", "2", "high"}, "1 low, 2 high",
                  [](const auto& s) { return s.current.outputs == std::array<uint8_t, 2>{0, 1}; }},
        RoundTrip{"ip_with_mask", {"ip", "192.0.2.10:5000", "255.255.0.0", "192.0.2.1"},
                  "192.0.2.10:5000  mask 255.255.0.0  gateway 192.0.2.1",
                  [](const auto& s) {
                      return s.current.own.ip == std::array<uint8_t, 4>{192, 0, 2, 10} &&
                             s.current.own.port == std::array<uint8_t, 2>{0x13, 0x88};
                  }},
        RoundTrip{"ip_keeps_port", {"ip", "192.0.2.11"}, "192.0.2.11:4001",
                  [](const auto& s) { return s.current.own.port == std::array<uint8_t, 2>{0x0F, 0xA1}; }},
        RoundTrip{"dest_ip", {"dest-ip", "192.0.2.20:6000"}, "192.0.2.20:6000",
                  [](const auto& s) { return s.current.destination.ip == std::array<uint8_t, 4>{192, 0, 2, 20}; }},
        RoundTrip{"user_params", {"user-params", "00 11 aa", "BB"}, "0011AABB",
                  [](const auto& s) { return s.current.user_params == std::vector<uint8_t>{0x00, 0x11, 0xAA, 0xBB}; }}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(CliSettings, FactoryResetBringsDefaultsBack) {
    ASSERT_EQ(ctl({"set", "beep", "7"}).code, 0);
    Result f = ctl({"factory-reset"});
    ASSERT_EQ(f.code, 0) << f.err;
    Result g = ctl({"get", "beep", "--format", "json"});
    Json j(cJSON_Parse(g.out.c_str()));
    EXPECT_EQ(num(j.get(), "beep"), uhfsim::Settings{}.beep_mode);
}

TEST_F(CliSettings, ResetRestartsTheReader) {
    Result r = ctl({"reset"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("restarting"), std::string::npos);
    EXPECT_EQ(pty->stats().requests[0x68], 1u);
}

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
