// Command table: one handler per command code, or per (code, first data byte)
// where a code carries sub-commands. Families register themselves from their
// own files (handlers_<family>.cpp) through register_<family>().
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>

#include "engine/frame_codec.h"

namespace uhfsim {

class VirtualReader;

struct Request {
    uint8_t code = 0;
    std::span<const uint8_t> data;
};

// A handler answers (or not) through the reader and returns a short word for
// the verbose log: "ok", "no tag", "bad antenna", ...
using Handler = std::function<std::string(VirtualReader&, const Request&)>;
using FrameHandler = std::function<std::string(VirtualReader&, const Frame&)>;

struct HandlerEntry {
    std::string name;  // what the command means, for the log
    Handler fn;
};

class Dispatcher {
public:
    void on(uint8_t code, std::string name, Handler fn);
    void on_sub(uint8_t code, uint8_t sub, std::string name, Handler fn);
    // Packaged, plain and escaped frames go to one handler per form, if set.
    void on_frame(FrameKind kind, FrameHandler fn);

    // Sub-command entries win over a plain entry for the same code.
    const HandlerEntry* find(uint8_t code, std::span<const uint8_t> data) const;
    const FrameHandler* find_frame(FrameKind kind) const;

private:
    std::map<uint16_t, HandlerEntry> plain_;  // key: code
    std::map<uint16_t, HandlerEntry> sub_;    // key: code << 8 | sub
    std::map<FrameKind, FrameHandler> frames_;
};

// One line per family; the reader calls all of them.
void register_config(Dispatcher& d);
void register_device(Dispatcher& d);
void register_inventory(Dispatcher& d);
void register_rf_link(Dispatcher& d);
void register_gen2(Dispatcher& d);
void register_firmware(Dispatcher& d);
void register_network(Dispatcher& d);
void register_tag_memory(Dispatcher& d);
void register_tag_security(Dispatcher& d);
void register_qt(Dispatcher& d);
void register_sensor(Dispatcher& d);
void register_package(Dispatcher& d);

inline void register_all(Dispatcher& d) {
    register_config(d);
    register_device(d);
    register_inventory(d);
    register_rf_link(d);
    register_gen2(d);
    register_firmware(d);
    register_network(d);
    register_tag_memory(d);
    register_tag_security(d);
    register_qt(d);
    register_sensor(d);
    register_package(d);
}

}  // namespace uhfsim
