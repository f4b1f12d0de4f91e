// Sensor tags: the temperature-logging commands (0xA3 and its
// sub-commands), deactivation and dwell, and the sensor-code, calibration and
// on-chip RSSI family (0x7C).
#include <math.h>
#include <string.h>

#include "UHF.h"
#include "uhf/command.h"
#include "uhf/sensor.h"

using namespace uhf;

namespace {

constexpr uint8_t kLogging = 0xA3;
constexpr uint8_t kSensorCode = 0x7C;

constexpr size_t kLoggingBuf = 1024;
constexpr size_t kSmallBuf = 100;

enum : uint8_t {
    kStartLog = 0x03,
    kStopLog = 0x04,
    kOpMode = 0x05,
    kVoltage = 0x06,
    kMultiTemp = 0x07,
};

enum : uint8_t {
    kGetSensorCode = 0x01,
    kGetCalibration = 0x02,
    kGetOnChipRssi = 0x03,
    kGetTempCode = 0x04,
    kGetRssiAndTemp = 0x05,
    kWriteCalibration = 0x06,
};

// Sub-command and tag selection mask: the head of every 0xA3 request.
Request& logging_head(Request& req, uint8_t sub, unsigned char bank, unsigned short addr, unsigned short len,
                      const unsigned char* mask) {
    return req.u8(sub).filter(bank, addr, len, mask);
}

// Start and stop answer 01 on success; otherwise byte 1 is the reader's own
// error code, passed back as a positive number when there is one.
int logging_result(int r, const Reply& reply) {
    if (r != 0 || !reply.has(2)) return -1;
    if (reply[0] == 0x01) return 0;
    return reply[1] != 0 ? reply[1] : -1;
}

// The 0x7C request head shared by every call of the family.
Request& sensor_head(Request& req, uint8_t sub, const unsigned char* epc, unsigned char ant,
                     const unsigned char* power) {
    return req.u8(sub).bytes(epc, 16).u8(ant).bytes(power, 2);
}

// 0x7C reads: 01 00, a big-endian word count, the words. Returns the bytes
// copied to data. A reply too long for the 100-byte reply buffer is refused,
// so data never receives more than 96 bytes.
int sensor_read(uint8_t sub, unsigned char* epc, unsigned char ant, unsigned char* power, unsigned char* data) {
    UHF_REFUSE_IF(data == nullptr);
    RequestBuf<kSmallBuf> req;
    sensor_head(req, sub, epc, ant, power);
    Reply reply;
    if (transact(kSensorCode, req, reply) != 0) return -1;
    if (!reply.has(4) || reply.size() > kSmallBuf || !reply.is(0, 0x01) || !reply.is(1, 0x00)) return -1;
    size_t n = 2u * reply.be16(2);
    if (!reply.copy(data, 4, n)) return -1;
    return static_cast<int>(n);
}

}  // namespace

uint16_t uhf::temp_to_code10(float temp) {
    if (!isfinite(temp)) return 0;
    // Only the low 8 bits of the integer part survive; reducing first keeps
    // the conversion defined for any finite value without changing them.
    temp = fmodf(temp, 256.0f);
    int value = static_cast<int>(temp);
    float tail = temp - static_cast<float>(value);
    if (tail < 0) {
        tail += 1.0f;
        value -= 1;
    }
    int quarter = static_cast<int>(tail / 0.25f);
    return static_cast<uint16_t>((quarter & 0x3) | ((value * 4) & 0x3FC));
}

uint16_t convert10BitValue(float temp) { return temp_to_code10(temp); }

float uhf::code10_to_temp(uint16_t code) {
    code &= 0x3FF;
    float ip = static_cast<float>(code >> 2);
    unsigned q = code & 0x3;
    if (!(code & 0x200)) return ip + static_cast<float>(q) * 0.25f;
    float t = ip - 256.0f;
    if (q != 0) t += static_cast<float>(q) * 0.25f - 1.0f;
    return t;
}

int UHFStartLogging(unsigned char mask_bank, unsigned short mask_addr, unsigned short mask_len,
                    unsigned char* mask_data, float min_temp, float max_temp, unsigned short work_delay,
                    unsigned short work_interval) {
    RequestBuf<kLoggingBuf> req;
    logging_head(req, kStartLog, mask_bank, mask_addr, mask_len, mask_data)
        .u16(temp_to_code10(min_temp))
        .u16(temp_to_code10(max_temp))
        .u16(work_delay)
        .u16(work_interval);
    Reply reply;
    return logging_result(transact(kLogging, req, reply), reply);
}

int UHFStopLogging(unsigned char mask_bank, unsigned short mask_addr, unsigned short mask_len, unsigned char* mask_data,
                   unsigned long password) {
    (void)password;  // part of the signature, never sent
    RequestBuf<kLoggingBuf> req;
    logging_head(req, kStopLog, mask_bank, mask_addr, mask_len, mask_data);
    Reply reply;
    return logging_result(transact(kLogging, req, reply), reply);
}

