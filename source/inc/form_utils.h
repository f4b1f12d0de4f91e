/*
 * Byte-stream codecs between the link and the application: command frame
 * search, data-cell lists for the application callback, and the
 * 0x7E-delimited transfer package.
 */
#ifndef UHF_FORM_UTILS_H
#define UHF_FORM_UTILS_H

#include <stdint.h>

#include "uhf_export.h"

UHF_BEGIN_DECLS

enum {
    CELL_INVALID = 0,
    CELL_CONNECT_ID = 1,
    CELL_CONNECT_IP = 2,
    CELL_UHF_PC = 3,
    CELL_UHF_RSSI = 4,
    CELL_UHF_ANTENNA = 5,
    CELL_UHF_EPC = 6,
    CELL_UHF_TID = 7,
    CELL_UHF_USER = 8,
    CELL_UHF_RESERVE = 9,
    CELL_BARCODE = 10,
    CELL_UHF_SENSOR = 11
};

/* One item of a data-cell list. pdata points into the receive buffer and is
 * valid only during the callback.
 *
 * len is what the frame claims, not what it carried: an EPC cell's length
 * comes from the PC word and a TID cell always claims 12 bytes, so a short or
 * lying frame yields cells that reach past its end. Reading len bytes never
 * faults (the cells stay inside the library's receive buffer), but bytes past
 * the frame are left over from earlier frames. Safe use: the RSSI cell of a
 * list always lies inside the frame, at its end; copy the other cells out
 * during the callback, each cut to the bytes before the RSSI cell's pdata:
 *     n = min(cell->len, rssi->pdata - cell->pdata)   (none when negative) */
typedef struct ST_UHF_DATA_CELL {
    uint8_t type; /* CELL_* */
    uint16_t len;
    uint8_t* pdata;
    struct ST_UHF_DATA_CELL* next;
} ST_UHF_DATA_CELL;

typedef void (*OnDataReceived)(ST_UHF_DATA_CELL* cells);

typedef struct {
    uint8_t type;
    uint16_t cmd;
    uint16_t prop;
    uint16_t len; /* valid bytes in content */
    uint8_t content[512];
} ST_TransPackage;

UHF_API extern OnDataReceived myOnDataRecved;

/* Index of the first complete, check-correct command frame in buf, or -1.
 * Start pairs A5/C8 then 5A/8C; length field 8..4096. */
UHF_API int searchPack(const unsigned char* buf, int len);
/* Build the cell list for a frame's data (command cmd, contentLen bytes)
 * and hand it to the callback: 0x81/0x83 tag report, 0xE1/0xE8/0xEA/0xEC
 * batch (one call per record), 0xE5 barcode. Nothing below 5 bytes or
 * without a callback. Report cell lengths come from the PC word and a TID
 * cell always claims 12 bytes, so they may reach past contentLen. */
/* Behaviour note: batch records that run past the frame end the batch; records under 2 bytes are skipped. */
UHF_API void CallReceviedEvent(uint8_t cmd, uint8_t* content, uint16_t contentLen);
/* Register the data callback (atomic store); null switches delivery off. */
UHF_API void setOnDataReceived(OnDataReceived onDataRecved);

/* Serialise: type, cmd, prop, len (big-endian), content. Returns 7 + len;
 * 0 when an argument is null or len is over 512. */
UHF_API unsigned short consistPackage(ST_TransPackage* stTrsns, unsigned char* buf);
/* Fill stTrsns from len serialised bytes. 0 on success; 1 when len is not
 * 7 + the embedded length (header fields are still written), when fewer
 * than 7 bytes are given, or when the content would exceed 512 bytes. */
UHF_API unsigned char parsePackage(unsigned char* buf, unsigned short len, ST_TransPackage* stTrsns);
/* Stuff Len bytes in place into 7E ... check 7E (7E -> 7D 02, 7D -> 7D 01).
 * buf must hold 2 * Len + 4 bytes. Returns the frame length; 0 when buf is
 * null or Len is over 32765. */
UHF_API unsigned short addPack(unsigned char* buf, unsigned short Len);
/* Unstuff the frame from the first 7E in place to buf[0..]; returns the
 * package length (the check byte stays behind it), 0 for a bad frame. */
/* Behaviour note: no payload between the flags: 0. */
UHF_API unsigned short dropPack(unsigned char* buf, unsigned short len);
/* One exchange of a transfer package on the selected link: 0 success, -1
 * short send or reply length mismatch, -2 nothing received, -3 bad frame. */
UHF_API int handleTransData(ST_TransPackage* stSend, ST_TransPackage* stRecv);

UHF_END_DECLS

#endif
