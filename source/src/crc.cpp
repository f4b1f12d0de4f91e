// Checksums of the escaped frame family.
#include "globe_var.h"
#include "terminal.h"

void CRC16Calculation(uint8_t* ptr, uint16_t ByteNum, uint8_t* crcResult) {
    if (crcResult == nullptr) return;
    uint16_t crc = 0xFFFF;
    for (uint16_t i = 0; ptr != nullptr && i < ByteNum; i++) {
        crc ^= static_cast<uint16_t>(ptr[i]) << 8;
        for (int bit = 0; bit < 8; bit++)
            crc = (crc & 0x8000) ? static_cast<uint16_t>((crc << 1) ^ 0x1021) : static_cast<uint16_t>(crc << 1);
    }
    crc = static_cast<uint16_t>(~crc);
    crcResult[0] = static_cast<uint8_t>(crc >> 8);
    crcResult[1] = static_cast<uint8_t>(crc);
}

void CRC_calcCrc8(uint16_t* crcReg, uint16_t poly, uint16_t u8Data) {
    if (crcReg == nullptr) return;
    for (int bit = 7; bit >= 0; bit--) {
        bool top = (*crcReg & 0x8000) != 0;
        *crcReg = static_cast<uint16_t>((*crcReg << 1) | ((u8Data >> bit) & 1));
        if (top) *crcReg ^= poly;
    }
}

uint16_t CalcCRC(uint8_t* msgbuf, uint8_t msglen) {
    uint16_t reg = 0xFFFF;
    for (int i = 1; msgbuf != nullptr && i < msglen; i++) CRC_calcCrc8(&reg, 0x1021, msgbuf[i]);
    return reg;
}

void UHF_FlagCrcOn(void) { g_uflagCrc = 1; }

void UHF_FlafCrcOff(void) { g_uflagCrc = 0; }
