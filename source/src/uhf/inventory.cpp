// Continuous inventory: start, the per-link receive thread that cuts tag
// reports out of the byte stream into the tag record queue, the stop
// handshake, and the three fetch calls that unpack one queued report.
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <stdint.h>
#include <string.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include "UHF.h"
#include "frame_size.h"
#include "log.h"
#include "transport.h"
#include "uhf/inventory.h"

using namespace uhf;

namespace {

constexpr uint8_t kStartInventory = 0x82;
constexpr uint8_t kStopInventory = 0x8C;
constexpr uint8_t kStopReply = 0x8D;
constexpr uint8_t kReport = 0x83;
constexpr uint8_t kSensorReport = 0x7F;
constexpr uint8_t kBatchPoll = 0xEB;
constexpr uint8_t kBatch = 0xEC;
// A polled link pauses this long after a poll that brought nothing.
constexpr useconds_t kEmptyPollPauseUs = 10000;
constexpr useconds_t kPollGapUs = 2000;
// A streaming link sleeps in poll until input or a stop arrives; the
// time-out only bounds how long a lost wake-up could go unnoticed.
constexpr int kIdleWaitMs = 1000;
// Reads stay below 4096 bytes: a larger read would be thrown away whole,
// and with it every report it carried.
constexpr size_t kMaxRead = 4095;

// Flags shared between the receive thread and the application's thread.
unsigned char running(int index) { return __atomic_load_n(&my_terminals[index].recv_task_running, __ATOMIC_ACQUIRE); }
void set_running(int index, unsigned char v) {
    __atomic_store_n(&my_terminals[index].recv_task_running, v, __ATOMIC_RELEASE);
}
void set_closing(uint8_t v) { __atomic_store_n(&closeingflag, v, __ATOMIC_RELEASE); }
uint8_t closing() { return __atomic_load_n(&closeingflag, __ATOMIC_ACQUIRE); }

// Receive threads alive per slot; a released slot waits for its threads to
// leave before its descriptor is closed and it is wiped.
int g_threads_alive[MAX_TERMINALS];
// Counts receive threads that have emptied the queue; UHFInventory waits for
// its thread to do so, so no report of an earlier run is taken for a new one.
unsigned g_threads_started = 0;

// Each start bumps its slot's generation; a thread that sees a newer one than
// its own has been replaced and leaves, even if the flag says run.
unsigned g_generation[MAX_TERMINALS];

// A thread is counted alive from before its creation (so a start right after
// a stop sees it) until it returns.
struct AliveGuard {
    int index;
    explicit AliveGuard(int i) : index(i) {}
    ~AliveGuard() { __atomic_sub_fetch(&g_threads_alive[index], 1, __ATOMIC_ACQ_REL); }
};

// Per slot: an eventfd that wakes the receive thread to stop. Made once per
// slot on the application's thread and kept for the life of the process.
int g_wake[MAX_TERMINALS];
bool g_wake_made[MAX_TERMINALS];

void make_wake(int index) {
    if (g_wake_made[index]) return;
    g_wake[index] = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    g_wake_made[index] = g_wake[index] >= 0;
}

void wake(int index) {
    if (!g_wake_made[index]) return;
    uint64_t one = 1;
    ssize_t r = write(g_wake[index], &one, sizeof one);
    (void)r;  // a full counter already wakes the thread
}

// Takes a wake-up off the slot's eventfd, so the next wait sleeps again.
void drain_wake(int index) {
    uint64_t count;
    ssize_t r = read(g_wake[index], &count, sizeof count);
    (void)r;
}

int threads_alive(int index) { return __atomic_load_n(&g_threads_alive[index], __ATOMIC_ACQUIRE); }

// Bounded wait for the slot's receive threads to leave.
void wait_threads_gone(int index, int ms) {
    for (int i = 0; i < ms && threads_alive(index) > 0; i++) usleep(1000);
}

// Stop the slot's receive threads and wait, bounded, until they have left the
// link. A thread raises its own flag once it runs, so one that had not yet
// done so when told to stop is told again.
void stop_threads(int index, int ms) {
    for (int i = 0; i < ms && threads_alive(index) > 0; i++) {
        if (running(index) != 0) {
            set_running(index, 0);
            wake(index);
        }
        usleep(1000);
    }
}

// A pass of a receive thread lasts one read, one USB poll or a 10 ms pause.
constexpr int kThreadLeaveMs = 500;

// The UII (PC + EPC) length in bytes, from the PC's EPC-length field.
uint16_t uii_len(const uint8_t* report) { return static_cast<uint16_t>(((report[0] >> 3) + 1) * 2); }

// The reader reports RSSI in 0.1 dBm; anything outside -25.0..-120.0 dBm is
// not a real read.
bool rssi_ok(uint16_t raw) {
    uint16_t neg = static_cast<uint16_t>(-static_cast<int16_t>(raw));
    return neg >= 250 && neg <= 1200;
}

// Queue every frame found in buf[0, len); returns where the last frame taken
// ends (len after a stop reply), 0 when none was, and adds the frames taken
// to *frames.
size_t consume_frames(const uint8_t* buf, size_t len, int index, size_t* frames = nullptr) {
    size_t parse = 0;
    while (parse < len) {
        int off = searchPack(buf + parse, static_cast<int>(len - parse));
        if (off < 0) break;
        const uint8_t* f = buf + parse + off;
        uint16_t flen = static_cast<uint16_t>(f[2] << 8 | f[3]);
        uint8_t cmd = f[4];
        const uint8_t* data = f + 5;
        uint16_t dlen = static_cast<uint16_t>(flen - 8);
        if (log_on(kLogBase)) {
            my_printf("recv valid pack:%d,start:%d", flen, static_cast<int>(parse + off));
            display_buffer_hex(f, flen);
        }
        parse += static_cast<size_t>(off) + flen;
        if (frames != nullptr) ++*frames;
        if (cmd == kBatch) {
            spliteTagData(data, dlen, index);
        } else if ((cmd == kReport || cmd == kSensorReport) && dlen > 3) {
            addTagData(cmd == kReport ? NORMAL_INVENTORY : SENSOR_INVENTORY, data, dlen, index);
        } else if (cmd == kStopReply) {
            set_closing(1);
            return len;  // whatever follows the stop reply goes with the buffer, a frame begun there too
        }
    }
    return parse;
}

// Could p[0, n) be the start of a frame still arriving? The same start bytes
// and length bounds as the frame search.
bool frame_prefix(const uint8_t* p, size_t n) {
    if (n == 0 || (p[0] != 0xA5 && p[0] != 0xC8)) return false;
    if (n >= 2 && p[1] != 0x5A && p[1] != 0x8C) return false;
    if (n < 4) return true;
    unsigned flen = static_cast<unsigned>(p[2] << 8 | p[3]);
    return flen >= 8 && flen <= 4096 && n < flen;
}

// What one read on a streaming link did.
struct StreamRead {
    int got = 0;          // the read's result
    size_t frames = 0;    // whole frames it completed
    bool filled = false;  // it took all the room it had: more is likely waiting
};

// One read on a link that streams, straight into buf after the bytes held.
// The start of a frame that the read ends inside is kept for the next read,
// so a healthy stream loses nothing at read boundaries; the rule that drops
// a trailing partial frame still applies to a stream that really broke off
// inside a frame.
StreamRead read_stream(int index, uint8_t* buf, size_t cap, size_t& held) {
    StreamRead r;
    if (held > 4096) held = 0;
    size_t room = cap - held;
    if (room > kMaxRead) room = kMaxRead;
    r.got = recv_bytes(buf + held, static_cast<uint16_t>(room), index);
    UHF_LOG(kLogBase, "thread %d is runnning, recv2:%d", index, r.got);
    if (r.got < 1 || r.got > static_cast<int>(kMaxRead)) return r;
    r.filled = r.got == static_cast<int>(room);
    size_t total = held + static_cast<size_t>(r.got);
    size_t end = consume_frames(buf, total, index, &r.frames);
    if (end == 0) {
        held = total;  // no frame yet: keep the bytes and read more
    } else if (frame_prefix(buf + end, total - end)) {
        held = total - end;
        memmove(buf, buf + end, held);
    } else {
        held = 0;  // the stream really broke off inside a frame
    }
    return r;
}

// Wake-ups cost more than the reads they make, so reports that arrive close
// together are gathered: a read that follows the previous one within
// kGatherUs starts a run in which each read is followed by a pause of that
// length, for the next few reports to come in, and then a read without a
// poll. The run goes on while each such read brings two frames or more (a
// wake-up saved); otherwise it is back to poll, which reads a report the
// moment it arrives, so a slower line sees no added latency.
// An application that asked for a hold (UHF_SetReceiveHold) pauses that
// long after every read that brought data, for as long as reads bring data.
constexpr useconds_t kGatherUs = 500;
constexpr unsigned kMaxHoldUs = 50000;
unsigned g_hold_us = 0;

uint64_t now_ns() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

struct Gatherer {
    uint64_t last_read_ns = 0;
    bool gathering = false;

