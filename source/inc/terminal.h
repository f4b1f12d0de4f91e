/*
 * Links to readers: the 20-slot link table, link creation and release per
 * transport, selection, and the command frame exchange.
 *
 * A link ("terminal") occupies one slot of my_terminals. Slots are handed out
 * in strict rotation (terminal_index); the newest link is selected
 * (cur_index) and every command goes to the selected link.
 */
#ifndef UHF_TERMINAL_H
#define UHF_TERMINAL_H

#include <pthread.h>
#include <stdint.h>

#include "uhf_export.h"

UHF_BEGIN_DECLS

#define MAX_TERMINALS 20

/* Transport of a link; TYPE_INVALID marks a free slot. */
typedef enum { TYPE_INVALID = 0, TYPE_SERIAL_PORT = 1, TYPE_NETWORK = 2, TYPE_USB = 3 } TRANS_TYPE;

/* Result of link creation. Only 0, 1, 5 and 6 are ever returned; a failed
 * TCP connect returns -1. Treat every non-zero value as failure. */
typedef enum {
    ERR_SUCCESS = 0,
    ERR_FAILURE = 1,
    ERR_CONNECT_FAILURE = 2,
    ERR_OPEN_PORT_FAILURE = 3,
    ERR_OPEN_PORT_INVALID = 4,
    ERR_CONFIG_PORT_ERROR = 5,
    ERR_OPEN_USB_FAILURE = 6,
    ERR_NOT_CREATE_SOCKET = 7
} ERROR_STATE;

/* Parameters of a link, copied whole into its slot (212 bytes). */
typedef struct {
    TRANS_TYPE trans_type;
    char telnet_addr[64]; /* dotted-quad IPv4 (network) */
    int id;               /* terminal_index at the open call; 0 for USB */
    int telnet_port;
    char port_path[128]; /* serial device path */
    int baud;
    int usb_index; /* carried, never used */
} DeviceInfo;

/* One slot of the link table. */
typedef struct {
    pthread_t handleRecv;
    int stopInventory;
    int working; /* never set: reported as false */
    int my_socket;
    int inventory_mode;
    int com_handle;
    DeviceInfo device_info;
    int connected;
    uint64_t last_recv_cmd_timestamp; /* never refreshed, see UHF_GetIdleMs */
    unsigned char recv_task_running;  /* 1 while the inventory thread runs */
    void (*disconnect_callback)(int);
} ST_Terminal;

UHF_API extern ST_Terminal my_terminals[MAX_TERMINALS];
UHF_API extern int cur_index;        /* selected slot */
UHF_API extern int terminal_index;   /* slot the next link takes */
UHF_API extern uint8_t closeingflag; /* set when the reader confirms a stop */

/* ---- Application API --------------------------------------------------- */

/* Open a TCP link to a dotted-quad host (no name lookup); blocks in connect().
 * Returns 0, or -1 when connect failed or the host text is over 63 chars. */
/* Behaviour note: a host over 63 characters: -1, no slot taken; a failed connect closes its socket; the socket
 * stays blocking (every other read and write says MSG_DONTWAIT). */
UHF_API int TCPConnect(const char* hostaddr, int hostport);
/* Releases the slot the *next* link would take (terminal_index), not the
 * selected one. Use LinkSelect + ClosePort, or LinkCloseAll, to close a link. */
UHF_API void TCPDisconnect(void);
/* Callback run with 2 when the USB receive thread ends. 0, or -1 when the
 * selected slot is empty or not connected. */
UHF_API int SetDisconnectCallback(void (*callback)(int));
/* Select slot id (0..19) for later commands. 0, or -1 for an empty slot or
 * an index out of range (selection unchanged). */
/* Behaviour note: a negative id: -1. */
UHF_API int LinkSelect(int id);
/* The selected slot (cur_index), whatever it holds. */
UHF_API int LinkGetSelected(void);
/* Links as an indented JSON array written to info (cut to fit, always
 * zero-terminated). Returns bytes written including the zero, 0 if len < 1. */
