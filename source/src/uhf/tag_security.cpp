// Commands that change a tag's access state or prove its identity: kill
// (0x8A), lock (0x88), block permalock (0x9F), GB lock (0x06 sub 0x02),
// authenticate (0x8E), deactivate (0xB0) and the reader's dwell (0xB2).
#include "UHF.h"
#include "uhf/tag_access.h"

using namespace uhf;

namespace {

enum : uint8_t {
    kCmdLock = 0x88,
    kCmdKill = 0x8A,
    kCmdAuthenticate = 0x8E,
    kCmdBlockPermalock = 0x9F,
};

// The GB lock's sub-command of the protocol command.
constexpr uint8_t kSubGbLock = 0x02;

// Password (from the value, most significant byte first), filter, then the
// count of what follows (key id and message), key id and message.
void authenticate_request(Request& req, unsigned long password, unsigned char bank, unsigned short addr,
                          const unsigned char* mData, unsigned short mDataLen, unsigned char keyID, unsigned short tLen,
                          const unsigned char* tData) {
    req.u32(password & 0xFFFFFFFFUL).filter(bank, addr, mDataLen, mData);
    req.u8(tLen + 1u).u8(keyID).bytes(tData, tLen);
}

bool authenticate_ok(const Reply& r) { return r.has(3) && tag_done(r); }

}  // namespace

int UHFKillTag(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
               unsigned int FilterLen, unsigned char* FilterData) {
    RequestBuf<kFrameData> req;
    UHF_REFUSE_IF(!start_access(req, u_accessPwd, FilterBank, FilterStartaddr, FilterLen, FilterData));
    Reply reply;
    return exchange_checked(kCmdKill, req, reply, tag_done);
}

int UHFLockTag(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
               unsigned int FilterLen, unsigned char* FilterData, unsigned char* lockbuf) {
    constexpr int kLockFailed = 1;  // this call alone reports failure as 1
    RequestBuf<kFrameData> req;
    if (!start_access(req, u_accessPwd, FilterBank, FilterStartaddr, FilterLen, FilterData)) return kLockFailed;
    req.bytes(lockbuf, 3);
    Reply reply;
    return exchange_checked(kCmdLock, req, reply, tag_done) == 0 ? 0 : kLockFailed;
}

int UHFBlockPermalock(unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                      unsigned int FilterLen, unsigned char* FilterData, unsigned char ReadLock, unsigned char uBank,
                      unsigned int uPtr, unsigned char uRange, unsigned char* uMaskbuf) {
    RequestBuf<kFrameData> req;
    if (!fits16(uPtr) || !start_access(req, u_accessPwd, FilterBank, FilterStartaddr, FilterLen, FilterData)) return -1;
    req.u8(ReadLock).u8(uBank).u16(uPtr).u16(uRange).bytes(uMaskbuf, 2u * uRange);
    Reply reply;
    if (exchange_checked(kCmdBlockPermalock, req, reply, tag_done) != 0) return -1;
    // Both lock and read-back return the blocks' lock bits after the status.
    return reply.copy(uMaskbuf, 2, 2u * uRange) ? 0 : -1;
}

int UHFGBTagLock(uint8_t* uAccessPwd, uint8_t FilterBank, uint16_t FilterStartaddr, uint16_t FilterLen,
                 uint8_t* FilterData, int memory, int config, int action) {
    RequestBuf<kFrameData> req;
    req.u8(kSubGbLock);
    start_access(req, uAccessPwd, FilterBank, FilterStartaddr, FilterLen, FilterData);  // 16-bit args always fit
    req.u8(static_cast<unsigned>(memory)).u8(static_cast<unsigned>(config)).u8(static_cast<unsigned>(action));
    Reply reply;
    // Only the exact two bytes 02 01 mean the lock was done.
    return exchange_checked(kCmdProtocol, req, reply,
                            [](const Reply& r) { return r.size() == 2 && r.be16(0) == 0x0201; });
}

int UHFAuthenticate(unsigned long password, unsigned char bank, unsigned short addr, unsigned char* mData,
                    unsigned short mDataLen, unsigned char keyID, unsigned short tLen, unsigned char* tData,
                    unsigned short* recvLen, unsigned char* recvData) {
    if (recvLen == nullptr || recvData == nullptr) return -1;
    RequestBuf<100> req;
    authenticate_request(req, password, bank, addr, mData, mDataLen, keyID, tLen, tData);
    Reply reply;
    if (exchange_checked(kCmdAuthenticate, req, reply, authenticate_ok) != 0) return -1;
    size_t n = 2u * reply.be16(2);
    *recvLen = static_cast<unsigned short>(n);  // set before the checks: on -2 it shows what was refused
    if (n == 0 || !reply.has(4) || n > reply.size() - 4u) return -2;
    reply.copy(recvData, 4, n);
    return 0;
}

int UHFAuthenticateCommon(unsigned long password, unsigned char bank, unsigned short addr, unsigned char* mData,
                          unsigned short mDataLen, unsigned char keyID, unsigned short tLen, unsigned char* tData,
                          unsigned short* recvLen, unsigned char* recvData) {
    if (recvLen != nullptr) *recvLen = 0;
    if (recvLen == nullptr || recvData == nullptr) return -1;
    RequestBuf<100> req;
    authenticate_request(req, password, bank, addr, mData, mDataLen, keyID, tLen, tData);
    Reply reply;
    if (exchange_checked(kCmdAuthenticate, req, reply, authenticate_ok) != 0) return -1;
    reply.copy(recvData, 2, reply.size() - 2u);
    *recvLen = static_cast<unsigned short>(reply.size() - 2u);
    return 0;
}

int UHF_Deactivate(uint16_t cmd, uint8_t* uAccessPwd, uint8_t uBank, int ptr, int cnt, uint8_t* udat) {
    RequestBuf<kFrameData> req;
    req.u16(cmd);
    UHF_REFUSE_IF(!start_access(req, uAccessPwd, uBank, ptr, cnt, udat));
    Reply reply;
    return exchange_checked(kCmdDeactivate, req, reply, accepted);
}

int UHF_Dwelltime(uint16_t dwell, uint16_t count) {
    RequestBuf<8> req;
    req.u32(dwell).u32(count);
    Reply reply;
    return exchange_checked(kCmdDwell, req, reply, accepted);
}
