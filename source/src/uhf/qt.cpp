// QT memory views (Impinj Monza QT): set and get a tag's QT control byte
// (0x97/0x99) and read or write memory in the view it selects (0x9B/0x9D).
// The first family takes a caller's filter; the second finds its tag by a
// single inventory or by a given UII.
#include "UHF.h"
#include "uhf/tag_access.h"

using namespace uhf;

namespace {

enum : uint8_t {
    kCmdSetQt = 0x97,
    kCmdGetQt = 0x99,
    kCmdReadQt = 0x9B,
    kCmdWriteQt = 0x9D,
};

constexpr size_t kFilterFamilyBuf = 100;
constexpr size_t kUiiFamilyBuf = 4096;
const uint8_t kNoPassword[4] = {};

// The single-tag step: one inventory; the tag's UII is the reply less its
// RSSI and antenna bytes. Kept to what an 8-bit length can report.
bool single_tag(Reply& found, size_t& uii_len) {
    if (inventory_once(found) != 0 || found.size() <= 3 || found.size() - 3u > 0xFF) return false;
    uii_len = found.size() - 3u;
    return true;
}

// Password, the UII filter, QT byte 0, then the target with its address and
// count cut to their low bytes (the high bytes go out as 0).
Request& uii_request(Request& req, const uint8_t* pwd, const uint8_t* uii, size_t uii_len, uint8_t bank, int ptr,
                     uint8_t cnt) {
    req.bytes(pwd, 4);
    uii_filter(req, uii, uii_len).u8(0x00).u8(bank);
    return req.u8(0x00).u8(static_cast<unsigned>(ptr) & 0xFF).u8(0x00).u8(cnt);
}

// Password, caller's filter, QT byte, then bank, word address and count, as
// 0x9B/0x9D take them. False when an argument cannot be carried.
bool qt_request(Request& req, const uint8_t* pwd, unsigned filter_bank, long long filter_addr, long long filter_len,
                const uint8_t* mask, uint8_t qt, uint8_t bank, long long ptr, unsigned count) {
    if (!fits16(ptr) || !start_access(req, pwd, filter_bank, filter_addr, filter_len, mask)) return false;
    req.u8(qt).u8(bank).u16(static_cast<unsigned>(ptr)).u16(count);
    return true;
}

// Inventories one tag, hands its UII to the caller and starts the request
// addressed to it.
bool single_request(Request& req, const uint8_t* pwd, uint8_t bank, int ptr, uint8_t cnt, uint8_t* uUii,
                    uint8_t* uLenUii) {
    Reply found;
    size_t n = 0;
    if (!single_tag(found, n)) return false;
    found.copy(uUii, 0, n);
    *uLenUii = static_cast<uint8_t>(n);
    uii_request(req, pwd, found.data(), n, bank, ptr, cnt);
    return true;
}

// Inventories one tag and starts a QT-parameter request for it.
bool para_request(Request& req) {
    Reply found;
    size_t n = 0;
    if (!single_tag(found, n)) return false;
    req.bytes(kNoPassword, 4);
    uii_filter(req, found.data(), n);
    return true;
}

// The second family's read: status 0x01, word count in byte 3, words from 4.
int read_words(uint8_t cmd, const Request& req, uint8_t* out) {
    Reply reply;
    if (exchange_checked(cmd, req, reply, accepted) != 0) return -1;
    return copy_words(reply, reply[3], out) ? 0 : -1;
}

int send_accepted(uint8_t cmd, const Request& req) {
    Reply reply;
    return exchange_checked(cmd, req, reply, accepted);
}

}  // namespace

int UHFSetQT(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr, unsigned int FilterLen,
             unsigned char* FilterData, unsigned char QTData) {
    RequestBuf<kFilterFamilyBuf> req;
    UHF_REFUSE_IF(!start_access(req, u_accessPwd, FilterBank, FilterStartaddr, FilterLen, FilterData));
    req.u8(QTData);
    return send_accepted(kCmdSetQt, req);
}

int UHFGetQT(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr, unsigned int FilterLen,
             unsigned char* FilterData, unsigned char* QTData) {
    RequestBuf<kFilterFamilyBuf> req;
    if (QTData == nullptr || !start_access(req, u_accessPwd, FilterBank, FilterStartaddr, FilterLen, FilterData))
        return -1;
    Reply reply;
    if (exchange_checked(kCmdGetQt, req, reply, [](const Reply& r) { return accepted(r) && r.has(2); }) != 0) return -1;
    *QTData = reply[1];
    return 0;
}

int UHFReadQT(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
              unsigned int FilterLen, unsigned char* FilterData, unsigned char QTData, unsigned char uBank,
              unsigned int uPtr, unsigned char uCnt, unsigned char* uReadDatabuf, unsigned char* uReadDataLen) {
    RequestBuf<kFilterFamilyBuf> req;
    if (uReadDatabuf == nullptr || uReadDataLen == nullptr ||
        !qt_request(req, u_accessPwd, FilterBank, FilterStartaddr, FilterLen, FilterData, QTData, uBank, uPtr, uCnt))
        return -1;
    Reply reply;
    if (exchange_checked(kCmdReadQt, req, reply, tag_done) != 0) return -1;
    // The byte count is kept to 8 bits: 200 words report (and copy) 144 bytes.
    auto n = static_cast<uint8_t>(reply.be16(2) * 2u);
    if (!reply.has(4) || !reply.copy(uReadDatabuf, 4, n)) return -1;
    *uReadDataLen = n;
    return 0;
}

