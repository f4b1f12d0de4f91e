// Serial transport on real pseudo-terminals.
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "link_helpers.h"
#include "pty_pair.h"

using namespace uhftest;

namespace {

char* mut(const std::string& s) { return const_cast<char*>(s.c_str()); }

}  // namespace

TEST(SerialPort, OpenAtEveryRateAndRefuseOthers) {
    Pty pty;
    for (int rate : {9600, 115200, 230400}) {
        int fd = SerialPort_Open(mut(pty.path()), rate);
        ASSERT_GE(fd, 0) << rate;
        termios t;
        ASSERT_EQ(tcgetattr(fd, &t), 0);
        EXPECT_EQ(cfgetospeed(&t), getBaudrate(rate));
        EXPECT_EQ(t.c_lflag & (ICANON | ECHO), 0u);  // raw
        EXPECT_TRUE(fcntl(fd, F_GETFL) & O_NONBLOCK);
        close(fd);
    }
    EXPECT_EQ(SerialPort_Open(mut(pty.path()), 1800), -1);
    EXPECT_EQ(SerialPort_Open(mut(std::string("/nonexistent/tty")), 9600), -1);
    EXPECT_EQ(SerialPort_Open(nullptr, 9600), -1);
}

TEST(SerialPort, ReadsNeverBlockAndNoPortIsZero) {
    Pty pty;
    int fd = SerialPort_Open(mut(pty.path()), 115200);
    ASSERT_GE(fd, 0);
    uint8_t buf[16];
    EXPECT_EQ(receive_serial_bytes(buf, sizeof buf, fd), 0);
    EXPECT_EQ(receive_serial_bytes(buf, sizeof buf, -1), 0);
    EXPECT_EQ(send_serial_bytes(buf, 4, -1), 0);
    pty.write_master({1, 2, 3});
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(receive_serial_bytes(buf, sizeof buf, fd), 3);
    EXPECT_EQ(send_serial_bytes(buf, 3, fd), 3);
    EXPECT_EQ(pty.read_master(500), (Bytes{1, 2, 3}));
    close(fd);
}

class SerialLink : public ::testing::Test {
protected:
    void SetUp() override { reset_links(); }
    void TearDown() override { reset_links(); }
    Pty pty;
};

TEST_F(SerialLink, FailedOpenReturnsMinusOneAndFreesTheSlot) {
    EXPECT_EQ(ComOpenWithBaud(pty.path().c_str(), 1800), -1);
    EXPECT_EQ(ComOpen("/nonexistent/tty"), -1);
    EXPECT_EQ(my_terminals[0].device_info.trans_type, TYPE_INVALID);
    EXPECT_EQ(terminal_index, 0);
}

TEST_F(SerialLink, ExchangeDropsStaleInputBeforeSending) {
    ASSERT_EQ(ComOpen(pty.path().c_str()), 0);
    pty.read_master(500);
    // A late reply from before this command must not be taken for its answer.
    pty.write_master(frame(0x35, {0x01, 0x00, 0x11}));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    std::thread reader([&] {
        Bytes req = pty.read_master(1000);
        EXPECT_EQ(req, frame(0x34));
        pty.write_master(frame(0x35, {0x01, 0x0A, 0x28}));
    });
    uint8_t rbuf[2048];
    uint16_t rlen = 0;
    EXPECT_EQ(Vexa_SendAndRecv(0x34, nullptr, 0, rbuf, &rlen), 0);
    reader.join();
    EXPECT_EQ(Bytes(rbuf, rbuf + rlen), (Bytes{0x01, 0x0A, 0x28}));
}
