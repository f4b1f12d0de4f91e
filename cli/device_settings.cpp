// Identity, status and I/O of the reader, and its network addresses.
#include <cstdio>

#include "UHF.h"
#include "session.h"
#include "settings.h"

namespace uhfctl {

namespace {

// Version calls write a count byte, then the text.
std::string counted_text(const uint8_t* buf, size_t n, size_t cap) {
    return std::string(reinterpret_cast<const char*>(buf + 1), n < cap ? n : cap);
}

// "A.B.C.D[:PORT]"; the port stays as it was when not given. row says the port's range.
bool parse_address(const uhftools::SettingRow& row, const std::string& text, uint8_t ip[4], uint8_t port[2],
                   std::string& err) {
    auto colon = text.find(':');
    if (!parse_ipv4(text.substr(0, colon), ip)) {
        err = text + ": expected A.B.C.D[:PORT]";
        return false;
    }
    if (colon == std::string::npos) return true;
    unsigned long p = 0;
    if (!parse_in_range(row, text.substr(colon + 1), p)) {
        err = text + ": the port must be " + uhftools::range_text(row);
        return false;
    }
    port[0] = static_cast<uint8_t>(p >> 8);
    port[1] = static_cast<uint8_t>(p);
    return true;
}

Value address_value(const uint8_t ip[4], const uint8_t port[2], const uint8_t* mask, const uint8_t* gate) {
    int p = port[0] << 8 | port[1];
    Value v;
    v.text = ipv4_text(ip) + ":" + std::to_string(p);
    v.json.reset(cJSON_CreateObject());
    cJSON_AddStringToObject(v.json.get(), "ip", ipv4_text(ip).c_str());
    cJSON_AddNumberToObject(v.json.get(), "port", p);
    if (mask && gate) {
        v.text += "  mask " + ipv4_text(mask) + "  gateway " + ipv4_text(gate);
        cJSON_AddStringToObject(v.json.get(), "mask", ipv4_text(mask).c_str());
        cJSON_AddStringToObject(v.json.get(), "gateway", ipv4_text(gate).c_str());
    }
    return v;
}

void identity(std::vector<Setting>& out) {
    out.push_back(read_only("hardware", "Hardware version", [](Value& v) {
        uint8_t b[16] = {};
        if (UHFGetHardwareVersion(b) != 0) return false;
        v = text_value(counted_text(b, b[0], sizeof b - 1));
        return true;
    }));
    out.push_back(read_only("software", "Firmware version", [](Value& v) {
        uint8_t b[16] = {};
        // The count includes itself here, unlike the other two version calls.
        if (UHFGetSoftwareVersion(b) != 0 || b[0] < 1) return false;
        v = text_value(counted_text(b, b[0] - 1u, sizeof b - 1));
        return true;
    }));
    out.push_back(read_only("module", "Module version and name", [](Value& v) {
        uint8_t b[256] = {};
        if (UHFGetReaderVersion(b) != 0) return false;
        v = text_value(counted_text(b, b[0], sizeof b - 1));
        return true;
    }));
    out.push_back(read_only("device-id", "Device identifier", [](Value& v) {
        unsigned int id = 0;
        if (UHFGetDeviceID(&id) != 0) return false;
        char b[16];
        std::snprintf(b, sizeof b, "%08X", id);
        v = text_value(b);
        return true;
    }));
    out.push_back(read_only("temperature", "Module temperature, whole degrees C", [](Value& v) {
        int t = 0;
        if (UHFGetTemperature(&t) != 0) return false;
        v = number_value(t, std::to_string(t) + " C");
        return true;
    }));
    out.push_back(read_only("voltage", "Supply voltage as the reader reports it", [](Value& v) {
        int mv = 0;
        if (UHFVerifyVoltage(&mv) != 0) return false;
        v = number_value(mv, std::to_string(mv));
        return true;
    }));
}

void io(std::vector<Setting>& out) {
    out.push_back(byte_setting("temp-protect", "VALUE", UHFGetTemperatureProtect,
                               [](bool, unsigned char f) { return UHFSetTemperatureProtect(f); }));
    out.push_back(byte_setting("beep", "MODE", UHFGetBeep, [](bool, unsigned char m) { return UHFSetBeep(m); }));
    Setting outputs = table_setting("outputs", "1|2|all LEVEL");
    outputs.get = [](Value& v) {
        unsigned char s[2] = {};
        if (UHFGetIOControl(s) != 0) return false;
        auto level = [](unsigned char b) { return b ? "high" : "low"; };
        v.text = std::string("1 ") + level(s[0]) + ", 2 " + level(s[1]);
        v.json.reset(cJSON_CreateObject());
        cJSON_AddNumberToObject(v.json.get(), "1", s[0]);
        cJSON_AddNumberToObject(v.json.get(), "2", s[1]);
        return true;
    };
    outputs.set = [](const std::vector<std::string>& a, bool, std::string& err) {
        const uhftools::SettingRow& row = uhftools::setting_row("outputs");
        int level = 0;
        if (a.size() != 2 || (a[0] != "1" && a[0] != "2" && a[0] != "all") || !uhftools::choice_code(row, a[1], level))
            return usage(err, "expected OUTPUT LEVEL: 1, 2 or all, then " + uhftools::range_text(row));
        unsigned char o1 = a[0] != "2", o2 = a[0] != "1";
        return set_status(UHFSetIOControl(o1, o2, static_cast<unsigned char>(level)));
    };
    out.push_back(outputs);
}

void network(std::vector<Setting>& out) {
    const uhftools::SettingRow& ip_row = uhftools::setting_row("ip");
    Setting ip = table_setting("ip", "A.B.C.D[:PORT] [MASK GATEWAY]");
    ip.get = [](Value& v) {
        uint8_t ip[4], port[2], mask[4], gate[4];
        if (UHFGetIp(ip, port, mask, gate) != 0) return false;
        v = address_value(ip, port, mask, gate);
        return true;
    };
    ip.set = [&ip_row](const std::vector<std::string>& a, bool, std::string& err) {
        uint8_t ip[4], port[2], mask[4], gate[4];
        if (a.size() != 1 && a.size() != 3) return usage(err, "expected A.B.C.D[:PORT] [MASK GATEWAY]");
        // Without a port, keep the one the reader has.
        if (UHFGetIp(ip, port, mask, gate) != 0) return static_cast<int>(kReaderFailed);
        if (!parse_address(ip_row, a[0], ip, port, err)) return static_cast<int>(kUsage);
        if (a.size() == 3 && (!parse_ipv4(a[1], mask) || !parse_ipv4(a[2], gate)))
            return usage(err, "mask and gateway must be A.B.C.D");
        return set_status(a.size() == 3 ? UHFSetIp(ip, port, mask, gate) : UHFSetIp(ip, port, nullptr, nullptr));
    };
    out.push_back(ip);

    const uhftools::SettingRow& dest_row = uhftools::setting_row("dest-ip");
    Setting dest = table_setting("dest-ip", "A.B.C.D[:PORT]");
    dest.get = [](Value& v) {
        uint8_t ip[4], port[2];
        if (UHFGetDestIp(ip, port) != 0) return false;
        v = address_value(ip, port, nullptr, nullptr);
        return true;
    };
    dest.set = [&dest_row](const std::vector<std::string>& a, bool, std::string& err) {
        uint8_t ip[4], port[2];
        if (a.size() != 1) return usage(err, "expected A.B.C.D[:PORT]");
        if (UHFGetDestIp(ip, port) != 0) return static_cast<int>(kReaderFailed);
        if (!parse_address(dest_row, a[0], ip, port, err)) return static_cast<int>(kUsage);
        return set_status(UHFSetDestIp(ip, port));
    };
    out.push_back(dest);

    const uhftools::SettingRow& block_row = uhftools::setting_row("user-params");
    Setting block = table_setting("user-params", "HEX");
    block.in_info = false;
    block.get = [&block_row](Value& v) {
        static unsigned char block[1024];
        unsigned short n = 0;
        if (UHFDownloadUserParam(block, &n) != 0 || n > block_row.max) return false;
        v = text_value(hex(block, n));
        return true;
    };
    block.set = [&block_row](const std::vector<std::string>& a, bool, std::string& err) {
        std::vector<uint8_t> bytes;
        std::string joined;
        for (const auto& s : a) joined += s;
        if (!parse_hex(joined, bytes) || bytes.size() > static_cast<size_t>(block_row.max))
            return usage(err, "expected hex; " + uhftools::range_error(block_row));
        return set_status(UHFUploadUserParam(bytes.data(), static_cast<unsigned short>(bytes.size())));
    };
    out.push_back(block);
}

}  // namespace

void register_identity_settings(std::vector<Setting>& out) { identity(out); }

void register_device_settings(std::vector<Setting>& out) {
    io(out);
    network(out);
}

}  // namespace uhfctl
