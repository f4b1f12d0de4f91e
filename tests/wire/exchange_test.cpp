// The command frame exchange against a scripted reader on loopback TCP.
#include <sys/resource.h>

#include <chrono>
#include <thread>

#include "link_helpers.h"

using namespace uhftest;

namespace {

class Exchange : public WireTest {
protected:
    int call(uint8_t cmd, const Bytes& data, uint16_t timeout = 300) {
        rlen = 0xBEEF;
        return ExternalSend(cmd, data.data(), static_cast<uint16_t>(data.size()), rbuf, &rlen, timeout);
    }
    Bytes reply() const { return Bytes(rbuf, rbuf + rlen); }

    uint8_t rbuf[2048] = {};
    uint16_t rlen = 0;
};

double cpu_seconds() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

}  // namespace

TEST_F(Exchange, RequestFrameBytes) {
    reader.reply_frame(0x11, {0x01});
    ASSERT_EQ(call(0x10, {0x02, 0x01, 0x0B, 0xB8}), 0);
    Bytes expected = {0xA5, 0x5A, 0x00, 0x0C, 0x10, 0x02, 0x01, 0x0B, 0xB8, 0x00, 0x0D, 0x0A};
    uint8_t x = 0;
    for (size_t i = 2; i < 9; i++) x ^= expected[i];
    expected[9] = x;
    EXPECT_EQ(reader.received(), expected);
    EXPECT_EQ(reply(), Bytes{0x01});
}

TEST_F(Exchange, RequestWithoutDataHasLengthEightAndCheckOfHeader) {
    reader.reply_frame(0x03);
    ASSERT_EQ(ExternalSend(0x02, nullptr, 0, rbuf, &rlen, 300), 0);
    EXPECT_EQ(reader.received(), (Bytes{0xA5, 0x5A, 0x00, 0x08, 0x02, 0x08 ^ 0x02, 0x0D, 0x0A}));
    EXPECT_EQ(rlen, 0);  // a reply frame with no data is a valid answer
}

