// handleTransData against a scripted reader on loopback TCP. The exchange
// makes a single non-blocking read, so each reply is pushed and known to be
// readable on the link before the call.
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "form_utils.h"
#include "link_helpers.h"

using namespace uhftest;

namespace {

ST_TransPackage package(uint8_t type, uint16_t cmd, uint16_t prop, const std::vector<uint8_t>& content) {
    ST_TransPackage p{};
    p.type = type;
    p.cmd = cmd;
    p.prop = prop;
    p.len = static_cast<uint16_t>(content.size());
    std::copy(content.begin(), content.end(), p.content);
    return p;
}

// Built by hand rather than with the codec under test.
Bytes wire_frame(const Bytes& pkg) {
    Bytes f{0x7E};
    uint8_t check = 0;
    auto put = [&f](uint8_t b) {
        if (b == 0x7E)
            f.insert(f.end(), {0x7D, 0x02});
        else if (b == 0x7D)
            f.insert(f.end(), {0x7D, 0x01});
        else
            f.push_back(b);
    };
    for (uint8_t b : pkg) {
        check ^= b;
        put(b);
    }
    put(check);
    f.push_back(0x7E);
    return f;
}

class TransExchange : public WireTest {
protected:
    // Push raw reply bytes and wait until the link can read them.
    void reply_ready(const Bytes& raw) {
        reader.push(raw);
        pollfd p{my_terminals[cur_index].my_socket, POLLIN, 0};
        ASSERT_EQ(poll(&p, 1, 5000), 1);
    }
    // What the reader has received once n bytes are in (or after 5 s).
    Bytes received_at_least(size_t n) {
        auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (reader.received().size() < n && std::chrono::steady_clock::now() < until)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        return reader.received();
    }
};

TEST_F(TransExchange, RequestFrameAndParsedReply) {
    ST_TransPackage send = package(0x01, 0x7E02, 0x0003, {0x10, 0x7D, 0x20});
    const Bytes request = wire_frame({0x01, 0x7E, 0x02, 0x00, 0x03, 0x00, 0x03, 0x10, 0x7D, 0x20});
    reply_ready(wire_frame({0x02, 0x12, 0x34, 0x00, 0x7E, 0x00, 0x02, 0xAB, 0xCD}));

    ST_TransPackage recv;
    memset(&recv, 0xEE, sizeof recv);
    ASSERT_EQ(handleTransData(&send, &recv), 0);
    EXPECT_EQ(recv.type, 0x02);
    EXPECT_EQ(recv.cmd, 0x1234);
    EXPECT_EQ(recv.prop, 0x007E);
    EXPECT_EQ(recv.len, 2);
    EXPECT_EQ(recv.content[0], 0xAB);
    EXPECT_EQ(recv.content[1], 0xCD);
    EXPECT_EQ(received_at_least(request.size()), request);
}

TEST_F(TransExchange, FailedRepliesAndTheirCodes) {
    const Bytes good_pkg{0x02, 0x00, 0x01, 0x00, 0x02, 0x00, 0x01, 0x55};
    Bytes bad_check = wire_frame(good_pkg);
    bad_check[bad_check.size() - 2] ^= 0x01;
    struct Case {
        const char* name;
        Bytes reply;
        int want;
    } cases[] = {
        {"bad check", bad_check, -3},
        {"bad escape", {0x7E, 0x7D, 0x05, 0x7E}, -3},
        {"embedded length says 2, one byte present", wire_frame({0x02, 0x00, 0x01, 0x00, 0x02, 0x00, 0x02, 0x55}), -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ST_TransPackage send = package(0x01, 0x0001, 0x0002, {0x33});
        ST_TransPackage recv{};
        reply_ready(c.reply);
        EXPECT_EQ(handleTransData(&send, &recv), c.want);
    }
}

}  // namespace
