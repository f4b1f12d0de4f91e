// The outputs that deliver from the outbox, held together for main and the metrics.
#pragma once

#include <memory>

#include "mqtt_clients.h"
#include "outbox.h"
#include "webhook.h"

namespace uhfd {

struct Outputs {
    std::unique_ptr<Outbox> outbox;     // null when neither MQTT nor the webhook is configured
    std::unique_ptr<MqttClients> mqtt;  // null without MQTT
    std::unique_ptr<Webhook> webhook;
};

}  // namespace uhfd
