// The USB transport's state beyond its C functions, for the USB tests.
#pragma once

namespace uhf {

// Receive threads started by usbOpen that have not returned yet, those that
// usbClose let go without waiting included.
int usb_receive_threads();

// The longest frame the receive thread waits for; more held than this and it
// starts over.
constexpr unsigned kUsbAccumulated = 4096;

// n bytes of an input report were just placed at usb_event_buf +
// usb_event_buf_len: the first whole frame found goes to the exchange and the
// data callback, and the buffer starts over.
void usb_reassemble(int n);

// Drop a frame handed over for the exchange but never read; its length.
int usb_discard_frame();

}  // namespace uhf
