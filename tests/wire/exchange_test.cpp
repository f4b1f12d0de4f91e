// The command frame exchange against a scripted reader on loopback TCP.
#include <chrono>
#include <thread>

#include "link_helpers.h"
#include "transport.h"

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

}  // namespace

// Request framing: two-byte length (8 with no data), XOR over length, code
// and data, CR LF.
TEST_F(Exchange, RequestFrameBytes) {
    struct Case {
        uint8_t cmd;
        Bytes data;
        Bytes head;  // the first four bytes
        Bytes tail;  // check byte and trailer
    } cases[] = {
        {0x10, {0x02, 0x01, 0x0B, 0xB8}, {0xA5, 0x5A, 0x00, 0x0C}, {0xAC, 0x0D, 0x0A}},
        {0x02, {}, {0xA5, 0x5A, 0x00, 0x08}, {0x08 ^ 0x02, 0x0D, 0x0A}},
        {0xF0, Bytes(300, 0x5A), {0xA5, 0x5A, 0x01, 0x34}, {0x01 ^ 0x34 ^ 0xF0, 0x0D, 0x0A}},
    };
    for (const Case& c : cases) {
        reader.reply_frame(uint8_t(c.cmd + 1), {0x01});
        size_t before = reader.received().size();
        ASSERT_EQ(call(c.cmd, c.data), 0);
        Bytes got = reader.received();
        EXPECT_EQ(Bytes(got.begin() + long(before), got.end()), c.head + Bytes{c.cmd} + c.data + c.tail);
        EXPECT_EQ(reply(), Bytes{0x01});
    }
    reader.reply_frame(0x03);
    ASSERT_EQ(call(0x02, {}), 0);
    EXPECT_EQ(rlen, 0);  // a reply frame with no data is a valid answer
}

TEST_F(Exchange, ReplyOutcomes) {
    // clang-format off
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
        {"a stray A5 swallows the next start byte", Bytes{0xA5} + frame(0x35, {5}), -1, {}},
        {"A5 A5 5A never starts a frame", [] { Bytes f = frame(0x35, {5}); f.insert(f.begin() + 1, 0xA5); return f; }(), -1, {}},
        {"length field above 4096", Bytes{0xA5, 0x5A, 0x10, 0x01, 0x35, 0x00, 0x0D, 0x0A}, -1, {}},
        {"silence", Bytes{}, -1, {}},
    };
    // clang-format on
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

// One-byte length that wraps; the result reads only the transport's low byte,
// so a failed send (-1 from a free slot) still comes out as 0.
// A reader that lost a request and answers every later one at once: the
// next two answers are taken for the late reply, the third is trusted.
TEST_F(Exchange, ALostRequestCostsTwoFurtherCalls) {
    reader.reply({});
    for (int i = 0; i < 3; i++) reader.reply_frame(0x03, {0x01});
    std::vector<int> got;
    for (int i = 0; i < 4; i++) got.push_back(call(0x02, {}));
    EXPECT_EQ(got, (std::vector<int>{-1, -1, -1, 0}));
}

TEST_F(Exchange, VexaSendWrapsItsLengthAndReportsSuccessAlways) {
    EXPECT_EQ(Vexa_Send(0x8C, nullptr, 0, 7), 0);
    EXPECT_EQ(Vexa_Send(0x8C, nullptr, 0, 99), 0);
    Bytes data(250, 0x01);
    EXPECT_EQ(Vexa_Send(0x82, data.data(), 250, cur_index), 0);
    ASSERT_TRUE(reader.wait_requests(1, 1000));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    Bytes got = reader.received();
    ASSERT_EQ(got.size(), 258u);  // the whole frame goes out
    EXPECT_EQ(Bytes(got.begin(), got.begin() + 5), (Bytes{0xA5, 0x5A, 0x00, 258 & 0xFF, 0x82}));
}

using StaleInput = WireTest;

// Bytes that reached the socket before the request (a reply an earlier call
// gave up on) are dropped; the answer is the one sent after the request.
TEST_F(StaleInput, WaitingBytesAreNotTheAnswerOnTcp) {
    reader.push(frame(0x35, {0x01, 0x00, 0x11}));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    reader.reply_frame(0x35, {0x01, 0x0A, 0x28});
    uint8_t rbuf[64];
    uint16_t rlen = 0;
    ASSERT_EQ(Vexa_SendAndRecv(0x34, nullptr, 0, rbuf, &rlen), 0);
    EXPECT_EQ(Bytes(rbuf, rbuf + rlen), (Bytes{0x01, 0x0A, 0x28}));
}

// With the function category on, every failing command says what failed; with
// it off, nothing is printed.
namespace {

class FailureTrace : public WireTest {
protected:
    void TearDown() override {
        print_debug_log = 0;
        WireTest::TearDown();
    }
    // UHFGetRegion (0x2E -> 0x2F) against `reply`, its output captured.
    std::string traced(const Bytes& reply) {
        if (!reply.empty()) reader.reply(reply);
        uint8_t region = 0;
        testing::internal::CaptureStdout();
        EXPECT_EQ(UHFGetRegion(&region), -1);
        return testing::internal::GetCapturedStdout();
    }
};

}  // namespace

TEST_F(FailureTrace, EachFailureKindIsNamed) {
    print_debug_log = 0x80000000UL | 0x2;
    const std::pair<Bytes, const char*> cases[] = {
        {frame(0x2F, {0x00, 0x01}), "cmd 0x2E: status 0x00, 0x01 expected"},
        {frame(0x2F, {0x01}), "cmd 0x2E: reply too short (1 bytes, 2 needed)"},
        {frame(0x55, {0x01}), "cmd 0x2E: another code answered"},
    };
    for (const auto& [reply, says] : cases) EXPECT_NE(traced(reply).find(says), std::string::npos) << says;
    EXPECT_NE(traced({}).find("cmd 0x2E: no reply in 1500 ms"), std::string::npos);
    print_debug_log = 0;
    uhf::forget_late_replies(cur_index);
    EXPECT_EQ(traced(frame(0x2F, {0x00, 0x01})), "");
}
