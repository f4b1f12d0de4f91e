// The library's reaction to each fault the virtual reader can inject.
#include "sim_link.h"

using namespace uhftest;

namespace {

// Software version query: 0x02 without data, answered by 0x03 with 3 bytes.
int ask_version(uint8_t* data, uint16_t* len) { return Vexa_SendAndRecv(0x02, nullptr, 0, data, len); }

struct FaultCase {
    const char* name;
    uhfsim::FaultOptions faults;
    int expected, then;  // the first exchange and, if it worked, one 50 ms later
};

uhfsim::FaultOptions with(void (*set)(uhfsim::FaultOptions&)) {
    uhfsim::FaultOptions f;
    set(f);
    return f;
}

}  // namespace

TEST(ExchangeFaults, EachFaultHasItsDocumentedResult) {
    // clang-format off
    const FaultCase cases[] = {
        {"reply later than the time limit", with([](auto& f) { f.delay_ms = 1700; }), -1, 0},
        {"reply a little late", with([](auto& f) { f.delay_ms = 200; }), 0, 0},
        {"reply in the last quarter of the limit", with([](auto& f) { f.delay_ms = 1300; }), 0, 0},
        {"every reply dropped", with([](auto& f) { f.drop_ratio = 1.0; }), -1, 0},
        {"every check byte wrong", with([](auto& f) { f.corrupt_ratio = 1.0; }), -1, 0},
        {"one byte per write", with([](auto& f) { f.split_bytes = true; }), 0, 0},
        {"garbage between frames", with([](auto& f) { f.garbage_bytes = 40; }), 0, 0},
        {"request ignored", with([](auto& f) { f.ignore_codes = {0x02}; }), -1, 0},
        {"connection closed after one reply", with([](auto& f) { f.close_after = 1; }), 0, -1},
    };
    // clang-format on
    for (const FaultCase& c : cases) {
        SCOPED_TRACE(c.name);
        reset_links();
        auto o = sim_options(1);
        o.faults = c.faults;
        uhfsim::TcpServer srv(o);
        ASSERT_TRUE(srv.start());
        ASSERT_EQ(TCPConnect("127.0.0.1", srv.port()), 0);
        uint8_t data[2048];
        uint16_t len = 0;
        EXPECT_EQ(ask_version(data, &len), c.expected);
        if (c.expected == 0) {
            EXPECT_EQ(len, 3);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            EXPECT_EQ(ask_version(data, &len), c.then);
        }
    }
    reset_links();
}

// A reader that always answers after the time limit: its late replies never
// pass for the answer to a later call.
TEST(ExchangeFaults, LateRepliesNeverAnswerTheNextCall) {
    reset_links();
    auto o = sim_options(1);
    o.faults.delay_ms = 3000;
    uhfsim::TcpServer srv(o);
    ASSERT_TRUE(srv.start());
    ASSERT_EQ(TCPConnect("127.0.0.1", srv.port()), 0);
    for (int call = 0; call < 3; call++) {
        uint8_t power[8] = {};
        EXPECT_EQ(UHFGetPower(power), -1) << "call " << call;
    }
    reset_links();
}
