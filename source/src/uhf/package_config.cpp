// Package-frame commands: reader configuration (clock, parameters, access
// bytes, work modes), partition reads and writes, pass-through and the
// upgrade-information package. Each is one package request (head 0xAA,
// version 2) and one reply; the frame layer's non-zero results pass through.
#include "UHF.h"
#include "log.h"
#include "uhf/package.h"

using namespace uhf;

// Work-mode entries last sent; fixes the size of parameter type 3.
uint8_t N = 0;

namespace {

constexpr uint8_t kHead = 0xAA;
constexpr uint8_t kVersion = 2;

// Package types.
enum : uint8_t {
    kConfig = 1,
    kConfigReply = 2,
    kUpgradeInfo = 5,
    kPassThrough = 6,
    kPsamReply = 7,
    kReadPart = 10,
    kWritePart = 11,
    kWriteSpecialPart = 12,
};

// Configuration sub-commands, echoed in reply byte 0.
enum : uint8_t {
    kSetRtc = 0x01,
    kReadRtc = 0x02,
    kSetPara = 0x03,
    kGetPara = 0x04,
    kGetAccess = 0x05,
    kSetWorkMode = 0x06,
};

// Pass-through targets: the two PSAM slots.
enum : uint8_t {
    kPsam1 = 0x10,
    kPsam2 = 0x11,
};

// Reply buffers of the calls: replies with more data are refused.
constexpr size_t kRtcReply = 32;
constexpr size_t kParaReply = 128;
constexpr size_t kBigBuf = 512;
constexpr size_t kPartBuf = 64;
constexpr size_t kPassReply = 16;
constexpr size_t kUpgradeReply = 1024;

constexpr size_t kWorkModeEntry = 7;

int send_package(uint8_t type, const Request& req, uint16_t dlen) {
    if (!req.ok()) return -1;
    return Common_Package_Send(kHead, type, kVersion, dlen, const_cast<uint8_t*>(req.data()));
}

// One request and its reply (at most cap data bytes).
int package_call(uint8_t type, const Request& req, uint8_t& rtype, Reply& out, size_t cap) {
    int r = send_package(type, req, static_cast<uint16_t>(req.size()));
    if (r != 0) return r;
    return recv_package(&rtype, out, cap);
}

// The setters' reply: type 2, two bytes, the sub-command, status 0.
int setter_result(uint8_t rtype, const Reply& reply, uint8_t sub) {
    if (rtype != kConfigReply) return -1;
    if (reply.size() != 2) return -2;
    if (!reply.is(0, sub)) return -3;
    return reply[1] == 0 ? 0 : -4;
}

// Bytes of parameter type paratype in a GetPara reply; -1 for types that
// return nothing.
long para_size(uint16_t paratype) {
    switch (paratype) {
        case 0: return 12;
        case 1: return 8;
        case 2: return 1;
        case 3: return static_cast<long>(N) * kWorkModeEntry + 1;
        case 4: return 0;
        case 5: return 4;
        default: return -1;
    }
}

}  // namespace

int Config_SetRTC(uint8_t* rtc) {
    RequestBuf<16> req;
    req.u8(kSetRtc).bytes(rtc, 8);
    uint8_t rtype = 0;
    Reply reply;
    int r = package_call(kConfig, req, rtype, reply, kRtcReply);
    return r != 0 ? r : setter_result(rtype, reply, kSetRtc);
}

int Config_ReadRTC(uint8_t* rtc) {
    UHF_REFUSE_IF(rtc == nullptr);
    RequestBuf<16> req;
    req.u8(kReadRtc);
    uint8_t rtype = 0;
    Reply reply;
    int r = package_call(kConfig, req, rtype, reply, kRtcReply);
    if (r != 0) return r;
    if (rtype != kConfigReply) return -1;
    if (reply.size() != 9) return -2;
    if (!reply.is(0, kReadRtc)) return -3;
    reply.copy(rtc, 1, 8);
    return 0;
}

int Config_SetPara(uint16_t paratype, uint8_t paralen, uint8_t* paradata) {
    RequestBuf<64> req;
    req.u8(kSetPara).u16(paratype).bytes(paradata, paralen);
    uint8_t rtype = 0;
    Reply reply;
    int r = package_call(kConfig, req, rtype, reply, 64);
    return r != 0 ? r : setter_result(rtype, reply, kSetPara);
}

int Config_GetPara(uint16_t paratype, uint16_t* len, uint8_t* buf) {
    UHF_REFUSE_IF(len == nullptr || buf == nullptr);
    RequestBuf<16> req;
    req.u8(kGetPara).u16(paratype);
    uint8_t rtype = 0;
    Reply reply;
    int r = package_call(kConfig, req, rtype, reply, kParaReply);
    if (r != 0) return r;
    if (rtype != kConfigReply) return -1;
    if (!reply.is(0, kGetPara)) return -2;
    if (!reply.has(3) || reply.be16(1) != paratype) return -3;
    // The size is the parameter type's, not the reply's; a reply too short
    // to hold it is refused rather than read past.
    long n = para_size(paratype);
    if (n < 0) return 0;
    if (!reply.copy(buf, 3, static_cast<size_t>(n))) return -1;
    *len = static_cast<uint16_t>(n);
    return 0;
}

