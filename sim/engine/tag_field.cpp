#include "engine/tag_field.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <memory>
#include <sstream>

namespace uhfsim {

uint16_t gen2_crc16(std::span<const uint8_t> bytes) {
    uint16_t crc = 0xFFFF;
    for (uint8_t b : bytes) {
        crc ^= static_cast<uint16_t>(b << 8);
        for (int i = 0; i < 8; ++i)
            crc = (crc & 0x8000) ? static_cast<uint16_t>((crc << 1) ^ 0x1021) : static_cast<uint16_t>(crc << 1);
    }
    return static_cast<uint16_t>(~crc);
}

std::vector<uint8_t> words_to_bytes(std::span<const uint16_t> words) {
    std::vector<uint8_t> out;
    out.reserve(words.size() * 2);
    for (uint16_t w : words) {
        out.push_back(static_cast<uint8_t>(w >> 8));
        out.push_back(static_cast<uint8_t>(w & 0xFF));
    }
    return out;
}

static std::vector<uint16_t> bytes_to_words(std::span<const uint8_t> bytes) {
    std::vector<uint16_t> out;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        out.push_back(static_cast<uint16_t>((bytes[i] << 8) | bytes[i + 1]));
    return out;
}

// CRC word, PC with the length bits of `epc`, EPC words.
static std::vector<uint16_t> make_epc_bank(std::span<const uint8_t> epc, uint16_t pc_flags) {
    const auto words = bytes_to_words(epc);
    std::vector<uint16_t> bank(2, 0);
    bank[1] = static_cast<uint16_t>((words.size() << 11) | (pc_flags & 0x07FF));
    bank.insert(bank.end(), words.begin(), words.end());
    bank[0] = gen2_crc16(words_to_bytes(std::span(bank).subspan(1)));
    return bank;
}

void Tag::set_epc(std::span<const uint8_t> epc, uint16_t pc_flags) { epc_bank = make_epc_bank(epc, pc_flags); }

void Tag::set_public_epc(std::span<const uint8_t> epc) { public_epc_bank = make_epc_bank(epc, 0); }

const std::vector<uint16_t>& Tag::shown_epc_bank() const {
    return shows_public() && !public_epc_bank.empty() ? public_epc_bank : epc_bank;
}

std::span<const uint16_t> Tag::shown_tid() const {
    return shows_public() ? std::span(tid).first(std::min(tid.size(), kPublicTidWords)) : std::span(tid);
}

std::span<const uint16_t> Tag::shown_user() const {
    return shows_public() ? std::span<const uint16_t>() : std::span(user);
}

std::span<const uint16_t> Tag::shown_bank(Bank b) const {
    switch (b) {
        case Bank::Reserved: return reserved;
        case Bank::Epc: return shown_epc_bank();
        case Bank::Tid: return shown_tid();
        case Bank::User: return shown_user();
    }
    return {};
}

std::vector<uint8_t> Tag::epc() const { return words_to_bytes(std::span(shown_epc_bank()).subspan(2)); }

std::vector<uint8_t> Tag::uii() const { return words_to_bytes(std::span(shown_epc_bank()).subspan(1)); }

std::vector<uint16_t>* Tag::bank(Bank b) {
    switch (b) {
        case Bank::Reserved: return &reserved;
        case Bank::Epc: return &epc_bank;
        case Bank::Tid: return &tid;
        case Bank::User: return &user;
    }
    return nullptr;
}

const std::vector<uint16_t>* Tag::bank(Bank b) const { return const_cast<Tag*>(this)->bank(b); }

bool Tag::matches(Bank b, size_t bit_addr, size_t bit_len, std::span<const uint8_t> mask) const {
    const auto words = shown_bank(b);
    if (mask.size() * 8 < bit_len || bit_addr + bit_len > words.size() * 16) return false;
    for (size_t i = 0; i < bit_len; ++i) {
        const size_t at = bit_addr + i;
        const bool have = (words[at / 16] >> (15 - at % 16)) & 1;
        const bool want = (mask[i / 8] >> (7 - i % 8)) & 1;
        if (have != want) return false;
    }
    return true;
}

bool Tag::visible_on(int antenna) const {
    return antenna >= 1 && antenna <= kMaxAntennas && rssi[antenna - 1].has_value() && !killed;
}

// ---- JSON ---------------------------------------------------------------

namespace {

struct JsonDeleter {
    void operator()(cJSON* p) const { cJSON_Delete(p); }
};

bool fail(std::string* error, const std::string& msg) {
    if (error) *error = msg;
    return false;
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Hex text of whole 16-bit words; blanks, ':' and '-' between digits are allowed.
bool parse_words(const char* text, std::vector<uint16_t>& out) {
    std::vector<uint8_t> bytes;
    int hi = -1;
    for (const char* p = text; *p; ++p) {
        if (*p == ' ' || *p == ':' || *p == '-') continue;
        const int d = hex_digit(*p);
        if (d < 0) return false;
        if (hi < 0) {
            hi = d;
        } else {
            bytes.push_back(static_cast<uint8_t>(hi << 4 | d));
            hi = -1;
        }
    }
    if (hi >= 0 || bytes.size() % 2 != 0) return false;
    out = bytes_to_words(bytes);
    return true;
}

bool word_field(const cJSON* obj, const char* key, std::vector<uint16_t>& out, std::string* error,
                const std::string& where) {
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(obj, key);
    if (item == nullptr) return true;
    if (!cJSON_IsString(item) || !parse_words(item->valuestring, out))
        return fail(error, where + ": \"" + key + "\" must be hex text of whole 16-bit words");
    return true;
}

bool password_field(const cJSON* obj, const char* key, uint16_t* dst, std::string* error, const std::string& where) {
    std::vector<uint16_t> w;
    if (!word_field(obj, key, w, error, where)) return false;
    if (cJSON_GetObjectItemCaseSensitive(obj, key) == nullptr) return true;
    if (w.size() != 2) return fail(error, where + ": \"" + key + "\" must be 8 hex digits");
    dst[0] = w[0];
    dst[1] = w[1];
    return true;
}

bool parse_rssi(const cJSON* obj, Tag& tag, std::string* error, const std::string& where) {
    const cJSON* ants = cJSON_GetObjectItemCaseSensitive(obj, "rssi");
    if (ants == nullptr) {
        tag.rssi[0] = -600;
        return true;
    }
    if (!cJSON_IsObject(ants)) return fail(error, where + ": \"rssi\" must be an object {\"antenna\": dBm}");
    const cJSON* a = nullptr;
    cJSON_ArrayForEach(a, ants) {
        char* end = nullptr;
        const long ant = std::strtol(a->string, &end, 10);
        if (end == a->string || *end != '\0' || ant < 1 || ant > kMaxAntennas)
            return fail(error, where + ": antenna \"" + a->string + "\" is not 1..16");
        if (!cJSON_IsNumber(a)) return fail(error, where + ": RSSI of antenna " + a->string + " is not a number");
        const long tenths = std::lround(a->valuedouble * 10.0);
        if (tenths > kRssiMax || tenths < kRssiMin)
            return fail(error, where + ": RSSI of antenna " + a->string + " is outside -25.0..-120.0 dBm");
        tag.rssi[static_cast<size_t>(ant - 1)] = static_cast<int16_t>(tenths);
    }
    return true;
}

bool parse_tag(const cJSON* obj, Tag& tag, std::string* error, const std::string& where) {
    if (!cJSON_IsObject(obj)) return fail(error, where + ": not an object");
    const cJSON* epc = cJSON_GetObjectItemCaseSensitive(obj, "epc");
    std::vector<uint16_t> epc_words;
    if (!cJSON_IsString(epc) || !parse_words(epc->valuestring, epc_words))
        return fail(error, where + ": \"epc\" is required, hex text of whole 16-bit words");
    if (epc_words.size() > 31) return fail(error, where + ": EPC longer than 31 words");

    uint16_t pc_flags = 0;
    const cJSON* pc = cJSON_GetObjectItemCaseSensitive(obj, "pc");
    if (pc != nullptr) {
        std::vector<uint16_t> w;
        if (!cJSON_IsString(pc) || !parse_words(pc->valuestring, w) || w.size() != 1)
            return fail(error, where + ": \"pc\" must be 4 hex digits");
        if ((w[0] >> 11) != epc_words.size())
            return fail(error, where + ": PC length bits disagree with the EPC length");
        pc_flags = w[0];
    }
    tag.set_epc(words_to_bytes(epc_words), pc_flags);

    const cJSON* public_epc = cJSON_GetObjectItemCaseSensitive(obj, "public_epc");
    if (public_epc != nullptr) {
        std::vector<uint16_t> w;
        if (!cJSON_IsString(public_epc) || !parse_words(public_epc->valuestring, w) || w.empty() || w.size() > 31)
            return fail(error, where + ": \"public_epc\" must be hex text of 1 to 31 whole 16-bit words");
        tag.set_public_epc(words_to_bytes(w));
    }
    const cJSON* qt_public = cJSON_GetObjectItemCaseSensitive(obj, "qt_public");
    if (qt_public != nullptr) {
        if (!cJSON_IsBool(qt_public)) return fail(error, where + ": \"qt_public\" must be true or false");
        if (cJSON_IsTrue(qt_public)) tag.qt_control |= Tag::kQtPublic;
    }

    if (!word_field(obj, "tid", tag.tid, error, where)) return false;
    if (!word_field(obj, "user", tag.user, error, where)) return false;
    if (!password_field(obj, "kill_password", &tag.reserved[0], error, where)) return false;
    if (!password_field(obj, "access_password", &tag.reserved[2], error, where)) return false;
    if (!parse_rssi(obj, tag, error, where)) return false;

    const cJSON* killed = cJSON_GetObjectItemCaseSensitive(obj, "killed");
    if (killed != nullptr) {
        if (!cJSON_IsBool(killed)) return fail(error, where + ": \"killed\" must be true or false");
        tag.killed = cJSON_IsTrue(killed);
    }
    const cJSON* sensor = cJSON_GetObjectItemCaseSensitive(obj, "sensor");
    if (sensor != nullptr) {
        const cJSON* t = cJSON_GetObjectItemCaseSensitive(sensor, "temperature");
        if (!cJSON_IsObject(sensor) || !cJSON_IsNumber(t))
            return fail(error, where + ": \"sensor\" must be {\"temperature\": degrees C}");
        TempSensor s;
        s.centi_celsius = static_cast<int16_t>(std::lround(t->valuedouble * 100.0));
        const cJSON* code = cJSON_GetObjectItemCaseSensitive(sensor, "code");
        if (cJSON_IsNumber(code) && code->valuedouble >= 0 && code->valuedouble <= 0xFFFF)
            s.code = static_cast<uint16_t>(code->valuedouble);
        else
            s.code = static_cast<uint16_t>(s.centi_celsius);
        tag.sensor = s;
    }
    return true;
}

}  // namespace

std::optional<TagField> TagField::from_json(const std::string& text, std::string* error) {
    std::unique_ptr<cJSON, JsonDeleter> root(cJSON_Parse(text.c_str()));
    if (!root) {
        fail(error, "not valid JSON");
        return std::nullopt;
    }
    const cJSON* list = cJSON_GetObjectItemCaseSensitive(root.get(), "tags");
    if (!cJSON_IsArray(list)) {
        fail(error, "top level must be an object with a \"tags\" array");
        return std::nullopt;
    }
    TagField field;
    int index = 0;
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, list) {
        Tag tag;
        if (!parse_tag(item, tag, error, "tag " + std::to_string(index))) return std::nullopt;
        field.add(std::move(tag));
        ++index;
    }
    return field;
}

std::optional<TagField> TagField::load_file(const std::string& path, std::string* error) {
    std::ifstream in(path);
    if (!in) {
        fail(error, "cannot open " + path);
        return std::nullopt;
    }
    std::stringstream ss;
    ss << in.rdbuf();
    return from_json(ss.str(), error);
}

TagField TagField::random(size_t count, uint64_t seed, int antennas) {
    Rng rng(seed);
    TagField field;
    for (size_t i = 0; i < count; ++i) {
        Tag tag;
        std::vector<uint8_t> epc(12);
        for (auto& b : epc) b = static_cast<uint8_t>(rng.next());
        tag.set_epc(epc);
        // A TID of class E2: a maker id, a model, then a serial.
        tag.tid = {0xE280, 0x1160, 0x2000};
        for (int w = 0; w < 3; ++w) tag.tid.push_back(static_cast<uint16_t>(rng.next()));
        tag.user.assign(8, 0);
        tag.rssi[0] = static_cast<int16_t>(rng.range(-800, -450));
        for (int a = 1; a < antennas && a < kMaxAntennas; ++a)
            if (rng.chance(0.5)) tag.rssi[static_cast<size_t>(a)] = static_cast<int16_t>(rng.range(-800, -450));
        field.add(std::move(tag));
    }
    return field;
}

}  // namespace uhfsim
