// Gen2 parameters and inventory modes: what the reader inventories and how.
#include "UHF.h"
#include "log.h"
#include "uhf/command.h"
#include "uhf/gen2_block.h"

using namespace uhf;

namespace {

enum : uint8_t {
    kCmdGetGen2 = 0x22,
    kCmdSetWorkTime = 0x3C,
    kCmdGetWorkTime = 0x3E,
    kCmdSetFastId = 0x5C,
    kCmdGetFastId = 0x5E,
    kCmdSetTagFocus = 0x60,
    kCmdGetTagFocus = 0x62,
    kCmdSetDualSingle = 0x6A,
    kCmdGetDualSingle = 0x6C,
    kCmdSetFilter = 0x6E,
    kCmdSetTidMode = 0x70,
    kCmdGetTidMode = 0x72,
};

// Sub-commands: the protocol command's set/get, and the device settings'
// work mode entries.
enum : uint8_t {
    kSubSetProtocol = 0x00,
    kSubGetProtocol = 0x01,
    kSubSetWorkMode = 0x05,
    kSubGetWorkMode = 0x06,
    kSubSetWorkModePara = 0x0B,
    kSubGetWorkModePara = 0x0C,
};

using Req = RequestBuf<16>;

// A query whose reply is the accepted status, then the value.
int query_byte(uint8_t cmd, const Request& req, unsigned char* out) {
    UHF_REFUSE_IF(out == nullptr);
    Reply r;
    if (query(cmd, req, r, 2) != 0) return -1;
    *out = r[1];
    return 0;
}

// The switch queries send 00 00.
int query_flag(uint8_t cmd, unsigned char* flag) {
    Req req;
    req.u8(0x00).u8(0x00);
    return query_byte(cmd, req, flag);
}

int set_flag(uint8_t cmd, unsigned char flag) {
    Req req;
    req.u8(flag).u8(0x00);
    return set(cmd, req);
}

// Sets flag only when the reader holds another value.
int set_flag_if_changed(uint8_t get_cmd, uint8_t set_cmd, uint8_t flag) {
    UHF_REFUSE_IF(flag > 1);
    unsigned char held;
    if (query_flag(get_cmd, &held) != 0) return -1;
    if (held == flag) return 0;
    return set_flag(set_cmd, flag);
}

}  // namespace

int UHFSetGen2(unsigned char Target, unsigned char Action, unsigned char T, unsigned char Q, unsigned char StartQ,
               unsigned char MinQ, unsigned char MaxQ, unsigned char D, unsigned char C, unsigned char P,
               unsigned char Sel, unsigned char Session, unsigned char G, unsigned char LF) {
    uint8_t block[4];
    gen2_pack({Target, Action, T, Q, StartQ, MinQ, MaxQ, D, C, P, Sel, Session, G, LF}, block);
    Req req;
    req.bytes(block, 4);
    return set(kCmdSetGen2, req);
}

int UHFGetGen2(unsigned char* Target, unsigned char* Action, unsigned char* T, unsigned char* Q, unsigned char* StartQ,
               unsigned char* MinQ, unsigned char* MaxQ, unsigned char* D, unsigned char* Coding, unsigned char* P,
               unsigned char* Sel, unsigned char* Session, unsigned char* G, unsigned char* LF) {
    unsigned char* out[] = {Target, Action, T, Q, StartQ, MinQ, MaxQ, D, Coding, P, Sel, Session, G, LF};
    for (unsigned char* p : out) UHF_REFUSE_IF(p == nullptr);
    Reply r;
    uint8_t block[4];
    // No status byte: the block is the whole reply.
    if (transact(kCmdGetGen2, r) != 0 || !r.copy(block, 0, 4)) return -1;
    Gen2Params g = gen2_unpack(block);
    const uint8_t fields[] = {g.target, g.action, g.t, g.q,   g.start_q, g.min_q, g.max_q,
                              g.d,      g.coding, g.p, g.sel, g.session, g.g,     g.lf};
    for (size_t i = 0; i < sizeof fields; i++) *out[i] = fields[i];
    return 0;
}

int UHFSetFastID(unsigned char flag) { return set_flag(kCmdSetFastId, flag); }
int UHFGetFastID(unsigned char* flag) { return query_flag(kCmdGetFastId, flag); }
int UHFSetTagfocus(unsigned char flag) { return set_flag(kCmdSetTagFocus, flag); }
int UHFGetTagfocus(unsigned char* flag) { return query_flag(kCmdGetTagFocus, flag); }
int R2000_Set_FastID(uint8_t flag) { return set_flag_if_changed(kCmdGetFastId, kCmdSetFastId, flag); }
int R2000_Set_TagFocus(uint8_t flag) { return set_flag_if_changed(kCmdGetTagFocus, kCmdSetTagFocus, flag); }

