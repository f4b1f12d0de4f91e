// The frame stack: a ring of fixed 80-byte slots holding escaped-form tag
// frames for the application, and the EBV length converters.
#include <string.h>

#include "UHF.h"

UHFSTACK UhfStackBuf[UHF_STACK_SLOTS];
uint16_t UhfHead = 0;
uint16_t UhfTail = 0;
uint8_t ThreadCloseFlag = 0;

namespace {

// One writer moves the head and one reader the tail; each publishes its
// index only after the slot is complete.
uint16_t load(const uint16_t* p) { return __atomic_load_n(p, __ATOMIC_ACQUIRE); }
void store(uint16_t* p, uint16_t v) { __atomic_store_n(p, v, __ATOMIC_RELEASE); }
uint16_t next(uint16_t i) { return static_cast<uint16_t>((i + 1) % UHF_STACK_SLOTS); }

}  // namespace

void Init_UhfStack(void) {
    store(&UhfHead, 0);
    store(&UhfTail, 0);
    memset(UhfStackBuf, 0, sizeof UhfStackBuf);
}

void Insert_UhfStack(uint8_t* buf, uint8_t len) {
    if (buf == nullptr) return;
    // A frame longer than a slot is refused rather than spilling into the next.
    if (len > sizeof UhfStackBuf[0].buf) return;
    uint16_t head = load(&UhfHead);
    if (next(head) == load(&UhfTail)) return;  // full: the oldest frames are kept
    UhfStackBuf[head].len = len;
    memcpy(UhfStackBuf[head].buf, buf, len);
    store(&UhfHead, next(head));
}

int Fetch_UhfStack(uint8_t* buf, uint8_t* len) {
    if (buf == nullptr || len == nullptr) return -2;
    uint16_t tail = load(&UhfTail);
    if (tail == load(&UhfHead)) return -1;
    *len = static_cast<uint8_t>(UhfStackBuf[tail].len);
    memcpy(buf, UhfStackBuf[tail].buf, *len);
    store(&UhfTail, next(tail));
    return 0;
}

void IntToEBV(int iLen, uint8_t* eLen) {
    if (eLen == nullptr) return;
    // The one-byte range includes negatives, which then read back as the
    // two-byte form; values from 16384 lose their high bits.
    if (iLen >= -127 && iLen <= 127) {
        eLen[0] = static_cast<uint8_t>(iLen);
        return;
    }
    eLen[0] = static_cast<uint8_t>((iLen / 128) | 0x80);
    eLen[1] = static_cast<uint8_t>(iLen % 128);
}

int EBVToInt(uint8_t* eLen) {
    if (eLen == nullptr) return 0;
    if (eLen[0] & 0x80) return (eLen[0] & 0x7F) * 128 + eLen[1];
    return eLen[0];
}