UHF_API int LinkGetInfo(char* info, int len);
/* Releases every slot (stops their inventories, closes their transports). */
UHF_API void LinkCloseAll(void);
/* Raw bytes on the selected link; the transport's result. Len is cut to its
 * low 16 bits before use: a negative Len becomes up to 65535 and RecvBytes
 * then writes up to that many bytes, so pass a Len between 0 and the size of
 * the buffer. */
UHF_API int SendBytes(const unsigned char* pszData, int Len);
UHF_API int RecvBytes(unsigned char* pszData, int Len);
/* USB HID link to the reader (2047:0301). 0, or ERR_OPEN_USB_FAILURE. */
UHF_API int UsbOpen(void);
/* Stops inventory, releases the selected slot. Always 0. */
UHF_API int UsbClose(void);
/* 1 when a reader is plugged in, else 0. */
UHF_API int UsbDeviceLinked(void);
/* Serial link: open, settle 300 ms, flush, stop inventory. 0 or -1. */
UHF_API int ComOpenWithBaud(const char* uart, int baud);
UHF_API int ComOpen(const char* uart); /* 115200 bit/s */
/* Releases the selected slot. */
UHF_API void ClosePort(void);
/* Always 4294967295: the per-link receive time is never refreshed. */
UHF_API unsigned long UHF_GetIdleMs(void);
/* now - 0 for a known link id, 0 otherwise. */
UHF_API unsigned long UHF_GetIdleMsById(int id);

/* ---- Link table operations (exported for completeness) ---------------- */

/* Takes slot terminal_index (wrapping to 0 past 19), selects it, opens info's
 * transport. ERR_SUCCESS and the slot advances; else the error, slot wiped
 * (and still selected); ERR_FAILURE for a null info. */
UHF_API ERROR_STATE create_link(DeviceInfo* info);
/* Copies info into the slot and zeroes its link state; the callback and the
 * receive time are kept. Nothing for a null argument. */
UHF_API void setTerminalValue(ST_Terminal* pterminal, DeviceInfo* info);
/* Opens the selected slot's transport; marks it connected on success.
 * ERR_SUCCESS, the transport's error, or ERR_FAILURE for a free slot. */
UHF_API ERROR_STATE dev_open(void);
/* Per-transport opens of the selected slot: ERR_SUCCESS, or -1 (TCP connect
 * failed), ERR_OPEN_USB_FAILURE, ERR_CONFIG_PORT_ERROR. */
UHF_API ERROR_STATE dev_tcp_connect(void);
UHF_API ERROR_STATE dev_open_usb(void);
UHF_API ERROR_STATE dev_open_com(void);
/* Stops the selected slot's inventory thread and closes its transport. */
UHF_API void dev_close(void);
/* Closes slot id if it is open, then zeroes it; ids out of range are ignored. */
UHF_API void release_terminal(int id);
/* As LinkSelect and LinkGetSelected. */
UHF_API int link_select(int id);
UHF_API int link_get_selected(void);
/* As LinkGetInfo. */
UHF_API int link_list(char* linkData, int len);
/* As LinkCloseAll. */
UHF_API void link_close_all(void);
/* Fills a network DeviceInfo and creates the link: ERROR_STATE as a number,
 * -1 for a null or over-long host. */
UHF_API int connect_tcp(const char* host, int port);
/* As TCPDisconnect; always 0. */
UHF_API int disconnect_tcp(void);
/* Does nothing; kept for the interface. */
UHF_API void clean_socket(void);
/* Creates a USB link (ERROR_STATE as a number); closes the selected slot. */
UHF_API int iusb_open(void);
UHF_API void iusb_close(void);
/* Releases the selected slot. */
UHF_API void com_close(void);
/* Fills a serial DeviceInfo and creates the link: ERROR_STATE as a number,
 * -1 for a null or over-long path. */
UHF_API int com_open(const char* port_path, int baud);
/* As UHF_GetIdleMs and UHF_GetIdleMsById. */
UHF_API unsigned long terminal_get_idle_ms(void);
UHF_API unsigned long terminal_get_idle_ms_byid(int id);
/* As SetDisconnectCallback. */
UHF_API int add_disconnect_callback(void (*callback)(int));

