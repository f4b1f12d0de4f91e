// uhfctl upgrade with good and bad images, and the demo.
#include <gtest/gtest.h>

#include <fstream>

#include "cli_helpers.h"
#include "engine/firmware_image.h"
#include "sim_link.h"

using namespace clitest;

// A good image exits 0 naming both versions; one the reader refuses exits 1.
TEST(CliUpgrade, GoodImageExitsZeroAndABadOneExitsOne) {
    std::vector<uint8_t> payload(1000);
    for (size_t i = 0; i < payload.size(); i++) payload[i] = static_cast<uint8_t>(i * 7 + 3);
    auto bad = uhfsim::build_image({3, 0, 0}, payload);
    bad[uhfsim::kImageHeaderLen + 5] ^= 0x40;  // the CRC no longer holds
    const struct {
        std::vector<uint8_t> image;
        int code;
        const char* message;
    } rows[] = {{uhfsim::build_image({3, 0, 0}, payload), 0, "firmware V2.10.4 -> V3.0.0"},
                {bad, 1, "refused the image: it still runs V2.10.4"}};
    for (const auto& row : rows) {
        uhfsim::TcpServer sim(uhftest::sim_options(1));
        ASSERT_TRUE(sim.start());
        std::string file = ::testing::TempDir() + "uhfctl_fw.bin";
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(row.image.data()), static_cast<std::streamsize>(row.image.size()));
        Result r = uhfctl({"--tcp", "127.0.0.1:" + std::to_string(sim.port()), "upgrade", file});
        EXPECT_EQ(r.code, row.code) << r.err;
        EXPECT_NE((row.code == 0 ? r.out : r.err).find(row.message), std::string::npos) << r.out << r.err;
        std::remove(file.c_str());
    }
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
