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

/* ==== Firmware upgrade ================================================== */

/* ==== QT memory views =================================================== */

/* ==== Network settings and reset ======================================== */

/* ==== Sensor tags ======================================================= */

/* ==== Packaged frame, configuration, partitions, pass-through =========== */

UHF_END_DECLS

#endif
