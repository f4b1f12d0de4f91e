#include "engine/dispatcher.h"

namespace uhfsim {

void Dispatcher::on(uint8_t code, std::string name, Handler fn) {
    plain_[code] = HandlerEntry{std::move(name), std::move(fn)};
}

void Dispatcher::on_sub(uint8_t code, uint8_t sub, std::string name, Handler fn) {
    sub_[static_cast<uint16_t>(code << 8 | sub)] = HandlerEntry{std::move(name), std::move(fn)};
}

void Dispatcher::on_frame(FrameKind kind, FrameHandler fn) { frames_[kind] = std::move(fn); }

const HandlerEntry* Dispatcher::find(uint8_t code, std::span<const uint8_t> data) const {
    if (!data.empty()) {
        auto it = sub_.find(static_cast<uint16_t>(code << 8 | data[0]));
        if (it != sub_.end()) return &it->second;
    }
    auto it = plain_.find(code);
    return it == plain_.end() ? nullptr : &it->second;
}

const FrameHandler* Dispatcher::find_frame(FrameKind kind) const {
    auto it = frames_.find(kind);
    return it == frames_.end() ? nullptr : &it->second;
}

}  // namespace uhfsim
