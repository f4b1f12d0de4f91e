// Output power, antennas, antenna work time, region.
#include "engine/handlers_common.h"

namespace uhfsim {

namespace {

constexpr uint16_t kMaxPower = 3300;  // 33 dBm, the top of common modules

// 0x10: save byte, then one or more records: antenna, read power, write power.
std::string set_power(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() < 6 || (d.size() - 1) % 5 != 0) return status(r, req, false, "bad length");
    for (size_t i = 1; i < d.size(); i += 5) {
        if (!valid_antenna(r, d[i])) return status(r, req, false, "bad antenna");
        if (get16(d, i + 1) > kMaxPower || get16(d, i + 3) > kMaxPower)
            return status(r, req, false, "power out of range");
    }
    r.state().apply(d[0] != 0, [&](Settings& s) {
        for (size_t i = 1; i < d.size(); i += 5) {
            auto& a = s.antennas[d[i] - 1u];
            a.read_power = get16(d, i + 1);
            a.write_power = get16(d, i + 3);
        }
    });
    return status(r, req, true, "");
}

std::string get_power(VirtualReader& r, const Request& req) {
    std::vector<uint8_t> out{kAccepted};
    const int count = r.state().identity.antenna_count;
    for (int a = 1; a <= count && a <= kMaxAntennas; ++a) {
        const auto& s = r.settings().antennas[static_cast<size_t>(a - 1)];
        out.push_back(static_cast<uint8_t>(a));
        put16(out, s.read_power);
        put16(out, s.write_power);
    }
    r.reply(reply_code(req), out);
    return "ok";
}

// 0x28: save byte, mask high byte, mask low byte. Bit 0 of the low byte is antenna 1.
std::string set_antennas(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() < 3) return status(r, req, false, "bad length");
    const uint16_t mask = get16(d, 1);
    const int count = r.state().identity.antenna_count;
    const uint32_t present = count >= 16 ? 0xFFFFu : ((1u << count) - 1);
    if (mask == 0 || (mask & ~present) != 0) return status(r, req, false, "no such antenna");
    r.state().apply(d[0] != 0, [&](Settings& s) { s.antenna_mask = mask; });
    return status(r, req, true, "");
}

std::string get_antennas(VirtualReader& r, const Request& req) {
    std::vector<uint8_t> out;
    put16(out, r.settings().antenna_mask);
    r.reply(reply_code(req), out);
    return "ok";
}

// 0x4A: (save << 4 | antenna), work time high, low.
std::string set_work_time(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() < 3) return status(r, req, false, "bad length");
    const int ant = d[0] & 0x0F;
    if (!valid_antenna(r, ant)) return status(r, req, false, "bad antenna");
    const uint16_t t = get16(d, 1);
    r.state().apply((d[0] >> 4) != 0, [&](Settings& s) { s.antennas[static_cast<size_t>(ant - 1)].work_time = t; });
    return status(r, req, true, "");
}

std::string get_work_time(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.empty() || !valid_antenna(r, d[0])) return status(r, req, false, "bad antenna");
    std::vector<uint8_t> out{kAccepted, d[0]};
    put16(out, r.settings().antennas[d[0] - 1u].work_time);
    r.reply(reply_code(req), out);
    return "ok";
}

std::string set_region(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    if (d.size() < 2) return status(r, req, false, "bad length");
    if (d[1] == 0) return status(r, req, false, "no such region");
    r.state().apply(d[0] != 0, [&](Settings& s) {
        s.region = d[1];
        s.hop_table = fit_to_region(s.hop_table, s.region);
    });
    return status(r, req, true, "");
}

std::string get_region(VirtualReader& r, const Request& req) {
    r.reply(reply_code(req), {kAccepted, r.settings().region});
    return "ok";
}

}  // namespace

void register_config(Dispatcher& d) {
    d.on(0x10, "set power", set_power);
    d.on(0x12, "get power", get_power);
    d.on(0x28, "set antennas", set_antennas);
    d.on(0x2A, "get antennas", get_antennas);
    d.on(0x4A, "set antenna work time", set_work_time);
    d.on(0x4C, "get antenna work time", get_work_time);
    d.on(0x2C, "set region", set_region);
    d.on(0x2E, "get region", get_region);
}

}  // namespace uhfsim
