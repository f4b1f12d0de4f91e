// USB HID links: the device and its receive thread live in usb_utils.cpp
// (built apart so tests can link it against a hidapi test double).
#include "globe_var.h"
#include "transport.h"
#include "usb_transport.h"

namespace uhf {
namespace {

ERROR_STATE usb_open(ST_Terminal&) { return usbOpen() != 0 ? ERR_OPEN_USB_FAILURE : ERR_SUCCESS; }
void usb_close(ST_Terminal&) { usbClose(); }
int usb_send(ST_Terminal&, const uint8_t* p, uint16_t n) { return usbSend(p, n); }
int usb_recv(ST_Terminal&, uint8_t* p, uint16_t n) { return usbRecv(p, n); }
// usbRecv itself waits up to 50 ms for a frame.
int usb_wait(ST_Terminal&, int) { return 0; }
int usb_discard(ST_Terminal&, bool) { return usb_discard_frame(); }

int usb_descriptor(const ST_Terminal&) { return -1; }

}  // namespace

const Backend kUsbBackend = {usb_open,    usb_close,      usb_send, usb_recv, usb_wait,
                             usb_discard, usb_descriptor, nullptr,  true};

}  // namespace uhf
