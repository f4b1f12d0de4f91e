// The framing between the supervisor and a worker: reads come back as sent
// (control messages ride every end-to-end test), and a datagram that is short, long or inconsistent is
// refused whole.
#include <gtest/gtest.h>

#include "worker_wire.h"

namespace uhfd {
namespace {

Read sample(uint8_t epc_len, uint8_t data_len, int16_t rssi) {
    Read r;
    r.time_ms = 1795504220714;
    r.antenna = 3;
    r.pc = 0x3000;
    r.rssi = rssi;
    r.epc_len = epc_len;
    for (uint8_t i = 0; i < epc_len; i++) r.epc[i] = static_cast<uint8_t>(0xE0 + i);
    r.data_len = data_len;
    for (uint8_t i = 0; i < data_len; i++) r.data[i] = i;
    return r;
}

TEST(WorkerWire, ReadsComeBackAsSent) {
    std::string m;
    wire::begin_reads(m);
    const Read sent[] = {sample(12, 0, -743), sample(62, 255, 0), sample(0, 4, 32767)};
    for (const Read& r : sent) ASSERT_TRUE(wire::add_read(m, r));
    std::vector<Read> got;
    ASSERT_TRUE(wire::decode_reads(m, 7, got));
    ASSERT_EQ(got.size(), 3u);
    for (size_t i = 0; i < 3; i++) {
        const Read &a = sent[i], &b = got[i];
        EXPECT_EQ(b.reader, 7);
        EXPECT_EQ(b.time_ms, a.time_ms);
        EXPECT_EQ(b.antenna, a.antenna);
        EXPECT_EQ(b.pc, a.pc);
        EXPECT_EQ(b.rssi, a.rssi);
        EXPECT_EQ(std::string(b.epc.begin(), b.epc.begin() + b.epc_len),
                  std::string(a.epc.begin(), a.epc.begin() + a.epc_len));
        EXPECT_EQ(std::string(b.data.begin(), b.data.begin() + b.data_len),
                  std::string(a.data.begin(), a.data.begin() + a.data_len));
    }
}

TEST(WorkerWire, ABatchStopsAtTheMessageLimit) {
    std::string m;
    wire::begin_reads(m);
    size_t n = 0;
    while (wire::add_read(m, sample(62, 255, 0))) n++;
    EXPECT_LE(m.size(), wire::kMaxMessage);
    EXPECT_GT(m.size() + wire::kMaxReadBytes, wire::kMaxMessage);
    std::vector<Read> got;
    ASSERT_TRUE(wire::decode_reads(m, 0, got));
    EXPECT_EQ(got.size(), n);
}

TEST(WorkerWire, MalformedDatagramsAreRefused) {
    std::string reads;
    wire::begin_reads(reads);
    wire::add_read(reads, sample(12, 2, -600));
    std::string long_epc = reads;
    long_epc[3 + 8 + 1 + 2 + 2] = 63;  // the epc length byte of the only read
    std::string more = reads;
    more[2] = 2;  // announces a second read that is not there
    std::string inventory;
    wire::inventory(inventory, 1, false);
    struct Row {
        const char* what;
        std::string datagram;
    } rows[] = {
        {"empty", ""},
        {"unknown type", std::string(1, '\x63')},
        {"reads cut short", reads.substr(0, reads.size() - 1)},
        {"reads with a byte left over", reads + "x"},
        {"a count beyond the reads", more},
        {"an EPC longer than any tag's", long_epc},
        {"an id cut short", std::string("\x05\x00\x01", 3)},
        {"inventory with a byte left over", inventory + "x"},
        {"an access result without its result", std::string("\x06\x00\x00\x00\x01", 5)},
        {"heartbeat with a payload", "\x04x"},
        {"an overflow count cut short", std::string("\x07\x00\x00\x00\x00\x00\x00\x01", 8)},
    };
    for (const Row& row : rows) {
        wire::Message m;
        std::vector<Read> got(1);
        const bool is_reads = !row.datagram.empty() && row.datagram[0] == wire::kReads;
        if (is_reads) {
            EXPECT_FALSE(wire::decode_reads(row.datagram, 0, got)) << row.what;
            EXPECT_EQ(got.size(), 1u) << row.what;  // nothing half-decoded left behind
        } else {
            EXPECT_FALSE(wire::decode(row.datagram, m)) << row.what;
        }
    }
}

}  // namespace
}  // namespace uhfd
