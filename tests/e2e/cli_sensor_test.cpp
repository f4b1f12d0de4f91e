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
};

// Stopping a tag that logs nothing is refused with the reader's own code.
TEST_F(CliSensor, StopWithoutARunShowsTheReadersErrorCode) {
    Result r = ctl({"sensor", "log", "stop"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("refused it with error 0x0C"), std::string::npos) << r.err;
}

TEST(CliSensorUsage, Rows) {
    struct Row {
        std::vector<std::string> args;
        const char* message;
    } rows[] = {
        {{"--sim", "sensor"}, "subcommand"},
        {{"--sim", "sensor", "log", "start", "--min", "30", "--max", "2"}, "--min is above --max"},
        {{"--sim", "sensor", "temp"}, "--epc is required"},
        {{"--sim", "sensor", "temp", "--epc", "00112233445566778899AABBCCDDEEFF00"}, "1..16 bytes"},
    };
    for (const auto& row : rows) {
        Result r = uhfctl(row.args);
        EXPECT_EQ(r.code, 2) << row.args.back();
        EXPECT_NE(r.err.find(row.message), std::string::npos) << r.err;
    }
}

}  // namespace