TEST_F(Exchange, ReplyOutcomes) {
    struct Case {
        const char* name;
        Bytes wire;
        int result;
        Bytes data;
    } cases[] = {
        {"plain reply", frame(0x35, {1, 2, 3}), 0, {1, 2, 3}},
        {"garbage before the frame", Bytes{0x00, 0x5A, 0x11, 0x0D} + frame(0x35, {9}), 0, {9}},
        {"wrong code first, then the reply", frame(0x99, {7}) + frame(0x35, {8}), 0, {8}},
        {"only a wrong code", frame(0x99, {7}), -4, {}},
        {"bad check byte", [] { Bytes f = frame(0x35, {5}); f[6] ^= 0xFF; return f; }(), -1, {}},
        {"bad trailer", [] { Bytes f = frame(0x35, {5}); f[7] = 0x0C; return f; }(), -1, {}},
        {"a stray A5 swallows the next start byte", Bytes{0xA5} + frame(0x35, {5}), -1, {}},
        {"A5 A5 5A never starts a frame",
         [] { Bytes f = frame(0x35, {5}); f.insert(f.begin() + 1, 0xA5); return f; }(), -1, {}},
        {"length field above 4096", Bytes{0xA5, 0x5A, 0x10, 0x01, 0x35, 0x00, 0x0D, 0x0A}, -1, {}},
        {"length field below 8", Bytes{0xA5, 0x5A, 0x00, 0x07, 0x35, 0x32, 0x0D, 0x0A}, -1, {}},
        {"silence", Bytes{}, -1, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        reader.reply(c.wire);
        int r = call(0x34, {});
        EXPECT_EQ(r, c.result);
        if (r == 0) {
            EXPECT_EQ(reply(), c.data);
        } else {
            EXPECT_EQ(rlen, 0xBEEF);  // outputs untouched on failure
        }
    }
}

TEST_F(Exchange, ReplySplitIntoSingleBytes) {
    reader.set_responder([this](const Bytes&) {
        std::thread([this] { reader.push(frame(0x81, {0x30, 0x00, 0x11, 0x22}), true); }).detach();
        return Bytes{};
    });
    ASSERT_EQ(call(0x80, {0x00, 0x64}, 1500), 0);
    EXPECT_EQ(reply(), (Bytes{0x30, 0x00, 0x11, 0x22}));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

TEST_F(Exchange, RequestCodeFFCanNeverBeAnswered) {
    reader.reply(frame(0x00, {}) + frame(0xFF, {}));
    EXPECT_EQ(call(0xFF, {}), -4);
}

TEST_F(Exchange, OversizedRequestIsRefusedWithoutTraffic) {
    Bytes big(2041, 0x11);
    EXPECT_EQ(call(0x10, big), -1);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(reader.received().empty());
    EXPECT_EQ(ExternalSend(0x10, nullptr, 0, nullptr, &rlen, 100), -1);
    EXPECT_EQ(ExternalSend(0x10, nullptr, 0, rbuf, nullptr, 100), -1);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(reader.received().empty());
}

TEST_F(Exchange, LargeRequestUsesTwoByteLength) {
    Bytes data(300, 0x5A);
    reader.reply_frame(0xF1, {0x01, 0x00});
    ASSERT_EQ(call(0xF0, data), 0);
    Bytes got = reader.received();
    ASSERT_EQ(got.size(), 308u);
    EXPECT_EQ(got[2], 0x01);
    EXPECT_EQ(got[3], 0x34);  // 308
}

TEST_F(Exchange, JunkBeyondOneKilobyteDiscardsPartialReply) {
    // A frame begun inside the first kilobyte is lost when the buffer is
    // dropped; a whole reply after that is still found.
    Bytes junk(1100, 0x00);
    Bytes f = frame(0x35, {1});
    Bytes first = junk;
    first.insert(first.end(), f.begin(), f.begin() + 4);
    reader.set_responder([&](const Bytes&) {
        std::thread([this, first, f] {
            reader.push(first);
            std::this_thread::sleep_for(std::chrono::milliseconds(40));
            reader.push(Bytes(f.begin() + 4, f.end()));
            std::this_thread::sleep_for(std::chrono::milliseconds(40));
            reader.push(frame(0x35, {2}));
        }).detach();
        return Bytes{};
    });
    ASSERT_EQ(call(0x34, {}, 1500), 0);
    EXPECT_EQ(reply(), Bytes{2});
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

TEST_F(Exchange, VexaSendUsesOneByteLengthAndWraps) {
    Bytes data(250, 0x01);
    EXPECT_EQ(Vexa_Send(0x82, data.data(), 250, cur_index), 0);
    ASSERT_TRUE(reader.wait_requests(0, 100));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    Bytes got = reader.received();
    ASSERT_EQ(got.size(), 258u);  // the whole frame goes out
    EXPECT_EQ(got[2], 0x00);
    EXPECT_EQ(got[3], 258 & 0xFF);
}

TEST_F(Exchange, VexaSendResultReadsOnlyTheLowByte) {
    // A free slot makes the transport return -1, whose low byte is non-zero.
    EXPECT_EQ(Vexa_Send(0x8C, nullptr, 0, 7), 0);
    EXPECT_EQ(Vexa_Send(0x8C, nullptr, 0, 99), 0);
    // A real send of 8 bytes succeeds too.
    EXPECT_EQ(Vexa_Send(0x8C, nullptr, 0, cur_index), 0);
    ASSERT_TRUE(reader.wait_requests(1, 1000));
    EXPECT_EQ(reader.requests()[0], (Bytes{0xA5, 0x5A, 0x00, 0x08, 0x8C, 0x84, 0x0D, 0x0A}));
}

TEST_F(Exchange, WaitingForASilentReaderDoesNotSpin) {
    double cpu0 = cpu_seconds();
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(call(0x34, {}, 1500), -1);
    double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    double cpu = cpu_seconds() - cpu0;
    EXPECT_GE(wall, 1.45);
    EXPECT_LT(cpu, 0.2 * wall) << "cpu " << cpu << " s over " << wall << " s";
}

TEST_F(Exchange, ReaderHangingUpEndsInTimeoutWithoutSpinning) {
    reader.set_responder([this](const Bytes&) {
        std::thread([this] { reader.hang_up(); }).detach();
        return Bytes{};
    });
    double cpu0 = cpu_seconds();
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(call(0x34, {}, 800), -1);
    double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_LT(cpu_seconds() - cpu0, 0.2 * wall);
}
