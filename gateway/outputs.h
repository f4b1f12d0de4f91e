// The outputs, held together for main and the metrics: those that deliver
// from the outbox, and the LLRP endpoints.
#pragma once

#include <memory>

#include "llrp_server.h"
#include "mqtt_clients.h"
#include "outbox.h"
#include "webhook.h"

namespace uhfd {

struct Outputs {
    std::unique_ptr<Outbox> outbox;     // null when neither MQTT nor the webhook is configured
    std::unique_ptr<MqttClients> mqtt;  // null without MQTT
    std::unique_ptr<Webhook> webhook;
    std::unique_ptr<LlrpServer> llrp;   // null when no reader has an LLRP port
};

}  // namespace uhfd
