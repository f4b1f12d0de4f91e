// USB HID transport: one reader per process, found by its ids through hidapi
// (libusb back end). Frames go out as 64-byte reports; one receive thread
// reads reports, cuts frames out of them, hands the latest frame to the
// exchange (recv_buf/recv_len) and every frame to the data callback.
#include <errno.h>
#include <hidapi.h>
#include <libusb.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>

#include "form_utils.h"
#include "frame_size.h"
#include "globe_var.h"
#include "log.h"
#include "terminal.h"
#include "usb_transport.h"

using namespace uhf;

hid_device* handle = nullptr;
unsigned char usb_initial = 0;
char cur_usb_path[256];
pthread_t thread_id;
int usb_running = 0;
uint8_t usb_event_buf[8192];
uint16_t usb_event_buf_len = 0;
uint8_t recv_buf[4096];
uint16_t recv_len = 0;

namespace {

constexpr unsigned short kVendorId = 0x2047;
constexpr unsigned short kProductId = 0x0301;
constexpr unsigned short kReaderUsage = 1;
constexpr unsigned kReportData = 64;  // data bytes per report; report id 0 goes in front
constexpr int kReadTimeoutMs = 50;
constexpr unsigned kAccumulated = kUsbAccumulated;
constexpr useconds_t kChunkGapUs = 2000;
constexpr useconds_t kIdleSleepUs = 20000;
constexpr int kDisconnected = 2;

// Lifetime of the device and of hidapi's library state. Reads, writes and the
// event pump hold it shared; opening over, and closing, the device hold it
// exclusively, so nothing is freed under a call in flight.
std::shared_mutex g_device;

// The frame hand-over from the receive thread to usbRecv.
std::mutex g_handover;
std::condition_variable g_frame_ready;

// Who owns the receive thread. thread_id names the thread the transport will
// reap (0: none); g_owned_done tells that it has left. A thread that finds it
// is no longer thread_id (usbClose dropped it) stops and detaches itself.
std::mutex g_owner;
std::condition_variable g_thread_left;
bool g_owned_done = false;
int g_threads_alive = 0;  // receive threads started and not yet returned
thread_local bool t_receive_thread = false;

bool owned_by_caller() {
    std::lock_guard<std::mutex> lock(g_owner);
    return thread_id != 0 && pthread_equal(thread_id, pthread_self());
}

int running_flag() { return __atomic_load_n(&usb_running, __ATOMIC_ACQUIRE); }
void set_running_flag(int v) { __atomic_store_n(&usb_running, v, __ATOMIC_RELEASE); }

void init_once() {
    if (usb_initial != 0) return;
    int r = hid_init();
    UHF_LOG(kLogUsb, "hid initial:%d", r);
    if (r == 0) usb_initial = 1;
}

// The interface to open: usage 1 in the first entry, else in the second.
// Only those two are looked at; a longer list without one is no reader.
const hid_device_info* reader_interface(const hid_device_info* list) {
    if (list->usage == kReaderUsage) return list;
    if (list->next != nullptr && list->next->usage == kReaderUsage) return list->next;
    return nullptr;
}

// Put dev in place of the current device; a device opened before is closed,
// since its receive thread reads through the global handle anyway.
void install_device(hid_device* dev) {
    std::unique_lock<std::shared_mutex> lock(g_device);
    if (handle != nullptr) hid_close(handle);
    handle = dev;
}

// One input report appended to buf; the caller holds g_device.
int read_report(unsigned char* buf, unsigned int buf_len) {
    if (handle == nullptr) return -1;
    if (buf == nullptr || buf_len < kReportData) return 0;
    unsigned char report[kReportData];
    int n = hid_read_timeout(handle, report, sizeof report, kReadTimeoutMs);
    if (n <= 0) return n;
    unsigned take = std::min({static_cast<unsigned>(n), buf_len, kReportData});
    memcpy(buf, report, take);
    return static_cast<int>(take);
}

// Opening again without a close: the receive thread still known is told to
// stop and joined. usb_running stays 0 afterwards, so the thread started next
// ends at once; that quirk of the interface is kept on purpose.
void retire_known_thread() {
    pthread_t old;
    {
        std::lock_guard<std::mutex> lock(g_owner);
        old = thread_id;
        if (old == 0) return;
        if (pthread_equal(old, pthread_self())) {
            // Reopened from the disconnect callback: a thread cannot join
            // itself, so it lets go and detaches on its way out.
            thread_id = 0;
            return;
        }
    }
    UHF_LOG(kLogUsb, "delete thread");
    int probe = pthread_kill(old, 0);
    if (probe != ESRCH && probe != EINVAL) {
        set_running_flag(0);
        pthread_join(old, nullptr);
        UHF_LOG(kLogUsb, "  finish receive thread!\n");
    } else {
        pthread_join(old, nullptr);  // already gone: only reap it
    }
    std::lock_guard<std::mutex> lock(g_owner);
    thread_id = 0;
    g_owned_done = false;
}

void* receiver_entry(void*) {
    t_receive_thread = true;
    thread_usb_recv(nullptr);
    std::lock_guard<std::mutex> lock(g_owner);
    if (thread_id != 0 && pthread_equal(thread_id, pthread_self()))
        g_owned_done = true;  // reaped by the next open or close
    else
        pthread_detach(pthread_self());  // dropped by usbClose: nobody joins it
    g_threads_alive--;
    g_thread_left.notify_all();
    return nullptr;
}

int start_receiver() {
    {
        // A thread that usbClose let go may still be finishing its last pass
        // over the buffers below; it is gone within one pass. (Reopened from
        // the disconnect callback, the calling thread is one of them.)
        std::unique_lock<std::mutex> lock(g_owner);
        const int self = t_receive_thread ? 1 : 0;
        g_thread_left.wait_for(lock, std::chrono::seconds(2), [self] { return g_threads_alive <= self; });
    }
    // A new session starts from empty buffers: a half frame or an unread
    // reply of an earlier device is not this device's.
    usb_event_buf_len = 0;
    {
        std::lock_guard<std::mutex> lock(g_handover);
        __atomic_store_n(&recv_len, 0, __ATOMIC_RELEASE);
    }
    UHF_LOG(kLogUsb, "create thread");
    std::lock_guard<std::mutex> lock(g_owner);
    pthread_t tid;
    if (pthread_create(&tid, nullptr, receiver_entry, nullptr) != 0) {
        UHF_LOG(kLogUsb, "  create usb receive thread error!\n");
        return -1;
    }
    thread_id = tid;
    g_owned_done = false;
    g_threads_alive++;
    UHF_LOG(kLogUsb, "create thread complete");
    return 0;
}

// Cut the first complete frame out of the reassembly buffer: it becomes the
// frame waiting for usbRecv and goes to the data callback. Everything else
// in the buffer, before or after it, is dropped.
void take_frame() {
    long at = searchPack(usb_event_buf, usb_event_buf_len);
    if (at < 0) {
        // Nothing whole yet: skip what cannot start a frame, so garbage or a
        // start with a false length never fills the buffer for good.
        size_t resume = 0;
        at = frame_resync(usb_event_buf, usb_event_buf_len, &resume);
        if (at < 0) {
            usb_event_buf_len = static_cast<uint16_t>(usb_event_buf_len - resume);
            memmove(usb_event_buf, usb_event_buf + resume, usb_event_buf_len);
            return;
        }
    }
    uint8_t* f = usb_event_buf + at;
    uint16_t flen = static_cast<uint16_t>(f[2] << 8 | f[3]);
    uint8_t cmd = f[4];
    {
        std::lock_guard<std::mutex> lock(g_handover);
        memcpy(recv_buf, f, flen);
        __atomic_store_n(&recv_len, flen, __ATOMIC_RELEASE);
    }
    g_frame_ready.notify_all();
    if (log_on(kLogUsb)) {
        my_printf("get valid packet:%d\n", flen);
        display_buffer_hex(recv_buf, flen);
    }
    usb_event_buf_len = 0;
    // The cells point into the reassembly buffer rather than recv_buf: a TID
    // cell may claim bytes past a frame that ends the 4096-byte recv_buf,
    // and usb_event_buf has room behind its 4096 bytes in use.
    CallReceviedEvent(cmd, f + 5, static_cast<uint16_t>(flen - 8));
}

// The disconnect callback of the selected link, unless usbClose dropped this
// thread: a link being released is not a link that was lost.
void (*disconnect_callback_for_exit())(int) {
    std::lock_guard<std::mutex> lock(g_owner);
    if (thread_id == 0 || !pthread_equal(thread_id, pthread_self())) return nullptr;
    int sel = __atomic_load_n(&cur_index, __ATOMIC_ACQUIRE);
    if (sel < 0 || sel >= MAX_TERMINALS) return nullptr;
    return __atomic_load_n(&my_terminals[sel].disconnect_callback, __ATOMIC_ACQUIRE);
}

}  // namespace

