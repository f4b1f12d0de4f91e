// Reports on the wire against scripted input: how sends are cut into output
// reports, how input reports are put back together into frames, and what an
// unplugged device does to the receive thread.
#include <pthread.h>

#include <atomic>

#include "usb_fixture.h"

using namespace usbtest;
using uhftest::frame;

namespace {

class UsbReports : public UsbTest {
protected:
    void SetUp() override {
        UsbTest::SetUp();
        fakehid::set_devices({kReader});
        ASSERT_EQ(usbOpen(), 0);
    }
};

Bytes pattern(size_t n) {
    Bytes b(n);
    for (size_t i = 0; i < n; i++) b[i] = static_cast<uint8_t>(i * 7 + 1);
    return b;
}

// n reports: the first starts with head after skip zero bytes, the rest are zeros.
std::vector<Bytes> flood(size_t n, const Bytes& head = {}, size_t skip = 0) {
    std::vector<Bytes> r(n, Bytes(64, 0x00));
    std::copy(head.begin(), head.end(), r[0].begin() + static_cast<std::ptrdiff_t>(skip));
    return r;
}

std::vector<Bytes> operator+(std::vector<Bytes> a, const Bytes& b) {
    a.push_back(b);
    return a;
}

Bytes slice(const Bytes& b, size_t from, size_t n) {
    return Bytes(b.begin() + static_cast<std::ptrdiff_t>(from), b.begin() + static_cast<std::ptrdiff_t>(from + n));
}

}  // namespace

// Each report carries the next 64 bytes (the last one zero-padded), at least
// 2 ms after the one before.
TEST_F(UsbReports, SendsAreCutInto64ByteReports) {
    struct Case {
        size_t len;
        size_t reports;
    };
    const Case cases[] = {{1, 1}, {64, 1}, {65, 2}, {128, 2}, {130, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.len);
        fakehid::reset();
        const Bytes data = pattern(c.len);
        ASSERT_EQ(usbSend(data.data(), static_cast<unsigned>(c.len)), static_cast<int>(c.len));
        auto w = fakehid::written();
        ASSERT_EQ(w.size(), c.reports);
        Bytes joined;
        for (size_t i = 0; i < w.size(); i++) {
            ASSERT_EQ(w[i].report.size(), 65u);
            EXPECT_EQ(w[i].report[0], 0) << "report id";
            joined.insert(joined.end(), w[i].report.begin() + 1, w[i].report.end());
            if (i > 0) {
                EXPECT_GE(w[i].at - w[i - 1].at, std::chrono::milliseconds(2)) << "gap before report " << i;
            }
        }
        Bytes padded = data;
        padded.resize(c.reports * 64, 0);
        EXPECT_EQ(joined, padded);
    }
}

TEST_F(UsbReports, AWriteErrorEndsTheSend) {
    fakehid::fail_writes(-5);
    const Bytes data = pattern(130);
    EXPECT_EQ(usbSend(data.data(), 130), -5);
    EXPECT_TRUE(fakehid::written().empty());
}

// Each row's reports are pushed at once; the first frame usbRecv then hands
// over must be `first`. A sentinel frame pushed afterwards must come next,
// which shows that nothing else (a second frame, a leftover) was kept.
TEST_F(UsbReports, FramesAreReassembledFromReports) {
    const Bytes big = frame(0x81, pattern(142));  // 150 bytes
    const Bytes a = frame(0x13, {0x01, 0x01, 0x0B, 0xB8});
    const Bytes b = frame(0x2F, {0x01, 0x02});
    Bytes bad_check = a;
    bad_check[bad_check.size() - 3] ^= 0xFF;
    struct Case {
        const char* name;
        std::vector<Bytes> reports;
        Bytes first;
    };
    // clang-format off
    const Case cases[] = {
        {"split over three reports", {slice(big, 0, 64), slice(big, 64, 64), report_of(slice(big, 128, 22))}, big},
        {"two frames in one report: the second is lost", {report_of(a + b)}, a},
        {"junk before the frame", {report_of(Bytes{0x00, 0x33, 0xA5, 0x00} + a)}, a},
        {"bad check byte, then a good frame", {report_of(bad_check), report_of(b)}, b},
        {"header split at the report edge", {Bytes(62, 0x00) + slice(a, 0, 2), report_of(slice(a, 2, a.size() - 2))}, a},
        {"4096 bytes with no frame, then a frame", flood(64) + report_of(a), a},
        {"a start with a false length hides no frame", {report_of(Bytes{0xA5, 0x5A, 0x0F, 0xA0} + a)}, a},
        {"a start that fills the room is given up", flood(65, {0xA5, 0x5A, 0x0F, 0xFA}, 10) + report_of(a), a},
    };
    // clang-format on
    const Bytes sentinel = frame(0x55, {0xEE});
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (const auto& r : c.reports) fakehid::push_report(r);
        EXPECT_EQ(next_frame(), c.first);
        fakehid::push_report(report_of(sentinel));
        EXPECT_EQ(next_frame(), sentinel);
    }
}

namespace {

std::atomic<int> g_disconnect_arg{0};
std::atomic<bool> g_disconnect_on_test_thread{false};
pthread_t g_test_thread;

void on_disconnect(int why) {
    g_disconnect_on_test_thread = pthread_equal(pthread_self(), g_test_thread) != 0;
    g_disconnect_arg = why;
}

class UsbUnplug : public UsbTest {};

}  // namespace

TEST_F(UsbUnplug, AReadErrorEndsTheThreadAndReportsTheDisconnect) {
    g_disconnect_arg = 0;
    g_test_thread = pthread_self();
    fakehid::set_devices({kReader});
    ASSERT_EQ(UsbOpen(), 0);
    ASSERT_EQ(SetDisconnectCallback(on_disconnect), 0);

    fakehid::unplug(-1);
    ASSERT_TRUE(eventually([] { return g_disconnect_arg.load() != 0; }));
    EXPECT_EQ(g_disconnect_arg, 2);
    EXPECT_FALSE(g_disconnect_on_test_thread);
    EXPECT_TRUE(no_receive_thread());

    // The link stays open in the table; reads find nothing, after 50 ms.
    EXPECT_NE(handle, nullptr);
    EXPECT_EQ(my_terminals[cur_index].connected, 1);
    uint8_t buf[64];
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(usbRecv(buf, sizeof buf), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(49));
    EXPECT_EQ(RecvBytes(buf, sizeof buf), 0);
}
