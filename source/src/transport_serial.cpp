// Serial links: a raw tty per link.
#include <sys/ioctl.h>
#include <unistd.h>

#include "SerialPort.h"
#include "transport.h"

namespace uhf {
namespace {

ERROR_STATE serial_open(ST_Terminal& t) {
    int fd = SerialPort_Open(t.device_info.port_path, t.device_info.baud);
    if (fd < 1) {
        // A descriptor of 0 would be a valid port, but counts as failure here.
        if (fd == 0) close(fd);
        return ERR_CONFIG_PORT_ERROR;
    }
    t.com_handle = fd;
    return ERR_SUCCESS;
}

void serial_close(ST_Terminal& t) { close(t.com_handle); }

int serial_discard(ST_Terminal& t, bool output) {
    int waiting = 0;
    if (ioctl(t.com_handle, FIONREAD, &waiting) != 0) waiting = 0;
    clearRxFifo(t.com_handle);
    if (output) clearTxFifo(t.com_handle);
    return waiting;
}

int serial_send(ST_Terminal& t, const uint8_t* p, uint16_t n) {
    // Every serial write starts from a clean input queue: stale reports or
    // late replies must not be taken for this command's answer.
    clearRxFifo(t.com_handle);
    return send_serial_bytes(p, n, t.com_handle);
}

int serial_recv(ST_Terminal& t, uint8_t* p, uint16_t n) { return receive_serial_bytes(p, n, t.com_handle); }

int serial_wait(ST_Terminal& t, int ms) { return wait_fd(t.com_handle, ms); }

int serial_descriptor(const ST_Terminal& t) { return t.com_handle; }

}  // namespace

const Backend kSerialBackend = {serial_open,    serial_close,      serial_send, serial_recv, serial_wait,
                                serial_discard, serial_descriptor, nullptr,     false};

}  // namespace uhf
