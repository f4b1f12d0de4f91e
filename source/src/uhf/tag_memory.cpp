// Tag memory: read (0x84), write (0x86), block write (0x93), block erase
// (0x95) and the screen-tag block write (0x90), each behind an access
// password and a tag filter.
#include "UHF.h"
#include "uhf/tag_access.h"

using namespace uhf;

int UHFReadData(uint8_t* uAccessPwd, uint8_t ufBank, int ufPtr, int ufCnt, uint8_t* ufData, uint8_t uBank,
                int uPtr, uint16_t uCnt, uint8_t* uReadData) {
    if (uReadData == nullptr || !filter_args_fit(ufPtr, ufCnt) || !fits16(uPtr)) return -1;
    RequestBuf<2048> req;
    access_head(req, uAccessPwd, ufBank, ufPtr, ufCnt, ufData).u8(uBank).u16(uPtr).u16(uCnt);
    Reply reply;
    if (exchange_checked(0x84, req, reply, accepted) != 0) return -1;
    // The count is the reader's, not uCnt: a tag may return fewer words.
    return copy_words(reply, reply.be16(2), uReadData) ? 0 : -1;
}

int UHFWriteData(uint8_t* uAccessPwd, uint8_t ufBank, int ufPtr, int ufCnt, uint8_t* ufData, uint8_t uBank,
                 int uPtr, uint16_t uCnt, uint8_t* uWriteData) {
    if (!filter_args_fit(ufPtr, ufCnt) || !fits16(uPtr)) return -1;
    RequestBuf<100> req;
    access_head(req, uAccessPwd, ufBank, ufPtr, ufCnt, ufData).u8(uBank).u16(uPtr).u16(uCnt);
    req.bytes(uWriteData, 2u * uCnt);
    Reply reply;
    return exchange_checked(0x86, req, reply, accepted);
}

int UHFBlockWriteData(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                      unsigned int FilterLen, unsigned char* FilterData, unsigned char uBank, unsigned int uPtr,
                      unsigned int uCnt, unsigned char* uDatabuf) {
    if (!filter_args_fit(FilterStartaddr, FilterLen) || !fits16(uPtr) || !fits16(uCnt)) return -1;
    RequestBuf<2048> req;
    access_head(req, u_accessPwd, FilterBank, FilterStartaddr, FilterLen, FilterData).u8(uBank).u16(uPtr).u16(uCnt);
    req.bytes(uDatabuf, 2u * uCnt);
    Reply reply;
    return exchange_checked(0x93, req, reply, tag_done);
}

int UHFBlockEraseData(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                      unsigned int FilterLen, unsigned char* FilterData, unsigned char uBank, unsigned int uPtr,
                      unsigned char uCnt) {
    if (!filter_args_fit(FilterStartaddr, FilterLen) || !fits16(uPtr)) return -1;
    RequestBuf<100> req;
    access_head(req, u_accessPwd, FilterBank, FilterStartaddr, FilterLen, FilterData).u8(uBank).u16(uPtr).u16(uCnt);
    Reply reply;
    return exchange_checked(0x95, req, reply, tag_done);
}

int UHFWriteScreenBlockData(unsigned char* pwd, unsigned char sector, unsigned short mask_addr,
                            unsigned short mask_len, unsigned char* mask_data, unsigned char type,
                            unsigned short w_addr, unsigned short w_len, unsigned char* w_data) {
    constexpr uint16_t kScreenTimeoutMs = 6000;  // the tag refreshes its display before answering
    RequestBuf<1024> req;
    req.u8(0x01);
    access_head(req, pwd, sector, mask_addr, mask_len, mask_data).u8(type).u16(w_addr).u16(w_len);
    req.bytes(w_data, 2u * w_len);
    Reply reply;
    return exchange_checked(
        0x90, req, reply, [](const Reply& r) { return r.is(0, 0x01) && r.is(1, 0x01); }, kScreenTimeoutMs);
}
