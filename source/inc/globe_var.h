/*
 * Process-wide state shared between the library's modules: diagnostic
 * categories, the tag record queue, the USB transport's globals and the
 * escaped-frame stack. Everything here is plain C data with C linkage.
 */
#ifndef UHF_GLOBE_VAR_H
#define UHF_GLOBE_VAR_H

#include <pthread.h>
#include <stdint.h>

#include "uhf_export.h"

UHF_BEGIN_DECLS

/* ---- Diagnostics ------------------------------------------------------ */

/* Categories for openLog/closeLog; each maps to one bit of print_debug_log. */
typedef enum {
    ENABLE_LOG = 0,   /* bit 31: master switch for all output */
    USB_LOG = 1,      /* 0x01 */
    FUNCTION_LOG = 2, /* 0x02 */
    SERIAL_LOG = 3,   /* 0x04 */
    TRANSFER_LOG = 4, /* 0x08: frame dumps */
    BASE_LOG = 5,     /* 0x10: link table, inventory thread */
    TAG_FIFO_LOG = 6  /* 0x20: tag record queue */
} ENUM_LOG;

#define UHF_LOG_MASTER_BIT 0x80000000UL

/* Enabled categories; 0 at load (all output off). */
UHF_API extern unsigned long print_debug_log;

/* Switch a category on / off. Values outside 0..6 do nothing. */
UHF_API void openLog(ENUM_LOG type);
UHF_API void closeLog(ENUM_LOG type);

/* "HH:MM:SS:mmm message\n" on standard output while the master bit is set. */
UHF_API void my_printf(const char* ms, ...) __attribute__((format(printf, 1, 2)));
/* Hex and text dump, 16 bytes a row, while the master bit is set. */
UHF_API void display_buffer_hex(const unsigned char* buffer, unsigned int size);
/* File logger; its switch is fixed off, so it writes nothing. */
UHF_API void mLOG(const char* ms, ...) __attribute__((format(printf, 1, 2)));
/* Wall-clock milliseconds since the Unix epoch; measures every time limit. */
UHF_API long long getTimestamp(void);
/* clock(): processor time in CLOCKS_PER_SEC units. */
UHF_API long getClock(void);

/* ---- Tag record queue -------------------------------------------------- */

/* Stored with each queued tag record. */
typedef enum { NORMAL_INVENTORY = 1, SENSOR_INVENTORY = 2 } INVENTORY_MODE;

#define TAG_BUF_SIZE 262144UL
#define TAG_BUF_MASK 0x3FFFFUL

UHF_API extern unsigned char tag_buf[TAG_BUF_SIZE];
UHF_API extern unsigned long add_tag_index;
UHF_API extern unsigned long drop_tag_index;
UHF_API extern pthread_mutex_t tag_buf_mutex;

/* Empty the queue (no lock). initTagQueue is flushTagBuf. */
UHF_API void initTagQueue(void);
/* Behaviour note: takes the queue's lock. */
UHF_API void flushTagBuf(void);
/* Whether index lies in the circular interval (from, end]. */
UHF_API unsigned char isContain(unsigned long from, unsigned long end, unsigned long index);
/* Queue one report; stored size (tagLen + 3) or 0 when refused. A full
 * queue is flushed whole. */
UHF_API uint16_t addTagData(INVENTORY_MODE mode, const uint8_t* tagData, uint16_t tagLen, int id);
/* Take the oldest record (id high, id low, mode, report) into tag; bytes
 * written, 0 when empty or when size is too small (the record stays). */
UHF_API uint16_t getTagData(uint8_t* tag, uint16_t size);

/* ---- USB transport ------------------------------------------------------ */

/* Same incomplete type as hidapi's own, so either header may come first. */
struct hid_device_;
typedef struct hid_device_ hid_device;

UHF_API extern hid_device* handle; /* the open device; null while closed */
UHF_API extern unsigned char usb_initial;
UHF_API extern char cur_usb_path[256];
UHF_API extern pthread_t thread_id;
UHF_API extern int usb_running;
UHF_API extern uint8_t usb_event_buf[8192];
UHF_API extern uint16_t usb_event_buf_len;
UHF_API extern uint8_t recv_buf[4096];
UHF_API extern uint16_t recv_len;

/* ---- Escaped-frame stack ----------------------------------------------- */

typedef struct {
    int len;
    unsigned char buf[80];
} UHFSTACK;

#define UHF_STACK_SLOTS 1000

UHF_API extern UHFSTACK UhfStackBuf[UHF_STACK_SLOTS];
UHF_API extern uint16_t UhfHead;
UHF_API extern uint16_t UhfTail;
UHF_API extern uint8_t ThreadCloseFlag;
/* Frame-check mode for escaped frames; starts at 1 (CRC on). */
UHF_API extern uint8_t g_uflagCrc;

/* ---- Public-layer flags ------------------------------------------------- */

UHF_API extern int UHFIsOpen;       /* 1 after ComOpenWithBaud succeeded */
UHF_API extern int UHF_MODULE_TYPE; /* 2 after ComOpenWithBaud */

UHF_END_DECLS

#endif
