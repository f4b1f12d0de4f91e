// Finding, opening and closing the reader: device-list shapes, the link-layer
// wrappers, opening twice, and the results of a transport that is not open.
#include <string.h>

#include <fstream>
#include <string>

#include "usb_fixture.h"

using namespace usbtest;
using fakehid::Entry;

namespace {

struct OpenCase {
    const char* name;
    std::vector<Entry> devices;
    bool open_fails;
    int result;
    const char* path;  // cur_usb_path afterwards
};

// clang-format off
const OpenCase kOpenCases[] = {
    {"no device", {}, false, -1, ""},
    {"one reader", {{"1-1:1.0", 1}}, false, 0, "1-1:1.0"},
    {"one entry of usage 6", {{"1-1:1.0", 6}}, false, -2, ""},
    {"reader is the second of two", {{"1-1:1.0", 6}, {"1-1:1.1", 1}}, false, 0, "1-1:1.1"},
    {"first of two wins", {{"1-1:1.0", 1}, {"1-1:1.1", 1}}, false, 0, "1-1:1.0"},
    {"usage 1 only third of three", {{"1-1:1.0", 6}, {"1-1:1.1", 2}, {"1-1:1.2", 1}}, false, -2, ""},
    {"open refused", {{"1-1:1.0", 1}}, true, -3, "1-1:1.0"},
};
// clang-format on

class UsbOpen_ : public UsbTest {};

}  // namespace

TEST_F(UsbOpen_, DeviceListShapes) {
    for (const auto& c : kOpenCases) {
        SCOPED_TRACE(c.name);
        shut_down();
        fakehid::reset();
        fakehid::set_devices(c.devices);
        fakehid::fail_open(c.open_fails);
        EXPECT_EQ(usbOpen(), c.result);
        EXPECT_STREQ(cur_usb_path, c.path);
        EXPECT_EQ(fakehid::counters().lists_live, 0) << "device list not freed";
        EXPECT_EQ(fakehid::counters().devices_live, c.result == 0 ? 1 : 0);
        EXPECT_EQ(uhf::usb_receive_threads(), c.result == 0 ? 1 : 0);
    }
}

TEST_F(UsbOpen_, WrapperTakesASlotStopsTheReaderAndClosesQuietly) {
    static int calls;
    calls = 0;
    fakehid::set_devices({kReader});
    ASSERT_EQ(UsbOpen(), 0);
    ASSERT_EQ(SetDisconnectCallback([](int) { calls++; }), 0);
    EXPECT_EQ(my_terminals[cur_index].device_info.trans_type, TYPE_USB);
    EXPECT_EQ(my_terminals[cur_index].connected, 1);
    // The stop-inventory frame goes out at once, alone in one report.
    auto w = fakehid::written();
    ASSERT_EQ(w.size(), 1u);
    Bytes expected(65, 0);
    const uint8_t stop[] = {0xA5, 0x5A, 0x00, 0x08, 0x8C, 0x84, 0x0D, 0x0A};
    memcpy(expected.data() + 1, stop, sizeof stop);
    EXPECT_EQ(w[0].report, expected);

    EXPECT_EQ(UsbClose(), 0);
    EXPECT_EQ(my_terminals[cur_index].device_info.trans_type, TYPE_INVALID);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(fakehid::counters().devices_live, 0);
    EXPECT_EQ(fakehid::counters().exit, 1);
    ASSERT_TRUE(no_receive_thread());
    EXPECT_EQ(calls, 0) << "a close is no disconnect";
}
