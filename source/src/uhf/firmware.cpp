// Firmware upgrade: boot loader entry, start, image blocks, end. The library
// keeps no upgrade state and knows no image format; the caller drives the
// steps in order and cuts the image into blocks.
#include "frame_size.h"
#include "UHF.h"
#include "uhf/command.h"

namespace uhf {

namespace {


enum : uint8_t {
    kCmdJumpToBoot = 0xC0,
    kCmdStartUpdate = 0xC2,
    kCmdBlock = 0xC4,
    kCmdStopUpdate = 0xC6,
};

constexpr size_t kBlockLen = 64;
constexpr size_t kMaxFrameData = kMaxFrame - kFrameOverhead;

int send_block(const uint8_t* buf, size_t len) {
    UHF_REFUSE_IF(buf == nullptr);
    RequestBuf<kMaxFrameData> req;
    req.bytes(buf, len);
    Reply r;
    return transact_status(kCmdBlock, req, r, kAccepted);
}

}  // namespace

}  // namespace uhf

int UHFJump2Boot(unsigned char flag) {
    static const uint8_t kTarget[] = {0xEE, 0xCC, 0xBB, 0xAA};
    if (flag >= sizeof kTarget) return -2;
    uhf::RequestBuf<1> req;
    req.u8(kTarget[flag]);
    uhf::Reply r;
    return uhf::transact_status(uhf::kCmdJumpToBoot, req, r, uhf::kAccepted);
}

int UHFStartUpd(void) {
    uhf::Reply r;
    return uhf::transact_status(uhf::kCmdStartUpdate, r, uhf::kAccepted);
}

int UHFUpdating(unsigned char* buf) { return uhf::send_block(buf, uhf::kBlockLen); }

int UHF_Upgrade(const unsigned char* buf, unsigned short length) { return uhf::send_block(buf, length); }

// Fire and forget: the reader may be busy flashing and answer late or never.
int UHFStopUpdate(void) { return Vexa_Send(uhf::kCmdStopUpdate, nullptr, 0, cur_index); }
