// Device status, identity and I/O: versions, device id, temperature, supply
// voltage, temperature protection, beeper, digital outputs, the user-parameter
// block, and the library's own build stamp.
#include "uhf/device.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "UHF.h"
#include "log.h"
#include "uhf/command.h"

namespace uhf {

namespace {

constexpr uint16_t kUserParamTimeoutMs = 3000;

enum : uint8_t {
    kCmdHardwareVersion = 0x00,
    kCmdSoftwareVersion = 0x02,
    kCmdDeviceId = 0x04,
    kCmdVoltage = 0x08,
    kCmdTemperature = 0x34,
    kCmdSetTempProtect = 0x38,
    kCmdGetTempProtect = 0x3A,
    kCmdReaderVersion = 0xC8,
    kCmdUserParam = 0xF0,
};

enum : uint8_t {
    kSubSetBeep = 0x07,
    kSubGetBeep = 0x08,
    kSubSetIo = 0x09,
    kSubGetIo = 0x0A,
    kSubUpload = 0x01,
    kSubDownload = 0x02,
    kSubReadVoltage = 0x01,
};

// Month number from the compiler's three-letter name, by the fewest letters
// that tell the names apart.
int month_of(const char* m) {
    switch (m[0]) {
        case 'J': return m[1] == 'a' ? 1 : m[2] == 'n' ? 6 : 7;
        case 'F': return 2;
        case 'M': return m[2] == 'r' ? 3 : 5;
        case 'A': return m[1] == 'p' ? 4 : 8;
        case 'S': return 9;
        case 'O': return 10;
        case 'N': return 11;
        case 'D': return 12;
        default: return 0;
    }
}

// Text after a version's count byte, bounded to what one count byte can say.
class VersionText {
public:
    explicit VersionText(uint8_t* version) : out_(version + 1) {}
    void put(uint8_t c) {
        if (n_ < kMax) out_[n_++] = c;
    }
    void append(const uint8_t* p, size_t n) {
        for (size_t i = 0; i < n; i++) put(p[i]);
    }
    uint8_t count() const { return static_cast<uint8_t>(n_); }

private:
    static constexpr size_t kMax = 255;
    uint8_t* out_;
    size_t n_ = 0;
};

int set_one_byte(uint8_t cmd, uint8_t value) {
    RequestBuf<1> req;
    req.u8(value);
    Reply r;
    return transact_status(cmd, req, r, kAccepted);
}

int get_one_byte(uint8_t cmd, uint8_t* value) {
    UHF_REFUSE_IF(value == nullptr);
    Reply r;
    if (transact_status(cmd, r, kAccepted) != 0 || !r.has(2)) return -1;
    *value = r[1];
    return 0;
}

// The temperature reply 01 hi lo, as the raw 16-bit reading.
int read_temperature(uint16_t* raw) {
    Reply r;
    if (transact_status(kCmdTemperature, r, kAccepted) != 0 || !r.has(3)) return -1;
    *raw = r.be16(1);
    return 0;
}

}  // namespace

void format_build_stamp(const char* date, const char* time, char* out) {
    int year = atoi(date + 7);
    int day = atoi(date + 4);
    int n = snprintf(out, kBuildStampLen, "%04d-%02d-%02d ", year, month_of(date), day);
    if (n < 0 || static_cast<size_t>(n) >= kBuildStampLen) return;
    size_t room = kBuildStampLen - static_cast<size_t>(n) - 1;
    size_t t = strnlen(time, room);
    memcpy(out + n, time, t);
    out[n + t] = '\0';
}

}  // namespace uhf

using namespace uhf;

int UHFGetHardwareVersion(uint8_t* version) {
    UHF_REFUSE_IF(version == nullptr);
    Reply r;
    if (transact(kCmdHardwareVersion, r) != 0) return -1;
    // One character per part, even for parts above 9.
    const uint8_t text[6] = {'V', uint8_t(r[0] + '0'), '.', uint8_t(r[1] + '0'), '.', uint8_t(r[2] + '0')};
    version[0] = sizeof text;
    memcpy(version + 1, text, sizeof text);
    return 0;
}

int UHFGetSoftwareVersion(uint8_t* version) {
    UHF_REFUSE_IF(version == nullptr);
    Reply r;
    if (transact(kCmdSoftwareVersion, r) != 0) return -1;
    uint8_t* p = version + 1;
    *p++ = 'V';
    for (size_t k = 0; k < 3; k++) {
        if (k > 0) *p++ = '.';
        if (r[k] > 9) *p++ = uint8_t(r[k] / 10 + '0');
        *p++ = uint8_t(r[k] % 10 + '0');
    }
    // This count includes the count byte itself, unlike the other versions.
    version[0] = static_cast<uint8_t>(p - version);
    return 0;
}

