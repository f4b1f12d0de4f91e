/*
 * uhfhost: host library for UHF RFID reader modules.
 *
 * Including this header gives the whole API. Unless a function says
 * otherwise it acts on the selected link (see terminal.h), makes one
 * request/response exchange and returns 0 on success, -1 on failure (no
 * reply within 1.5 s, a reply with another code, or a refused status). A few
 * calls return a positive count on success; treat non-negative as success
 * unless noted. Lines marked "Behaviour note" are explained, with their
 * reasons, in docs/BEHAVIOUR.md.
 */
#ifndef UHF_UHF_H
#define UHF_UHF_H

#include <stdint.h>

#include "SerialPort.h"
#include "form_utils.h"
#include "globe_var.h"
#include "terminal.h"
#include "uhf_export.h"

UHF_BEGIN_DECLS

/* ==== Continuous inventory ============================================== */

/* Start a continuous inventory (0x82) on the selected link and a receive
 * thread that queues every tag report. 0, or -1 when the start frame could
 * not be sent or the thread not created. Starting empties the queue. */
/* Behaviour note: waits up to 300 ms for the link's previous receive thread; one thread per link. */
UHF_API int UHFInventory(void);
/* Stop it: send 0x8C up to three times, 200 ms each, until the reader's
 * 0x8D arrives. 0 confirmed; -1 otherwise (the thread is stopped anyway).
 * Queued reports stay fetchable until the next UHFInventory. */
/* Behaviour note: after the stop reply, drops waiting input on every transport. */
UHF_API int UHFStopGet(void);
/* One queued report as type-length-value items: 01 link id, 06 PC+EPC,
 * 0B sensor value, 07 extra data (its last byte left out), 04 RSSI, 05
 * antenna; a 0 byte follows. tdata must hold 512 bytes. 0 delivered; -1 none
 * or invalid (consumed); 0 without action for a null pointer. */
UHF_API int UHFGetTagData(int* recvlen, uint8_t* tdata);
/* One queued report as: UII length, PC+EPC, data length, data, RSSI (2,
 * big-endian, 0.1 dBm), antenna (1 when the reader sent none). uUii must
 * hold 512 bytes. 0 delivered; -1 none, invalid or null pointer. */
/* Behaviour note: these fetch calls, finding the queue empty while the
 * application fetches often (within 100 ms) and no hold is set, first read
 * each streaming TCP link once themselves; the receive threads then look in
 * only every 50 ms. */
UHF_API int UHF_GetReceived_EX(int* uLenUii, uint8_t* uUii);
/* Temperature-tag form: UII length, PC+EPC, 0, the report's last 17 bytes;
 * *uLenUii is the report length plus 2. uUii must hold 96 bytes. */
/* Behaviour note: reports of 14 to 16 bytes are delivered (the 17 bytes begin in the record's id and mode); under 14:
 * -1. */
UHF_API int UHF_GetTempTagReceived(int* uLenUii, unsigned char* uUii);
/* Reports discarded because the queue was full, since the library was
 * loaded. The queue (256 KiB, a report taking its length plus 4 bytes)
 * holds what arrives while the application does not fetch; when a report
 * does not fit, every queued report is dropped with it, and counted here.
 * An extension of this library: never reset, nothing sent. */
UHF_API uint64_t UHF_GetQueueOverflowCount(void);
/* How long a receive thread may hold a stream of reports so that one
 * wake-up takes several: 0 (the default) reads each report as it arrives;
 * up to 50000 us (more is taken as 50000). It trades latency for CPU: at
 * 500 reports/s a 10 ms hold makes 100 wake-ups a second instead of 500,
 * and a report reaches the queue up to 10 ms later. Applies to every link,
 * from the thread's next read; while a hold is set, fetches never read the
 * links themselves. Returns the hold in effect before. An extension of
 * this library: nothing sent. */
UHF_API unsigned UHF_SetReceiveHold(unsigned microseconds);

/* Receive-thread plumbing, exported for completeness. */
UHF_API int Creat_R2000Thread(int index);
UHF_API int Stop_R2000Thread(int index);
UHF_API void* Uhf_GetR2000UartData(void* arg);
/* Behaviour note: stops at the first record that runs past the batch. */
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
UHF_API int CryptoTransmit(const uint8_t* pin, uint16_t inLen, uint8_t* pout, uint16_t* outLen, uint16_t wait_recv_ms);

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
                              unsigned int FilterLen, unsigned char* FilterData, unsigned char uBank, unsigned int uPtr,
                              unsigned int uCnt, unsigned char* uDatabuf);
