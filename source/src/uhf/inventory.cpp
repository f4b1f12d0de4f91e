// Continuous inventory: start, the per-link receive thread that cuts tag
// reports out of the byte stream into the tag record queue, the stop
// handshake, and the three fetch calls that unpack one queued report.
#include <pthread.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include "UHF.h"
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
constexpr useconds_t kCoalesceUs = 10000;

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

int threads_alive(int index) { return __atomic_load_n(&g_threads_alive[index], __ATOMIC_ACQUIRE); }

// Bounded wait for the slot's receive threads to leave.
void wait_threads_gone(int index, int ms) {
    for (int i = 0; i < ms && threads_alive(index) > 0; i++) usleep(1000);
}

// The UII (PC + EPC) length in bytes, from the PC's EPC-length field.
uint16_t uii_len(const uint8_t* report) { return static_cast<uint16_t>(((report[0] >> 3) + 1) * 2); }

// The reader reports RSSI in 0.1 dBm; anything outside -25.0..-120.0 dBm is
// not a real read.
bool rssi_ok(uint16_t raw) {
    uint16_t neg = static_cast<uint16_t>(-static_cast<int16_t>(raw));
    return neg >= 250 && neg <= 1200;
}

// Queue every frame found in buf[0, len); true when at least one was taken.
bool consume_frames(const uint8_t* buf, size_t len, int index) {
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
        if (cmd == kBatch) {
            spliteTagData(data, dlen, index);
        } else if ((cmd == kReport || cmd == kSensorReport) && dlen > 3) {
            addTagData(cmd == kReport ? NORMAL_INVENTORY : SENSOR_INVENTORY, data, dlen, index);
        } else if (cmd == kStopReply) {
            set_closing(1);
            break;  // whatever follows the stop reply is dropped with the buffer
        }
    }
    return parse != 0;
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
    uint8_t buf[8192];
    size_t held = 0;
    while (running(index) && __atomic_load_n(&g_generation[index], __ATOMIC_ACQUIRE) == generation) {
        if (link->polled) {
            usleep(2000);
            if (Vexa_Send(kBatchPoll, nullptr, 0, index) != 0) return nullptr;
        }
        if (held > 4096) held = 0;
        // Reads stay below 4096 bytes: a larger read would be thrown away
        // whole, and with it every report it carried.
        size_t room = sizeof buf - held;
        if (room > 4095) room = 4095;
        int n = recv_bytes(buf + held, static_cast<uint16_t>(room), index);
        UHF_LOG(kLogBase, "thread %d is runnning, recv2:%d", index, n);
        if (n < 1 || n > 4095) {
            wait_readable(index, 10);
            continue;
        }
        held += static_cast<size_t>(n);
        // A trailing partial frame goes with the buffer once any frame was
        // found: the reader's stream restarts cleanly at frame boundaries.
        if (consume_frames(buf, held, index)) held = 0;
        // The link is drained: let a few more reports gather before the next
        // read, so a slow stream does not cost a wake-up per report.
        if (static_cast<size_t>(n) < room) usleep(kCoalesceUs);
    }
    return nullptr;
}

int uhf::inventory_threads(int index) { return slot_ok(index) ? threads_alive(index) : 0; }

void uhf::inventory_quiesce(int index) {
    if (!slot_ok(index)) return;
    set_running(index, 0);
    // A pass of the thread lasts one read or a 10 ms wait; give it ample time.
    wait_threads_gone(index, 500);
}

int Creat_R2000Thread(int index) {
    UHF_LOG(kLogBase, "Create pthread id:%d", index);
    // One receive thread per link: the previous one (told to stop) gets a
    // few hundred ms to leave before its successor empties the queue.
    bool slot = slot_ok(index);
    if (slot) {
        wait_threads_gone(index, 300);
        __atomic_add_fetch(&g_generation[index], 1, __ATOMIC_ACQ_REL);
        __atomic_add_fetch(&g_threads_alive[index], 1, __ATOMIC_ACQ_REL);
    }
    pthread_t tid;
    if (pthread_create(&tid, nullptr, Uhf_GetR2000UartData, reinterpret_cast<void*>(static_cast<intptr_t>(index))) != 0) {
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
            discard_input(cur_index);
            return 0;
        }
    }
    Stop_R2000Thread(cur_index);
    return -1;
}

int UHFGetTagData(int* recvlen, uint8_t* tdata) {
    if (recvlen == nullptr || tdata == nullptr) return 0;
    *recvlen = 0;
    uint8_t rec[256];
    uint16_t r = getTagData(rec, sizeof rec);
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
    uint8_t rec[2048];
    uint16_t r = getTagData(rec, sizeof rec);
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
    if (uLenUii == nullptr || uUii == nullptr) return -1;
    uint8_t rec[8000];
    uint16_t r = getTagData(rec, sizeof rec);
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
