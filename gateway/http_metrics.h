// The Prometheus text of /metrics.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "events.h"
#include "outputs.h"
#include "presence.h"
#include "sse_stream.h"
#include "supervisor.h"

namespace uhfd {

struct MetricSources {
    const Supervisor& sup;
    const Hub& hub;
    const Presence& presence;
    const Outputs& outputs;
    const StreamClients& streams;
};

std::string metrics_text(const MetricSources& s);

}  // namespace uhfd
