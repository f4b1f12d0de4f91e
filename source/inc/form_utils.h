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
 * valid only during the callback. */
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

/* Index of the first complete, check-correct command frame in buf, or -1. */
UHF_API int searchPack(const unsigned char* buf, int len);
/* Build the cell list for a frame's data and hand it to the callback. */
UHF_API void CallReceviedEvent(uint8_t cmd, uint8_t* content, uint16_t contentLen);
/* Register the data callback; null switches delivery off. */
UHF_API void setOnDataReceived(OnDataReceived onDataRecved);

UHF_API unsigned short consistPackage(ST_TransPackage* stTrsns, unsigned char* buf);
UHF_API unsigned char parsePackage(unsigned char* buf, unsigned short len, ST_TransPackage* stTrsns);
UHF_API unsigned short addPack(unsigned char* buf, unsigned short Len);
UHF_API unsigned short dropPack(unsigned char* buf, unsigned short len);
UHF_API int handleTransData(ST_TransPackage* stSend, ST_TransPackage* stRecv);

UHF_END_DECLS

#endif
