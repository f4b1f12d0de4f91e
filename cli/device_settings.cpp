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

// "A.B.C.D[:PORT]"; the port stays as it was when not given.
bool parse_address(const std::string& text, uint8_t ip[4], uint8_t port[2], std::string& err) {
    auto colon = text.find(':');
    if (!parse_ipv4(text.substr(0, colon), ip)) {
        err = text + ": expected A.B.C.D[:PORT]";
        return false;
    }
    if (colon == std::string::npos) return true;
    unsigned long p = 0;
    if (!parse_uint(text.substr(colon + 1), 1, 65535, p)) {
        err = text + ": the port must be 1..65535";
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
    out.push_back(byte_setting("temp-protect", "Over-temperature protection byte", "VALUE (0..255)", 255,
                               UHFGetTemperatureProtect,
                               [](bool, unsigned char f) { return UHFSetTemperatureProtect(f); }));
    out.push_back(byte_setting("beep", "Beeper mode", "MODE (0..255; the reader defines the modes)", 255, UHFGetBeep,
                               [](bool, unsigned char m) { return UHFSetBeep(m); }));
    out.push_back({"outputs", "Digital outputs 1 and 2", "1|2|all high|low",
                   [](Value& v) {
                       unsigned char s[2] = {};
                       if (UHFGetIOControl(s) != 0) return false;
                       auto level = [](unsigned char b) { return b ? "high" : "low"; };
                       v.text = std::string("1 ") + level(s[0]) + ", 2 " + level(s[1]);
                       v.json.reset(cJSON_CreateObject());
                       cJSON_AddNumberToObject(v.json.get(), "1", s[0]);
                       cJSON_AddNumberToObject(v.json.get(), "2", s[1]);
                       return true;
                   },
                   [](const std::vector<std::string>& a, bool, std::string& err) {
                       bool ok = a.size() == 2 && (a[0] == "1" || a[0] == "2" || a[0] == "all") &&
                                 (a[1] == "high" || a[1] == "low");
                       if (!ok) {
                           err = "expected OUTPUT LEVEL: 1, 2 or all, then high or low";
                           return static_cast<int>(kUsage);
                       }
                       unsigned char o1 = a[0] != "2", o2 = a[0] != "1";
                       return set_status(UHFSetIOControl(o1, o2, a[1] == "high" ? 1 : 0));
                   }});
}

void network(std::vector<Setting>& out) {
    out.push_back({"ip", "The reader's own address", "A.B.C.D[:PORT] [MASK GATEWAY]",
                   [](Value& v) {
                       uint8_t ip[4], port[2], mask[4], gate[4];
                       if (UHFGetIp(ip, port, mask, gate) != 0) return false;
                       v = address_value(ip, port, mask, gate);
                       return true;
                   },
                   [](const std::vector<std::string>& a, bool, std::string& err) {
                       uint8_t ip[4], port[2], mask[4], gate[4];
                       if (a.size() != 1 && a.size() != 3) {
                           err = "expected A.B.C.D[:PORT] [MASK GATEWAY]";
                           return static_cast<int>(kUsage);
                       }
                       // Without a port, keep the one the reader has.
                       if (UHFGetIp(ip, port, mask, gate) != 0) return static_cast<int>(kReaderFailed);
                       if (!parse_address(a[0], ip, port, err)) return static_cast<int>(kUsage);
                       if (a.size() == 3 && (!parse_ipv4(a[1], mask) || !parse_ipv4(a[2], gate))) {
                           err = "mask and gateway must be A.B.C.D";
                           return static_cast<int>(kUsage);
                       }
                       return set_status(a.size() == 3 ? UHFSetIp(ip, port, mask, gate)
                                                       : UHFSetIp(ip, port, nullptr, nullptr));
                   }});
    out.push_back({"dest-ip", "The address the reader sends to", "A.B.C.D[:PORT]",
                   [](Value& v) {
                       uint8_t ip[4], port[2];
                       if (UHFGetDestIp(ip, port) != 0) return false;
                       v = address_value(ip, port, nullptr, nullptr);
                       return true;
                   },
                   [](const std::vector<std::string>& a, bool, std::string& err) {
                       uint8_t ip[4], port[2];
                       if (a.size() != 1) {
                           err = "expected A.B.C.D[:PORT]";
                           return static_cast<int>(kUsage);
                       }
                       if (UHFGetDestIp(ip, port) != 0) return static_cast<int>(kReaderFailed);
                       if (!parse_address(a[0], ip, port, err)) return static_cast<int>(kUsage);
                       return set_status(UHFSetDestIp(ip, port));
                   }});
    out.push_back({"user-params", "Opaque block kept in the reader, hex (at most 1023 bytes)", "HEX",
                   [](Value& v) {
                       static unsigned char block[1024];
                       unsigned short n = 0;
                       if (UHFDownloadUserParam(block, &n) != 0 || n > 1023) return false;
                       v = text_value(hex(block, n));
                       return true;
                   },
                   [](const std::vector<std::string>& a, bool, std::string& err) {
                       std::vector<uint8_t> block;
                       std::string joined;
                       for (const auto& s : a) joined += s;
                       if (!parse_hex(joined, block) || block.size() > 1023) {
                           err = "expected at most 1023 bytes of hex";
                           return static_cast<int>(kUsage);
                       }
                       return set_status(UHFUploadUserParam(block.data(), static_cast<unsigned short>(block.size())));
                   },
                   false});
}

}  // namespace

void register_identity_settings(std::vector<Setting>& out) { identity(out); }

void register_device_settings(std::vector<Setting>& out) {
    io(out);
    network(out);
}

}  // namespace uhfctl
