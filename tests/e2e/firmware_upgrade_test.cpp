// A whole firmware upgrade through the library against the virtual reader.
#include <string.h>

#include <string>

#include "engine/firmware_image.h"
#include "sim_link.h"

using namespace uhftest;

namespace {

using FirmwareE2E = SimTcpTest;

std::string software_version() {
    uint8_t v[16] = {};
    EXPECT_EQ(UHFGetSoftwareVersion(v), 0);
    return std::string(reinterpret_cast<char*>(v + 1), v[0] > 0 ? v[0] - 1u : 0u);
}

}  // namespace

TEST_F(FirmwareE2E, UpgradeIn64ByteBlocksReportsTheNewVersion) {
    ASSERT_EQ(software_version(), "V2.10.4");
    Bytes image = uhfsim::build_image({4, 7, 12}, Bytes(1000, 0xA7));
    ASSERT_EQ(image.size() % 64, 0u);

    ASSERT_EQ(UHFJump2Boot(2), 0);
    with_radio([](uhfsim::Radio& r) {
        EXPECT_TRUE(r.state.boot.active);
        EXPECT_EQ(r.state.boot.target, 0xBB);
    });
    ASSERT_EQ(UHFStartUpd(), 0);
    for (size_t at = 0; at < image.size(); at += 64) ASSERT_EQ(UHFUpdating(image.data() + at), 0) << at;
    ASSERT_EQ(UHFStopUpdate(), 0);
    EXPECT_EQ(software_version(), "V4.7.12");
    // The new firmware survives a restart.
    ASSERT_EQ(UHFSetSoftReset(), 0);
    EXPECT_EQ(software_version(), "V4.7.12");
}