/* 0x95, 100-byte request, uCnt words from uPtr: reply 01 00. */
UHF_API int UHFBlockEraseData(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                              unsigned int FilterLen, unsigned char* FilterData, unsigned char uBank, unsigned int uPtr,
                              unsigned char uCnt);
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
                              unsigned char uBank, unsigned int uPtr, unsigned char uRange, unsigned char* uMaskbuf);
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
UHF_API int UHFAuthenticateCommon(unsigned long password, unsigned char bank, unsigned short addr, unsigned char* mData,
                                  unsigned short mDataLen, unsigned char keyID, unsigned short tLen,
                                  unsigned char* tData, unsigned short* recvLen, unsigned char* recvData);
/* 0xB0: cmd (2), password, then uBank/ptr/cnt/udat as a filter: status 0x01. */
UHF_API int UHF_Deactivate(uint16_t cmd, uint8_t* uAccessPwd, uint8_t uBank, int ptr, int cnt, uint8_t* udat);
/* 0xB2: 00 00 dwell 00 00 count, all big-endian: status 0x01. */
UHF_API int UHF_Dwelltime(uint16_t dwell, uint16_t count);

/* ==== Escaped-frame detection thread and frame stack ==================== */

/* Empty the frame stack (999 frames at most). */
UHF_API void Init_UhfStack(void);
/* Store one frame (at most 80 bytes; longer ones are refused); dropped
 * silently when the stack is full. */
/* Behaviour note: a frame longer than an 80-byte slot is not stored. */
UHF_API void Insert_UhfStack(uint8_t* buf, uint8_t len);
/* Oldest frame into buf (80 bytes) and its length: 0, -1 empty, -2 null. */
UHF_API int Fetch_UhfStack(uint8_t* buf, uint8_t* len);
/* Length in the extensible bit vector form: one byte for -127..127, else
 * two (bit 7 of the first marks the second). */
UHF_API void IntToEBV(int iLen, uint8_t* eLen);
UHF_API int EBVToInt(uint8_t* eLen);
/* Start the detection thread: it empties the frame stack, then every 30 ms
 * reads the selected link, unescapes the AA..55 stream and stores the tag
 * frames (0x91/0xA6 in CRC mode, 0x11/0x26 without; status 0) in the stack.
 * A running one is stopped first. 0, or -1 when no thread could be made. */
UHF_API int Creat_DectThread(void);
/* Ask it to stop and wait (bounded) until it has left; stop it before
 * closing its link. 0, or -1 when a stop was already requested. */
UHF_API int Stop_DectThread(void);
/* The thread body. */
UHF_API void* Uhf_GetUartData(void* arg);

/* ==== Power, antennas and region ======================================== */

/* 0x10: read and write power of antenna 1, both uPower dBm (1..30, else -1
 * with no traffic); save != 0 asks the reader to keep it. */
UHF_API int UHFSetPower(uint8_t save, uint8_t uPower);
/* 0x12: read power of the first antenna record, whole dBm (truncated).
 * Status 0x00 and 0x01 are both accepted. */
UHF_API int UHFGetPower(uint8_t* uPower);
/* 0x10: powers of antenna num in 0.01 dBm, sent unscaled and unchecked. */
UHF_API int UHFSetAntennaPower(uint8_t saveflag, uint8_t num, uint16_t read_power, uint16_t write_power);
/* 0x12: 3 bytes per antenna into ppower (number, read dBm, write dBm); the
 * byte count in *nReturned. ppower must hold 3 bytes per antenna the reader
 * has (a reply can list up to 407). */
UHF_API int UHFGetAntennaPower(uint8_t* ppower, uint16_t* nReturned);
/* 0x28: the two antenna-mask bytes buf[0..1]; saveflag is sent as given. */
UHF_API int UHFSetANT(unsigned char saveflag, unsigned char* buf);
/* 0x2A: the antenna mask into buf[0..1]; the reply has no status byte. */
UHF_API int UHFGetANT(unsigned char* buf);
/* 0x4A: work time of antenna antnum, cut to 16 bits; saveflag goes into the
 * high nibble of the first byte. */
