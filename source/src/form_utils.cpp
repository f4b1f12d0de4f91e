// Byte-stream codecs between the link and the application: command frame
// search, data-cell lists for the application callback, and the
// 0x7E-delimited, byte-stuffed transfer package. Stateless apart from the
// callback pointer; nothing here allocates.
#include "form_utils.h"

#include <stdint.h>
#include <string.h>

#include "frame_size.h"

OnDataReceived myOnDataRecved = nullptr;

namespace uhf {
namespace {

constexpr uint8_t kFlag = 0x7E;
constexpr uint8_t kEscape = 0x7D;
constexpr unsigned kPackageHeaderLen = 7;
constexpr unsigned kContentCapacity = sizeof(ST_TransPackage{}.content);

enum SearchState { kStart, kSecond, kLenHigh, kLenLow, kBody, kCheck, kCr, kLf };

bool first_start_byte(uint8_t b) { return b == 0xA5 || b == 0xC8; }
bool second_start_byte(uint8_t b) { return b == 0x5A || b == 0x8C; }

enum class FrameAt { kNone, kPartial, kWhole };

// What a command frame starting at p[0] would be, given the n bytes in.
FrameAt frame_at(const unsigned char* p, size_t n) {
    if (!first_start_byte(p[0])) return FrameAt::kNone;
    if (n < 2) return FrameAt::kPartial;
    if (!second_start_byte(p[1])) return FrameAt::kNone;
    if (n < 4) return FrameAt::kPartial;
    const size_t flen = static_cast<size_t>(p[2] << 8 | p[3]);
    if (flen < 8 || flen > 4096) return FrameAt::kNone;
    if (n < flen) return FrameAt::kPartial;
    uint8_t x = 0;
    for (size_t i = 2; i < flen - 3; i++) x ^= p[i];
    return x == p[flen - 3] && p[flen - 2] == 0x0D && p[flen - 1] == 0x0A ? FrameAt::kWhole : FrameAt::kNone;
}

ST_UHF_DATA_CELL make_cell(uint8_t type, uint16_t len, uint8_t* data) {
    return ST_UHF_DATA_CELL{type, len, data, nullptr};
}

// Link the first n cells in order and hand them over.
void deliver(OnDataReceived cb, ST_UHF_DATA_CELL* cells, int n) {
    for (int i = 0; i + 1 < n; i++) cells[i].next = &cells[i + 1];
    cells[n - 1].next = nullptr;
    cb(cells);
}

// One tag report (0x81/0x83): EPC, PC, RSSI, then TID and USER when the
// content is long enough. Lengths come from the PC word and the TID cell
// always claims 12 bytes; that is the interface. The cells only point into
// content, nothing is read here beyond the PC byte.
void single_report(OnDataReceived cb, uint8_t* content, uint16_t contentLen) {
    const uint16_t epcLen = (content[0] >> 2) & 0x3E;
    ST_UHF_DATA_CELL cells[5];
    int n = 0;
    cells[n++] = make_cell(CELL_UHF_EPC, epcLen, content + 2);
    cells[n++] = make_cell(CELL_UHF_PC, 2, content);
    cells[n++] = make_cell(CELL_UHF_RSSI, 2, content + contentLen - 3);
    if (contentLen > epcLen + 5) {
        cells[n++] = make_cell(CELL_UHF_TID, 12, content + epcLen + 2);
        if (contentLen > epcLen + 17)
            cells[n++] = make_cell(CELL_UHF_USER, contentLen - epcLen - 17, content + epcLen + 14);
    }
    deliver(cb, cells, n);
}

// A batch: count byte, then records of a length byte and that many bytes.
// The count is trusted, but a record that would run past the content ends
// the batch, and a record too short to hold a PC word is skipped, since its
// PC and RSSI cells would point outside it.
void batch_report(OnDataReceived cb, uint8_t* content, uint16_t contentLen) {
    const unsigned count = content[0];
    unsigned pos = 1;
    for (unsigned r = 0; r < count; r++) {
        if (pos >= contentLen) return;
        const unsigned len = content[pos];
        uint8_t* rec = content + pos + 1;
        if (pos + 1 + len > contentLen) return;
        pos += 1 + len;
        if (len < 2) continue;
        ST_UHF_DATA_CELL cells[3];
        int n = 0;
        cells[n++] = make_cell(CELL_UHF_PC, 2, rec);
        cells[n++] = make_cell(CELL_UHF_RSSI, 2, rec + len - 2);
        if (len >= 5) cells[n++] = make_cell(CELL_UHF_EPC, static_cast<uint16_t>(len - 4), rec + 2);
        deliver(cb, cells, n);
    }
}

// Append b stuffed at buf[out]; returns the new output position.
unsigned stuff(unsigned char* buf, unsigned out, uint8_t b) {
    if (b == kFlag) {
        buf[out++] = kEscape;
        buf[out++] = 0x02;
    } else if (b == kEscape) {
        buf[out++] = kEscape;
        buf[out++] = 0x01;
    } else {
        buf[out++] = b;
    }
    return out;
}

}  // namespace
}  // namespace uhf