    // After a read that brought data: how long to pause before the next
    // one (0: none, back to poll).
    useconds_t pause_after(const StreamRead& r) {
        const unsigned hold = __atomic_load_n(&g_hold_us, __ATOMIC_RELAXED);
        if (hold > 0) return gathering = true, hold;
        const uint64_t now = now_ns();
        gathering = gathering ? r.frames >= 2 : now - last_read_ns < kGatherUs * 1000u;
        last_read_ns = now;
        return gathering ? kGatherUs : 0;
    }
};

// A pause that a stop cuts short.
void pause_for(int index, useconds_t us) {
    if (us <= kGatherUs || !g_wake_made[index]) {
        usleep(us);
        return;
    }
    pollfd stop{g_wake[index], POLLIN, 0};
    const timespec limit{0, static_cast<long>(us) * 1000};
    if (ppoll(&stop, 1, &limit, nullptr) > 0) drain_wake(index);
}

// Reading at the application's pace. While the application fetches (a
// fetch within kFetchingNs), a fetch that finds the queue empty reads the
// streaming links itself, and their receive threads look in only every
// kFetchPaceUs instead of waking for each report: a report reaches the
// application at its next fetch, as it would have anyway, and the wake-ups
// are mostly the application's own. When the fetches stop, the threads read
// each report as it arrives again. A hold (UHF_SetReceiveHold) asks for
// reports in groups at its pace instead: then fetches never read.
constexpr uint64_t kFetchingNs = 100000000;
constexpr useconds_t kFetchPaceUs = 50000;
uint64_t g_last_fetch_ns = 0;

bool app_fetching() {
    return __atomic_load_n(&g_hold_us, __ATOMIC_RELAXED) == 0 &&
           now_ns() - __atomic_load_n(&g_last_fetch_ns, __ATOMIC_RELAXED) < kFetchingNs;
}

// A link's read buffer, with the start of a frame a read ended inside. The
// receive thread and the fetches take turns under mu; a fetch only tries.
// open: threads streaming from the link (a thread that replaces another
// may start before that one has left); while any does, a fetch may read it.
struct Stream {
    pthread_mutex_t mu = PTHREAD_MUTEX_INITIALIZER;
    uint8_t buf[8192];
    size_t held = 0;
    int open = 0;
    bool readable() const { return __atomic_load_n(&open, __ATOMIC_ACQUIRE) > 0; }
};
Stream g_stream[MAX_TERMINALS];

// Opened by its thread and closed by it before it leaves: a fetch that got
// in first finishes its read before the slot can be released.
struct StreamOpen {
    Stream& s;
    const bool counted;
    StreamOpen(Stream& st, bool fetch_may_read) : s(st), counted(fetch_may_read) {
        pthread_mutex_lock(&s.mu);
        s.held = 0;
        pthread_mutex_unlock(&s.mu);
        if (counted) __atomic_add_fetch(&s.open, 1, __ATOMIC_ACQ_REL);
    }
    ~StreamOpen() {
        if (!counted) return;
        __atomic_sub_fetch(&s.open, 1, __ATOMIC_ACQ_REL);
        pthread_mutex_lock(&s.mu);
        pthread_mutex_unlock(&s.mu);
    }
};

// From a fetch that found the queue empty: one read of each open link whose
// thread is not reading it right now.
void read_for_fetch() {
    if (__atomic_load_n(&g_hold_us, __ATOMIC_RELAXED) > 0) return;  // groups at the hold's pace were asked for
    __atomic_store_n(&g_last_fetch_ns, now_ns(), __ATOMIC_RELAXED);
    for (int i = 0; i < MAX_TERMINALS; i++) {
        Stream& s = g_stream[i];
        if (!s.readable() || pthread_mutex_trylock(&s.mu) != 0) continue;
        if (s.readable()) read_stream(i, s.buf, sizeof s.buf, s.held);
        pthread_mutex_unlock(&s.mu);
    }
}

// The next record of the queue; an empty queue is first refilled from the
// links when the application reads them itself.
uint16_t take_record(uint8_t* rec, uint16_t cap) {
    const uint16_t r = getTagData(rec, cap);
    if (r != 0) return r;
    read_for_fetch();
    return getTagData(rec, cap);
}

// A peer that hung up, or a read error other than "nothing yet".
bool link_lost(int n) { return n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR); }

