#include "reader_link.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "UHF.h"

namespace uhftools {

namespace {

constexpr uint8_t kStopInventory = 0x8C;
constexpr int kProbeMs = 1500;  // the same patience as one command exchange
const int kBauds[] = {300, 600, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400};

bool parse_number(const std::string& text, unsigned long hi, unsigned long& out) {
    if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos) return false;
    out = std::stoul(text);
    return out >= 1 && out <= hi;
}

bool parse_port(const std::string& text, int& port) {
    unsigned long v = 0;
    if (!parse_number(text, 65535, v)) return false;
    port = static_cast<int>(v);
    return true;
}

// Dotted quad for host: the library takes no names.
bool resolve_ipv4(const std::string& host, std::string& dotted) {
    in_addr a{};
    if (inet_pton(AF_INET, host.c_str(), &a) == 1) {
        dotted = host;
        return true;
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* res = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &res) != 0 || !res) return false;
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(res->ai_addr)->sin_addr, text, sizeof text);
    freeaddrinfo(res);
    dotted = text;
    return true;
}

std::string no_reply(const Target& t) {
    switch (t.kind) {
        case Target::Serial: return "no reply from " + t.label() + " within 1.5 s: check the port, baud rate and power";
        case Target::Usb: return "no reply from the USB reader within 1.5 s: unplug it and plug it in again";
        default: return "no reply from " + t.label() + " within 1.5 s: check address, port and power";
    }
}

// The library's connect() has no time limit of its own, so find out first
// whether anything listens there, with one.
bool probe_tcp(const Target& t, const std::string& dotted, std::string& err) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        err = std::string("cannot create a socket: ") + std::strerror(errno);
        return false;
    }
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(static_cast<uint16_t>(t.port));
    inet_pton(AF_INET, dotted.c_str(), &sa.sin_addr);
    int rc = connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa);
    int e = rc == 0 ? 0 : errno;
    if (e == EINPROGRESS) {
        pollfd p{fd, POLLOUT, 0};
        int n = poll(&p, 1, kProbeMs);
        if (n == 0) {
            e = ETIMEDOUT;
        } else if (n < 0) {
            e = errno;
        } else {
            socklen_t len = sizeof e;
            getsockopt(fd, SOL_SOCKET, SO_ERROR, &e, &len);
        }
    }
    close(fd);
    if (e == 0) return true;
    if (e == ETIMEDOUT)
        err = no_reply(t);
    else if (e == ECONNREFUSED)
        err = t.label() + " refused the connection: check the port, and that the reader's TCP server is on";
    else if (e == EINTR)
        err = "interrupted while connecting to " + t.label();
    else
        err = "cannot reach " + t.label() + ": " + std::strerror(e) + ": check address and network";
    return false;
}

// Something that speaks the protocol answers the version query; frames
// with other codes (a reader still streaming tags) count as an answer too.
bool reader_answers() {
    uint8_t version[16] = {};
    int rc = UHFGetHardwareVersion(version);
    return rc == 0 || rc == -4;
}

}  // namespace

std::string Target::label() const {
    switch (kind) {
        case Tcp: return "tcp " + host + ":" + std::to_string(port);
        case Serial: return "serial " + path + "@" + std::to_string(baud);
        case Usb: return "usb";
        case Sim: return "sim " + host + ":" + std::to_string(port);
    }
    return "?";
}

bool parse_tcp(const std::string& text, Target& out, std::string& err) {
    out = Target{};
    out.kind = Target::Tcp;
    auto colon = text.rfind(':');
    out.host = text.substr(0, colon);
    if (colon != std::string::npos && !parse_port(text.substr(colon + 1), out.port)) {
        err = "tcp " + text + ": the port must be 1..65535";
        return false;
    }
    if (out.host.empty() || out.host.size() > 63) {
        err = "tcp " + text + ": expected HOST[:PORT]";
        return false;
    }
    return true;
}

bool parse_serial(const std::string& text, Target& out, std::string& err) {
    out = Target{};
    out.kind = Target::Serial;
    auto at = text.rfind('@');
    out.path = text.substr(0, at);
    if (at != std::string::npos) {
        unsigned long v = 0;
        bool known = parse_number(text.substr(at + 1), 1000000, v);
        if (known) {
            known = false;
            for (int b : kBauds) known = known || b == static_cast<int>(v);
        }
        if (!known) {
            err = "serial " + text +
                  ": the baud rate must be one of 300 600 1200 2400 4800 9600 19200 38400 "
                  "57600 115200 230400";
            return false;
        }
        out.baud = static_cast<int>(v);
    }
    if (out.path.empty() || out.path.size() > 127) {
        err = "serial " + text + ": expected PATH[@BAUD]";
        return false;
    }
    return true;
}

bool parse_target(const std::string& text, Target& out, std::string& err) {
    if (text == "usb" || text == "sim") {
        out = Target{};
        out.kind = text == "usb" ? Target::Usb : Target::Sim;
        return true;
    }
    if (text.rfind("tcp:", 0) == 0) return parse_tcp(text.substr(4), out, err);
    if (text.rfind("serial:", 0) == 0) return parse_serial(text.substr(7), out, err);
    err = "\"" + text + "\": expected tcp:HOST[:PORT], serial:PATH[@BAUD], usb or sim";
    return false;
}

bool open_target(const Target& t, std::string& err) {
    switch (t.kind) {
        case Target::Tcp:
        case Target::Sim: {
            std::string dotted;
            if (!resolve_ipv4(t.host, dotted)) {
                err = t.label() + ": unknown host (give an IPv4 address or a name that resolves to one)";
                return false;
            }
            if (!probe_tcp(t, dotted, err)) return false;
            if (TCPConnect(dotted.c_str(), t.port) != 0) {
                err = "cannot connect to " + t.label();
                return false;
            }
            // A reader left inventorying by an earlier run would keep streaming.
            Vexa_Send(kStopInventory, nullptr, 0, LinkGetSelected());
            break;
        }
        case Target::Serial: {
            int fd = ::open(t.path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
            if (fd < 0) {
                err = "cannot open " + t.label() + ": " + std::strerror(errno);
                return false;
            }
            close(fd);
            if (ComOpenWithBaud(t.path.c_str(), t.baud) != 0) {
                err = "cannot set up " + t.label() + " (is it a serial port?)";
                return false;
            }
            break;
        }
        case Target::Usb:
            if (!UsbDeviceLinked()) {
                err =
                    "no USB reader (HID 2047:0301) is plugged in: check the cable, and the permissions on "
                    "/dev/hidraw* and /dev/bus/usb";
                return false;
            }
            if (UsbOpen() != 0) {
                err =
                    "found the USB reader but could not open it: check the permissions on /dev/hidraw*, and that "
                    "no other program holds it";
                return false;
            }
            break;
    }
    if (!reader_answers()) {
        err = no_reply(t);
        return false;
    }
    return true;
}

}  // namespace uhftools
