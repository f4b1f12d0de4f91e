// Tag memory: read (0x84), write (0x86), block write (0x93), block erase
// (0x95) and the screen-tag block write (0x90), each behind an access
// password and a tag filter.
#include "UHF.h"
#include "uhf/tag_access.h"

using namespace uhf;

namespace {

enum : uint8_t {
    kCmdScreenBlockWrite = 0x90,
    kCmdBlockWrite = 0x93,
    kCmdBlockErase = 0x95,
};

// Password, filter and target block (bank, word address, word count): the
// request of every memory command before its data. False when an argument
// cannot be carried.
bool memory_request(Request& req, const uint8_t* pwd, unsigned filter_bank, long long filter_addr, long long filter_len,
                    const uint8_t* mask, unsigned bank, long long ptr, long long count) {
    if (!fits16(ptr) || !fits16(count) || !start_access(req, pwd, filter_bank, filter_addr, filter_len, mask))
        return false;
    req.u8(bank).u16(static_cast<unsigned>(ptr)).u16(static_cast<unsigned>(count));
    return true;
}

}  // namespace

int UHFReadData(uint8_t* uAccessPwd, uint8_t ufBank, int ufPtr, int ufCnt, uint8_t* ufData, uint8_t uBank, int uPtr,
                uint16_t uCnt, uint8_t* uReadData) {
    RequestBuf<kMaxFrame> req;
    if (uReadData == nullptr || !memory_request(req, uAccessPwd, ufBank, ufPtr, ufCnt, ufData, uBank, uPtr, uCnt))
        return -1;
    Reply reply;
    if (exchange_checked(kCmdReadData, req, reply, accepted) != 0) return -1;
    // The count is the reader's, not uCnt: a tag may return fewer words.
    return copy_words(reply, reply.be16(2), uReadData) ? 0 : -1;
}

int UHFWriteData(uint8_t* uAccessPwd, uint8_t ufBank, int ufPtr, int ufCnt, uint8_t* ufData, uint8_t uBank, int uPtr,
                 uint16_t uCnt, uint8_t* uWriteData) {
    RequestBuf<100> req;
    UHF_REFUSE_IF(!memory_request(req, uAccessPwd, ufBank, ufPtr, ufCnt, ufData, uBank, uPtr, uCnt));
    req.bytes(uWriteData, 2u * uCnt);
    Reply reply;
    return exchange_checked(kCmdWriteData, req, reply, accepted);
}

int UHFBlockWriteData(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                      unsigned int FilterLen, unsigned char* FilterData, unsigned char uBank, unsigned int uPtr,
                      unsigned int uCnt, unsigned char* uDatabuf) {
    RequestBuf<kMaxFrame> req;
    if (!memory_request(req, u_accessPwd, FilterBank, FilterStartaddr, FilterLen, FilterData, uBank, uPtr, uCnt))
        return -1;
    req.bytes(uDatabuf, 2u * uCnt);
    Reply reply;
    return exchange_checked(kCmdBlockWrite, req, reply, tag_done);
}

int UHFBlockEraseData(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                      unsigned int FilterLen, unsigned char* FilterData, unsigned char uBank, unsigned int uPtr,
                      unsigned char uCnt) {
    RequestBuf<100> req;
    if (!memory_request(req, u_accessPwd, FilterBank, FilterStartaddr, FilterLen, FilterData, uBank, uPtr, uCnt))
        return -1;
    Reply reply;
    return exchange_checked(kCmdBlockErase, req, reply, tag_done);
}

int UHFWriteScreenBlockData(unsigned char* pwd, unsigned char sector, unsigned short mask_addr, unsigned short mask_len,
                            unsigned char* mask_data, unsigned char type, unsigned short w_addr, unsigned short w_len,
                            unsigned char* w_data) {
    constexpr uint16_t kScreenTimeoutMs = 6000;  // the tag refreshes its display before answering
    RequestBuf<1024> req;
    req.u8(0x01);
    memory_request(req, pwd, sector, mask_addr, mask_len, mask_data, type, w_addr, w_len);  // 16-bit args always fit
    req.bytes(w_data, 2u * w_len);
    Reply reply;
    return exchange_checked(
        kCmdScreenBlockWrite, req, reply, [](const Reply& r) { return r.is(0, 0x01) && r.is(1, 0x01); },
        kScreenTimeoutMs);
}