// Until told to stop, or replaced by a newer thread on its slot.
bool should_run(int index, unsigned generation) {
    return running(index) && __atomic_load_n(&g_generation[index], __ATOMIC_ACQUIRE) == generation;
}

// Reads while input keeps coming, from a poll that said the link is
// readable. Returns false when the link hung up. Only the read right after
// the poll can tell: a serial read finds nothing and a lost link alike.
bool read_burst(int index, unsigned generation, Stream& s, bool paced, Gatherer& gather) {
    for (bool after_poll = true;; after_poll = false) {
        pthread_mutex_lock(&s.mu);
        const StreamRead r = read_stream(index, s.buf, sizeof s.buf, s.held);
        pthread_mutex_unlock(&s.mu);
        if (r.got < 1) {
            gather.gathering = false;
            return !(after_poll && link_lost(r.got));
        }
        if (!r.filled) {
            const useconds_t pause = paced ? 0 : gather.pause_after(r);
            if (pause == 0) return true;
            pause_for(index, pause);
        }
        if (!should_run(index, generation)) return true;
    }
}

}  // namespace

void* Uhf_GetR2000UartData(void* arg) {
    int index = static_cast<int>(reinterpret_cast<intptr_t>(arg));
    initTagQueue();
    set_closing(0);
    __atomic_add_fetch(&g_threads_started, 1, __ATOMIC_RELEASE);
    UHF_LOG(kLogBase, "**start receive data,index:%d", index);
    if (!slot_ok(index)) {
        UHF_LOG(kLogBase, "the link is invalid");
        return nullptr;
    }
    AliveGuard alive(index);
    const unsigned generation = __atomic_load_n(&g_generation[index], __ATOMIC_ACQUIRE);
    // Kept for the whole run: a release may zero the slot under the thread.
    const Backend* link = backend_of(index);
    if (link == nullptr) {
        UHF_LOG(kLogBase, "the link is invalid");
        return nullptr;
    }
    set_running(index, 1);
    uint8_t buf[kMaxRead + 1];
    bool hung_up = false;
    Gatherer gather;
    const int fd = link->descriptor(my_terminals[index]);
    // TCP only, where reports come fastest; a serial line keeps its thread's reads.
    StreamOpen stream(g_stream[index], link == &kTcpBackend);
    while (should_run(index, generation)) {
        if (link->polled) {
            // Reports are asked for: a poll, one frame back, and a pause
            // only when the poll brought nothing.
            usleep(kPollGapUs);
            if (Vexa_Send(kBatchPoll, nullptr, 0, index) != 0) return nullptr;
            int n = recv_bytes(buf, static_cast<uint16_t>(kMaxRead), index);
            UHF_LOG(kLogBase, "thread %d is runnning, recv2:%d", index, n);
            if (n < 1 || n > static_cast<int>(kMaxRead)) {
                usleep(kEmptyPollPauseUs);
                continue;
            }
            consume_frames(buf, static_cast<size_t>(n), index);
            continue;
        }
        // Sleep until the link has input or a stop arrives. A peer that hung
        // up leaves only the stop to wait for.
        // While the application fetches, it reads the link: look in at a pace.
        const bool paced = stream.counted && !hung_up && app_fetching();
        if (paced) pause_for(index, kFetchPaceUs);
        pollfd fds[2] = {{hung_up ? -1 : fd, POLLIN, 0}, {g_wake[index], POLLIN, 0}};
        if (poll(fds, 2, paced ? 0 : kIdleWaitMs) <= 0) continue;
        if (fds[1].revents & POLLIN) drain_wake(index);
        if (!(fds[0].revents & (POLLIN | POLLHUP | POLLERR))) continue;
        if (!read_burst(index, generation, stream.s, paced, gather)) {
            UHF_LOG(kLogBase, "thread %d: the link hung up", index);
            hung_up = true;
        }
    }
    return nullptr;
}

