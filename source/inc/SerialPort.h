/*
 * Serial port transport: raw, non-blocking POSIX terminal devices.
 * A descriptor of -1 means "no port" to the send and receive functions.
 */
#ifndef UHF_SERIALPORT_H
#define UHF_SERIALPORT_H

#include <stdint.h>
#include <termios.h>

#include "uhf_export.h"

UHF_BEGIN_DECLS

/* B300..B230400 for the supported rates, (speed_t)-1 for any other. */
UHF_API speed_t getBaudrate(int baudrate);
/* Open raw 8N1 at baudrate, non-blocking. Descriptor >= 0, or -1. */
UHF_API int SerialPort_Open(char* uart, int baudrate);
/* As SerialPort_Open, also data bits (7, 8; others give 5), stop bits (1, 2)
 * and parity (0 none, 1 odd, 2 even). Descriptor, or -1. */
UHF_API int SerialPort_Open_Ex(char* uart, int baudrate, int databits, int stopbits, int parity);
/* One write(): bytes written, 0 when uart_fd is -1, -1 on error. */
UHF_API int send_serial_bytes(const uint8_t* pszData, int iLength, int uart_fd);
/* One read(): bytes read; 0 when uart_fd is -1, nothing waits, or on error. */
UHF_API int receive_serial_bytes(uint8_t* pszBuffer, int iLength, int uart_fd);
/* Discard received, unread input / written, unsent output. */
UHF_API int clearRxFifo(int fd);
UHF_API int clearTxFifo(int fd);

UHF_END_DECLS

#endif
