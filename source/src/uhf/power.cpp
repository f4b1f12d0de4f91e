// Output power, antennas and region: commands 0x10 to 0x2E and 0x4A/0x4C.
#include "UHF.h"
#include "log.h"
#include "uhf/command.h"

using namespace uhf;

namespace {

enum : uint8_t {
    kCmdSetPower = 0x10,
    kCmdGetPower = 0x12,
    kCmdSetAntennas = 0x28,
    kCmdGetAntennas = 0x2A,
    kCmdSetRegion = 0x2C,
    kCmdGetRegion = 0x2E,
    kCmdSetAntennaTime = 0x4A,
    kCmdGetAntennaTime = 0x4C,
};

// None of these requests is longer than 6 bytes.
using Req = RequestBuf<8>;

// Power travels in 0.01 dBm; the host reads it back in whole dBm.
uint8_t whole_dbm(uint16_t centi) { return static_cast<uint8_t>(centi / 100); }

// The power query accepts status 0x00 as well as 0x01.
bool query_powers(Reply& r, size_t min_len) {
    return transact(kCmdGetPower, r) == 0 && (r.is(0, 0x00) || r.is(0, 0x01)) && r.has(min_len);
}

}  // namespace

int UHFSetPower(uint8_t save, uint8_t uPower) {
    if (uPower == 0 || uPower > 30) {
        UHF_LOG(kLogFunction, "UHFSetPower: %d dBm is outside 1..30\n", uPower);
        return -1;
    }
    uint16_t centi = static_cast<uint16_t>(uPower * 100);
    Req req;
    // Antenna 1, read and write power alike: UHFSetAntennaPower is the general form.
    req.u8(save ? 0x02 : 0x00).u8(0x01).u16(centi).u16(centi);
    return set(kCmdSetPower, req);
}

int UHFGetPower(uint8_t* uPower) {
    UHF_REFUSE_IF(uPower == nullptr);
    Reply r;
    if (!query_powers(r, 4)) return -1;
    *uPower = whole_dbm(r.be16(2));
    return 0;
}

int UHFSetAntennaPower(uint8_t saveflag, uint8_t num, uint16_t read_power, uint16_t write_power) {
    Req req;
    req.u8(saveflag ? 0x02 : 0x00).u8(num).u16(read_power).u16(write_power);
    return set(kCmdSetPower, req);
}

int UHFGetAntennaPower(uint8_t* ppower, uint16_t* nReturned) {
    UHF_REFUSE_IF(ppower == nullptr || nReturned == nullptr);
    Reply r;
    if (!query_powers(r, 6)) return -1;
    uint16_t n = 0;
    // 5-byte records from data[1]; a trailing partial record is ignored.
    for (size_t i = 1; i + 5 <= r.size(); i += 5, n += 3) {
        ppower[n] = r[i];
        ppower[n + 1] = whole_dbm(r.be16(i + 1));
        ppower[n + 2] = whole_dbm(r.be16(i + 3));
    }
    *nReturned = n;
    return 0;
}

int UHFSetANT(unsigned char saveflag, unsigned char* buf) {
    UHF_REFUSE_IF(buf == nullptr);
    Req req;
    req.u8(saveflag).u8(buf[0]).u8(buf[1]);
    return set(kCmdSetAntennas, req);
}

int UHFGetANT(unsigned char* buf) {
    UHF_REFUSE_IF(buf == nullptr);
    Reply r;
    // The mask comes without a status byte.
    if (transact(kCmdGetAntennas, r) != 0 || !r.copy(buf, 0, 2)) return -1;
    return 0;
}

int UHFSetANTWorkTime(unsigned char antnum, unsigned char saveflag, unsigned int WorkTime) {
    Req req;
    req.u8(saveflag << 4 | antnum).u16(WorkTime & 0xFFFF);
    return set(kCmdSetAntennaTime, req);
}

int UHFGetANTWorkTime(unsigned char antnum, unsigned int* WorkTime) {
    UHF_REFUSE_IF(WorkTime == nullptr);
    Req req;
    req.u8(antnum).u8(0x00);
    Reply r;
    if (query(kCmdGetAntennaTime, req, r, 4) != 0) return -1;
    *WorkTime = r.be16(2);
    return 0;
}

int UHFSetRegion(uint8_t save, uint8_t region) {
    Req req;
    req.u8(save ? 0x01 : 0x00).u8(region);
    return set(kCmdSetRegion, req);
}

int UHFGetRegion(uint8_t* region) {
    UHF_REFUSE_IF(region == nullptr);
    Reply r;
    if (query(kCmdGetRegion, r, 2) != 0) return -1;
    *region = r[1];
    return 0;
}