int UHFWriteQT(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
               unsigned int FilterLen, unsigned char* FilterData, unsigned char QTData, unsigned char uBank,
               unsigned int uPtr, unsigned char uCnt, unsigned char* uDatabuf) {
    RequestBuf<kFilterFamilyBuf> req;
    if (!qt_request(req, u_accessPwd, FilterBank, FilterStartaddr, FilterLen, FilterData, QTData, uBank, uPtr, uCnt))
        return -1;
    req.bytes(uDatabuf, 2u * uCnt);
    Reply reply;
    return exchange_checked(kCmdWriteQt, req, reply, tag_done);
}

int UHF_SetQTPara(uint8_t uPara) {
    RequestBuf<kUiiFamilyBuf> req;
    UHF_REFUSE_IF(!para_request(req));
    req.u8(uPara != 0 ? 0x00 : 0x02);  // inverse mapping: bit 1 set means "0"
    return send_accepted(kCmdSetQt, req);
}

int UHF_GetQTPara(uint8_t* uPara) {
    UHF_REFUSE_IF(uPara == nullptr);
    RequestBuf<kUiiFamilyBuf> req;
    UHF_REFUSE_IF(!para_request(req));
    Reply reply;
    if (exchange_checked(kCmdGetQt, req, reply, [](const Reply& r) { return accepted(r) && r.has(2); }) != 0) return -1;
    *uPara = (reply[1] & 0x02) ? 0 : 1;
    return 0;
}

int UHF_ReadQTData(uint8_t* uAccessPwd, uint8_t uBank, int uPtr, uint8_t uCnt, uint8_t* uUii, uint8_t* uReadData) {
    UHF_REFUSE_IF(uUii == nullptr || uReadData == nullptr);
    RequestBuf<kUiiFamilyBuf> req;
    uii_request(req, uAccessPwd, uUii, uii_length(uUii[0]), uBank, uPtr, uCnt);
    return read_words(kCmdReadData, req, uReadData);  // the plain read code, by design
}

int UHF_ReadQTDataSingle(uint8_t* uAccessPwd, uint8_t uBank, int uPtr, uint8_t uCnt, uint8_t* uReadData, uint8_t* uUii,
                         uint8_t* uLenUii) {
    // Checked up front: the inventory would otherwise go out before the bad argument is seen.
    UHF_REFUSE_IF(uAccessPwd == nullptr || uReadData == nullptr || uUii == nullptr || uLenUii == nullptr);
    RequestBuf<kUiiFamilyBuf> req;
    UHF_REFUSE_IF(!single_request(req, uAccessPwd, uBank, uPtr, uCnt, uUii, uLenUii));
    return read_words(kCmdReadQt, req, uReadData);
}

int UHF_ReadQTData_Ex(uint8_t* uAccessPwd, uint8_t ufBank, int ufPtr, int ufCnt, uint8_t* ufData, uint8_t uBank,
                      int uPtr, uint8_t uCnt, uint8_t* uReadData) {
    RequestBuf<kUiiFamilyBuf> req;
    if (uReadData == nullptr || !qt_request(req, uAccessPwd, ufBank, ufPtr, ufCnt, ufData, 0x00, uBank, uPtr, uCnt))
        return -1;
    return read_words(kCmdReadQt, req, uReadData);
}

int UHF_WriteQTData(uint8_t* uAccessPwd, uint8_t uBank, int uPtr, uint8_t uCnt, uint8_t* uUii, uint8_t* uWriteData) {
    UHF_REFUSE_IF(uUii == nullptr);
    RequestBuf<kUiiFamilyBuf> req;
    uii_request(req, uAccessPwd, uUii, uii_length(uUii[0]), uBank, uPtr, uCnt).bytes(uWriteData, 2u * uCnt);
    return send_accepted(kCmdWriteData, req);  // the plain write code, by design
}

int UHF_WriteQTDataSingle(uint8_t* uAccessPwd, uint8_t uBank, int uPtr, uint8_t uCnt, uint8_t* uWriteData,
                          uint8_t* uUii, uint8_t* uLenUii) {
    if (uAccessPwd == nullptr || (uWriteData == nullptr && uCnt != 0) || uUii == nullptr || uLenUii == nullptr)
        return -1;
    RequestBuf<kUiiFamilyBuf> req;
    UHF_REFUSE_IF(!single_request(req, uAccessPwd, uBank, uPtr, uCnt, uUii, uLenUii));
    req.bytes(uWriteData, 2u * uCnt);
    return send_accepted(kCmdWriteQt, req);
}

int UHF_WriteQTData_Ex(uint8_t* uAccessPwd, uint8_t ufBank, int ufPtr, int ufCnt, uint8_t* ufData, uint8_t uBank,
                       int uPtr, uint16_t uCnt, uint8_t* uWriteData) {
    RequestBuf<kUiiFamilyBuf> req;
    UHF_REFUSE_IF(!qt_request(req, uAccessPwd, ufBank, ufPtr, ufCnt, ufData, 0x00, uBank, uPtr, uCnt));
    req.bytes(uWriteData, 2u * uCnt);
    return send_accepted(kCmdWriteQt, req);
}
