// hidapi and libusb_handle_events_timeout, faked. All state sits behind one
// mutex; a read waits on a condition variable for input instead of spinning.
#include "fake_hid.h"

#include <hidapi.h>
#include <libusb.h>
#include <string.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

struct hid_device_ {
    int serial;
};

namespace fakehid {
namespace {

constexpr size_t kReport = 64;

struct State {
    std::mutex mu;
    std::condition_variable input;
    std::vector<Entry> devices;
    bool open_fails = false;
    int write_error = 0;
    int read_error = 0;
    Counters count;
    std::vector<Written> writes;

    std::deque<Bytes> script;

    std::unique_ptr<uhfsim::Session> reader;
    std::deque<uint8_t> stream;  // reader output not yet put in reports
    size_t frame_left = 0;       // bytes of the current frame still to send
};

State& state() {
    static State s;
    return s;
}

template <class F>
auto locked(F&& fn) {
    std::lock_guard<std::mutex> lock(state().mu);
    return fn(state());
}

// The next report's worth of reader output: never more than what is left of
// the current frame, so each frame starts a report. Bytes that do not start
// a frame go out up to the next 0xA5.
size_t cut_report(State& s, uint8_t* out) {
    if (s.frame_left == 0) {
        if (s.stream.size() >= 2 && s.stream[0] == 0xA5 && s.stream[1] == 0x5A) {
            if (s.stream.size() < 4) return 0;
            s.frame_left = std::max<size_t>(size_t{s.stream[2]} << 8 | s.stream[3], 5);
        } else if (!s.stream.empty() && !(s.stream.size() == 1 && s.stream[0] == 0xA5)) {
            auto next = std::find(s.stream.begin() + 1, s.stream.end(), uint8_t{0xA5});
            s.frame_left = static_cast<size_t>(next - s.stream.begin());
        } else {
            return 0;
        }
    }
    size_t n = std::min({kReport, s.frame_left, s.stream.size()});
    // A frame still arriving waits until a full report (or its end) is there.
    if (n < std::min(kReport, s.frame_left)) return 0;
    std::copy_n(s.stream.begin(), n, out);
    s.stream.erase(s.stream.begin(), s.stream.begin() + static_cast<std::ptrdiff_t>(n));
    s.frame_left -= n;
    return n;
}

// One input report into data, or 0 when none is due yet.
int next_input(State& s, unsigned char* data, size_t length) {
    if (!s.reader) {
        if (s.script.empty()) return 0;
        Bytes r = std::move(s.script.front());
        s.script.pop_front();
        size_t n = std::min(r.size(), length);
        memcpy(data, r.data(), n);
        return static_cast<int>(n);
    }
    s.reader->service(Clock::now(), [&s](const uint8_t* p, size_t n) { s.stream.insert(s.stream.end(), p, p + n); });
    uint8_t report[kReport] = {};
    if (cut_report(s, report) == 0) return 0;
    size_t n = std::min(kReport, length);
    memcpy(data, report, n);
    return static_cast<int>(n);
}

}  // namespace

void reset() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    s.devices.clear();
    s.open_fails = false;
    s.write_error = 0;
    s.read_error = 0;
    // Live objects are the transport's to free; they stay counted.
    s.count = Counters{0, s.count.lists_live, s.count.devices_live};
    s.writes.clear();
    s.script.clear();
    s.reader.reset();
    s.stream.clear();
    s.frame_left = 0;
}

void set_devices(std::vector<Entry> list) {
    locked([&](State& s) { s.devices = std::move(list); });
}
void fail_open(bool on) {
    locked([&](State& s) { s.open_fails = on; });
}
void fail_writes(int error) {
    locked([&](State& s) { s.write_error = error; });
}
void unplug(int error) {
    locked([&](State& s) { s.read_error = error, s.input.notify_all(); });
}
void push_report(Bytes report) {
    locked([&](State& s) { s.script.push_back(std::move(report)), s.input.notify_all(); });
}
size_t reports_queued() {
    return locked([](State& s) { return s.script.size(); });
}
std::vector<Written> written() {
    return locked([](State& s) { return s.writes; });
}
Counters counters() {
    return locked([](State& s) { return s.count; });
}