unsigned UHF_SetReceiveHold(unsigned microseconds) {
    return __atomic_exchange_n(&g_hold_us, microseconds < kMaxHoldUs ? microseconds : kMaxHoldUs, __ATOMIC_RELAXED);
}

int uhf::inventory_threads(int index) { return slot_ok(index) ? threads_alive(index) : 0; }

void uhf::inventory_quiesce(int index) {
    if (!slot_ok(index)) return;
    stop_threads(index, kThreadLeaveMs);
}

int Creat_R2000Thread(int index) {
    UHF_LOG(kLogBase, "Create pthread id:%d", index);
    // One receive thread per link: the previous one (told to stop) gets a
    // few hundred ms to leave before its successor empties the queue.
    bool slot = slot_ok(index);
    if (slot) {
        make_wake(index);
        wake(index);
        wait_threads_gone(index, 300);
        __atomic_add_fetch(&g_generation[index], 1, __ATOMIC_ACQ_REL);
        __atomic_add_fetch(&g_threads_alive[index], 1, __ATOMIC_ACQ_REL);
    }
    pthread_t tid;
    if (pthread_create(&tid, nullptr, Uhf_GetR2000UartData, reinterpret_cast<void*>(static_cast<intptr_t>(index))) !=
        0) {
        if (slot) __atomic_sub_fetch(&g_threads_alive[index], 1, __ATOMIC_ACQ_REL);
        UHF_LOG(kLogBase, "Create pthread error!");
        return -1;
    }
    // Nobody waits for the thread; let it clean up after itself.
    pthread_detach(tid);
    UHF_LOG(kLogBase, "Create pthread ok!");
    return 0;
}