int Config_GetAccess(uint8_t* buf) {
    UHF_REFUSE_IF(buf == nullptr);
    RequestBuf<kBigBuf> req;
    req.u8(kGetAccess);
    uint8_t rtype = 0;
    Reply reply;
    int r = package_call(kConfig, req, rtype, reply, kBigBuf);
    if (r != 0) return r;
    if (rtype != kConfigReply) return -1;
    if (!reply.is(0, kGetAccess)) return -3;
    return reply.copy(buf, 1, 12) ? 0 : -1;
}

int Config_SetWorkMode(uint8_t nums, uint8_t* buf) {
    RequestBuf<kBigBuf> req;
    req.u8(kSetWorkMode).u8(nums).bytes(buf, nums * kWorkModeEntry);
    if (!req.ok()) return -1;
    N = nums;
    flush_selected_queues();
    // The data length travels cut to 8 bits, and only that many bytes go out.
    int r = send_package(kConfig, req, static_cast<uint8_t>(req.size()));
    uint8_t rtype = 0;
    Reply reply;
    if (r == 0) r = recv_package(&rtype, reply, kBigBuf);
    if (r != 0) return r;
    if (rtype != kConfigReply) return -1;
    if (!reply.is(0, kSetWorkMode)) return -2;
    return reply.is(1, 0) ? 0 : -3;
}

int Requset_ReadPart(uint8_t speed, uint8_t des, uint8_t flag, uint8_t partnum, uint8_t prt, uint8_t len) {
    (void)prt;  // accepted, never sent
    (void)len;
    RequestBuf<kPartBuf> req;
    req.u8(speed << 7 | des << 6 | flag << 4 | partnum);
    if (flag == 3) req.u32(0);  // declared by the request, not defined by it
    uint8_t rtype = 0;
    Reply reply;
    int r = package_call(kReadPart, req, rtype, reply, kPartBuf);
    if (r != 0) return r;
    // Neither type nor status is checked: the first data byte is the result.
    return reply.has(1) ? reply[0] : -1;
}

int Request_WritePart(uint8_t* TID, uint8_t partnum, uint8_t startaddr, uint8_t datalen, uint8_t* databuf) {
    RequestBuf<kPartBuf> req;
    req.bytes(TID, 8).u8(partnum).u8(startaddr).u8(datalen).bytes(databuf, datalen * 2u);
    uint8_t rtype = 0;
    Reply reply;
    int r = package_call(kWritePart, req, rtype, reply, kPartBuf);
    if (r != 0) return r;
    return rtype == kWritePart ? 0 : -1;
}

int Request_WriteSpecialPart(uint16_t datalen, uint8_t* databuf) {
    RequestBuf<kPartBuf> req;
    req.bytes(databuf, datalen);
    uint8_t rtype = 0;
    Reply reply;
    int r = package_call(kWriteSpecialPart, req, rtype, reply, kPartBuf);
    if (r != 0) return r;
    if (rtype != kWritePart) return -1;
    if (reply.is(0, 1)) return reply.is(1, 1) ? 1 : 0;
    if (reply.is(0, 2)) {
        if (reply.has(2) && reply[1] <= 2) return reply[1];
        if (reply.is(2, 3)) return 3;
    }
    return 0;
}

int Trans_Psam(uint8_t psam_num, uint16_t len, uint8_t* buf) {
    UHF_REFUSE_IF(psam_num != 1 && psam_num != 2);
    RequestBuf<kBigBuf> req;
    req.u8(psam_num == 1 ? kPsam1 : kPsam2).bytes(buf, len);
    uint8_t rtype = 0;
    Reply reply;
    int r = package_call(kPassThrough, req, rtype, reply, kPassReply);
    if (r != 0) return r;
    return rtype == kPsamReply ? 0 : -1;
}

int Trans_Buf(uint8_t Oper_ID, uint16_t len, uint8_t* buf, uint16_t* rxlen, uint8_t* rxbuf) {
    UHF_REFUSE_IF(rxlen == nullptr || rxbuf == nullptr);
    RequestBuf<kBigBuf> req;
    req.u8(Oper_ID).bytes(buf, len);
    uint8_t rtype = 0;
    Reply reply;
    int r = package_call(kPassThrough, req, rtype, reply, kPassReply);
    if (r != 0) return r;
    *rxlen = reply.size();
    reply.copy(rxbuf, 0, reply.size());
    return 0;
}

int Update_ReadInfo(uint8_t* Opr, uint8_t* ferror, uint8_t* len, uint8_t* buf) {
    UHF_REFUSE_IF(Opr == nullptr || ferror == nullptr || len == nullptr || buf == nullptr);
    flush_selected_queues();
    uint8_t rtype = 0;
    Reply reply;
    int r = recv_package(&rtype, reply, kUpgradeReply);
    if (r != 0) return r;
    if (rtype != kUpgradeInfo || !reply.has(2)) return -1;
    *Opr = reply[0];
    *ferror = reply[1];
    *len = static_cast<uint8_t>(reply.size() - 2);
    reply.copy(buf, 2, reply.size() - 2u);
    return 0;
}
