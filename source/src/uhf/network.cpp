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

using namespace uhf;

int UHFSetIp(unsigned char* ipbuf, unsigned char* postbuf, unsigned char* mask, unsigned char* gate) {
    RequestBuf<kLongAddrForm> req;
    if (set_address(req, kSubSetIp, ipbuf, postbuf) != 0) return -1;
    // Mask and gateway travel together or not at all.
    if (mask != nullptr && gate != nullptr) req.bytes(mask, kAddrLen).bytes(gate, kAddrLen);
    Reply r;
    return transact_status(kCmdDeviceSettings, req, r, kAccepted);
}

int UHFGetIp(unsigned char* ipbuf, unsigned char* postbuf, unsigned char* mask, unsigned char* gate) {
    Reply r;
    if (get_address(kSubGetIp, ipbuf, postbuf, r) != 0) return -1;
    // A short reply (firmware without those fields) carries no mask and gateway.
    if (r.has(kLongAddrForm)) {
        if (mask != nullptr) r.copy(mask, 7, kAddrLen);
        if (gate != nullptr) r.copy(gate, 11, kAddrLen);
    }
    return 0;
}

int UHFSetDestIp(unsigned char* ipbuf, unsigned char* postbuf) {
    RequestBuf<kLongAddrForm> req;
    if (set_address(req, kSubSetDestIp, ipbuf, postbuf) != 0) return -1;
    Reply r;
    return transact_status(kCmdDeviceSettings, req, r, kAccepted);
}

int UHFGetDestIp(unsigned char* ipbuf, unsigned char* postbuf) {
    Reply r;
    return get_address(kSubGetDestIp, ipbuf, postbuf, r);
}

int UHFSetSoftReset(void) { return plain_command(kCmdSoftReset); }

int UHFSetDefaultMode(void) { return plain_command(kCmdDefaultMode); }
