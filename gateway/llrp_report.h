// What an RO_ACCESS_REPORT carries: tags seen, folded per EPC (and antenna
// when it is reported) as readers accumulate them, and written as
// TagReportData with what the TagReportContentSelector asks. The list and the
// output buffer are reused, so a warm connection allocates nothing per tag.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "llrp_caps.h"
#include "llrp_codec.h"
#include "llrp_port.h"

namespace uhfd::llrp {

struct TagSeen {
    std::array<uint8_t, 62> epc{};
    uint8_t epc_len = 0;
    uint16_t pc = 0;
    uint16_t antenna = 0;
    uint16_t spec_index = 0, ips_id = 0;
    uint32_t rospec_id = 0, access_spec_id = 0;
    int16_t rssi = 0;  // peak, 0.1 dBm
    int64_t first_ms = 0, last_ms = 0;
    uint32_t count = 1;
};

// One OpSpec's outcome, as its C1G2 OpSpecResult parameter says it.
struct OpResult {
    uint16_t type = 0;  // param::C1G2ReadOpSpecResult, C1G2WriteOpSpecResult or C1G2LockOpSpecResult
    uint8_t result = 0;
    uint16_t opspec_id = 0;
    uint16_t words_written = 0;  // Write
    std::string data;            // Read: the words, big-endian byte pairs
};
// The result of an op of kind k as LLRP codes it for that op.
OpResult op_result(AccessRequest::Kind k, uint16_t opspec_id, const AccessResult& r, uint16_t words);

// A tag accessed, reported with its op results.
struct AccessedTag {
    TagSeen tag;
    std::vector<OpResult> results;
};

// The Gen2 StoredCRC over PC and EPC (CRC-16/GENIBUS).
uint16_t gen2_crc(uint16_t pc, const uint8_t* epc, size_t n);

// Tags folded per EPC, SpecIndex and (when by_antenna) antenna: a fold keeps
// the first and last time, the peak RSSI and the count.
class TagList {
public:
    static constexpr size_t kMax = 4096;
    // False when t is new and the list is full: t is not kept.
    bool add(const TagSeen& t, bool by_antenna);
    size_t size() const { return tags_.size(); }
    std::span<const TagSeen> tags() const { return tags_; }
    void clear();

private:
    std::vector<TagSeen> tags_;
    std::vector<uint32_t> home_;  // each tag's slot
    std::vector<uint32_t> slot_;  // 0 empty, else index in tags_ + 1
};

void write_tag_data(Writer& w, const ReportContent& c, const TagSeen& t, std::span<const OpResult> results = {});
// A whole RO_ACCESS_REPORT: the tags, then the accessed tags.
void write_report(std::string& out, uint32_t id, const ReportContent& c, std::span<const TagSeen> tags,
                  std::span<const AccessedTag> accessed = {});

}  // namespace uhfd::llrp