using namespace uhf;

int searchPack(const unsigned char* buf, int len) {
    if (buf == nullptr || len <= 0) return -1;
    SearchState state = kStart;
    int start = -1;
    unsigned frameLen = 0;
    unsigned count = 0;
    uint8_t check = 0;
    for (int index = 0; index < len; index++) {
        const uint8_t b = buf[index];
        switch (state) {
            case kStart:
                if (first_start_byte(b)) {
                    start = index;
                    state = kSecond;
                }
                break;
            case kSecond:
                // A mismatch drops back without looking at this byte as a start.
                if (second_start_byte(b)) {
                    check = 0;
                    frameLen = 0;
                    state = kLenHigh;
                } else {
                    state = kStart;
                }
                break;
            case kLenHigh:
                check ^= b;
                frameLen = static_cast<unsigned>(b) << 8;
                state = kLenLow;
                break;
            case kLenLow:
                check ^= b;
                frameLen |= b;
                if (frameLen >= 8 && frameLen <= 4096) {
                    count = 4;
                    state = kBody;
                } else {
                    state = kStart;
                }
                break;
            case kBody:
                check ^= b;
                if (++count == frameLen - 3) state = kCheck;
                break;
            case kCheck: state = (b == check) ? kCr : kStart; break;
            case kCr: state = (b == 0x0D) ? kLf : kStart; break;
            case kLf:
                if (b == 0x0A) return start;
                state = kStart;
                break;
        }
    }
    return -1;
}

long uhf::frame_resync(const unsigned char* buf, size_t len, size_t* resume) {
    size_t keep = len;
    for (size_t i = 0; buf != nullptr && i < len; i++) {
        FrameAt at = frame_at(buf + i, len - i);
        if (at == FrameAt::kWhole) {
            if (resume != nullptr) *resume = i;
            return static_cast<long>(i);
        }
        if (at == FrameAt::kPartial && keep == len) keep = i;
    }
    if (resume != nullptr) *resume = keep;
    return -1;
}

void setOnDataReceived(OnDataReceived onDataRecved) {
    // The USB receive thread reads the pointer while the application may
    // replace it.
    __atomic_store_n(&myOnDataRecved, onDataRecved, __ATOMIC_RELEASE);
}

void CallReceviedEvent(uint8_t cmd, uint8_t* content, uint16_t contentLen) {
    const OnDataReceived cb = __atomic_load_n(&myOnDataRecved, __ATOMIC_ACQUIRE);
    if (cb == nullptr || content == nullptr || contentLen < 5) return;
    switch (cmd) {
        case 0x81:
        case 0x83: single_report(cb, content, contentLen); break;
        case 0xE1:
        case 0xE8:
        case 0xEA:
        case 0xEC:
            if (contentLen > 6) batch_report(cb, content, contentLen);
            break;
        case 0xE5:
            if (content[0] == 2) {
                ST_UHF_DATA_CELL cell = make_cell(CELL_BARCODE, contentLen - 1, content + 1);
                deliver(cb, &cell, 1);
            }
            break;
        default: break;
    }
}

