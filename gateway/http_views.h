// The JSON the REST API answers with: a reader's view and the tags present.
#pragma once

#include <nlohmann/json.hpp>

#include "events.h"
#include "presence.h"
#include "supervisor.h"

namespace uhfd {

// {"name","uri","state","reads","reads_per_s","reconnects","error"?}
nlohmann::json view_json(const ReaderView& v);
// [{"reader","epc","antenna","reads","rssi_peak","rssi_mean","first_seen","last_seen"}], times in Unix seconds.
nlohmann::json tags_json(const std::vector<PresentTag>& tags, const Hub& hub);

}  // namespace uhfd
