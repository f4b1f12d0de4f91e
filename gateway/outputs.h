// The outputs that deliver from the outbox, held together for main and the metrics.
#pragma once

#include <memory>
#include <vector>

#include "mqtt_out.h"
#include "outbox.h"
#include "webhook.h"

namespace uhfd {

struct Outputs {
    std::unique_ptr<Outbox> outbox;  // null when neither MQTT nor the webhook is configured
    std::vector<std::unique_ptr<MqttOut>> mqtt;  // one per reader, by index; empty without MQTT
    std::unique_ptr<Webhook> webhook;
};

}  // namespace uhfd
