// The REST API, the event stream, the metrics and the web page.
#pragma once

#include <memory>
#include <string>
#include <thread>

#include "config.h"
#include "events.h"
#include "supervisor.h"

namespace httplib {
class Server;
}

namespace uhfd {

class MqttOut;

class HttpApi {
public:
    HttpApi(const Config& c, Supervisor& s, Hub& hub, Presence& presence,
            const std::vector<std::unique_ptr<MqttOut>>& mqtt);
    ~HttpApi();
    bool start(std::string& err);
    void stop();
    int port() const { return port_; }

private:
    void routes();
    std::string metrics() const;

    const Config& c_;
    Supervisor& sup_;
    Hub& hub_;
    Presence& presence_;
    const std::vector<std::unique_ptr<MqttOut>>& mqtt_;
    std::unique_ptr<httplib::Server> srv_;
    std::thread thread_;
    int port_ = 0;
};

// The page served at "/", built from gateway/web/index.html.
extern const char* const kIndexHtml;

}  // namespace uhfd
