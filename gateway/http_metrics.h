// The Prometheus text of /metrics.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "events.h"
#include "mqtt_out.h"
#include "presence.h"
#include "sse_stream.h"
#include "supervisor.h"

namespace uhfd {

struct MetricSources {
    const Supervisor& sup;
    const Hub& hub;
    const Presence& presence;
    const std::vector<std::unique_ptr<MqttOut>>& mqtt;  // one per reader, by index; empty without MQTT
    const StreamClients& streams;
};

std::string metrics_text(const MetricSources& s);

}  // namespace uhfd
