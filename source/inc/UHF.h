/*
 * uhfhost: host library for UHF RFID reader modules.
 *
 * Including this header gives the whole API. Unless a function says
 * otherwise it acts on the selected link (see terminal.h), makes one
 * request/response exchange and returns 0 on success, -1 on failure (no
 * reply within 1.5 s, a reply with another code, or a refused status). A few
 * calls return a positive count on success; treat non-negative as success
 * unless noted.
 */
#ifndef UHF_UHF_H
#define UHF_UHF_H

#include <stdint.h>

#include "form_utils.h"
#include "globe_var.h"
#include "SerialPort.h"
#include "terminal.h"
#include "uhf_export.h"

UHF_BEGIN_DECLS

/* ==== Continuous inventory ============================================== */

/* Start a continuous inventory (0x82) on the selected link and a receive
 * thread that queues every tag report. 0, or -1 when the start frame could
 * not be sent or the thread not created. Starting empties the queue. */
UHF_API int UHFInventory(void);
/* Stop it: send 0x8C up to three times, 200 ms each, until the reader's
 * 0x8D arrives. 0 confirmed; -1 otherwise (the thread is stopped anyway).
 * Queued reports stay fetchable until the next UHFInventory. */
UHF_API int UHFStopGet(void);
/* One queued report as type-length-value items: 01 link id, 06 PC+EPC,
 * 0B sensor value, 07 extra data (its last byte left out), 04 RSSI, 05
 * antenna; a 0 byte follows. tdata must hold 512 bytes. 0 delivered; -1 none
 * or invalid (consumed); 0 without action for a null pointer. */
UHF_API int UHFGetTagData(int* recvlen, uint8_t* tdata);
/* One queued report as: UII length, PC+EPC, data length, data, RSSI (2,
 * big-endian, 0.1 dBm), antenna (1 when the reader sent none). uUii must
 * hold 512 bytes. 0 delivered; -1 none, invalid or null pointer. */
UHF_API int UHF_GetReceived_EX(int* uLenUii, uint8_t* uUii);
/* Temperature-tag form: UII length, PC+EPC, 0, the report's last 17 bytes;
 * *uLenUii is the report length plus 2. uUii must hold 96 bytes. */
UHF_API int UHF_GetTempTagReceived(int* uLenUii, unsigned char* uUii);

/* Receive-thread plumbing, exported for completeness. */
UHF_API int Creat_R2000Thread(int index);
UHF_API int Stop_R2000Thread(int index);
UHF_API void* Uhf_GetR2000UartData(void* arg);
UHF_API void spliteTagData(const uint8_t* buf, unsigned long len, int id);

/* ==== Single-shot inventory ============================================= */

/* ==== Tag memory ======================================================== */

/* ==== Lock, kill and security =========================================== */

/* ==== Escaped-frame detection thread and frame stack ==================== */

/* Empty the frame stack (999 frames at most). */
UHF_API void Init_UhfStack(void);
/* Store one frame (at most 80 bytes; longer ones are refused); dropped
 * silently when the stack is full. */
UHF_API void Insert_UhfStack(uint8_t* buf, uint8_t len);
/* Oldest frame into buf (80 bytes) and its length: 0, -1 empty, -2 null. */
UHF_API int Fetch_UhfStack(uint8_t* buf, uint8_t* len);
/* Length in the extensible bit vector form: one byte for -127..127, else
 * two (bit 7 of the first marks the second). */
UHF_API void IntToEBV(int iLen, uint8_t* eLen);
UHF_API int EBVToInt(uint8_t* eLen);

/* ==== Power, antennas and region ======================================== */

/* ==== Frequency hopping and RF link ===================================== */

/* ==== Gen2 parameters and inventory modes =============================== */

/* ==== Device status, identity and I/O =================================== */

/* 0x00. version = 6, then "Vh.m.l" with one character per part (a part of
 * 10 or more gives a character past '9'). Needs 7 bytes; no status checked. */
UHF_API int UHFGetHardwareVersion(uint8_t* version);
/* 0x02. version = count, then "Va.b.c", parts of one or two digits; the count
 * includes the count byte itself (V1.12.3 gives 8). Needs 10 bytes. */
UHF_API int UHFGetSoftwareVersion(uint8_t* version);
/* 0xC8. version = count, then "Va.b.c" and ",text" per typed item of the
 * reply. Needs 256 bytes (text stops at 255). -1 for a reply under 3 bytes. */
UHF_API int UHFGetReaderVersion(uint8_t* version);
/* No exchange: the library's build date and time, "YYYY-MM-DD hh:mm:ss" and a
 * NUL (20 bytes). Returns 1; -1 for a null buffer. */