int UHFGetReaderVersion(uint8_t* version) {
    UHF_REFUSE_IF(version == nullptr);
    Reply r;
    if (transact(kCmdReaderVersion, r) != 0 || !r.has(3)) return -1;
    VersionText text(version);
    char head[20];
    int n = snprintf(head, sizeof head, "V%d.%d.%d", r[0], r[1], r[2]);
    text.append(reinterpret_cast<const uint8_t*>(head), static_cast<size_t>(n));
    // Typed items: type, length, bytes. The type changes nothing; an item cut
    // short by the end of the reply contributes what is there.
    for (size_t i = 3; i < r.size();) {
        size_t len = r[i + 1];
        i += 2;
        text.put(',');
        if (i < r.size()) text.append(r.data() + i, len < r.size() - i ? len : r.size() - i);
        i += len;
    }
    version[0] = text.count();
    return 0;
}

int UHFGetVersionCode(char* datetime) {
    UHF_REFUSE_IF(datetime == nullptr);
    format_build_stamp(__DATE__, __TIME__, datetime);
    return 1;
}

int UHFGetDeviceID(unsigned int* id) {
    UHF_REFUSE_IF(id == nullptr);
    Reply r;
    if (transact(kCmdDeviceId, r) != 0) return -1;
    *id = r.be32(0);
    return 0;
}

int UHFGeTemperature(uint16_t* temperature) {
    uint16_t raw = 0;
    if (temperature == nullptr || read_temperature(&raw) != 0) return -1;
    *temperature = raw / 100;
    return 0;
}

int UHFGetTemperature(int* temp) {
    uint16_t raw = 0;
    if (temp == nullptr || read_temperature(&raw) != 0) return -1;
    *temp = static_cast<int16_t>(raw) / 100;
    return 0;
}

int UHFSetTemperatureProtect(unsigned char flag) { return set_one_byte(kCmdSetTempProtect, flag); }

int UHFGetTemperatureProtect(unsigned char* flag) { return get_one_byte(kCmdGetTempProtect, flag); }

int UHFSetTempVal(unsigned char TempVal) { return set_one_byte(kCmdSetTempProtect, TempVal); }

int UHFGetTempVal(unsigned char* TempVal) { return get_one_byte(kCmdGetTempProtect, TempVal); }

int UHFVerifyVoltage(int* value) {
    UHF_REFUSE_IF(value == nullptr);
    RequestBuf<1> req;
    req.u8(kSubReadVoltage);
    Reply r;
    if (transact_status(kCmdVoltage, req, r, kAccepted) != 0 || !r.has(4) || !r.is(1, kSubReadVoltage)) return -1;
    *value = static_cast<int16_t>(r.be16(2));
    return 0;
}

int UHFSetBeep(uint8_t mode) {
    RequestBuf<2> req;
    req.u8(kSubSetBeep).u8(mode);
    Reply r;
    return transact_status(kCmdDeviceSettings, req, r, kAccepted);
}

int UHFGetBeep(uint8_t* mode) {
    UHF_REFUSE_IF(mode == nullptr);
    Reply r;
    if (transact_query(kCmdDeviceSettings, kSubGetBeep, r) != 0 || !r.has(2)) return -1;
    *mode = r[1];
    return 0;
}

int UHFSetIOControl(unsigned char output1, unsigned char output2, unsigned char outStatus) {
    RequestBuf<4> req;
    req.u8(kSubSetIo).u8(output1).u8(output2).u8(outStatus);
    Reply r;
    return transact_status(kCmdDeviceSettings, req, r, kAccepted);
}

int UHFGetIOControl(unsigned char* statusData) {
    UHF_REFUSE_IF(statusData == nullptr);
    Reply r;
    if (transact_query(kCmdDeviceSettings, kSubGetIo, r) != 0 || !r.has(3)) return -1;
    return r.copy(statusData, 1, 2) ? 0 : -1;
}

int UHFUploadUserParam(const unsigned char* param, unsigned short paramLen) {
    // The request buffer bounds the block: a longer one poisons the request
    // and nothing is sent.
    RequestBuf<1 + kUserParamMax> req;
    req.u8(kSubUpload).bytes(param, paramLen);
    Reply r;
    if (transact_status(kCmdUserParam, req, r, kAccepted, kUserParamTimeoutMs) != 0 || !r.is(1, 0x00)) {
        UHF_LOG(kLogFunction, "UHFUploadUserParam failed, len %u", paramLen);
        return -1;
    }
    return 0;
}

int UHFDownloadUserParam(unsigned char* param, unsigned short* paramLen) {
    UHF_REFUSE_IF(param == nullptr || paramLen == nullptr);
    RequestBuf<1> req;
    req.u8(kSubDownload);
    Reply r;
    if (transact_status(kCmdUserParam, req, r, kSubDownload, kUserParamTimeoutMs) != 0 || !r.is(1, 0x00)) {
        return -1;
    }
    size_t n = r.size() - 2u;
    // No block the reader can have been given is longer; refuse rather than
    // write past the caller's buffer.
    if (n > kUserParamMax) {
        UHF_LOG(kLogFunction, "UHFDownloadUserParam: reply block of %zu bytes refused", n);
        return -1;
    }
    if (!r.copy(param, 2, n)) return -1;
    *paramLen = static_cast<unsigned short>(n);
    return 0;
}
