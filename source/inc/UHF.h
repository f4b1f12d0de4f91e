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

/* The bank last accepted by UHF_Inventory_Bank; written only. */
UHF_API extern uint8_t bankflag;

/* 0x80 (00 64): one tag. Writes its PC+EPC (L bytes) to uUii and L to
 * *uLenUii. -1 on no reply or a reply too short for its PC's length. */
UHF_API int UHFInventorySingle(uint8_t* uLenUii, uint8_t* uUii);
/* 0x80: writes L, PC+EPC, data length, data, RSSI (2), antenna; *uLenUii =
 * reply length + 2. -1 on no reply or a reply shorter than PC+EPC+3. */
UHF_API int UHF_InventorySingleEPCTIDUSER(uint8_t* uLenUii, uint8_t* uUii);
/* 0x80: as above without the antenna; a reply whose bytes L+3..L+5 are zero
 * counts as carrying no data. -1 (and *uLenUii = 0) on no reply; -1 with
 * *uLenUii untouched unless 5 <= reply length <= 254. */
UHF_API int UHF_InventorySingle_R2000(uint8_t* uLenUii, uint8_t* uUii);
/* 0xEB: copies the whole batch reply to uUii (512 bytes). Returns its
 * length, 0 for the 2-byte "no tags" reply, -1 on failure or > 512 bytes. */
UHF_API int UHF_GetTagsData(uint8_t* uUii);
/* 0x30: password, bank, 00 ptr, 00 cnt: the bank region added to inventory
 * reports. Status 0x01 sets bankflag; -1 otherwise. */
UHF_API int UHF_Inventory_Bank(uint8_t* uAccessPwd, uint8_t uBank, uint8_t uPtr, uint8_t uCnt);
/* 0xB0: inLen bytes of pin, waiting wait_recv_ms; the reply data to pout and
 * *outLen. -1 for null pointers or a block too big for a frame (no traffic);
 * -2 (and *outLen = 0) when no reply came. */
UHF_API int CryptoTransmit(const uint8_t* pin, uint16_t inLen, uint8_t* pout, uint16_t* outLen,
                           uint16_t wait_recv_ms);

/* ==== Tag memory ======================================================== */
/*
 * Each request is the 4-byte access password, the tag filter (bank, bit
 * address, bit length, ceil(length/8) mask bytes) and the target (bank, word
 * address, word count, data). A request that would not fit the command's
 * buffer, a null pointer or an int argument outside 0..65535 returns -1 and
 * sends nothing.
 */

/* 0x84, 2048-byte request: status 0x01, then the word count the reply gives
 * (bytes 2..3) times 2 bytes go to uReadData. -1 if the reply lacks them. */
UHF_API int UHFReadData(uint8_t* uAccessPwd, uint8_t ufBank, int ufPtr, int ufCnt, uint8_t* ufData, uint8_t uBank,
                        int uPtr, uint16_t uCnt, uint8_t* uReadData);
/* 0x86, 100-byte request with uCnt words of uWriteData: status 0x01. */
UHF_API int UHFWriteData(uint8_t* uAccessPwd, uint8_t ufBank, int ufPtr, int ufCnt, uint8_t* ufData, uint8_t uBank,
                         int uPtr, uint16_t uCnt, uint8_t* uWriteData);
/* 0x93, 2048-byte request with uCnt words of uDatabuf: reply 01 00. */
UHF_API int UHFBlockWriteData(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                              unsigned int FilterLen, unsigned char* FilterData, unsigned char uBank,
                              unsigned int uPtr, unsigned int uCnt, unsigned char* uDatabuf);
/* 0x95, 100-byte request, uCnt words from uPtr: reply 01 00. */
UHF_API int UHFBlockEraseData(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                              unsigned int FilterLen, unsigned char* FilterData, unsigned char uBank,
                              unsigned int uPtr, unsigned char uCnt);
/* 0x90 (6 s limit), 1024-byte request 01, password, filter, type, address,
 * w_len words: reply 01 01. */
UHF_API int UHFWriteScreenBlockData(unsigned char* pwd, unsigned char sector, unsigned short mask_addr,
                                    unsigned short mask_len, unsigned char* mask_data, unsigned char type,
                                    unsigned short w_addr, unsigned short w_len, unsigned char* w_data);

/* ==== Lock, kill and security =========================================== */

/* 0x8A: password, filter. Reply 01 00 gives 0, else -1. */
UHF_API int UHFKillTag(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                       unsigned int FilterLen, unsigned char* FilterData);
/* 0x88: password, filter, the 3 lock bytes (mask and action). 0 on reply
 * 01 00; 1 (not -1) on every failure, bad arguments included. */
UHF_API int UHFLockTag(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                       unsigned int FilterLen, unsigned char* FilterData, unsigned char* lockbuf);
/* 0x9F: password, filter, ReadLock, bank, uPtr, 00 uRange, 2 x uRange mask
 * bytes. On 01 00 the reply's 2 x uRange bytes replace uMaskbuf; -1 else. */
UHF_API int UHFBlockPermalock(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                              unsigned int FilterLen, unsigned char* FilterData, unsigned char ReadLock,
                              unsigned char uBank, unsigned int uPtr, unsigned char uRange,
                              unsigned char* uMaskbuf);
/* 0x06 sub 0x02: password, filter, memory, config, action (low bytes).
 * Only the exact reply 02 01 gives 0. */
UHF_API int UHFGBTagLock(uint8_t* uAccessPwd, uint8_t FilterBank, uint16_t FilterStartaddr, uint16_t FilterLen,
                         uint8_t* FilterData, int memory, int config, int action);