UHF_API int UHFSetANTWorkTime(unsigned char antnum, unsigned char saveflag, unsigned int WorkTime);
/* 0x4C: work time of antenna antnum. */
UHF_API int UHFGetANTWorkTime(unsigned char antnum, unsigned int* WorkTime);
/* 0x2C / 0x2E: regulatory region code, passed through. */
UHF_API int UHFSetRegion(uint8_t save, uint8_t region);
UHF_API int UHFGetRegion(uint8_t* region);

/* ==== Frequency hopping and RF link ===================================== */

/* 0x14: hopping table of nums frequencies (24 bits each). More than 84 do
 * not fit the request: -1 with no traffic. */
UHF_API int UHFSetJumpFrequency(unsigned char nums, unsigned int* Freqbuf);
/* 0x14: a one-entry table holding the 16-bit Frequency. */
UHF_API int UHF_Frequency_Hopping_Setting(uint16_t Frequency);
/* 0x16: Freqbuf[0] = count n, Freqbuf[1..n] the frequencies (room for 256
 * entries covers any reply). No status byte; -1 for a truncated list. */
UHF_API int UHFGetJumpFrequency(unsigned int* Freqbuf);
/* 0x52 / 0x54: RF link mode; saveflag and mode are sent as given. */
UHF_API int UHFSetRFLink(unsigned char saveflag, unsigned char mode);
UHF_API int UHFGetRFLink(unsigned char* uMode);
/* RF link preset 0..3 (else -1, no traffic), always saved, then the Gen2
 * block that belongs to it (0x20). Once the preset is accepted the result
 * is 0 whatever the Gen2 step brings. */
UHF_API int UHF_Set_RFLink(uint8_t mode);
/* 0x54: RF link mode; when it is 3 the mode-3 Gen2 block is sent again. */
UHF_API int UHF_Get_RFLink(uint8_t* mode);
/* 0x24 / 0x26: continuous-wave switch; the get reply has no status byte. */
UHF_API int UHFSetCW(unsigned char flag);
UHF_API int UHFGetCW(unsigned char* flag);
/* 0x18 / 0x1A: 4-byte parameter keyed by type and the 4-byte IDbuf, copied
 * in memory order. */
UHF_API int UHF_Set_Param(uint8_t type, uint8_t* IDbuf, uint8_t* pszData);
UHF_API int UHF_Get_Param(uint8_t type, uint8_t* IDbuf, uint8_t* pszData);
/* 0xC0: protocol configuration byte. */
UHF_API int Vexa_Protocol_Configuration(uint8_t value);
/* Power-amplifier status over the escaped frame (with a CRC when CRC mode is
 * on); one attempt. 0 when the amplifier reports status 0, else -1. */
/* Behaviour note: -1 at once when no link is open. */
UHF_API int RmuGetPaStatus(void);

/* ==== Gen2 parameters and inventory modes =============================== */

/* 0x20: the Gen2 block. Lower fields of each byte are masked to their width;
 * Target, StartQ, MaxQ and Sel lose their excess high bits off the byte. */
UHF_API int UHFSetGen2(unsigned char Target, unsigned char Action, unsigned char T, unsigned char Q,
                       unsigned char StartQ, unsigned char MinQ, unsigned char MaxQ, unsigned char D, unsigned char C,
                       unsigned char P, unsigned char Sel, unsigned char Session, unsigned char G, unsigned char LF);
/* 0x22: the Gen2 block unpacked; the reply has no status byte. */
UHF_API int UHFGetGen2(unsigned char* Target, unsigned char* Action, unsigned char* T, unsigned char* Q,
                       unsigned char* StartQ, unsigned char* MinQ, unsigned char* MaxQ, unsigned char* D,
                       unsigned char* Coding, unsigned char* P, unsigned char* Sel, unsigned char* Session,
                       unsigned char* G, unsigned char* LF);
/* 0x5C / 0x5E: FastID switch. */
UHF_API int UHFSetFastID(unsigned char flag);
UHF_API int UHFGetFastID(unsigned char* flag);
/* 0x60 / 0x62: TagFocus switch. */
UHF_API int UHFSetTagfocus(unsigned char flag);
UHF_API int UHFGetTagfocus(unsigned char* flag);
/* Query, then set only when the reader holds another value. flag > 1: -1
 * with no traffic. */
UHF_API int R2000_Set_FastID(uint8_t flag);
UHF_API int R2000_Set_TagFocus(uint8_t flag);
/* 0x70: what inventory reports beside the EPC (mode 0..2, else -1 with no
 * traffic), with the USER start address and length. */
