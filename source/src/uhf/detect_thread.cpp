// The serial detection thread: reads the selected link, feeds the escaped
// stream parser, which fills the frame stack for the application.
#include <pthread.h>
#include <unistd.h>

#include "UHF.h"
#include "log.h"
#include "uhf/escaped_stream.h"

using namespace uhf;

namespace {

uint8_t close_flag() { return __atomic_load_n(&ThreadCloseFlag, __ATOMIC_ACQUIRE); }
void set_close_flag(uint8_t v) { __atomic_store_n(&ThreadCloseFlag, v, __ATOMIC_RELEASE); }

// Detection threads still running. The stack has one writer: a new thread
// starts only once the old one has left.
int g_alive = 0;

void wait_gone(int max_ms) {
    for (int i = 0; i < max_ms && __atomic_load_n(&g_alive, __ATOMIC_ACQUIRE) > 0; i++) usleep(1000);
}

// Counted from before its creation until it has left, so a stop right after
// the start still waits for it.
void* counted_body(void* arg) {
    Uhf_GetUartData(arg);
    __atomic_sub_fetch(&g_alive, 1, __ATOMIC_ACQ_REL);
    return nullptr;
}

}  // namespace

void* Uhf_GetUartData(void* arg) {
    (void)arg;
    EscapedStream stream;
    Init_UhfStack();
    usleep(10000);
    uint8_t buf[EscapedStream::kReadMax];
    while (close_flag() != 1) {
        int n = recv_bytes(buf, sizeof buf, __atomic_load_n(&cur_index, __ATOMIC_RELAXED));
        if (n > 0) stream.feed(buf, static_cast<size_t>(n), (__atomic_load_n(&g_uflagCrc, __ATOMIC_RELAXED) & 1) != 0);
        usleep(30000);
    }
    UHF_LOG(kLogBase, "detection thread leaves");
    return nullptr;
}

int Creat_DectThread(void) {
    if (close_flag() == 0) {
        set_close_flag(1);
        usleep(100000);
    }
    // A pass is 30 ms plus one read; this only waits longer on a stalled read.
    wait_gone(1000);
    // Cleared before the thread starts, so it cannot see the stop request.
    set_close_flag(0);
    pthread_t tid;
    __atomic_add_fetch(&g_alive, 1, __ATOMIC_ACQ_REL);
    if (pthread_create(&tid, nullptr, counted_body, nullptr) != 0) {
        __atomic_sub_fetch(&g_alive, 1, __ATOMIC_ACQ_REL);
        set_close_flag(1);
        UHF_LOG(kLogBase, "Create detection thread error!");
        return -1;
    }
    pthread_detach(tid);
    return 0;
}

int Stop_DectThread(void) {
    if (close_flag() == 1) return -1;
    set_close_flag(1);
    // Return once it has left, so the caller may close the link at once.
    wait_gone(1000);
    return 0;
}