/* 0x8E: password, filter (bank, addr, mData, mDataLen bits), tLen + 1,
 * keyID, tData; 100-byte request. On 01 00: *recvLen = 2 x the word count
 * of bytes 2..3 and the words to recvData; -2 when that count is 0 or more
 * than the reply holds (*recvLen then holds it); -1 on other failures. */
UHF_API int UHFAuthenticate(unsigned long password, unsigned char bank, unsigned short addr, unsigned char* mData,
                            unsigned short mDataLen, unsigned char keyID, unsigned short tLen, unsigned char* tData,
                            unsigned short* recvLen, unsigned char* recvData);
/* 0x8E as UHFAuthenticate; hands back the reply after its two status bytes
 * uninterpreted. *recvLen is 0 on failure; -1. */
UHF_API int UHFAuthenticateCommon(unsigned long password, unsigned char bank, unsigned short addr,
                                  unsigned char* mData, unsigned short mDataLen, unsigned char keyID,
                                  unsigned short tLen, unsigned char* tData, unsigned short* recvLen,
                                  unsigned char* recvData);
/* 0xB0: cmd (2), password, then uBank/ptr/cnt/udat as a filter: status 0x01. */
UHF_API int UHF_Deactivate(uint16_t cmd, uint8_t* uAccessPwd, uint8_t uBank, int ptr, int cnt, uint8_t* udat);
/* 0xB2: 00 00 dwell 00 00 count, all big-endian: status 0x01. */
UHF_API int UHF_Dwelltime(uint16_t dwell, uint16_t count);

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
/*
 * The first family takes a caller's filter (100-byte requests; reads and
 * writes need the reply 01 00). The second family finds its tag by a single
 * inventory (0x80) or by a given UII (PC+EPC, matched from EPC bit 16) and
 * checks the status byte alone. All return 0 or -1; bad arguments send nothing.
 */

/* 0x97: password, filter, QT control byte. */
UHF_API int UHFSetQT(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                     unsigned int FilterLen, unsigned char* FilterData, unsigned char QTData);
/* 0x99: password, filter; *QTData = reply byte 1. */
UHF_API int UHFGetQT(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                     unsigned int FilterLen, unsigned char* FilterData, unsigned char* QTData);
/* 0x9B: password, filter, QTData, bank, uPtr, 00 uCnt. *uReadDataLen = 2 x
 * the reply's word count, kept to 8 bits; that many bytes to uReadDatabuf. */
UHF_API int UHFReadQT(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                      unsigned int FilterLen, unsigned char* FilterData, unsigned char QTData, unsigned char uBank,
                      unsigned int uPtr, unsigned char uCnt, unsigned char* uReadDatabuf,
                      unsigned char* uReadDataLen);
/* 0x9D: as UHFReadQT, then uCnt words of uDatabuf. */
UHF_API int UHFWriteQT(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                       unsigned int FilterLen, unsigned char* FilterData, unsigned char QTData, unsigned char uBank,
                       unsigned int uPtr, unsigned char uCnt, unsigned char* uDatabuf);
/* 0x80 then 0x97 (password 0): QT byte 0x00 for uPara != 0, 0x02 for 0. */
UHF_API int UHF_SetQTPara(uint8_t uPara);
/* 0x80 then 0x99 (password 0): *uPara = 0 when bit 1 of the QT byte is set,
 * else 1 (the inverse of UHF_SetQTPara). */
UHF_API int UHF_GetQTPara(uint8_t* uPara);
/* 0x84 (the plain read code) with the QT-shaped request for the tag uUii:
 * 00, bank, 00, low byte of uPtr, 00, uCnt. Reply byte 3 words to uReadData. */
UHF_API int UHF_ReadQTData(uint8_t* uAccessPwd, uint8_t uBank, int uPtr, uint8_t uCnt, uint8_t* uUii,
                           uint8_t* uReadData);
/* 0x80 then 0x9B: as UHF_ReadQTData for the tag found; its UII (reply less
 * 3 bytes) goes to uUii and *uLenUii. */
UHF_API int UHF_ReadQTDataSingle(uint8_t* uAccessPwd, uint8_t uBank, int uPtr, uint8_t uCnt, uint8_t* uReadData,
                                 uint8_t* uUii, uint8_t* uLenUii);
/* 0x9B with the caller's filter: 00, bank, uPtr (2), 00, uCnt. */
UHF_API int UHF_ReadQTData_Ex(uint8_t* uAccessPwd, uint8_t ufBank, int ufPtr, int ufCnt, uint8_t* ufData,
                              uint8_t uBank, int uPtr, uint8_t uCnt, uint8_t* uReadData);
/* 0x86 (the plain write code), as UHF_ReadQTData then uCnt words. */
UHF_API int UHF_WriteQTData(uint8_t* uAccessPwd, uint8_t uBank, int uPtr, uint8_t uCnt, uint8_t* uUii,
                            uint8_t* uWriteData);
/* 0x80 then 0x9D, as UHF_WriteQTData for the tag found (UII returned). */
UHF_API int UHF_WriteQTDataSingle(uint8_t* uAccessPwd, uint8_t uBank, int uPtr, uint8_t uCnt, uint8_t* uWriteData,
                                  uint8_t* uUii, uint8_t* uLenUii);
/* 0x9D with the caller's filter: 00, bank, uPtr (2), uCnt (2), data. */
UHF_API int UHF_WriteQTData_Ex(uint8_t* uAccessPwd, uint8_t ufBank, int ufPtr, int ufCnt, uint8_t* ufData,
                               uint8_t uBank, int uPtr, uint16_t uCnt, uint8_t* uWriteData);

/* ==== Network settings and reset ======================================== */

/* ==== Sensor tags ======================================================= */

/* ==== Packaged frame, configuration, partitions, pass-through =========== */

UHF_END_DECLS

#endif
