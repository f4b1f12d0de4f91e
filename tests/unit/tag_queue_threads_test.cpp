// One producer and one consumer exchanging a million records through the
// tag queue, as the inventory thread and the application do. Every record
// is checked in order; run it under TSan to check the locking as well.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "globe_var.h"

namespace {

constexpr uint32_t kRecords = 1000000;
// The producer holds back while this many records are unread, so the ring
// (262144 bytes, records of at most 256 bytes) can never overflow and flush.
constexpr uint32_t kMaxInFlight = 512;

// Record k: mostly short reports with an occasional long one, contents and
// id derived from k so the consumer can rebuild what it should see.
uint16_t report_len(uint32_t k) {
    if (k % 97 == 0) return static_cast<uint16_t>(200 + k % 53);  // up to 252
    return static_cast<uint16_t>(1 + (k * 7919u) % 48);
}

uint8_t report_byte(uint32_t k, uint16_t i) {
    uint8_t b = static_cast<uint8_t>(k * 31u + i * 17u + (k >> 8));
    return i == 0 ? static_cast<uint8_t>(b | 0x01) : b;  // never starts 00
}

int record_id(uint32_t k) { return static_cast<int>(k & 0xFFFF); }
INVENTORY_MODE record_mode(uint32_t k) { return (k & 1) ? SENSOR_INVENTORY : NORMAL_INVENTORY; }

bool matches(uint32_t k, const uint8_t* got, uint16_t n) {
    const uint16_t len = report_len(k);
    if (n != len + 3) return false;
    if (got[0] != (record_id(k) >> 8) || got[1] != (record_id(k) & 0xFF) || got[2] != record_mode(k)) return false;
    for (uint16_t i = 0; i < len; i++)
        if (got[3 + i] != report_byte(k, i)) return false;
    return true;
}

TEST(TagQueueThreads, MillionRecordsArriveInOrder) {
    initTagQueue();
    std::atomic<uint32_t> consumed{0};
    std::atomic<bool> failed{false};
    uint32_t refused_at = UINT32_MAX;
    uint32_t mismatch_at = UINT32_MAX;

    std::thread producer([&] {
        uint8_t rep[256];
        for (uint32_t k = 0; k < kRecords && !failed.load(); k++) {
            while (k - consumed.load(std::memory_order_acquire) >= kMaxInFlight && !failed.load())
                std::this_thread::yield();
            const uint16_t len = report_len(k);
            for (uint16_t i = 0; i < len; i++) rep[i] = report_byte(k, i);
            if (addTagData(record_mode(k), rep, len, record_id(k)) != len + 3) {
                refused_at = k;
                failed.store(true);
            }
        }
    });

    std::thread consumer([&] {
        uint8_t got[300];
        uint32_t k = 0;
        while (k < kRecords && !failed.load()) {
            const uint16_t n = getTagData(got, sizeof got);
            if (n == 0) {
                std::this_thread::yield();
                continue;
            }
            if (!matches(k, got, n)) {
                mismatch_at = k;
                failed.store(true);
                break;
            }
            consumed.store(++k, std::memory_order_release);
        }
    });

    producer.join();
    consumer.join();
    EXPECT_EQ(refused_at, UINT32_MAX) << "producer refused record " << refused_at;
    EXPECT_EQ(mismatch_at, UINT32_MAX) << "consumer saw a wrong record at " << mismatch_at;
    EXPECT_EQ(consumed.load(), kRecords);
    uint8_t extra[300];
    EXPECT_EQ(getTagData(extra, sizeof extra), 0);
    EXPECT_EQ(add_tag_index, drop_tag_index);
}

}  // namespace