int Stop_R2000Thread(int index) {
    (void)index;  // the selected link is the one stopped
    if (!slot_ok(cur_index) || running(cur_index) == 0) return -1;
    set_running(cur_index, 0);
    wake(cur_index);
    return 0;
}

void spliteTagData(const uint8_t* buf, unsigned long len, int id) {
    if (buf == nullptr || len <= 2) return;
    unsigned num = buf[0];
    unsigned long pos = 1;
    while (num-- > 0 && pos < len) {
        uint8_t tag_len = buf[pos];
        // A record running past the batch is where the batch ends.
        if (pos + 1 + tag_len > len) break;
        addTagData(NORMAL_INVENTORY, buf + pos + 1, tag_len, id);
        pos += 1 + static_cast<unsigned long>(tag_len);
    }
}

int UHFInventory(void) {
    uint8_t data[2] = {0x00, 0x00};
    if (Vexa_Send(kStartInventory, data, sizeof data, cur_index) == -1) {
        UHF_LOG(kLogBase, "start inventory fail");
        return -1;
    }
    UHF_LOG(kLogBase, "create r2000 receiver thread:%d", cur_index);
    unsigned before = __atomic_load_n(&g_threads_started, __ATOMIC_ACQUIRE);
    if (Creat_R2000Thread(cur_index) != 0) return -1;
    usleep(1000);
    for (int i = 0; i < 200 && __atomic_load_n(&g_threads_started, __ATOMIC_ACQUIRE) == before; i++) usleep(1000);
    return 0;
}

int UHFStopGet(void) {
    set_closing(0);
    for (int attempt = 0; attempt < 3; attempt++) {
        if (Vexa_Send(kStopInventory, nullptr, 0, cur_index) != 0) break;
        long long start = getTimestamp();
        while (getTimestamp() - start < 200) {
            usleep(5000);
            if (!closing()) continue;
            Stop_R2000Thread(cur_index);
            if (slot_ok(cur_index)) stop_threads(cur_index, kThreadLeaveMs);
            discard_input(cur_index);
            return 0;
        }
    }
    Stop_R2000Thread(cur_index);
    if (slot_ok(cur_index)) stop_threads(cur_index, kThreadLeaveMs);
    return -1;
}

