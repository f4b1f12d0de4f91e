// Network settings (sub-commands of the device-settings command 0xA1) and the
// reader's restart and factory reset. Addresses, ports, masks and gateways
// are copied byte for byte: the library imposes no byte order on them.
#include "UHF.h"
#include "uhf/command.h"

namespace uhf {

namespace {

constexpr size_t kAddrLen = 4;
constexpr size_t kPortLen = 2;
// The long form of an address: sub-command, address, port, mask, gateway.
constexpr size_t kLongAddrForm = 1 + kAddrLen + kPortLen + 2 * kAddrLen;

enum : uint8_t {
    kCmdSoftReset = 0x68,
    kCmdDefaultMode = 0x74,
};

enum : uint8_t {
    kSubSetIp = 0x01,
    kSubGetIp = 0x02,
    kSubSetDestIp = 0x03,
    kSubGetDestIp = 0x04,
};

// Request: sub-command, address, port. Null pointers poison it.
int set_address(RequestBuf<kLongAddrForm>& req, uint8_t sub, const uint8_t* ip, const uint8_t* port) {
    req.u8(sub).bytes(ip, kAddrLen).bytes(port, kPortLen);
    return req.ok() ? 0 : -1;
}

// Query an address; on success ip and port are written and r holds the reply.
int get_address(uint8_t sub, uint8_t* ip, uint8_t* port, Reply& r) {
    UHF_REFUSE_IF(ip == nullptr || port == nullptr);
    if (transact_query(kCmdDeviceSettings, sub, r) != 0 || !r.has(1 + kAddrLen + kPortLen)) return -1;
    r.copy(ip, 1, kAddrLen);
    r.copy(port, 1 + kAddrLen, kPortLen);
    return 0;
}

int plain_command(uint8_t cmd) {
    Reply r;
    return transact_status(cmd, r, kAccepted);
}

}  // namespace

}  // namespace uhf

int UHFSetIp(unsigned char* ipbuf, unsigned char* postbuf, unsigned char* mask, unsigned char* gate) {
    uhf::RequestBuf<uhf::kLongAddrForm> req;
    if (uhf::set_address(req, uhf::kSubSetIp, ipbuf, postbuf) != 0) return -1;
    // Mask and gateway travel together or not at all.
    if (mask != nullptr && gate != nullptr) req.bytes(mask, uhf::kAddrLen).bytes(gate, uhf::kAddrLen);
    uhf::Reply r;
    return uhf::transact_status(uhf::kCmdDeviceSettings, req, r, uhf::kAccepted);
}

int UHFGetIp(unsigned char* ipbuf, unsigned char* postbuf, unsigned char* mask, unsigned char* gate) {
    uhf::Reply r;
    if (uhf::get_address(uhf::kSubGetIp, ipbuf, postbuf, r) != 0) return -1;
    // A short reply (firmware without those fields) carries no mask and gateway.
    if (r.has(uhf::kLongAddrForm)) {
        if (mask != nullptr) r.copy(mask, 7, uhf::kAddrLen);
        if (gate != nullptr) r.copy(gate, 11, uhf::kAddrLen);
    }
    return 0;
}

int UHFSetDestIp(unsigned char* ipbuf, unsigned char* postbuf) {
    uhf::RequestBuf<uhf::kLongAddrForm> req;
    if (uhf::set_address(req, uhf::kSubSetDestIp, ipbuf, postbuf) != 0) return -1;
    uhf::Reply r;
    return uhf::transact_status(uhf::kCmdDeviceSettings, req, r, uhf::kAccepted);
}

int UHFGetDestIp(unsigned char* ipbuf, unsigned char* postbuf) {
    uhf::Reply r;
    return uhf::get_address(uhf::kSubGetDestIp, ipbuf, postbuf, r);
}

int UHFSetSoftReset(void) { return uhf::plain_command(uhf::kCmdSoftReset); }

int UHFSetDefaultMode(void) { return uhf::plain_command(uhf::kCmdDefaultMode); }