UHF_API int UHFGetVersionCode(char* datetime);
/* 0x04. *id = the 4 reply bytes, most significant first; no status checked. */
UHF_API int UHFGetDeviceID(unsigned int* id);
/* 0x34. Whole degrees from the reading taken as unsigned hundredths, so a
 * negative temperature comes out large. Reply 01 hi lo. */
UHF_API int UHFGeTemperature(uint16_t* temperature);
/* 0x34. Whole degrees, signed, truncated toward zero. Reply 01 hi lo. */
UHF_API int UHFGetTemperature(int* temp);
/* 0x38 flag: set the over-temperature protection byte. Reply 01. */
UHF_API int UHFSetTemperatureProtect(unsigned char flag);
/* 0x3A: *flag = the over-temperature protection byte. Reply 01 flag. */
UHF_API int UHFGetTemperatureProtect(unsigned char* flag);
/* Same request as UHFSetTemperatureProtect, under its second name. */
UHF_API int UHFSetTempVal(unsigned char TempVal);
/* Same request as UHFGetTemperatureProtect, under its second name. */
UHF_API int UHFGetTempVal(unsigned char* TempVal);
/* 0x08 01. *value = supply voltage, signed 16-bit, unscaled. Reply 01 01 hi lo. */
UHF_API int UHFVerifyVoltage(int* value);
/* 0xA1 07 mode: set the beeper mode. Reply 01. */
UHF_API int UHFSetBeep(uint8_t mode);
/* 0xA1 08: *mode = the beeper mode. Reply 08 mode. */
UHF_API int UHFGetBeep(uint8_t* mode);
/* 0xA1 09 output1 output2 outStatus: drive the digital outputs. Reply 01. */
UHF_API int UHFSetIOControl(unsigned char output1, unsigned char output2, unsigned char outStatus);
/* 0xA1 0A: statusData[0..1] = the two I/O status bytes. Reply 0A s1 s2. */
UHF_API int UHFGetIOControl(unsigned char* statusData);
/* 0xF0 01 param, 3 s time-out: store a user-parameter block of at most 1023
 * bytes (more is -1 with no traffic). Reply 01 00. */
UHF_API int UHFUploadUserParam(const unsigned char* param, unsigned short paramLen);
/* 0xF0 02, 3 s: param = the stored block, *paramLen its length. param must
 * hold 1023 bytes; a longer block in the reply is -1, nothing written. */
UHF_API int UHFDownloadUserParam(unsigned char* param, unsigned short* paramLen);

/* ==== Firmware upgrade ================================================== */

/* 0xC0 target: enter the boot loader; flag 0..3 sends EE, CC, BB, AA.
 * flag > 3 returns -2 with no traffic. Reply 01. */
UHF_API int UHFJump2Boot(unsigned char flag);
/* 0xC2: start the update. Reply 01. */
UHF_API int UHFStartUpd(void);
/* 0xC4 with exactly 64 bytes of buf: one image block. Reply 01. */
UHF_API int UHFUpdating(unsigned char* buf);
/* 0xC4 with length bytes of buf: one block of the caller's size, at most
 * 2040 (one frame; more is -1 with no traffic). Reply 01. */
UHF_API int UHF_Upgrade(const unsigned char* buf, unsigned short length);
/* 0xC6, sent without waiting for a reply: end the transfer. 0 once the frame
 * has left, with Vexa_Send's result rule. */
UHF_API int UHFStopUpdate(void);

/* ==== QT memory views =================================================== */

/* ==== Network settings and reset ======================================== */

/* 0xA1 01 ip[4] port[2], then mask[4] gate[4] only when both are given: set
 * the reader's own address. Bytes go as given. Reply 01. */
UHF_API int UHFSetIp(unsigned char* ipbuf, unsigned char* postbuf, unsigned char* mask, unsigned char* gate);
/* 0xA1 02: ip[4], port[2]; mask[4] and gate[4] too when the reply holds 15
 * bytes or more (null ones are skipped). Reply 02 .... */
UHF_API int UHFGetIp(unsigned char* ipbuf, unsigned char* postbuf, unsigned char* mask, unsigned char* gate);
/* 0xA1 03 ip[4] port[2]: set the address the reader sends to. Reply 01. */
UHF_API int UHFSetDestIp(unsigned char* ipbuf, unsigned char* postbuf);
/* 0xA1 04: ip[4], port[2] of the destination address. Reply 04 .... */
UHF_API int UHFGetDestIp(unsigned char* ipbuf, unsigned char* postbuf);
/* 0x68: restart the reader; unsaved settings fall back to saved ones. Reply 01. */
UHF_API int UHFSetSoftReset(void);
/* 0x74: restore the reader's factory settings. Reply 01. */
UHF_API int UHFSetDefaultMode(void);

/* ==== Sensor tags ======================================================= */

/* ==== Packaged frame, configuration, partitions, pass-through =========== */

UHF_END_DECLS

#endif