int UHFGetTagData(int* recvlen, uint8_t* tdata) {
    if (recvlen == nullptr || tdata == nullptr) return 0;
    *recvlen = 0;
    uint8_t rec[256];
    uint16_t r = take_record(rec, sizeof rec);
    if (r < 6 || r > 256) return -1;
    const uint8_t* report = rec + 3;
    const int n = r - 3;
    int L = uii_len(report);
    if (n < L) return -1;

    int w = 0;
    auto item = [&](uint8_t type, const uint8_t* p, int len) {
        tdata[w++] = type;
        tdata[w++] = static_cast<uint8_t>(len);
        memcpy(tdata + w, p, static_cast<size_t>(len));
        w += len;
    };
    item(0x01, rec, 2);
    item(0x06, report, L);
    if (rec[2] == SENSOR_INVENTORY) {
        if (n < L + 2) return -1;  // no room for the sensor value
        item(0x0B, report + L, 2);
        L += 2;
    }
    const int a = ((n - L) & 1) ? 1 : 0;
    // The data item leaves out the byte just before the RSSI, as readers of
    // this layout expect.
    if (n > L + a + 3) item(0x07, report + L, n - L - a - 3);
    uint16_t rssi = 0;
    if (n >= L + a + 2) {
        item(0x04, report + n - a - 2, 2);
        rssi = static_cast<uint16_t>(report[n - a - 2] << 8 | report[n - a - 1]);
        if (a) item(0x05, report + n - 1, 1);
    }
    if (!rssi_ok(rssi)) return -1;
    tdata[w] = 0;
    *recvlen = w;
    return 0;
}

int UHF_GetReceived_EX(int* uLenUii, uint8_t* uUii) {
    if (uLenUii == nullptr || uUii == nullptr) {
        UHF_LOG(kLogFunction, "uLenUii or uUii is null");
        return -1;
    }
    uint8_t rec[kMaxFrame];
    uint16_t r = take_record(rec, sizeof rec);
    if (r < 6 || r > 256) return -1;
    const uint8_t* report = rec + 3;
    const int n = r - 3;
    if (n < 4) return -1;
    const int L = uii_len(report);
    if (n < L) return -1;
    const int a = ((n - L) & 1) ? 1 : 0;

    int w = 0;
    uUii[w++] = static_cast<uint8_t>(L);
    memcpy(uUii + w, report, static_cast<size_t>(L));
    w += L;
    if (n > L + a + 2) {
        int d = n - L - a - 2;
        uUii[w++] = static_cast<uint8_t>(d);
        memcpy(uUii + w, report + L, static_cast<size_t>(d));
        w += d;
    } else {
        uUii[w++] = 0;
    }
    if (n >= L + a + 2) {
        uUii[w++] = report[n - a - 2];
        uUii[w++] = report[n - a - 1];
        uUii[w++] = a ? report[n - 1] : 1;  // antenna 1 when the reader sent none
    }
    uint16_t rssi = static_cast<uint16_t>(uUii[w - 3] << 8 | uUii[w - 2]);
    if (!rssi_ok(rssi)) {
        UHF_LOG(kLogFunction, "ERROR RSSI:%d", static_cast<int16_t>(rssi));
        return -1;
    }
    *uLenUii = w;
    return 0;
}

int UHF_GetTempTagReceived(int* uLenUii, unsigned char* uUii) {
    UHF_REFUSE_IF(uLenUii == nullptr || uUii == nullptr);
    uint8_t rec[8000];
    uint16_t r = take_record(rec, sizeof rec);
    const unsigned m = static_cast<unsigned>(r) - 4u;  // report length less one
    if (m == 3 || m - 3 > 250) return -1;
    const uint8_t* report = rec + 3;
    const unsigned n = m + 1;
    // The last 17 bytes are copied from wherever they begin, the record's
    // link id and mode included; only a report so short that they would begin
    // before the record is refused.
    if (n + 3 < 17) return -1;
    const unsigned L = uii_len(report);
    // A PC claiming more than the report holds reads zeros, not stale bytes.
    if (n < L) memset(rec + 3 + n, 0, L - n);
    uUii[0] = static_cast<uint8_t>(L);
    memcpy(uUii + 1, report, L);
    uUii[L + 1] = 0;
    memcpy(uUii + L + 2, rec + 3 + n - 17, 17);
    if (!rssi_ok(static_cast<uint16_t>(report[m - 2] << 8 | report[m - 1]))) return -1;
    // The length counts the report plus two, not the bytes written.
    *uLenUii = static_cast<int>(m + 3);
    return 0;
}