int uhf::usb_receive_threads() {
    std::lock_guard<std::mutex> lock(g_owner);
    return g_threads_alive;
}

int usbOpen(void) {
    memset(cur_usb_path, 0, sizeof cur_usb_path);
    init_once();
    if (const hid_api_version* v = hid_version())
        UHF_LOG(kLogUsb, "hid version:%d_%d_%d", v->major, v->minor, v->patch);

    hid_device_info* list = hid_enumerate(kVendorId, kProductId);
    if (list == nullptr) {
        UHF_LOG(kLogUsb, "get hid device info error!");
        return -1;
    }
    int result = 0;
    const hid_device_info* entry = reader_interface(list);
    UHF_LOG(kLogUsb, "usb path:%s", entry != nullptr && entry->path != nullptr ? entry->path : "");
    if (entry == nullptr || entry->path == nullptr) {
        UHF_LOG(kLogUsb, "no valid path!");
        result = -2;
    } else {
        strncpy(cur_usb_path, entry->path, sizeof cur_usb_path - 1);
        hid_device* dev = hid_open_path(entry->path);
        if (dev == nullptr) {
            UHF_LOG(kLogUsb, "hid device open error!");
            result = -3;
        } else {
            install_device(dev);
        }
    }
    if (result == 0) {
        set_running_flag(1);
        retire_known_thread();
        result = start_receiver();
    }
    hid_free_enumeration(list);
    return result;
}

