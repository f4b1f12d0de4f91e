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

// A pseudo-terminal keeps its own character size and parity (the kernel
// ignores those for ptys) but honours stop bits, so the test checks stop bits
// directly and that the report printed matches what the driver kept.
TEST(SerialPort, OpenExAppliesStopBitsAndReportsWhatTheDriverKept) {
    Pty pty;
    struct Case {
        int databits, stopbits, parity;
        bool cstopb;
    } cases[] = {{8, 1, 0, false}, {7, 2, 1, true}, {8, 1, 2, false}, {6, 2, 0, true},
                 {9, 3, 7, true}};  // unknown stop bits leave the previous setting
    print_debug_log = 0;
    openLog(ENABLE_LOG);
    openLog(SERIAL_LOG);
    for (const Case& c : cases) {
        testing::internal::CaptureStdout();
        int fd = SerialPort_Open_Ex(mut(pty.path()), 19200, c.databits, c.stopbits, c.parity);
        std::string out = testing::internal::GetCapturedStdout();
        ASSERT_GE(fd, 0);
        termios t;
        ASSERT_EQ(tcgetattr(fd, &t), 0);
        EXPECT_EQ((t.c_cflag & CSTOPB) != 0, c.cstopb) << c.stopbits;
        bool parity_on = t.c_cflag & PARENB;
        EXPECT_NE(out.find(parity_on ? "checking open \n" : "checking close\n"), std::string::npos) << out;
        EXPECT_NE(out.find((t.c_cflag & PARODD) ? "odd check\n" : "even check\n"), std::string::npos) << out;
        close(fd);
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(SerialPort_Open_Ex(mut(pty.path()), 460800, 8, 1, 0), -1);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("This baudrate is not support........."), std::string::npos);
    print_debug_log = 0;
}

TEST(SerialPort, ReadsNeverBlockAndNoPortIsZero) {
    Pty pty;
    int fd = SerialPort_Open(mut(pty.path()), 115200);
    ASSERT_GE(fd, 0);
    uint8_t buf[16];
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(receive_serial_bytes(buf, sizeof buf, fd), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(1));
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

TEST_F(SerialLink, ComOpenSettlesThenSendsStopInventory) {
    auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(ComOpen(pty.path().c_str()), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(300));
    EXPECT_EQ(pty.read_master(1000), (Bytes{0xA5, 0x5A, 0x00, 0x08, 0x8C, 0x84, 0x0D, 0x0A}));
    EXPECT_EQ(UHFIsOpen, 1);
    EXPECT_EQ(UHF_MODULE_TYPE, 2);
    EXPECT_EQ(my_terminals[0].device_info.trans_type, TYPE_SERIAL_PORT);
    EXPECT_EQ(my_terminals[0].device_info.baud, 115200);
    ClosePort();
    EXPECT_EQ(UHFIsOpen, 0);
    EXPECT_EQ(my_terminals[0].device_info.trans_type, TYPE_INVALID);
}

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
