// One module behind every link: what one connection changes, the next one
// sees, over TCP and the pty alike.
#include "link_helpers.h"
#include "transport/servers.h"

TEST(SimSharedReader, ASettingAndATagWriteOnOneLinkAreSeenOnTheNext) {
    uhftest::reset_links();
    uhfsim::SimOptions o;
    o.tags = uhfsim::TagField::random(1, 3);
    uhfsim::TcpServer tcp(o);
    uhfsim::PtyServer pty(o, tcp.radio());
    ASSERT_TRUE(tcp.start() && pty.start());
    uint8_t pwd[4] = {}, no_mask[1] = {}, word[2] = {0xCA, 0xFE}, power = 0, got[2] = {};
    ASSERT_EQ(TCPConnect("127.0.0.1", tcp.port()), 0);
    ASSERT_EQ(UHFSetPower(1, 25), 0);
    ASSERT_EQ(UHFWriteData(pwd, 1, 0, 0, no_mask, 3, 0, 1, word), 0);
    ClosePort();
    for (bool serial : {false, true}) {
        ASSERT_EQ(serial ? ComOpen(pty.slave_path().c_str()) : TCPConnect("127.0.0.1", tcp.port()), 0);
        EXPECT_EQ(UHFGetPower(&power), 0);
        EXPECT_EQ(power, 25) << "serial " << serial;
        EXPECT_EQ(UHFReadData(pwd, 1, 0, 0, no_mask, 3, 0, 1, got), 0);
        EXPECT_EQ(got[0] << 8 | got[1], 0xCAFE) << "serial " << serial;
        ClosePort();
    }
}