void usbClose(void) {
    set_running_flag(0);
    {
        // The receive thread is not waited for: it leaves at its next loop
        // check. One that has already left is reaped here.
        std::lock_guard<std::mutex> lock(g_owner);
        if (thread_id != 0 && g_owned_done) {
            pthread_join(thread_id, nullptr);
            UHF_LOG(kLogUsb, "  finish receive thread!\n");
        }
        thread_id = 0;
        g_owned_done = false;
    }
    {
        std::unique_lock<std::shared_mutex> lock(g_device);
        if (handle != nullptr) hid_close(handle);
        hid_exit();
        handle = nullptr;
    }
    usb_initial = 0;
}

int usbSend(const unsigned char* buf, unsigned int buf_len) {
    std::shared_lock<std::shared_mutex> lock(g_device);
    if (handle == nullptr || (buf == nullptr && buf_len > 0)) return -1;
    unsigned char report[kReportData + 1];
    for (unsigned off = 0; off < buf_len; off += kReportData) {
        if (off > 0) usleep(kChunkGapUs);
        unsigned n = std::min(kReportData, buf_len - off);
        report[0] = 0;  // report id
        memcpy(report + 1, buf + off, n);
        memset(report + 1 + n, 0, kReportData - n);
        int r = hid_write(handle, report, sizeof report);
        if (r < 0) return r;
    }
    return static_cast<int>(std::min(buf_len, 0x7FFFFFFFu));
}

int usbRecvSingle(unsigned char* buf, unsigned int buf_len) {
    std::shared_lock<std::shared_mutex> lock(g_device);
    return read_report(buf, buf_len);
}

int usbRecv(unsigned char* inBuf, uint16_t len) {
    {
        std::shared_lock<std::shared_mutex> lock(g_device);
        if (handle == nullptr) return -3;
    }
    if (inBuf == nullptr) return -1;
    std::unique_lock<std::mutex> lock(g_handover);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kReadTimeoutMs);
    bool got =
        g_frame_ready.wait_until(lock, deadline, [] { return __atomic_load_n(&recv_len, __ATOMIC_ACQUIRE) != 0; });
    if (!got) return 0;
    uint16_t n = std::min(len, recv_len);
    memcpy(inBuf, recv_buf, n);
    // One frame per call; the rest of a frame longer than len is gone.
    __atomic_store_n(&recv_len, 0, __ATOMIC_RELEASE);
    return n;
}

void uhf::usb_reassemble(int n) {
    usb_event_buf_len = static_cast<uint16_t>(usb_event_buf_len + n);
    if (log_on(kLogUsb)) {
        my_printf("recv length:%d\n", n);
        display_buffer_hex(usb_event_buf, usb_event_buf_len);
    }
    take_frame();
}

int uhf::usb_discard_frame() {
    std::lock_guard<std::mutex> lock(g_handover);
    int n = __atomic_exchange_n(&recv_len, 0, __ATOMIC_ACQ_REL);
    return n;
}

void* thread_usb_recv(void*) {
    {
        std::shared_lock<std::shared_mutex> lock(g_device);
        if (handle == nullptr) {
            UHF_LOG(kLogUsb, "  start usb receive thread failure! \n");
            return nullptr;
        }
    }
    UHF_LOG(kLogUsb, "  start usb receive thread!\n");
    while (running_flag() != 0 && owned_by_caller()) {
        if (usb_event_buf_len > kAccumulated) usb_event_buf_len = 0;
        int n;
        {
            std::shared_lock<std::shared_mutex> lock(g_device);
            timeval tv{0, 100000};
            libusb_handle_events_timeout(nullptr, &tv);
            // What is held is at most one frame still arriving (4096 bytes),
            // so a whole report always fits behind it.
            n = read_report(usb_event_buf + usb_event_buf_len, sizeof usb_event_buf - usb_event_buf_len);
        }
        if (n < 0) {
            UHF_LOG(kLogUsb, "receive failue:%d\n", n);
            UHF_LOG(kLogUsb, "libusb_reset_device\n");
            break;
        }
        if (n > 0) {
            usb_reassemble(n);
            continue;
        }
        usleep(kIdleSleepUs);
    }
    if (void (*cb)(int) = disconnect_callback_for_exit()) cb(kDisconnected);
    UHF_LOG(kLogUsb, "  end receive thread!\n");
    return nullptr;
}

int getUsbDeviceLinked(void) {
    init_once();
    hid_device_info* list = hid_enumerate(kVendorId, kProductId);
    if (list == nullptr) return 0;
    hid_free_enumeration(list);
    return 1;
}