UHF_API int UHFSetEPCTIDUSERMode(uint8_t save, uint8_t mode, uint8_t addr, uint8_t length);
/* 0x70: the mode alone; UHF_OPENMODE is UHFSetEPCTIDMode(0, 1). */
UHF_API int UHFSetEPCTIDMode(unsigned char saveflag, unsigned char mode);
UHF_API int UHF_OPENMODE(void);
/* 0x72: the mode. */
UHF_API int UHFGetEPCTIDMode(unsigned char* mode);
/* 0x72: mode[0..2] = mode, USER start address, USER length. Returns 3. */
UHF_API int UHFGetEPCTIDUSERMode(uint8_t rev1, uint8_t rev2, uint8_t* mode);
/* 0x6E: inventory filter on bank from byte startaddr, datalen mask bytes
 * (at most 94, else -1 with no traffic). flag is unused. In the EPC bank
 * the address skips CRC and PC, without carrying into the high byte. */
UHF_API int UHFSetFilter(uint8_t flag, uint8_t bank, uint16_t startaddr, uint16_t datalen, uint8_t* buf);
/* 0x6A / 0x6C: dual/single mode. */
UHF_API int UHFSetDualSingelMode(unsigned char saveflag, unsigned char mode);
UHF_API int UHFGetDualSingelMode(unsigned char* mode);
/* 0xA1 sub-commands 0x05 / 0x06: work mode. */
UHF_API int UHFSetWorkMode(unsigned char mode);
UHF_API int UHFGetWorkMode(unsigned char* mode);
/* 0xA1 sub-commands 0x0B / 0x0C: the 6 work-mode parameter bytes. */
UHF_API int UHFSetWorkModePara(unsigned char* para);
UHF_API int UHFGetWorkModePara(unsigned char* para);
/* 0x3C: five work-time bytes. 0x3E reads four into DByte and returns 4. */
UHF_API int UHFSetWorkTime(unsigned char DByte4, unsigned char DByte3, unsigned char DByte2, unsigned char DByte1,
                           unsigned char DByte0);
UHF_API int UHFGetWorkTime(unsigned char* DByte);
/* 0x06: air protocol type (low byte of type). */
UHF_API int UHFSetProtocolType(int type);
UHF_API int UHFGetProtocolType(uint8_t* type);

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
                      unsigned int uPtr, unsigned char uCnt, unsigned char* uReadDatabuf, unsigned char* uReadDataLen);
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
UHF_API int UHF_ReadQTData_Ex(uint8_t* uAccessPwd, uint8_t ufBank, int ufPtr, int ufCnt, uint8_t* ufData, uint8_t uBank,
                              int uPtr, uint8_t uCnt, uint8_t* uReadData);
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

/* Temperature in degC to the tag's 10-bit code (8-bit two's-complement
 * degrees, 2 bits of quarters), rounded down to the quarter degree. */
UHF_API uint16_t convert10BitValue(float temp);

/* Temperature-logging tags (0xA3). Each request starts with a sub-command and
 * the tag filter block (bank, bit address, bit length, ceil(len/8) mask
 * bytes). Any failure of the exchange gives -1. */

/* 0xA3/03: start a logging run between min_temp and max_temp (sent as 10-bit
 * codes rounded down to 0.25 degC), then the delay and interval words.
 * 0 accepted; the reader's error code (> 0); -1. */
UHF_API int UHFStartLogging(unsigned char mask_bank, unsigned short mask_addr, unsigned short mask_len,
                            unsigned char* mask_data, float min_temp, float max_temp, unsigned short work_delay,
                            unsigned short work_interval);
/* 0xA3/04: stop the run. password is accepted and never sent. Results as
 * UHFStartLogging. */
UHF_API int UHFStopLogging(unsigned char mask_bank, unsigned short mask_addr, unsigned short mask_len,
                           unsigned char* mask_data, unsigned long password);
/* 0xA3/05: the tag's operating-mode word (0..65535), or -1. */
UHF_API int UHFCheckOpMode(unsigned char mask_bank, unsigned short mask_addr, unsigned short mask_len,
                           unsigned char* mask_data);
/* 0xA3/06: battery/supply voltage in volts (raw * 2.5 / 8192). 0, or -1
 * (*voltage untouched). */
UHF_API int UHFReadTagVoltage(unsigned char mask_bank, unsigned short mask_addr, unsigned short mask_len,
                              unsigned char* mask_data, float* voltage);
