// Frequency hopping, RF link mode, CW, generic parameters, protocol
// configuration and the power-amplifier status.
#include "UHF.h"
#include "globe_var.h"
#include "log.h"
#include "uhf/command.h"
#include "uhf/gen2_block.h"

using namespace uhf;

namespace {

enum : uint8_t {
    kCmdSetHopping = 0x14,
    kCmdGetHopping = 0x16,
    kCmdSetParam = 0x18,
    kCmdGetParam = 0x1A,
    kCmdSetCw = 0x24,
    kCmdGetCw = 0x26,
    kCmdRfLink = 0x52,
    kCmdGetRfLink = 0x54,
    kCmdProtocolConfig = 0xC0,
};

using Req = RequestBuf<16>;

// The Gen2 settings that go with each RF link preset.
constexpr Gen2Params kGen2Mode3 = {0, 0, 0, 1, 0, 0, 0, 1, 2, 1, 1, 1, 0, 3};
constexpr Gen2Params kGen2Mode0To2 = {0, 0, 0, 1, 4, 0, 15, 1, 2, 1, 1, 1, 0, 3};

// Second step of a preset. Its own outcome is not what counts: when it fails
// the result comes from the preset's reply still in r (the status 0x01
// already checked), so an accepted preset reports success.
int apply_preset_gen2(const Gen2Params& g, Reply& r) {
    uint8_t block[4];
    gen2_pack(g, block);
    Req req;
    req.bytes(block, 4).u32(0);
    if (transact(kCmdSetGen2, req, r) == 0) return 0;
    return r.is(0, kAccepted) ? 0 : -1;
}

// 0x54 query shared by both getters; the mode is data[2].
int query_rf_link(Reply& r) {
    Req req;
    req.u8(0x00).u8(0x00);
    return query(kCmdGetRfLink, req, r, 3);
}

}  // namespace

int UHFSetJumpFrequency(unsigned char nums, unsigned int* Freqbuf) {
    UHF_REFUSE_IF(nums > 0 && Freqbuf == nullptr);
    // 255 bytes hold the count and 84 frequencies; more poisons the request.
    RequestBuf<255> req;
    req.u8(nums);
    for (unsigned i = 0; i < nums && req.ok(); i++) req.u24(Freqbuf[i]);
    if (!req.ok()) UHF_LOG(kLogFunction, "UHFSetJumpFrequency: %d frequencies do not fit\n", nums);
    return set(kCmdSetHopping, req);
}

int UHF_Frequency_Hopping_Setting(uint16_t Frequency) {
    Req req;
    req.u8(0x01).u8(0x00).u16(Frequency);
    return set(kCmdSetHopping, req);
}

int UHFGetJumpFrequency(unsigned int* Freqbuf) {
    UHF_REFUSE_IF(Freqbuf == nullptr);
    Reply r;
    // No status byte: the count comes first, then 3 bytes per frequency.
    if (transact(kCmdGetHopping, r) != 0 || !r.has(1)) return -1;
    unsigned n = r[0];
    if (!r.has(1 + 3 * n)) return -1;
    Freqbuf[0] = n;
    for (unsigned k = 0; k < n; k++) Freqbuf[k + 1] = static_cast<unsigned>(r[3 * k + 1]) << 16 | r.be16(3 * k + 2);
    return 0;
}

int UHFSetRFLink(unsigned char saveflag, unsigned char mode) {
    Req req;
    req.u8(0x00).u8(saveflag).u8(mode);
    return set(kCmdRfLink, req);
}

int UHFGetRFLink(unsigned char* uMode) {
    UHF_REFUSE_IF(uMode == nullptr);
    Reply r;
    if (query_rf_link(r) != 0) return -1;
    *uMode = r[2];
    return 0;
}

int UHF_Set_RFLink(uint8_t mode) {
    if (mode > 3) {
        UHF_LOG(kLogFunction, "UHF_Set_RFLink: mode %d is outside 0..3\n", mode);
        return -1;
    }
    Req req;
    req.u8(0x00).u8(0x01).u8(mode);  // a preset is always saved
    Reply r;
    if (query(kCmdRfLink, req, r, 1) != 0) return -1;
    return apply_preset_gen2(mode == 3 ? kGen2Mode3 : kGen2Mode0To2, r);
}

int UHF_Get_RFLink(uint8_t* mode) {
    UHF_REFUSE_IF(mode == nullptr);
    Reply r;
    if (query_rf_link(r) != 0) return -1;
    *mode = r[2];
    if (*mode != 3) return 0;
    // Reading mode 3 re-applies its Gen2 settings; readers rely on it.
    return apply_preset_gen2(kGen2Mode3, r);
}

int UHFSetCW(unsigned char flag) {
    Req req;
    req.u8(flag);
    return set(kCmdSetCw, req);
}

int UHFGetCW(unsigned char* flag) {
    UHF_REFUSE_IF(flag == nullptr);
    Reply r;
    if (transact(kCmdGetCw, r) != 0 || !r.copy(flag, 0, 1)) return -1;  // no status byte
    return 0;
}

int UHF_Set_Param(uint8_t type, uint8_t* IDbuf, uint8_t* pszData) {
    Req req;
    req.u8(type).bytes(IDbuf, 4).bytes(pszData, 4);
    return set(kCmdSetParam, req);
}

int UHF_Get_Param(uint8_t type, uint8_t* IDbuf, uint8_t* pszData) {
    UHF_REFUSE_IF(pszData == nullptr);
    Req req;
    req.u8(type).bytes(IDbuf, 4);
    Reply r;
    // The value follows the status and 4 echoed bytes.
    if (query(kCmdGetParam, req, r, 9) != 0) return -1;
    return r.copy(pszData, 5, 4) ? 0 : -1;
}

int Vexa_Protocol_Configuration(uint8_t value) {
    Req req;
    req.u8(value).u8(0x00);
    return set(kCmdProtocolConfig, req);
}

int RmuGetPaStatus(void) {
    uint8_t req[6];
    uint16_t n;
    if (g_uflagCrc & 1) {
        const uint8_t head[] = {0xAA, 0x04, 0x80};
        memcpy(req, head, sizeof head);
        CRC16Calculation(req + 1, 2, req + 3);
        req[5] = 0x55;
        n = 6;
    } else {
        const uint8_t plain[] = {0xAA, 0x02, 0x00, 0x55};
        memcpy(req, plain, sizeof plain);
        n = 4;
    }
    uint8_t reply[512];
    uint16_t got = 0;
    if (SendCommand(req, n) == 0 || ReceiveCommand(reply, &got, 500) == 0) return -1;
    return got >= 4 && reply[2] == req[2] && reply[3] == 0x00 ? 0 : -1;
}
