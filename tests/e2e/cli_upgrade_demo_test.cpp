// uhfctl upgrade with good and bad images, and the demo.
#include <gtest/gtest.h>

#include <fstream>

#include "cli_helpers.h"
#include "engine/firmware_image.h"
#include "sim_link.h"

using namespace clitest;

namespace {

std::vector<uint8_t> payload(size_t n) {
    std::vector<uint8_t> p(n);
    for (size_t i = 0; i < n; i++) p[i] = static_cast<uint8_t>(i * 7 + 3);
    return p;
}

struct UpgradeRow {
    const char* name;
    std::vector<uint8_t> image;
    std::vector<std::string> extra;
    int code;
    const char* message;  // in stdout for 0, stderr otherwise
};

std::vector<uint8_t> corrupted(std::vector<uint8_t> image) {
    image[uhfsim::kImageHeaderLen + 5] ^= 0x40;  // payload byte: the CRC no longer holds
    return image;
}

class CliUpgrade : public ::testing::TestWithParam<UpgradeRow> {};

TEST_P(CliUpgrade, FinalWordMatchesWhatTheReaderDid) {
    const UpgradeRow& row = GetParam();
    uhfsim::TcpServer sim(uhftest::sim_options(1));
    ASSERT_TRUE(sim.start());
    std::string file = ::testing::TempDir() + "uhfctl_fw_" + row.name + ".bin";
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(row.image.data()),
                                                static_cast<std::streamsize>(row.image.size()));
    std::vector<std::string> args = {"--tcp", "127.0.0.1:" + std::to_string(sim.port()), "upgrade", file,
                                     "--settle-ms", "20"};
    args.insert(args.end(), row.extra.begin(), row.extra.end());
    Result r = uhfctl(args);
    EXPECT_EQ(r.code, row.code) << r.out << r.err;
    EXPECT_NE((row.code == 0 ? r.out : r.err).find(row.message), std::string::npos) << r.out << r.err;
    // The progress bar reached the end on the good path; stderr is no
    // terminal here, so no carriage returns.
    if (row.code == 0) {
        EXPECT_NE(r.err.find("100%"), std::string::npos) << r.err;
    }
    EXPECT_EQ(r.err.find('\r'), std::string::npos);
    std::remove(file.c_str());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CliUpgrade,
    ::testing::Values(
        UpgradeRow{"good_64", uhfsim::build_image({3, 0, 0}, payload(1000)), {}, 0, "firmware V2.10.4 -> V3.0.0"},
        UpgradeRow{"good_200_byte_blocks", uhfsim::build_image({2, 11, 0}, payload(900), false), {"--block", "200"}, 0,
                   "firmware V2.10.4 -> V2.11.0"},
        UpgradeRow{"bad_crc", corrupted(uhfsim::build_image({3, 0, 0}, payload(1000))), {}, 1,
                   "refused the image: it still runs V2.10.4"},
        UpgradeRow{"not_an_image", payload(300), {}, 1, "refused the image"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(CliUpgradeRefused, BootLoaderRefusalExitsOne) {
    auto o = uhftest::sim_options(1);
    o.faults.ignore_codes = {0xC0};
    uhfsim::TcpServer sim(o);
    ASSERT_TRUE(sim.start());
    std::string file = ::testing::TempDir() + "uhfctl_fw_refused.bin";
    auto image = uhfsim::build_image({3, 0, 0}, payload(64));
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(image.data()),
                                                static_cast<std::streamsize>(image.size()));
    Result r = uhfctl({"--tcp", "127.0.0.1:" + std::to_string(sim.port()), "upgrade", file});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("upgrade: entering the boot loader"), std::string::npos) << r.err;
    EXPECT_EQ(sim.stats().requests[0xC4], 0u);  // no block went out
    std::remove(file.c_str());
}

TEST(CliDemo, RunsAndSummarises) {
    Result r = uhfctl({"demo", "--duration", "1", "--tags", "12"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.find('\x1b'), std::string::npos);  // stdout is a pipe here
    EXPECT_NE(r.out.find("a virtual reader with 12 tags"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Demo summary"), std::string::npos);
    EXPECT_NE(r.out.find(" of 12\n"), std::string::npos);
    EXPECT_NE(r.out.find("reader stopped  yes, confirmed"), std::string::npos);
}

TEST(CliDemo, IgnoresConnectionOptionsAndTheEnvironment) {
    Result r = uhfctl({"--tcp", "127.0.0.1:1", "demo", "--duration", "1"}, {"UHF_READER=tcp:127.0.0.1:1"});
    EXPECT_EQ(r.code, 0) << r.err;
}

}  // namespace
