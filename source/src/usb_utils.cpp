// USB HID transport. Until the HID back end is wired in, every entry point
// answers as for a device that is not open.
#include "globe_var.h"
#include "terminal.h"

hid_device* handle = nullptr;
unsigned char usb_initial = 0;
char cur_usb_path[256];
pthread_t thread_id;
int usb_running = 0;
uint8_t usb_event_buf[8192];
uint16_t usb_event_buf_len = 0;
uint8_t recv_buf[4096];
uint16_t recv_len = 0;

int usbOpen(void) { return -1; }
void usbClose(void) {}
int usbSend(const unsigned char*, unsigned int) { return -1; }
int usbRecv(unsigned char*, uint16_t) { return -3; }
int usbRecvSingle(unsigned char*, unsigned int) { return -1; }
void* thread_usb_recv(void*) { return nullptr; }
int getUsbDeviceLinked(void) { return 0; }
