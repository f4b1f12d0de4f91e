// Naming a reader (tcp:HOST[:PORT], serial:PATH[@BAUD], usb, sim) and
// opening a link to it, with a message that says what to check when it fails.
#pragma once

#include <string>

namespace uhftools {

constexpr int kDefaultTcpPort = 8888;
constexpr int kDefaultBaud = 115200;

struct Target {
    enum Kind { Tcp, Serial, Usb, Sim } kind = Tcp;
    std::string host;  // tcp, and sim once its server runs
    int port = kDefaultTcpPort;
    std::string path;  // serial
    int baud = kDefaultBaud;

    std::string label() const;
};

// "HOST[:PORT]".
bool parse_tcp(const std::string& text, Target& out, std::string& err);
// "PATH[@BAUD]".
bool parse_serial(const std::string& text, Target& out, std::string& err);
// tcp:HOST[:PORT], serial:PATH[@BAUD], usb or sim.
bool parse_target(const std::string& text, Target& out, std::string& err);

// Opens a link to t (a Sim target goes by its host and port) and checks that
// a reader answers on it. True with the new link selected; false with err
// saying what failed.
bool open_target(const Target& t, std::string& err);

}  // namespace uhftools