int UHFSetEPCTIDUSERMode(uint8_t save, uint8_t mode, uint8_t addr, uint8_t length) {
    UHF_REFUSE_IF(mode > 2);
    Req req;
    req.u8(save).u8(mode).u8(addr).u8(length);
    return set(kCmdSetTidMode, req);
}

int UHFSetEPCTIDMode(unsigned char saveflag, unsigned char mode) {
    Req req;
    req.u8(saveflag).u8(mode);
    return set(kCmdSetTidMode, req);
}

int UHF_OPENMODE(void) { return UHFSetEPCTIDMode(0x00, 0x01); }

int UHFGetEPCTIDMode(unsigned char* mode) { return query_flag(kCmdGetTidMode, mode); }

int UHFGetEPCTIDUSERMode(uint8_t rev1, uint8_t rev2, uint8_t* mode) {
    UHF_REFUSE_IF(mode == nullptr);
    Req req;
    req.u8(rev1).u8(rev2);
    Reply r;
    if (query(kCmdGetTidMode, req, r, 4) != 0 || !r.copy(mode, 1, 3)) return -1;
    return 3;  // the count of bytes written; callers take non-negative as success
}

int UHFSetFilter(uint8_t flag, uint8_t bank, uint16_t startaddr, uint16_t datalen, uint8_t* buf) {
    (void)flag;
    // The 100-byte request holds 6 header bytes and 94 mask bytes.
    constexpr uint16_t kMaxMask = 94;
    if (datalen > kMaxMask) {
        UHF_LOG(kLogFunction, "UHFSetFilter: %d mask bytes do not fit\n", datalen);
        return -1;
    }
    unsigned bits = startaddr * 8u;
    // In the EPC bank the address skips CRC and PC, but only in the low byte:
    // readers were built against this encoding, carry lost included.
    unsigned low = bank == 1 ? (startaddr + 4u) * 8u : bits;
    unsigned addr = (bits & 0xFF00) | (low & 0xFF);
    RequestBuf<100> req;
    req.u8(0x00).filter(bank, addr, datalen * 8u, buf);
    return set(kCmdSetFilter, req);
}

int UHFSetDualSingelMode(unsigned char saveflag, unsigned char mode) {
    Req req;
    req.u8(saveflag).u8(mode);
    return set(kCmdSetDualSingle, req);
}

int UHFGetDualSingelMode(unsigned char* mode) { return query_byte(kCmdGetDualSingle, Req{}, mode); }

int UHFSetWorkMode(unsigned char mode) {
    Req req;
    req.u8(kSubSetWorkMode).u8(mode);
    return set(kCmdDeviceSettings, req);
}

int UHFGetWorkMode(unsigned char* mode) {
    UHF_REFUSE_IF(mode == nullptr);
    Reply r;
    if (transact_query(kCmdDeviceSettings, kSubGetWorkMode, r) != 0 || !r.has(2)) return -1;
    *mode = r[1];
    return 0;
}

int UHFSetWorkModePara(unsigned char* para) {
    Req req;
    req.u8(kSubSetWorkModePara).bytes(para, 6);
    return set(kCmdDeviceSettings, req);
}

int UHFGetWorkModePara(unsigned char* para) {
    UHF_REFUSE_IF(para == nullptr);
    Reply r;
    if (transact_query(kCmdDeviceSettings, kSubGetWorkModePara, r) != 0 || r.size() != 7) return -1;
    return r.copy(para, 1, 6) ? 0 : -1;
}

int UHFSetWorkTime(unsigned char DByte4, unsigned char DByte3, unsigned char DByte2, unsigned char DByte1,
                   unsigned char DByte0) {
    Req req;
    req.u8(DByte4).u8(DByte3).u8(DByte2).u8(DByte1).u8(DByte0);
    return set(kCmdSetWorkTime, req);
}

int UHFGetWorkTime(unsigned char* DByte) {
    UHF_REFUSE_IF(DByte == nullptr);
    Reply r;
    if (query(kCmdGetWorkTime, r, 5) != 0 || !r.copy(DByte, 1, 4)) return -1;
    return 4;  // the count of bytes written, not 0
}

int UHFSetProtocolType(int type) {
    Req req;
    req.u8(kSubSetProtocol).u8(static_cast<unsigned>(type) & 0xFF);
    Reply r;
    // Here the status is the second byte, after the echoed 0x00 "set".
    if (query(kCmdProtocol, req, r, 2, kSubSetProtocol) != 0) return -1;
    return r.size() == 2 && r.is(1, 0x01) ? 0 : -1;
}

int UHFGetProtocolType(uint8_t* type) {
    UHF_REFUSE_IF(type == nullptr);
    Req req;
    req.u8(kSubGetProtocol);
    Reply r;
    if (query(kCmdProtocol, req, r, 2) != 0 || r.size() != 2) return -1;
    *type = r[1];
    return 0;
}
