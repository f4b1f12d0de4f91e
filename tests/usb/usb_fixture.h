// Shared by the USB suites: every test starts on a machine with nothing
// plugged in and no link open, and ends with no receive thread left.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "fake_hid.h"
#include "link_helpers.h"
#include "usb_transport.h"

namespace usbtest {

using fakehid::Bytes;

inline const fakehid::Entry kReader{"1-1.4:1.0", 1};

// Poll cond every 2 ms for at most ms; whether it became true.
inline bool eventually(const std::function<bool()>& cond, int ms = 5000) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!cond()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

inline bool no_receive_thread() {
    return eventually([] { return uhf::usb_receive_threads() == 0; });
}

// Bytes padded with zeros to a whole 64-byte input report.
inline Bytes report_of(Bytes b) {
    b.resize(64, 0);
    return b;
}

class UsbTest : public ::testing::Test {
protected:
    void SetUp() override {
        shut_down();
        fakehid::reset();
    }
    void TearDown() override { shut_down(); }

    // Close every link and the device; a thread let go by the close is
    // waited for, so it cannot call into the next test.
    static void shut_down() {
        setOnDataReceived(nullptr);
        uhftest::reset_links();
        usbClose();
        ASSERT_TRUE(no_receive_thread());
    }

    // The next frame usbRecv hands over within ms, or empty.
    static Bytes next_frame(int ms = 3000) {
        uint8_t buf[4096];
        Bytes got;
        eventually(
            [&] {
                int n = usbRecv(buf, sizeof buf);
                if (n > 0) got.assign(buf, buf + n);
                return n > 0;
            },
            ms);
        return got;
    }
};

}  // namespace usbtest
