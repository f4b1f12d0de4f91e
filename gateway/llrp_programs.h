// ROSpecs and AccessSpecs as the engine runs them: parsed from the client's
// parameters, checked against what the module can do, and kept with the bytes
// they came in, so GET_ROSPECS / GET_ACCESSSPECS give them back as added (with
// their current state). What the module cannot do is refused with an Error
// naming the parameter: RFSurveySpec, LoopSpec, GPI triggers, tag-observation
// triggers other than "N tags", several InventoryParameterSpecs in an AISpec,
// antennas asking different settings of the one radio, ClientRequestOpSpec,
// the C1G2 OpSpecs other than Read, Write and Lock, TagSpec masks on banks
// other than EPC, and Custom parameters anywhere in a ROSpec or AccessSpec.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "llrp_caps.h"
#include "llrp_codec.h"
#include "llrp_port.h"

namespace uhfd::llrp {

// The limits LLRPCapabilities advertises.
constexpr size_t kMaxROSpecs = 8;
constexpr size_t kMaxSpecsPerROSpec = 8;
constexpr size_t kMaxInventoryParameterSpecsPerAISpec = 1;
constexpr size_t kMaxAccessSpecs = 8;
constexpr size_t kMaxOpSpecsPerAccessSpec = 8;

struct AISpec {
    std::vector<int> antennas;  // empty: all the reader has
    enum Stop : uint8_t { StopNull, StopDuration, StopTags } stop = StopNull;
    uint32_t duration_ms = 0;            // StopDuration; 0 never fires
    uint16_t n_tags = 0;                 // StopTags: unique EPCs seen; 0 only the timeout
    uint32_t timeout_ms = 0;             // StopTags: 0 none
    uint16_t ips_id = 0;                 // InventoryParameterSpecID
    std::vector<AntennaConfig> configs;  // those of the antennas in use
};

struct ROSpec {
    enum State : uint8_t { Disabled, Inactive, Active };
    enum Start : uint8_t { StartNull, Immediate, Periodic };
    uint32_t id = 0;
    uint8_t priority = 0;
    State state = Disabled;
    Start start = StartNull;
    uint32_t offset_ms = 0, period_ms = 0;  // Periodic; period 0: once
    std::optional<int64_t> utc_ms;          // Periodic: the UTC time offset counts from
    uint32_t duration_ms = 0;               // ROSpecStopTrigger Duration; 0: none
    std::vector<AISpec> ai;
    std::optional<ROReportSpec> report;  // unset: the reader configuration's
    std::string body;                    // the ROSpec parameter's body as added
};

// body: a ROSpec parameter's body at nesting depth `depth`.
Error parse_rospec(std::string_view body, int depth, const ReaderFacts& f, ROSpec& out);
void write_rospec(Writer& w, const ROSpec& s);

// One C1G2TargetTag with a mask: on the EPC bank, bit 0 the first bit of its
// CRC (0x20 the first EPC bit). A target without mask matches every tag and
// is not kept.
struct TargetTag {
    bool match = true;
    uint16_t pointer = 0, nbits = 0;
    std::string mask, data;  // ceil(nbits/8) bytes each
};

struct OpSpec {
    uint16_t type = 0;  // param::C1G2Read, C1G2Write or C1G2Lock
    uint16_t id = 0;
    AccessRequest req;  // all but the EPC, which is the tag's
};

struct AccessSpec {
    uint32_t id = 0, rospec_id = 0;  // rospec_id 0: any
    uint16_t antenna = 0;            // 0: any
    bool active = false;
    uint16_t op_count = 0;  // AccessSpecStopTrigger operation count; 0: none
    std::vector<TargetTag> targets;
    std::vector<OpSpec> ops;
    std::optional<uint8_t> report_trigger;  // AccessReportSpec; unset: the reader configuration's
    std::string body;
};

Error parse_accessspec(std::string_view body, int depth, const ReaderFacts& f, AccessSpec& out);
void write_accessspec(Writer& w, const AccessSpec& s);
// Whether a tag with this PC and EPC is one s targets.
bool matches(const AccessSpec& s, uint16_t pc, const uint8_t* epc, size_t n);

}  // namespace uhfd::llrp
