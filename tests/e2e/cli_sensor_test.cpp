// uhfctl sensor against a virtual reader on a pseudo-terminal holding one
// temperature-logging tag and one plain tag.
#include <gtest/gtest.h>

#include <chrono>
#include <regex>

#include "cli_helpers.h"

using namespace clitest;

namespace {

const char* kField = R"({ "tags": [
  { "epc": "3000 0000 0000 0000 0000 0001", "rssi": { "1": -60.0 } },
  { "epc": "E200 3412 0123 4567 89AB CDEF", "rssi": { "1": -50.0 },
    "sensor": { "temperature": 23.75 } } ] })";

class CliSensor : public PtyReaderTest {
protected:
    void SetUp() override {
        uhfsim::SimOptions o;
        o.tags = field(kField);
        ASSERT_EQ(o.tags.size(), 2u);
        o.tags.tags()[1].sensor->battery_mv = 2750;
        start(o);
    }
    // Lets the reader's clock run ahead, as if the run had gone on that long.
    void let_time_pass(std::chrono::milliseconds d) {
        pty->for_each_reader([&](uhfsim::VirtualReader& r) { r.advance(d); });
    }
};

TEST_F(CliSensor, LogRunReadBackWithTimes) {
    Result s = ctl({"sensor", "log", "start", "--delay", "0", "--interval", "10", "--min", "2", "--max", "30"});
    ASSERT_EQ(s.code, 0) << s.err;
    EXPECT_NE(s.out.find("every 10 s; limits 2.00 .. 30.00 C"), std::string::npos) << s.out;
    let_time_pass(std::chrono::milliseconds(35000));  // readings at 0, 10, 20 and 30 s

    Result r = ctl({"sensor", "log", "read", "--interval", "10", "--format", "json"});
    ASSERT_EQ(r.code, 0) << r.err;
    auto lines = json_lines(r.out);
    ASSERT_EQ(lines.size(), 4u) << r.out;
    const double expected[4] = {23.75, 24.0, 24.25, 24.5};  // the tag adds k mod 4 quarter degrees
    for (size_t i = 0; i < 4; i++) {
        EXPECT_EQ(num(lines[i].get(), "index"), static_cast<double>(i));
        EXPECT_EQ(num(lines[i].get(), "after_s"), 10.0 * static_cast<double>(i));
        EXPECT_EQ(num(lines[i].get(), "celsius"), expected[i]);
    }

    Result part = ctl({"sensor", "log", "read", "--interval", "10", "--start", "2", "--count", "1"});
    ASSERT_EQ(part.code, 0) << part.err;
    EXPECT_NE(part.out.find("     2          0:20     24.25\n"), std::string::npos) << part.out;
    EXPECT_NE(part.out.find("1 readings"), std::string::npos);

    Result status = ctl({"sensor", "log", "status"});
    ASSERT_EQ(status.code, 0) << status.err;
    EXPECT_NE(status.out.find("operating mode word 0x"), std::string::npos);
    ASSERT_EQ(ctl({"sensor", "log", "stop"}).code, 0);
}

// Stopping a tag that logs nothing is refused with the reader's own code.
TEST_F(CliSensor, StopWithoutARunShowsTheReadersErrorCode) {
    Result r = ctl({"sensor", "log", "stop"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("refused it with error 0x0C"), std::string::npos) << r.err;
}

TEST_F(CliSensor, StartOnAPlainTagIsRefused) {
    Result r = ctl({"sensor", "log", "start", "--epc", "300000000000000000000001"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("refused it with error 0x0A"), std::string::npos) << r.err;
}

TEST_F(CliSensor, Voltage) {
    Result r = ctl({"sensor", "voltage", "--epc", "E20034120123456789ABCDEF"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, "2.750 V\n");
}

TEST_F(CliSensor, TemperatureCodeWithTimestamps) {
    Result r = ctl({"sensor", "temp", "--epc", "E20034120123456789ABCDEF", "--count", "2", "--every", "0"});
    ASSERT_EQ(r.code, 0) << r.err;
    std::regex line(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}  temperature code (\d+) \(0x[0-9A-F]{4}\)\n)");
    auto begin = std::sregex_iterator(r.out.begin(), r.out.end(), line);
    std::vector<std::string> codes;
    for (auto it = begin; it != std::sregex_iterator(); ++it) codes.push_back((*it)[1]);
    ASSERT_EQ(codes.size(), 2u) << r.out;
    EXPECT_EQ(codes[0], codes[1]);

    Result none = ctl({"sensor", "temp", "--epc", "300000000000000000000001"});
    EXPECT_EQ(none.code, 1);
}

TEST(CliSensorUsage, Rows) {
    struct Row {
        std::vector<std::string> args;
        const char* message;
    } rows[] = {
        {{"--sim", "sensor"}, "subcommand"},
        {{"--sim", "sensor", "log", "start", "--min", "30", "--max", "2"}, "--min is above --max"},
        {{"--sim", "sensor", "log", "start", "--interval", "0"}, "interval"},
        {{"--sim", "sensor", "temp"}, "--epc is required"},
        {{"--sim", "sensor", "temp", "--epc", "00112233445566778899AABBCCDDEEFF00"}, "1..16 bytes"},
        {{"--sim", "sensor", "temp", "--epc", "E200", "--power", "12"}, "--power takes 4 hex digits"},
    };
    for (const auto& row : rows) {
        Result r = uhfctl(row.args);
        EXPECT_EQ(r.code, 2) << row.args.back();
        EXPECT_NE(r.err.find(row.message), std::string::npos) << r.err;
    }
}

}  // namespace
