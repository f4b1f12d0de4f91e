// The USB transport's state beyond its C functions, for the USB tests.
#pragma once

namespace uhf {

// Receive threads started by usbOpen that have not returned yet, those that
// usbClose let go without waiting included.
int usb_receive_threads();

// Drop a frame handed over for the exchange but never read; its length.
int usb_discard_frame();

}  // namespace uhf
