// uhfctl when the reader goes away mid-run, and its --version.
#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "cli_helpers.h"

using namespace clitest;

namespace {

std::unique_ptr<SimProcess> sim_on(const std::string& where) {
    return std::make_unique<SimProcess>(std::vector<std::string>{"--tcp", where, "--random-tags", "3", "--rate", "20"});
}

// Reads uhfctl's JSON output until `event` (or the end); counts reads after it.
size_t reads_after(const std::string& out, const std::string& event) {
    size_t after = 0;
    bool seen = event.empty();
    for (const auto& j : json_lines(out)) {
        if (!j) continue;
        if (!event.empty() && str(j.get(), "event") == event) seen = true;
        if (seen && !str(j.get(), "epc").empty()) after++;
    }
    return seen ? after : 0;
}

}  // namespace

TEST(CliLifecycle, AVanishedReaderIsReportedWithExitCode3) {
    auto sim = sim_on("127.0.0.1:0");
    const std::string where = sim->where();
    std::thread killer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        sim.reset();
    });
    Result r = uhfctl({"--tcp", where, "inventory", "--format", "json", "--duration", "8"});
    killer.join();
    EXPECT_EQ(r.code, 3);
    EXPECT_NE(r.err.find("lost tcp " + where), std::string::npos) << r.err;
    EXPECT_GT(reads_after(r.out, ""), 0u);
}

TEST(CliLifecycle, ReconnectCarriesOnOnceTheReaderIsBack) {
    auto sim = sim_on("127.0.0.1:0");
    const std::string where = sim->where();
    std::thread restarter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        sim.reset();
        std::this_thread::sleep_for(std::chrono::milliseconds(1000));
        sim = sim_on(where);
    });
    Result r = uhfctl({"--tcp", where, "inventory", "--format", "json", "--duration", "7", "--reconnect"});
    restarter.join();
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_GT(reads_after(r.out, "reconnected"), 0u) << r.out;
}

TEST(CliLifecycle, VersionNamesToolAndLibrary) {
    Result r = uhfctl({"--version"});
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.out.rfind("uhfctl ", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("(commit "), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("libuhfhost.so.1"), std::string::npos) << r.out;
}
