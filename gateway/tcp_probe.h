// Whether a TCP port answers, within a time limit and interruptible. The MQTT
// client's own connect blocks without a limit (a host that drops packets
// holds it for minutes), so it goes only to a broker that has just answered.
#pragma once

#include <string>

namespace uhfd {

// True when host:port accepts a connection within timeout_ms; false with why,
// or at once when wake_fd becomes readable (stop).
bool tcp_answers(const std::string& host, int port, int timeout_ms, int wake_fd, std::string& why);

}  // namespace uhfd
