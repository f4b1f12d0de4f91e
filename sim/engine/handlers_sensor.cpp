// Sensor tags: the temperature-logging command 0xA3 (start, stop, operating
// mode, battery voltage, logged readings) and 0x7C (sensor code, calibration,
// on-chip RSSI, temperature code).
#include <algorithm>

#include "engine/handlers_common.h"

namespace uhfsim {

namespace {

constexpr uint8_t kLogging = 0xA3;
constexpr uint8_t kSensorCode = 0x7C;

// Error bytes of a refused 0xA3 request (reply 00, error).
constexpr uint8_t kNoSensorTag = 0x0A;
constexpr uint8_t kBadRequest = 0x0B;
constexpr uint8_t kNotLogging = 0x0C;

constexpr size_t kLogCapacity = 1000;  // readings a tag keeps

// ---- tag selection ----------------------------------------------------------

struct Mask {
    uint8_t bank = 0;
    uint16_t bit_addr = 0;
    uint16_t bit_len = 0;
    std::span<const uint8_t> bits;
    size_t end = 0;  // request offset just past the mask block
};

// The mask block after the sub-command byte; nullopt when it is cut short.
std::optional<Mask> parse_mask(std::span<const uint8_t> d) {
    if (d.size() < 6) return std::nullopt;
    Mask m{d[1], get16(d, 2), get16(d, 4), {}, 0};
    const size_t n = (m.bit_len + 7u) / 8u;
    if (d.size() < 6 + n) return std::nullopt;
    m.bits = d.subspan(6, n);
    m.end = 6 + n;
    return m;
}

// An empty mask selects every tag.
bool matches(const Tag& tag, const Mask& m) {
    if (m.bit_len == 0) return true;
    return m.bank <= 3 && tag.matches(static_cast<Bank>(m.bank), m.bit_addr, m.bit_len, m.bits);
}

// The first live sensor tag the mask selects.
Tag* select_sensor_tag(VirtualReader& r, const Mask& m) {
    for (Tag& t : r.field().tags())
        if (t.sensor && !t.killed && matches(t, m)) return &t;
    return nullptr;
}

std::string refuse(VirtualReader& r, uint8_t error, const char* why) {
    r.reply(kLogging + 1, {0x00, error});
    return why;
}

// What an 0xA3 request selects: the sensor tag under its mask and the
// `fields` bytes after the mask. When there is none the refusal has been
// sent and `why` says what it was.
struct Selection {
    Tag* tag = nullptr;
    std::span<const uint8_t> fields;
    std::string why;
};

Selection select(VirtualReader& r, const Request& req, size_t fields) {
    const auto m = parse_mask(req.data);
    if (!m || req.data.size() != m->end + fields) return {nullptr, {}, refuse(r, kBadRequest, "bad length")};
    Tag* tag = select_sensor_tag(r, *m);
    if (tag == nullptr) return {nullptr, {}, refuse(r, kNoSensorTag, "no sensor tag")};
    return {tag, req.data.subspan(m->end), {}};
}

// ---- the temperature log ------------------------------------------------------

// 10-bit code as the chip writes it: two's complement quarter degrees.
uint16_t to_code(int centi) {
    const int quarters = centi >= 0 ? centi / 25 : -((-centi + 24) / 25);  // rounded down
    return static_cast<uint16_t>(quarters & 0x3FF);
}

int code_to_centi(uint16_t code) {
    const int quarters = (code & 0x200) ? static_cast<int>(code & 0x3FF) - 0x400 : code & 0x3FF;
    return quarters * 25;
}

// Reading k of a run: the tag's temperature with a quarter-degree sawtooth,
// so consecutive readings differ.
int reading_centi(const TempSensor& s, size_t k) { return s.centi_celsius + 25 * static_cast<int>(k % 4); }

size_t readings_taken(const TempSensor& s, TimePoint now) {
    const auto& run = s.log;
    if (!run.started) return 0;
    const TimePoint until = run.running ? now : run.stop;
    const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(until - run.start).count();
    if (elapsed < run.delay_s) return 0;
    const auto n = static_cast<size_t>((elapsed - run.delay_s) / run.interval_s) + 1;
    return std::min(n, kLogCapacity);
}

bool limit_alarm(const TempSensor& s, size_t taken) {
    const int lo = code_to_centi(s.log.min_code), hi = code_to_centi(s.log.max_code);
    for (size_t k = 0; k < std::min<size_t>(taken, 4); ++k) {  // the sawtooth repeats every 4
        const int t = code_to_centi(to_code(reading_centi(s, k)));
        if (t < lo || t > hi) return true;
    }
    return false;
}

// ---- 0xA3 ---------------------------------------------------------------------

// 03: mask, min code, max code, delay (s), interval (s). A new run clears the log.
std::string start_logging(VirtualReader& r, const Request& req) {
    const auto sel = select(r, req, 8);
    if (sel.tag == nullptr) return sel.why;
    const auto f = sel.fields;
    const uint16_t interval = get16(f, 6);
    if (interval == 0) return refuse(r, kBadRequest, "interval 0");
    auto& run = sel.tag->sensor->log;
    run = TempSensor::LogRun{true,
                             true,
                             r.now(),
                             {},
                             get16(f, 4),
                             interval,
                             static_cast<uint16_t>(get16(f, 0) & 0x3FF),
                             static_cast<uint16_t>(get16(f, 2) & 0x3FF)};
    r.reply(kLogging + 1, {kAccepted, 0x00});
    return "ok";
}

std::string stop_logging(VirtualReader& r, const Request& req) {
    const auto sel = select(r, req, 0);
    if (sel.tag == nullptr) return sel.why;
    auto& run = sel.tag->sensor->log;
    if (!run.running) return refuse(r, kNotLogging, "not logging");
    run.running = false;
    run.stop = r.now();
    r.reply(kLogging + 1, {kAccepted, 0x00});
    return "ok";
}

// 05: bit 15 a run is on, bit 14 its delay has passed, bit 13 a reading lay
// outside the limits, bits 11..0 the readings held.
std::string operating_mode(VirtualReader& r, const Request& req) {
    const auto sel = select(r, req, 0);
    if (sel.tag == nullptr) return sel.why;
    const TempSensor& s = *sel.tag->sensor;
    const size_t taken = readings_taken(s, r.now());
    uint16_t word = static_cast<uint16_t>(std::min<size_t>(taken, 0xFFF));
    if (s.log.running) word |= 0x8000;
    if (taken > 0) word |= 0x4000;
    if (limit_alarm(s, taken)) word |= 0x2000;
    std::vector<uint8_t> out{0x05};
    put16(out, word);
    r.reply(kLogging + 1, out);
    return "ok";
}

// 06: battery voltage, raw = volts * 8192 / 2.5.
std::string battery_voltage(VirtualReader& r, const Request& req) {
    const auto sel = select(r, req, 0);
    if (sel.tag == nullptr) return sel.why;
    std::vector<uint8_t> out{0x06};
    put16(out, static_cast<uint16_t>(std::min<uint32_t>(sel.tag->sensor->battery_mv * 8192u / 2500u, 0xFFFF)));
    r.reply(kLogging + 1, out);
    return "ok";
}

// 07: from reading t_start, up to t_num readings as 4-byte records: the code
// low byte first, then the reading's index (16 bits, big-endian).
std::string read_log(VirtualReader& r, const Request& req) {
    const auto sel = select(r, req, 3);
    if (sel.tag == nullptr) return sel.why;
    const TempSensor& s = *sel.tag->sensor;
    const size_t taken = readings_taken(s, r.now());
    const size_t first = get16(sel.fields, 0);
    const size_t want = sel.fields[2];
    const size_t n = first < taken ? std::min(want, taken - first) : 0;
    std::vector<uint8_t> out{0x07};
    put16(out, static_cast<uint16_t>(taken));
    out.push_back(static_cast<uint8_t>(n));
    for (size_t k = first; k < first + n; ++k) {
        const uint16_t code = to_code(reading_centi(s, k));
        out.push_back(static_cast<uint8_t>(code & 0xFF));
        out.push_back(static_cast<uint8_t>(code >> 8));
        put16(out, static_cast<uint16_t>(k));
    }
    r.reply(kLogging + 1, out);
    return "ok";
}

// ---- 0x7C -----------------------------------------------------------------------

// Reply statuses after the leading 01.
constexpr uint8_t kNoTag = 0x01;
constexpr uint8_t kUnknownSub = 0x03;
constexpr uint8_t kBadLength = 0x04;

std::array<uint8_t, 8> calibration_of(const Tag& t) {
    if (t.sensor->calibration) return *t.sensor->calibration;
    // Unwritten: derived from the stored CRC and PC, so each tag has its own.
    const uint16_t crc = t.stored_crc(), pc = t.pc();
    return {static_cast<uint8_t>(crc >> 8),
            static_cast<uint8_t>(crc),
            static_cast<uint8_t>(pc >> 8),
            static_cast<uint8_t>(pc),
            0x5A,
            static_cast<uint8_t>(crc ^ pc),
            0x00,
            0x01};
}

// On-chip RSSI, 0..31: from the tag's signal at the antenna.
uint16_t on_chip_rssi(const Tag& t, int antenna) {
    const int dbm10 = t.rssi[static_cast<size_t>(antenna - 1)].value_or(kRssiMin);
    return static_cast<uint16_t>(std::clamp((dbm10 + 1000) / 20, 0, 31));
}

// Temperature code: 0.1 degC steps above -40 degC, shifted by calibration byte 4.
uint16_t temperature_code(const Tag& t) {
    const int code = (t.sensor->centi_celsius + 4000) / 10 + calibration_of(t)[4];
    return static_cast<uint16_t>(std::clamp(code, 0, 0xFFFF));
}

// The request's 16-byte EPC field names the tag (shorter EPCs are padded
// with zeros); it must be a sensor tag seen by the antenna.
Tag* find_by_epc(VirtualReader& r, std::span<const uint8_t> epc16, int antenna) {
    for (Tag& t : r.field().tags()) {
        if (!t.sensor || t.killed || !t.visible_on(antenna)) continue;
        auto epc = t.epc();
        epc.resize(16, 0x00);
        if (std::equal(epc16.begin(), epc16.end(), epc.begin())) return &t;
    }
    return nullptr;
}

std::string sensor_code(VirtualReader& r, const Request& req) {
    const auto d = req.data;
    auto answer = [&](uint8_t st, const char* why) {
        r.reply(kSensorCode + 1, {kAccepted, st});
        return std::string(why);
    };
    const bool write = !d.empty() && d[0] == 0x06;
    if (d.size() != (write ? 28u : 20u)) return answer(kBadLength, "bad length");
    const int antenna = d[17];
    if (!valid_antenna(r, antenna)) return answer(kNoTag, "bad antenna");
    Tag* tag = find_by_epc(r, d.subspan(1, 16), antenna);
    if (tag == nullptr) return answer(kNoTag, "no sensor tag");
    std::vector<uint16_t> words;
    switch (d[0]) {
        case 0x01: words = {tag->sensor->code}; break;
        case 0x02: {
            const auto c = calibration_of(*tag);
            for (size_t i = 0; i < c.size(); i += 2) words.push_back(static_cast<uint16_t>(c[i] << 8 | c[i + 1]));
            break;
        }
        case 0x03: words = {on_chip_rssi(*tag, antenna)}; break;
        case 0x04: words = {temperature_code(*tag)}; break;
        case 0x05: words = {on_chip_rssi(*tag, antenna), temperature_code(*tag)}; break;
        case 0x06: {
            std::array<uint8_t, 8> c{};
            std::copy(d.begin() + 20, d.end(), c.begin());
            tag->sensor->calibration = c;
            return answer(0x00, "ok");
        }
        default: return answer(kUnknownSub, "unknown sub-command");
    }
    std::vector<uint8_t> out{kAccepted, 0x00};
    put16(out, static_cast<uint16_t>(words.size()));
    for (uint16_t w : words) put16(out, w);
    r.reply(kSensorCode + 1, out);
    return "ok";
}

}  // namespace

void register_sensor(Dispatcher& d) {
    d.on_sub(kLogging, 0x03, "start logging", start_logging);
    d.on_sub(kLogging, 0x04, "stop logging", stop_logging);
    d.on_sub(kLogging, 0x05, "operating mode", operating_mode);
    d.on_sub(kLogging, 0x06, "battery voltage", battery_voltage);
    d.on_sub(kLogging, 0x07, "logged readings", read_log);
    d.on(kSensorCode, "sensor code / calibration / on-chip RSSI", sensor_code);
}

}  // namespace uhfsim
