// The reader-description family of LLRP: what the reader can do
// (GET_READER_CAPABILITIES), how a connection has it configured
// (GET_READER_CONFIG / SET_READER_CONFIG) and the version answers. The
// configuration lives per connection; the engine owns it and applies a parsed
// SET_READER_CONFIG only once the reader has taken its transmit power.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "llrp_codec.h"
#include "llrp_port.h"

namespace uhfd::llrp {

// The module's power steps as LLRP's TransmitPowerLevelTable: index 1 is
// power_min_dbm, each next index one dBm more, up to power_max_dbm (at most
// 100 steps).
uint16_t power_table_size(const ReaderFacts& f);
std::optional<int> power_dbm(const ReaderFacts& f, uint16_t index);  // unset: not in the table
uint16_t power_index(const ReaderFacts& f, int dbm);                 // clamped into the table

// What each TagReportData carries (TagReportContentSelector and its
// C1G2EPCMemorySelector).
struct ReportContent {
    bool rospec_id = false, spec_index = false, inv_param_spec_id = false, antenna_id = false, channel_index = false,
         peak_rssi = false, first_seen = false, last_seen = false, seen_count = false, access_spec_id = false;
    bool crc = false, pc = false, xpc = false;
    bool operator==(const ReportContent&) const = default;
};

struct ROReportSpec {
    enum Trigger : uint8_t { None = 0, AISpecEndOrN = 1, ROSpecEndOrN = 2 };
    uint8_t trigger = ROSpecEndOrN;
    uint16_t n = 0;  // 0: no tag-count trigger
    ReportContent content;
    bool operator==(const ROReportSpec&) const = default;
};
// body: an ROReportSpec parameter's body; depth: the depth of the sequence it
// was found in (Params::depth()). Errors name the parameter and field at fault.
Error parse_ro_report_spec(std::string_view body, int depth, ROReportSpec& out);
void write_ro_report_spec(Writer& w, const ROReportSpec& s);

// The parts of a C1G2InventoryCommand the module can honour.
struct C1G2Settings {
    std::optional<int> session;  // C1G2SingulationControl
    std::optional<uint16_t> tag_population;
    uint16_t mode_index = 0, tari = 0;        // C1G2RFControl (one mode: index 0)
    std::optional<InventoryPlan::Mask> mask;  // one C1G2Filter, select-matching action
};

// One AntennaConfiguration. The module has one transmit power for all its
// antennas, so an RFTransmitter on any antenna sets every antenna's.
struct AntennaConfig {
    uint16_t antenna = 0;                 // 0: all antennas
    std::optional<uint16_t> power_index;  // RFTransmitter.TransmitPower
    C1G2Settings c1g2;
    bool c1g2_given = false;  // a C1G2InventoryCommand was there: c1g2 is what it asked
};
// body: an AntennaConfiguration parameter's body. Refuses antennas and power
// indexes the reader does not have, and what the module cannot do (several
// filters, state-aware actions, other air protocols).
Error parse_antenna_configuration(std::string_view body, int depth, const ReaderFacts& f, AntennaConfig& out);

// One connection's reader configuration.
struct ReaderConfig {
    uint32_t keepalive_ms = 0;  // 0: no keepalives
    ROReportSpec ro_report;
    uint16_t events = 0;                  // bit n: EventNotificationState type n is on
    uint8_t access_report_trigger = 0;    // 0 with the RO report, 1 at the AccessSpec's end
    uint32_t state_value = 0;             // LLRPConfigurationStateValue: the engine changes it on each change
    std::vector<AntennaConfig> antennas;  // antennas 1..antenna_count, in order
};
ReaderConfig factory_config(const ReaderFacts& f);

// A SET_READER_CONFIG accepted: the configuration to hold once the reader has
// the power asked (power_dbm, when one was asked).
struct ConfigChange {
    ReaderConfig next;
    std::optional<int> power_dbm;
};
// body: the message's body. On error nothing in out is meaningful and the
// current configuration stands.
Error parse_set_reader_config(std::string_view body, const ReaderFacts& f, const ReaderConfig& now, ConfigChange& out);

// Whole response messages for a request's body, appended to out (a bad
// request gets its status in the response).
void capabilities_response(std::string& out, uint32_t id, std::string_view body, const ReaderFacts& f);
void config_response(std::string& out, uint32_t id, std::string_view body, const ReaderFacts& f, const ReaderConfig& c);

// A 1.0.1 reader's answer to a message outside its version: GET_SUPPORTED_VERSION,
// SET_PROTOCOL_VERSION, or any message whose header is not version 1, gets
// an ERROR_MESSAGE with M_UnsupportedVersion, in the version the message
// came in, which tells an LLRP 1.1 client to fall back to 1.0.1. Appended to
// out; false (out untouched) for anything else.
bool version_answer(std::string& out, const Header& h);

}  // namespace uhfd::llrp