int UHFCheckOpMode(unsigned char mask_bank, unsigned short mask_addr, unsigned short mask_len,
                   unsigned char* mask_data) {
    RequestBuf<kLoggingBuf> req;
    logging_head(req, kOpMode, mask_bank, mask_addr, mask_len, mask_data);
    Reply reply;
    if (transact(kLogging, req, reply) != 0 || !reply.has(3) || !reply.is(0, kOpMode)) return -1;
    return reply.be16(1);
}

int UHFReadTagVoltage(unsigned char mask_bank, unsigned short mask_addr, unsigned short mask_len,
                      unsigned char* mask_data, float* voltage) {
    UHF_REFUSE_IF(voltage == nullptr);
    RequestBuf<kLoggingBuf> req;
    logging_head(req, kVoltage, mask_bank, mask_addr, mask_len, mask_data);
    Reply reply;
    if (transact(kLogging, req, reply) != 0 || !reply.has(3) || !reply.is(0, kVoltage)) return -1;
    *voltage = static_cast<float>(reply.be16(1)) * 2.5f / 8192.0f;
    return 0;
}

int UHFReadMultiTemp(unsigned char mask_bank, unsigned short mask_addr, unsigned short mask_len,
                     unsigned char* mask_data, unsigned short t_start, unsigned char t_num, unsigned short* totalNum,
                     unsigned char* returnNum, float* temp) {
    UHF_REFUSE_IF(totalNum == nullptr || returnNum == nullptr || temp == nullptr);
    RequestBuf<kLoggingBuf> req;
    logging_head(req, kMultiTemp, mask_bank, mask_addr, mask_len, mask_data).u16(t_start).u8(t_num);
    Reply reply;
    if (transact(kLogging, req, reply) != 0 || !reply.has(4) || !reply.is(0, kMultiTemp)) return -1;
    *totalNum = reply.be16(1);
    *returnNum = reply[3];
    const unsigned n = *returnNum;
    if (!reply.has((n + 1) * 4u)) return -3;
    for (unsigned i = 0; i < n; i++) {
        size_t at = 4 * (i + 1);
        // Records are little-endian, unlike every other field of the family.
        temp[i] = code10_to_temp(static_cast<uint16_t>(reply[at + 1] << 8 | reply[at]));
    }
    return 0;
}

int UHFDeactivate(unsigned int cmd, unsigned char* u_accessPwd, unsigned char FilterBank, unsigned int FilterStartaddr,
                  unsigned int FilterLen, unsigned char* FilterData) {
    // The length travels in 16 bits; a longer one could only be a mistake.
    UHF_REFUSE_IF(FilterLen > 0xFFFF);
    RequestBuf<kSmallBuf> req;
    req.u16(cmd).bytes(u_accessPwd, 4).filter(FilterBank, FilterStartaddr, FilterLen, FilterData);
    Reply reply;
    if (transact(kCmdDeactivate, req, reply) != 0 || !reply.is(0, 0x01)) return -1;
    return 0;
}

int UHFDwell(unsigned int dwell, unsigned int count) {
    RequestBuf<kSmallBuf> req;
    req.u32(dwell).u32(count);
    Reply reply;
    if (transact(kCmdDwell, req, reply) != 0 || !reply.is(0, 0x01)) return -1;
    return 0;
}

int UHFGetSensorCode(unsigned char* epc, unsigned char antNum, unsigned char* powerValue, unsigned char* data) {
    return sensor_read(kGetSensorCode, epc, antNum, powerValue, data);
}

int UHFGetCalibrationData(unsigned char* epc, unsigned char antNum, unsigned char* powerValue, unsigned char* data) {
    return sensor_read(kGetCalibration, epc, antNum, powerValue, data);
}

int UHFGetCalibrationDataEX(unsigned char mode, unsigned char* epc, unsigned char antNum, unsigned char* powerValue,
                            unsigned char* data) {
    return sensor_read(mode, epc, antNum, powerValue, data);
}

int UHFGetOnChipRSSI(unsigned char* epc, unsigned char antNum, unsigned char* powerValue, unsigned char* data) {
    return sensor_read(kGetOnChipRssi, epc, antNum, powerValue, data);
}

int UHFGetTempertureCode(unsigned char* epc, unsigned char antNum, unsigned char* powerValue, unsigned char* data) {
    return sensor_read(kGetTempCode, epc, antNum, powerValue, data);
}

int UHFGetOnChipRSSIAndTempCode(unsigned char* epc, unsigned char antNum, unsigned char* powerValue,
                                unsigned char* data) {
    return sensor_read(kGetRssiAndTemp, epc, antNum, powerValue, data);
}

int UHFWriteCalibrationData(unsigned char* epc, unsigned char antNum, unsigned char* powerValue, unsigned char* data) {
    RequestBuf<kSmallBuf> req;
    sensor_head(req, kWriteCalibration, epc, antNum, powerValue).bytes(data, 8);
    Reply reply;
    if (transact(kSensorCode, req, reply) != 0 || !reply.has(2) || !reply.is(0, 0x01) || !reply.is(1, 0x00)) return -1;
    return 0;
}
