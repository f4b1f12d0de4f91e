// uhfctl: how readers are named and opened, and the exit code 3 messages
// when they cannot be.
#include <gtest/gtest.h>

#include "cli_helpers.h"
#include "loopback_socket.h"
#include "transport/servers.h"

using namespace clitest;

namespace {

TEST(CliConnection, RefusedPortExitsThreeNamingTheAddress) {
    LoopbackSocket bound(false);  // bound, not listening: connect is refused
    std::string where = "127.0.0.1:" + std::to_string(bound.port);
    Result r = uhfctl({"--tcp", where, "info"});
    EXPECT_EQ(r.code, 3);
    EXPECT_NE(r.err.find("tcp " + where + " refused the connection"), std::string::npos) << r.err;
}

TEST(CliConnection, SilentListenerExitsThreeWithNoReplyMessage) {
    LoopbackSocket silent(true);  // accepts (in the backlog) and never answers
    std::string where = "127.0.0.1:" + std::to_string(silent.port);
    Result r = uhfctl({"--tcp", where, "info"});
    EXPECT_EQ(r.code, 3);
    EXPECT_NE(r.err.find("no reply from tcp " + where + " within 1.5 s: check address, port and power"),
              std::string::npos)
        << r.err;
}

TEST(CliConnection, MissingSerialPortExitsThree) {
    Result r = uhfctl({"--serial", "/dev/uhfctl-no-such-port@9600", "info"});
    EXPECT_EQ(r.code, 3);
    EXPECT_NE(r.err.find("cannot open serial /dev/uhfctl-no-such-port@9600"), std::string::npos) << r.err;
}

// The test machines have no reader on USB.
TEST(CliConnection, NoUsbReaderExitsThree) {
    Result r = uhfctl({"--usb", "info"});
    EXPECT_EQ(r.code, 3);
    EXPECT_NE(r.err.find("no USB reader (HID 2047:0301) is plugged in"), std::string::npos) << r.err;
}

// UHF_READER forms that name the same reader as --tcp does.
class CliReaderEnv : public ::testing::TestWithParam<std::string> {};

INSTANTIATE_TEST_SUITE_P(Forms, CliReaderEnv,
                         ::testing::Values("UHF_READER=tcp:127.0.0.1:PORT", "UHF_READER=tcp:localhost:PORT",
                                           "UHF_READER=,tcp:127.0.0.1:PORT,"));

TEST(CliConnection, OptionsWinOverTheEnvironment) {
    Result r = uhfctl({"--sim", "get", "device-id"}, {"UHF_READER=tcp:127.0.0.1:1"});
    EXPECT_EQ(r.code, 0) << r.err;
}

TEST(CliConnection, SerialOverPseudoTerminal) {
    SimProcess sim({"--pty", "--random-tags", "3", "--seed", "5"}, "pty ");
    ASSERT_FALSE(sim.where().empty());
    Result r = uhfctl({"--serial", sim.where() + "@115200", "info", "--format", "json"});
    ASSERT_EQ(r.code, 0) << r.err;
    Json info(cJSON_Parse(r.out.c_str()));
    ASSERT_NE(info, nullptr) << r.out;
    EXPECT_EQ(str(info.get(), "reader"), "serial " + sim.where() + "@115200");
    EXPECT_EQ(str(info.get(), "hardware"), "V1.2.0");
}

}  // namespace

TEST_P(CliReaderEnv, NamesTheReader) {
    uhfsim::SimOptions o;
    o.tags = uhfsim::TagField::random(2, 3);
    o.host = "127.0.0.1";
    uhfsim::TcpServer sim(o);
    ASSERT_TRUE(sim.start());
    std::string env = GetParam();
    auto at = env.find("PORT");
    env.replace(at, 4, std::to_string(sim.port()));
    Result r = uhfctl({"get", "device-id"}, {env});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("device-id"), std::string::npos) << r.out;
}