/* 0xA3/07: up to t_num readings from index t_start into temp (room for 255
 * floats). *totalNum = readings held, *returnNum = readings returned. 0; -1;
 * -3 when the reply is shorter than its records (counts already written). */
UHF_API int UHFReadMultiTemp(unsigned char mask_bank, unsigned short mask_addr, unsigned short mask_len,
                             unsigned char* mask_data, unsigned short t_start, unsigned char t_num,
                             unsigned short* totalNum, unsigned char* returnNum, float* temp);
/* 0xB0: deactivation request: cmd word, access password, filter block.
 * 0 when the reply starts 01, else -1. */
UHF_API int UHFDeactivate(unsigned int cmd, unsigned char* u_accessPwd, unsigned char FilterBank,
                          unsigned int FilterStartaddr, unsigned int FilterLen, unsigned char* FilterData);
/* 0xB2: dwell and count, 4 bytes each, big-endian. 0 or -1. */
UHF_API int UHFDwell(unsigned int dwell, unsigned int count);

/* Sensor code, calibration and on-chip RSSI (0x7C). Requests carry 16 bytes
 * of epc (pad shorter EPCs), the antenna and 2 power bytes. The reads copy the
 * returned words to data (at most 96 bytes) and return the byte count
 * (0 is valid), or -1 with data untouched. */
UHF_API int UHFGetSensorCode(unsigned char* epc, unsigned char antNum, unsigned char* powerValue,
                             unsigned char* data); /* 0x7C/01 */
UHF_API int UHFGetCalibrationData(unsigned char* epc, unsigned char antNum, unsigned char* powerValue,
                                  unsigned char* data); /* 0x7C/02 */
/* 0x7C with mode as the sub-command. */
UHF_API int UHFGetCalibrationDataEX(unsigned char mode, unsigned char* epc, unsigned char antNum,
                                    unsigned char* powerValue, unsigned char* data);
UHF_API int UHFGetOnChipRSSI(unsigned char* epc, unsigned char antNum, unsigned char* powerValue,
                             unsigned char* data); /* 0x7C/03 */
UHF_API int UHFGetTempertureCode(unsigned char* epc, unsigned char antNum, unsigned char* powerValue,
                                 unsigned char* data); /* 0x7C/04 */
UHF_API int UHFGetOnChipRSSIAndTempCode(unsigned char* epc, unsigned char antNum, unsigned char* powerValue,
                                        unsigned char* data); /* 0x7C/05 */
/* 0x7C/06: write 8 bytes of calibration data. 0 or -1. */
UHF_API int UHFWriteCalibrationData(unsigned char* epc, unsigned char antNum, unsigned char* powerValue,
                                    unsigned char* data);

/* ==== Packaged frame, configuration, partitions, pass-through =========== */

/* Package frame A5 03 len16(big-endian) head type<<4|version dlen16(little-
 * endian) data xor 03, on the selected link. dlen at most 1014; with a null
 * dbuf the header goes out without data. 0 when the transport returned
 * non-zero (an error too), -1 when it wrote nothing or dlen is too large. */
UHF_API int Common_Package_Send(uint8_t head, uint8_t type, uint8_t version, uint16_t dlen, uint8_t* dbuf);
/* Collect one frame from the selected link (2 ms polls, about 1 s for the
 * first byte; the first quiet poll after data ends it). 0 a package with head
 * 0xAB: its type, data length and data (databuf holds up to 1491 bytes); 1 a
 * plain acknowledgement (body 01.. or ..4C); -1 nothing, not a frame, short,
 * or data running past the frame; -2 bad end byte; -3 wrong head or a plain
 * frame that is no acknowledgement. The check byte is not verified. */
UHF_API int Common_Package_Rev(uint8_t* type, uint16_t* datalen, uint8_t* databuf);

/* Configuration packages (type 1, reply type 2 echoing the sub-command).
 * The frame layer's non-zero results above come back unchanged. */
/* 01: set the clock to 8 bytes. 0; -1 reply type, -2 length, -3 echo,
 * -4 status. */
UHF_API int Config_SetRTC(uint8_t* rtc);
/* 02: read the clock's 8 bytes into rtc. 0; -1 type, -2 length not 9, -3 echo. */
UHF_API int Config_ReadRTC(uint8_t* rtc);
/* 03: set parameter paratype to paralen bytes (at most 61). Results as
 * Config_SetRTC. */
