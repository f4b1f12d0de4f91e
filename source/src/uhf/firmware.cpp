// Firmware upgrade: boot loader entry, start, image blocks, end. The library
// keeps no upgrade state and knows no image format; the caller drives the
// steps in order and cuts the image into blocks.
#include "UHF.h"
#include "frame_size.h"
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

using namespace uhf;

int UHFJump2Boot(unsigned char flag) {
    static const uint8_t kTarget[] = {0xEE, 0xCC, 0xBB, 0xAA};
    if (flag >= sizeof kTarget) return -2;
    RequestBuf<1> req;
    req.u8(kTarget[flag]);
    Reply r;
    return transact_status(kCmdJumpToBoot, req, r, kAccepted);
}

int UHFStartUpd(void) {
    Reply r;
    return transact_status(kCmdStartUpdate, r, kAccepted);
}

int UHFUpdating(unsigned char* buf) { return send_block(buf, kBlockLen); }

int UHF_Upgrade(const unsigned char* buf, unsigned short length) { return send_block(buf, length); }

// Fire and forget: the reader may be busy flashing and answer late or never.
int UHFStopUpdate(void) { return Vexa_Send(kCmdStopUpdate, nullptr, 0, cur_index); }