/* ---- USB HID transport (one device per process) ------------------------ */

/* 0; -1 no device list or no thread; -2 no interface of usage 1; -3 open failed. */
UHF_API int usbOpen(void);
UHF_API void usbClose(void);
/* 64-byte reports, 2 ms apart. Bytes sent, -1 if not open, or hid_write's error. */
UHF_API int usbSend(const unsigned char* buf, unsigned int buf_len);
/* One whole frame within 50 ms: bytes copied, 0 if none, -3 if not open. */
UHF_API int usbRecv(unsigned char* inBuf, uint16_t len);
/* One input report appended to buf: bytes read, -1 if not open, or hid error. */
UHF_API int usbRecvSingle(unsigned char* buf, unsigned int buf_len);
/* The receive thread body. */
UHF_API void* thread_usb_recv(void* arg);
/* 1 when a device with the reader's ids is present, else 0. */
UHF_API int getUsbDeviceLinked(void);

/* ---- Command frame exchange -------------------------------------------- */

/* Write / read raw bytes on slot tindex through its transport. Reads never
 * block; -1 for a free slot. */
UHF_API int send_bytes(const uint8_t* sendBytes, uint16_t sendLen, int tindex);
UHF_API int recv_bytes(uint8_t* recvBytes, uint16_t recvLen, int tindex);

/* Send one command frame (one-byte length form) on slot tindex without
 * waiting. 0 when the low byte of the transport result is non-zero, else -1
 * (so a transport error of -1 reads as success: callers rely on this). */
UHF_API int Vexa_Send(uint8_t cmd, uint8_t* sendbuf, uint8_t sendlen, int tindex);

/* Send a command frame on the selected link and wait up to timeout ms for the
 * frame with code cmd + 1. 0: recvbuf holds the reply data (up to 2040
 * bytes: size recvbuf for that) and *recvlen its length; -1: send failed or
 * nothing answered; -4: only frames with other codes answered. */
/* Behaviour note: drops stale input first, drops a late reply owed to an earlier call, fails at once on a hung-up peer;
 * on TCP waits in recv (SO_RCVTIMEO, set when the limit changes) for most of the limit and in poll for the rest. */
UHF_API int ExternalSend(uint8_t cmd, const uint8_t* sendbuf, uint16_t sendlen, uint8_t* recvbuf, uint16_t* recvlen,
                         uint16_t timeout);
/* ExternalSend with a 1500 ms limit. */
UHF_API int Vexa_SendAndRecv(uint8_t cmd, const uint8_t* sendbuf, uint16_t sendlen, uint8_t* recvbuf,
                             uint16_t* recvlen);

/* Escaped 0xAA..0x55 frame: escape the inner bytes and send on the selected
 * link (1 when the transport result was non-zero, else 0). */
UHF_API uint8_t SendCommand(uint8_t* SendCommand, uint16_t SendNum);
/* Collect one escaped reply (at most 512 bytes, about 5 s), unescape it into
 * ReceiveCommand. 1 with data, 0 without. waittime is ignored. */
UHF_API uint8_t ReceiveCommand(uint8_t* ReceiveCommand, uint16_t* ReceiveNum, uint16_t waittime);

/* EPC Gen2 CRC-16 (0x1021, init 0xFFFF, inverted); crcResult[0] high byte. */
UHF_API void CRC16Calculation(uint8_t* ptr, uint16_t ByteNum, uint8_t* crcResult);
/* CRC-16/0x1021 from 0xFFFF over msgbuf[1..msglen-1], not inverted. */
UHF_API uint16_t CalcCRC(uint8_t* msgbuf, uint8_t msglen);
UHF_API void CRC_calcCrc8(uint16_t* crcReg, uint16_t poly, uint16_t u8Data);

/* CRC mode of escaped frames (g_uflagCrc). */
UHF_API void UHF_FlagCrcOn(void);
UHF_API void UHF_FlafCrcOff(void);

UHF_END_DECLS

#endif
