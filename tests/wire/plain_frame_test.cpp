// Plain-frame calls: the fixed bodies on the link and on the auxiliary
// device uhf_finger_fd (a socket pair here), and the replies they accept.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "link_helpers.h"

using namespace uhftest;

namespace {

Bytes plain(const Bytes& body) {
    return Bytes{0xA5, 0x02, uint8_t(body.size() >> 8), uint8_t(body.size())} + body + Bytes{0x03};
}

// An acknowledgement of command cmd: A5 02, body 01 cmd+1 00 05, then the two
// bytes checked at frame offsets 8 and 9.
Bytes ack(uint8_t reply_cmd, uint8_t b8, uint8_t b9) { return plain({0x01, reply_cmd, 0x00, 0x06, b8, b9}); }

class PlainFrame : public WireTest {
protected:
    void SetUp() override {
        WireTest::SetUp();
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, aux), 0);
        fcntl(aux[0], F_SETFL, O_NONBLOCK);
        uhf_finger_fd = aux[0];
    }
    void TearDown() override {
        uhf_finger_fd = -1;
        close(aux[0]);
        close(aux[1]);
        WireTest::TearDown();
    }
    // What the library wrote to the auxiliary device so far.
    Bytes aux_written() {
        Bytes out;
        pollfd p{aux[1], POLLIN, 0};
        while (poll(&p, 1, 50) > 0) {
            uint8_t buf[256];
            ssize_t n = read(aux[1], buf, sizeof buf);
            if (n <= 0) break;
            out.insert(out.end(), buf, buf + n);
        }
        return out;
    }
    int aux[2] = {-1, -1};
};

const Bytes kConfigBody = {0x01, 0x2A, 0x00, 0x0B, 0x00, 0x01, 0x00, 0x33, 0x00, 0x12, 0x34};

}  // namespace

TEST_F(PlainFrame, SetConfigWritesTheBodyBareThenFramed) {
    struct Case {
        const char* name;
        Bytes wire;
        int result;
    } cases[] = {
        {"acknowledged", ack(0x2B, 0x00, 0x01), 0},
        {"byte 9 not 01", ack(0x2B, 0x00, 0x00), -1},
        {"another command's answer", ack(0x15, 0x00, 0x01), -1},
        {"body not starting 01", plain({0x02, 0x2B, 0x00, 0x06, 0x00, 0x01}), -1},
    };
    uint8_t arg[2] = {0x12, 0x34};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        size_t before = reader.requests().size();
        reader.reply(c.wire);
        EXPECT_EQ(set_config(arg), c.result);
        EXPECT_EQ(aux_written(), kConfigBody);
        auto reqs = reader.requests();
        ASSERT_EQ(reqs.size(), before + 1);
        EXPECT_EQ(reqs.back(), plain(kConfigBody));
        EXPECT_EQ(reqs.back().size(), 16u);
    }
}

TEST_F(PlainFrame, SetConfigNeedsTheAuxiliaryDevice) {
    uhf_finger_fd = -1;
    uint8_t arg[2] = {0, 0};
    EXPECT_EQ(set_config(arg), -1);
    uhf_finger_fd = aux[0];
    EXPECT_EQ(set_config(nullptr), -1);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(reader.received().empty());
    EXPECT_TRUE(aux_written().empty());
}

TEST_F(PlainFrame, SetInventorySperWritesToLinkZeroAndListensOnTheSelectedLink) {
    ScriptedReader second;
    connect_to(second);  // slot 1, now selected
    ASSERT_EQ(cur_index, 1);
    struct Case {
        uint8_t flag;
        Bytes wire;
        int result;
    } cases[] = {
        {1, ack(0x15, 0x00, 0x00), 0},
        {0, ack(0x15, 0x00, 0x00), 0},
        {9, ack(0x15, 0x00, 0x01), -1},
        {1, ack(0x2B, 0x00, 0x00), -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(int(c.flag));
        Bytes answer = c.wire;
        reader.set_responder([&second, answer](const Bytes&) {
            second.push(answer);
            return Bytes{};
        });
        size_t before = reader.requests().size();
        EXPECT_EQ(set_inventory_sper(c.flag), c.result);
        auto reqs = reader.requests();
        ASSERT_EQ(reqs.size(), before + 1);
        const Bytes& f = reqs.back();
        ASSERT_EQ(f.size(), 50u);
        EXPECT_EQ(Bytes(f.begin(), f.begin() + 8), (Bytes{0xA5, 0x02, 0x00, 0x2D, 0x01, 0x14, 0x00, 0x2D}));
        EXPECT_EQ(f[4 + 37], c.flag ? 0x01 : 0x00);
        EXPECT_EQ(Bytes(f.end() - 6, f.end()), (Bytes{0x65, 0x00, 0x00, 0x00, 0x80, 0x03}));
    }
    EXPECT_TRUE(second.received().empty());
}

