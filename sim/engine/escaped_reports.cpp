#include "engine/escaped_reports.h"

#include <utility>

#include "engine/virtual_reader.h"

namespace uhfsim {

std::vector<uint8_t> escaped_frame(uint8_t code, std::span<const uint8_t> data, bool crc) {
    std::vector<uint8_t> body;
    body.push_back(static_cast<uint8_t>(2 + data.size() + (crc ? 2 : 0)));
    body.push_back(code);
    body.insert(body.end(), data.begin(), data.end());
    if (crc) {
        const uint16_t c = gen2_crc16(body);
        body.push_back(static_cast<uint8_t>(c >> 8));
        body.push_back(static_cast<uint8_t>(c & 0xFF));
    }
    return encode_escaped(body);
}

std::vector<uint8_t> escaped_tag_frame(VirtualReader& r, const Tag& tag, int antenna) {
    const bool crc = std::as_const(r).settings().escaped_reports.crc;
    const bool sensor = tag.sensor.has_value();
    uint8_t code = sensor ? 0x26 : 0x11;
    if (crc) code |= 0x80;
    std::vector<uint8_t> data{0x00};
    const auto report = r.make_report(tag, antenna, sensor);
    data.insert(data.end(), report.begin(), report.end());
    return escaped_frame(code, data, crc);
}

}  // namespace uhfsim
