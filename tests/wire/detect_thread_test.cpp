// The serial detection thread on a real pseudo-terminal: escaped tag frames
// written by the "reader" end up unescaped in the frame stack.
#include <chrono>
#include <thread>

#include "link_helpers.h"
#include "pty_pair.h"

using namespace uhftest;

namespace {

class DetectThread : public ::testing::Test {
protected:
    void SetUp() override {
        reset_links();
        ASSERT_EQ(ComOpen(pty.path().c_str()), 0);
        pty.read_master(500);  // the stop-inventory frame sent on open
        Init_UhfStack();
    }
    void TearDown() override {
        Stop_DectThread();
        UHF_FlagCrcOn();
        reset_links();
    }

    // Fetch frames until `last` came out (or 5 s passed); everything fetched.
    std::vector<Bytes> fetch_until(const Bytes& last) {
        std::vector<Bytes> got;
        auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (std::chrono::steady_clock::now() < end) {
            uint8_t buf[80];
            uint8_t len = 0;
            if (Fetch_UhfStack(buf, &len) == 0) {
                got.emplace_back(buf, buf + len);
                if (got.back() == last) break;
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        }
        return got;
    }

    Pty pty;
};

}  // namespace

TEST_F(DetectThread, CollectsFramesWithoutCrcAcrossReads) {
    UHF_FlafCrcOff();
    ASSERT_EQ(Creat_DectThread(), 0);
    const Bytes escaped = {0xAA, 0x07, 0x26, 0x00, 0xFF, 0xFF, 0xFF, 0x55, 0xFF, 0xAA, 0x09, 0x55};
    const Bytes stored = {0xAA, 0x07, 0x26, 0x00, 0xFF, 0x55, 0xAA, 0x09, 0x55};
    // The frame arrives in two pieces, most likely in two reads.
    pty.write_master(Bytes(escaped.begin(), escaped.begin() + 5));
    std::this_thread::sleep_for(std::chrono::milliseconds(80));
    pty.write_master(Bytes(escaped.begin() + 5, escaped.end()));
    const Bytes sentinel = {0xAA, 0x03, 0x11, 0x00, 0x55};
    std::this_thread::sleep_for(std::chrono::milliseconds(80));
    pty.write_master(sentinel);
    EXPECT_EQ(fetch_until(sentinel), (std::vector<Bytes>{stored, sentinel}));
}
