// Serial port transport: raw, non-blocking terminal devices at fixed rates.
#include "SerialPort.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include "log.h"

using namespace uhf;

speed_t getBaudrate(int baudrate) {
    static const struct {
        int rate;
        speed_t code;
    } kRates[] = {{300, B300},     {600, B600},     {1200, B1200},   {2400, B2400},     {4800, B4800},    {9600, B9600},
                  {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200}, {230400, B230400}};
    for (const auto& r : kRates)
        if (r.rate == baudrate) return r.code;
    return static_cast<speed_t>(-1);
}

namespace {

// Raw mode at the given speed; false when the driver refused.
bool apply_raw(int fd, speed_t speed, termios& tio) {
    cfmakeraw(&tio);
    cfsetispeed(&tio, speed);
    cfsetospeed(&tio, speed);
    return tcsetattr(fd, TCSANOW, &tio) == 0;
}

// The rate first: an unsupported one never touches the device.
bool rate_supported(int baudrate, speed_t& speed) {
    speed = getBaudrate(baudrate);
    if (speed != static_cast<speed_t>(-1)) return true;
    UHF_LOG(kLogSerial, "This baudrate is not support.........");
    return false;
}

int open_device(const char* uart) { return uart ? open(uart, O_RDWR | O_NOCTTY | O_NONBLOCK) : -1; }

}  // namespace

int SerialPort_Open(char* uart, int baudrate) {
    speed_t speed;
    if (!rate_supported(baudrate, speed) || uart == nullptr) return -1;
    int fd = open_device(uart);
    if (fd < 0) {
        // The message shows strerror of the result itself (not of errno): callers parse it.
        UHF_LOG(kLogSerial, "[SerialPort_Open] [%d]: %s", fd, strerror(fd));
        return -1;
    }
    termios tio;
    int r = tcgetattr(fd, &tio);
    if (r != 0) {
        UHF_LOG(kLogSerial, "get UART config failure:%d, %s", r, strerror(errno));
        close(fd);
        return -1;
    }
    if (!apply_raw(fd, speed, tio)) {
        UHF_LOG(kLogSerial, "set uart config failure:%d, %s", -1, strerror(errno));
        close(fd);
        return -1;
    }
    UHF_LOG(kLogSerial, "open serial port OK");
    return fd;
}

int SerialPort_Open_Ex(char* uart, int baudrate, int databits, int stopbits, int parity) {
    speed_t speed;
    if (!rate_supported(baudrate, speed) || uart == nullptr) return -1;
    int fd = open_device(uart);
    if (fd == -1) {
        UHF_LOG(kLogSerial, "SerialPort_Open_Ex UART: %s Fail.........", uart);
        return -1;
    }
    auto fail = [fd](const char* msg) {
        UHF_LOG(kLogSerial, "%s", msg);
        close(fd);
        return -1;
    };
    termios tio;
    if (tcgetattr(fd, &tio) != 0) return fail("Read SerialPort_Open_Ex UART Setup Fail.........\n");
    if (!apply_raw(fd, speed, tio)) return fail("Setup SerialPort_Open_Ex UART Fail.........\n");
    if (tcgetattr(fd, &tio) != 0) return fail("Read SerialPort_Open_Ex UART Setup Fail.........\n");

    tio.c_cflag &= ~CSIZE;  // sizes other than 7 and 8 stay at zero: 5 bits
    if (databits == 7) tio.c_cflag |= CS7;
    if (databits == 8) tio.c_cflag |= CS8;

    switch (parity) {
        case 0:
            tio.c_cflag &= ~PARENB;
            tio.c_iflag &= ~INPCK;
            break;
        case 1:
            tio.c_cflag |= PARENB | PARODD;
            tio.c_iflag |= INPCK;
            break;
        case 2:
            tio.c_cflag |= PARENB;
            tio.c_cflag &= ~PARODD;
            tio.c_iflag |= INPCK;
            break;
        default: break;
    }
    if (stopbits == 1) tio.c_cflag &= ~CSTOPB;
    if (stopbits == 2) tio.c_cflag |= CSTOPB;

    if (tcsetattr(fd, TCSANOW, &tio) != 0) return fail("Setup SerialPort_Open_Ex UART Fail.........");
    if (tcgetattr(fd, &tio) != 0) return fail("Read SerialPort_Open_Ex UART Setup Fail.........");

    // Report what the driver actually accepted.
    UHF_LOG(kLogSerial, "%s", (tio.c_cflag & PARENB) ? "checking open " : "checking close");
    UHF_LOG(kLogSerial, "%s", (tio.c_cflag & PARODD) ? "odd check" : "even check");
    return fd;
}

int send_serial_bytes(const uint8_t* pszData, int iLength, int uart_fd) {
    if (uart_fd == -1) return 0;
    if (pszData == nullptr || iLength < 0) return -1;
    return static_cast<int>(write(uart_fd, pszData, static_cast<size_t>(iLength)));
}

int receive_serial_bytes(uint8_t* pszBuffer, int iLength, int uart_fd) {
    if (uart_fd == -1 || pszBuffer == nullptr || iLength <= 0) return 0;
    ssize_t n = read(uart_fd, pszBuffer, static_cast<size_t>(iLength));
    return n < 0 ? 0 : static_cast<int>(n);
}

int clearRxFifo(int fd) { return tcflush(fd, TCIFLUSH); }

int clearTxFifo(int fd) { return tcflush(fd, TCOFLUSH); }
