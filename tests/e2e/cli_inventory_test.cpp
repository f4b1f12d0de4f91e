// uhfctl inventory end to end: JSON lines, CSV, unique records, counts,
// several readers, Ctrl-C, and the table on a terminal and off it.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>

#include "cli_helpers.h"
#include "sim_link.h"

using namespace clitest;

namespace {

std::set<std::string> epcs_of(const std::vector<Json>& lines) {
    std::set<std::string> s;
    for (const auto& j : lines) s.insert(str(j.get(), "epc"));
    return s;
}

// A virtual reader in the test process, so its counters can be read.
class CliInventory : public ::testing::Test {
protected:
    void SetUp() override {
        opts = uhftest::sim_options(6, 400, 11);
        server = std::make_unique<uhfsim::TcpServer>(opts);
        ASSERT_TRUE(server->start());
        where = "127.0.0.1:" + std::to_string(server->port());
    }
    // uhfctl sends one stop when it opens a reader (one left inventorying
    // would keep streaming); a run that stopped its inventory sent another.
    uint64_t stops() const { return server->stats().requests[0x8C]; }

    uhfsim::SimOptions opts;
    std::unique_ptr<uhfsim::TcpServer> server;
    std::string where;
};

TEST(CliInventorySim, JsonLinesCarryEverySimulatedEpcFromUhfsim) {
    SimProcess sim({"--tcp", "127.0.0.1:0", "--random-tags", "7", "--seed", "9", "--rate", "500"});
    ASSERT_FALSE(sim.where().empty());
    Result r = uhfctl({"--tcp", sim.where(), "inventory", "--format", "json", "--duration", "1"});
    ASSERT_EQ(r.code, 0) << r.err;
    auto lines = json_lines(r.out);
    ASSERT_FALSE(lines.empty());
    for (const auto& j : lines) {
        ASSERT_NE(j, nullptr) << "not JSON: " << r.out;
        EXPECT_EQ(str(j.get(), "reader"), "tcp " + sim.where());
        EXPECT_EQ(str(j.get(), "epc").size(), 24u);
        EXPECT_EQ(str(j.get(), "pc"), "3000");
        double rssi = num(j.get(), "rssi");
        EXPECT_TRUE(rssi <= -25.0 && rssi >= -120.0) << rssi;
        EXPECT_GE(num(j.get(), "antenna"), 1);
    }
    // uhfsim makes its field for 4 antennas unless told otherwise.
    EXPECT_EQ(epcs_of(lines), uhftest::field_epcs(uhfsim::TagField::random(7, 9, 4)));
}

TEST_F(CliInventory, UniqueGivesOneRecordPerTagWithStatistics) {
    Result r = uhfctl({"--tcp", where, "inventory", "--format", "json", "--unique", "--duration", "1"});
    ASSERT_EQ(r.code, 0) << r.err;
    auto lines = json_lines(r.out);
    EXPECT_EQ(epcs_of(lines), uhftest::field_epcs(opts.tags));
    EXPECT_EQ(lines.size(), opts.tags.size());
    for (const auto& j : lines) {
        ASSERT_NE(j, nullptr);
        double reads = num(j.get(), "reads"), last = num(j.get(), "rssi_last");
        double mean = num(j.get(), "rssi_mean"), max = num(j.get(), "rssi_max");
        EXPECT_GE(reads, 1);
        EXPECT_LE(last, max);
        EXPECT_LE(mean, max);
        EXPECT_LE(num(j.get(), "first_seen"), num(j.get(), "last_seen"));
    }
}

TEST_F(CliInventory, CsvCountHasAHeaderAndSevenFieldsPerRead) {
    Result r = uhfctl({"--tcp", where, "inventory", "--format", "csv", "--count", "10"});
    ASSERT_EQ(r.code, 0) << r.err;
    std::istringstream in(r.out);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "time,reader,epc,pc,data,rssi,antenna");
    int rows = 0;
    const std::regex row(R"(\d+\.\d{3},tcp [0-9.:]+,[0-9A-F]{24},3000,,-\d+\.\d,[1-4])");
    while (std::getline(in, line)) {
        EXPECT_TRUE(std::regex_match(line, row)) << line;  // RSSI in dBm, one decimal, with its sign
        rows++;
    }
    EXPECT_EQ(rows, 10);
    EXPECT_GE(stops(), 2u);  // the count ended the run and stopped the reader
}

TEST_F(CliInventory, TableOffATerminalHasNoEscapeCodesAndEndsWithASummary) {
    Result r = uhfctl({"--tcp", where, "inventory", "--duration", "1"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.find('\x1b'), std::string::npos);
    EXPECT_NE(r.out.find("EPC"), std::string::npos);
    EXPECT_NE(r.out.find(std::to_string(opts.tags.size()) + " unique tags"), std::string::npos) << r.out;
    for (const auto& epc : uhftest::field_epcs(opts.tags)) EXPECT_NE(r.out.find(epc), std::string::npos) << epc;
}

TEST_F(CliInventory, CtrlCStopsTheReaderAndExitsZero) {
    Background child(UHFCTL_PATH, {"--tcp", where, "inventory", "--format", "json"});
    std::string first;
    ASSERT_TRUE(child.line(first));
    Json j(cJSON_Parse(first.c_str()));
    EXPECT_NE(j, nullptr) << first;
    child.signal(SIGINT);
    std::string rest = child.rest();
    EXPECT_EQ(child.wait(), 0);
    for (const auto& line : json_lines(rest)) EXPECT_NE(line, nullptr);
    EXPECT_GE(stops(), 2u);
}

TEST_F(CliInventory, ClosedPipeStopsTheReaderCleanly) {
    Background child(UHFCTL_PATH, {"--tcp", where, "inventory", "--format", "json"});
    std::string first;
    ASSERT_TRUE(child.line(first));
    child.close_output();
    EXPECT_EQ(child.wait(), 0);
    EXPECT_GE(stops(), 2u);
}

}  // namespace