void use_reader(const uhfsim::SimOptions& opts) {
    locked([&](State& s) {
        s.reader = std::make_unique<uhfsim::Session>(opts);
        s.stream.clear();
        s.frame_left = 0;
    });
}

void with_reader(const std::function<void(uhfsim::VirtualReader&)>& fn) {
    locked([&](State& s) {
        if (s.reader) fn(s.reader->reader());
    });
}

}  // namespace fakehid

using fakehid::state;
using fakehid::State;

extern "C" {

int hid_init(void) { return 0; }

int hid_exit(void) {
    return fakehid::locked([](State& s) { return s.count.exit++, 0; });
}

const struct hid_api_version* hid_version(void) {
    static const hid_api_version v{0, 13, 1};
    return &v;
}

struct hid_device_info* hid_enumerate(unsigned short vendor_id, unsigned short product_id) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    hid_device_info* head = nullptr;
    hid_device_info** tail = &head;
    for (const auto& e : s.devices) {
        auto* info = new hid_device_info{};
        info->path = strdup(e.path.c_str());
        info->vendor_id = vendor_id;
        info->product_id = product_id;
        info->usage_page = 0xFF00;
        info->usage = e.usage;
        *tail = info;
        tail = &info->next;
    }
    if (head != nullptr) s.count.lists_live++;
    return head;
}

void hid_free_enumeration(struct hid_device_info* devs) {
    if (devs != nullptr) fakehid::locked([](State& s) { s.count.lists_live--; });
    while (devs != nullptr) {
        hid_device_info* next = devs->next;
        free(devs->path);
        delete devs;
        devs = next;
    }
}

hid_device* hid_open_path(const char* path) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    if (s.open_fails || path == nullptr) return nullptr;
    if (std::none_of(s.devices.begin(), s.devices.end(), [&](const fakehid::Entry& e) { return e.path == path; }))
        return nullptr;
    s.count.devices_live++;
    return new hid_device{s.count.devices_live};
}

void hid_close(hid_device* dev) {
    if (dev != nullptr) fakehid::locked([](State& s) { s.count.devices_live--; });
    delete dev;
}

int hid_write(hid_device* dev, const unsigned char* data, size_t length) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    if (dev == nullptr || data == nullptr || length == 0) return -1;
    if (s.write_error != 0) return s.write_error;
    s.writes.push_back({fakehid::Bytes(data, data + length), fakehid::Clock::now()});
    // The device sees the report's data bytes, padding included.
    if (s.reader) {
        s.reader->receive(data + 1, length - 1, fakehid::Clock::now());
        s.input.notify_all();
    }
    return static_cast<int>(length);
}

int hid_read_timeout(hid_device* dev, unsigned char* data, size_t length, int milliseconds) {
    State& s = state();
    std::unique_lock<std::mutex> lock(s.mu);
    if (dev == nullptr || data == nullptr) return -1;
    auto deadline = fakehid::Clock::now() + std::chrono::milliseconds(milliseconds);
    for (;;) {
        if (s.read_error != 0) return s.read_error;
        int n = fakehid::next_input(s, data, length);
        if (n > 0) return n;
        auto now = fakehid::Clock::now();
        if (now >= deadline) return 0;
        auto wake = deadline;
        // A running inventory makes input due without any write.
        if (s.reader) {
            if (auto due = s.reader->next_deadline())
                wake = std::min(wake, std::max(*due, now + std::chrono::milliseconds(1)));
        }
        s.input.wait_until(lock, wake);
    }
}

int LIBUSB_CALL libusb_handle_events_timeout(libusb_context*, struct timeval*) { return 0; }

}  // extern "C"