unsigned short consistPackage(ST_TransPackage* stTrsns, unsigned char* buf) {
    // len past the content array would copy from beyond the struct.
    if (stTrsns == nullptr || buf == nullptr || stTrsns->len > kContentCapacity) return 0;
    buf[0] = stTrsns->type;
    buf[1] = static_cast<uint8_t>(stTrsns->cmd >> 8);
    buf[2] = static_cast<uint8_t>(stTrsns->cmd);
    buf[3] = static_cast<uint8_t>(stTrsns->prop >> 8);
    buf[4] = static_cast<uint8_t>(stTrsns->prop);
    buf[5] = static_cast<uint8_t>(stTrsns->len >> 8);
    buf[6] = static_cast<uint8_t>(stTrsns->len);
    memcpy(buf + kPackageHeaderLen, stTrsns->content, stTrsns->len);
    return static_cast<unsigned short>(kPackageHeaderLen + stTrsns->len);
}

unsigned char parsePackage(unsigned char* buf, unsigned short len, ST_TransPackage* stTrsns) {
    // Fewer than 7 bytes hold no header to fill the fields from.
    if (buf == nullptr || stTrsns == nullptr || len < kPackageHeaderLen) return 1;
    stTrsns->type = buf[0];
    stTrsns->cmd = static_cast<uint16_t>((buf[1] << 8) | buf[2]);
    stTrsns->prop = static_cast<uint16_t>((buf[3] << 8) | buf[4]);
    stTrsns->len = static_cast<uint16_t>((buf[5] << 8) | buf[6]);
    if (len != kPackageHeaderLen + stTrsns->len) return 1;
    // A matching length above 512 still cannot fit the content array.
    if (stTrsns->len > kContentCapacity) return 1;
    memcpy(stTrsns->content, buf + kPackageHeaderLen, stTrsns->len);
    return 0;
}

unsigned short addPack(unsigned char* buf, unsigned short Len) {
    // The worst case, 2 * Len + 4, must still be a representable length.
    if (buf == nullptr || 2u * Len + 4u > 0xFFFFu) return 0;
    memmove(buf + Len, buf, Len);
    unsigned out = 0;
    buf[out++] = kFlag;
    uint8_t check = 0;
    // Reading buf[Len + i] stays ahead of the output position, so the copy
    // never overwrites a byte it has yet to read.
    for (unsigned i = 0; i < Len; i++) {
        const uint8_t b = buf[Len + i];
        check ^= b;
        out = stuff(buf, out, b);
    }
    out = stuff(buf, out, check);
    buf[out++] = kFlag;
    return static_cast<unsigned short>(out);
}

unsigned short dropPack(unsigned char* buf, unsigned short len) {
    if (buf == nullptr) return 0;
    unsigned in = 0;
    while (in < len && buf[in] != kFlag) in++;
    if (in == len) return 0;
    in++;
    unsigned out = 0;
    uint8_t check = 0;
    while (in < len) {
        uint8_t b = buf[in++];
        if (b == kFlag) {
            // An empty frame has no check byte to leave behind.
            if (out == 0 || check != 0) return 0;
            return static_cast<unsigned short>(out - 1);
        }
        if (b == kEscape) {
            if (in == len) return 0;
            const uint8_t code = buf[in++];
            if (code == 0x01)
                b = kEscape;
            else if (code == 0x02)
                b = kFlag;
            else
                return 0;
        }
        check ^= b;
        buf[out++] = b;  // out < in always: unstuffing only shrinks
    }
    return 0;
}