UHF_API int Config_SetPara(uint16_t paratype, uint8_t paralen, uint8_t* paradata);
/* 04: read a parameter; its size is fixed by type: 0 12 bytes, 1 8, 2 1,
 * 3 7 x (entries last set by Config_SetWorkMode) + 1, 4 none, 5 4; other
 * types write nothing. 0; -1 type or a reply too short for the size; -2 echo;
 * -3 paratype not echoed. */
UHF_API int Config_GetPara(uint16_t paratype, uint16_t* len, uint8_t* buf);
/* 05: the 12 access bytes. 0; -1 type or short reply; -3 echo. */
UHF_API int Config_GetAccess(uint8_t* buf);
/* 06: nums work-mode entries of 7 bytes (at most 72); the data length is
 * sent cut to 8 bits. 0; -1 type; -2 echo; -3 status. */
/* Behaviour note: more entries than the 512-byte request holds: -1, nothing sent. */
UHF_API int Config_SetWorkMode(uint8_t nums, uint8_t* buf);
/* Work-mode entries last set by Config_SetWorkMode in this process. */
UHF_API extern uint8_t N;

/* Partition read request (type 10): one control byte (4 more, zero, when
 * flag is 3); prt and len are not sent. Returns the reply's first data byte
 * unchecked (so 1 may also be a plain acknowledgement), or a frame result. */
UHF_API int Requset_ReadPart(uint8_t speed, uint8_t des, uint8_t flag, uint8_t partnum, uint8_t prt, uint8_t len);
/* Partition write (type 11): TID (8), partnum, startaddr, datalen words
 * (at most 26). 0 on any type-11 reply; -1. */
/* Behaviour note: more data than the 64-byte request holds: -1, nothing sent. */
UHF_API int Request_WritePart(uint8_t* TID, uint8_t partnum, uint8_t startaddr, uint8_t datalen, uint8_t* databuf);
/* Special partition write (type 12) of up to 64 bytes as given. On a type-11
 * reply 0, 1, 2 or 3 from its status bytes; -1. */
UHF_API int Request_WriteSpecialPart(uint16_t datalen, uint8_t* databuf);
/* Pass-through (type 6) to PSAM slot 1 or 2. 0 on a type-7 reply; -1. */
/* Behaviour note: a PSAM number other than 1 or 2: -1, nothing sent. */
UHF_API int Trans_Psam(uint8_t psam_num, uint16_t len, uint8_t* buf);
/* Pass-through (type 6) for operator Oper_ID; the reply (any type, at most
 * 16 bytes) lands in rxbuf. 0, or a frame result. */
UHF_API int Trans_Buf(uint8_t Oper_ID, uint16_t len, uint8_t* buf, uint16_t* rxlen, uint8_t* rxbuf);
/* Sends nothing: waits for an unsolicited type-5 package. *Opr, *ferror its
 * first two bytes, the rest (up to 1022 bytes) into buf, *len their count cut
 * to 8 bits. 0; -1. */
/* Behaviour note: empties waiting input on every transport, not only serial. */
UHF_API int Update_ReadInfo(uint8_t* Opr, uint8_t* ferror, uint8_t* len, uint8_t* buf);

/* Auxiliary serial device for set_config and event_report; -1 when none is
 * open (the application opens it). */
UHF_API extern int uhf_finger_fd;
/* Plain-frame calls (A5 02 len body 03); replies are collected for up to 5 s,
 * ending at the first quiet 10 ms poll after data. */
/* Body 01 2A .. buf[0] buf[1] bare to uhf_finger_fd, then framed on the
 * selected link. 0 on the 2B reply; -1 (also when nothing was written to
 * uhf_finger_fd). */
UHF_API int set_config(uint8_t* buf);
/* Fixed 0x14 body (flag switches one byte) written to link 0, the reply read
 * from the selected link. 0 on the 15 reply; -1. */
UHF_API int set_inventory_sper(uint8_t flag);
/* Three fixed 0xFE bodies (the first carries freq) 50 ms apart; no reply is
 * read. 0, or -1 when a frame could not be sent. */
UHF_API int set_inventory_fixed(uint16_t freq);
/* Fixed 0x4C body bare to uhf_finger_fd, whose answer is drained unread.
 * 0, or -1 when nothing was written. */
UHF_API int event_report(void);

UHF_END_DECLS

#endif
