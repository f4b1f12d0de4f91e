// Single-shot inventory (0x80) in its three output forms, the buffered batch
// (0xEB), the inventory bank (0x30) and the crypto pass-through (0xB0).
#include <string.h>

#include "UHF.h"
#include "uhf/tag_access.h"

uint8_t bankflag = 0;

namespace uhf {

namespace {

enum : uint8_t {
    kCmdInventoryBank = 0x30,
    kCmdInventoryOnce = 0x80,
    kCmdBatch = 0xEB,
};

}  // namespace

int inventory_once(Reply& reply) {
    RequestBuf<2> req;
    req.u8(0x00).u8(0x64);  // reader-chosen antenna, 100 ms
    return transact(kCmdInventoryOnce, req, reply);
}

namespace {

// A single-inventory reply: PC+EPC (L bytes by its PC), extra bank data,
// RSSI (2), antenna (1). Callers check holds() before copying, so a PC that
// claims more than arrived never makes them read past the reply.
struct SingleTag {
    Reply reply;
    size_t uii_len = 0;

    bool fetch() {
        if (inventory_once(reply) != 0) return false;
        uii_len = uii_length(reply[0]);
        return true;
    }
    bool holds(size_t trailer) const { return reply.size() >= uii_len + trailer; }
};

}  // namespace
}  // namespace uhf

using namespace uhf;

int UHFInventorySingle(uint8_t* uLenUii, uint8_t* uUii) {
    UHF_REFUSE_IF(uLenUii == nullptr || uUii == nullptr);
    SingleTag tag;
    if (!tag.fetch() || !tag.holds(0)) return -1;
    tag.reply.copy(uUii, 0, tag.uii_len);
    *uLenUii = static_cast<uint8_t>(tag.uii_len);
    return 0;
}

int UHF_InventorySingleEPCTIDUSER(uint8_t* uLenUii, uint8_t* uUii) {
    UHF_REFUSE_IF(uLenUii == nullptr || uUii == nullptr);
    SingleTag tag;
    // Needs RSSI and antenna after the UII; the written length must fit *uLenUii.
    if (!tag.fetch() || !tag.holds(3) || tag.reply.size() + 2u > 0xFF) return -1;
    size_t r = tag.reply.size(), L = tag.uii_len, data_len = r - L - 3;
    uUii[0] = static_cast<uint8_t>(L);
    tag.reply.copy(uUii + 1, 0, L);
    uUii[L + 1] = static_cast<uint8_t>(data_len);
    tag.reply.copy(uUii + L + 2, L, data_len + 3);  // data, RSSI, antenna
    *uLenUii = static_cast<uint8_t>(r + 2);
    return 0;
}

int UHF_InventorySingle_R2000(uint8_t* uLenUii, uint8_t* uUii) {
    UHF_REFUSE_IF(uLenUii == nullptr || uUii == nullptr);
    SingleTag tag;
    if (!tag.fetch()) {
        *uLenUii = 0;
        return -1;
    }
    const Reply& r = tag.reply;
    // m is the length without the antenna byte; it must satisfy 1 <= m - 3 <= 250.
    if (r.size() < 5 || r.size() > 254 || !tag.holds(3)) return -1;
    size_t m = r.size() - 1u, L = tag.uii_len;
    // Bytes past the reply read as zero, as from the module's zeroed buffer:
    // a short reply therefore counts as carrying no data.
    bool no_data = r[L + 3] == 0 && r[L + 4] == 0 && r[L + 5] == 0;
    size_t data_len = no_data ? 0 : m - L - 2;
    uUii[0] = static_cast<uint8_t>(L);
    r.copy(uUii + 1, 0, L);
    uUii[L + 1] = static_cast<uint8_t>(data_len);
    r.copy(uUii + L + 2, L, data_len);
    r.copy(uUii + L + 2 + data_len, m - 2, 2);
    *uLenUii = static_cast<uint8_t>(m + 2);
    return 0;
}

int UHF_GetTagsData(uint8_t* uUii) {
    constexpr size_t kBatchBuf = 512;
    UHF_REFUSE_IF(uUii == nullptr);
    Reply reply;
    if (transact(kCmdBatch, reply) != 0 || reply.size() > kBatchBuf) return -1;
    if (reply.size() == 2) return 0;  // "no tags": the buffer is left alone
    reply.copy(uUii, 0, reply.size());
    return reply.size();
}

int UHF_Inventory_Bank(uint8_t* uAccessPwd, uint8_t uBank, uint8_t uPtr, uint8_t uCnt) {
    RequestBuf<9> req;
    req.bytes(uAccessPwd, 4).u8(uBank).u16(uPtr).u16(uCnt);
    Reply reply;
    if (exchange_checked(kCmdInventoryBank, req, reply, accepted) != 0) return -1;
    bankflag = uBank;
    return 0;
}

int CryptoTransmit(const uint8_t* pin, uint16_t inLen, uint8_t* pout, uint16_t* outLen, uint16_t wait_recv_ms) {
    UHF_REFUSE_IF(pin == nullptr || pout == nullptr || outLen == nullptr || inLen > kFrameData);
    RequestBuf<kFrameData> req;
    req.bytes(pin, inLen);
    Reply reply;
    if (transact(kCmdDeactivate, req, reply, wait_recv_ms) != 0) {
        *outLen = 0;
        return -2;
    }
    reply.copy(pout, 0, reply.size());
    *outLen = reply.size();
    return 0;
}
