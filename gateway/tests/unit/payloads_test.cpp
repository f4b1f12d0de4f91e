// How outbox items are cut into MQTT messages and webhook bodies, and the
// webhook's signature.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hmac_sign.h"
#include "payloads.h"

namespace uhfd {
namespace {

OutboxItem read(uint64_t seq) { return {seq, false, "r" + std::to_string(seq)}; }
OutboxItem event(uint64_t seq) { return {seq, true, "e" + std::to_string(seq)}; }

TEST(MqttPayloads, RunsOfReadsInArraysEachEventAlone) {
    struct Row {
        std::vector<OutboxItem> items;
        size_t batch_size;
        std::vector<std::pair<uint64_t, std::string>> want;  // last seq, body
    };
    const Row rows[] = {
        {{}, 2, {}},
        {{read(1), read(2), read(3)}, 2, {{2, "[r1,r2]"}, {3, "[r3]"}}},
        {{read(1), event(2), read(3)}, 5, {{1, "[r1]"}, {2, "e2"}, {3, "[r3]"}}},
        {{event(7), event(8), read(10)}, 5, {{7, "e7"}, {8, "e8"}, {10, "[r10]"}}},
    };
    for (const Row& row : rows) {
        std::vector<Payload> out;
        MqttPayloads cut(row.batch_size, out);
        for (const OutboxItem& i : row.items) cut.add(i.seq, i.event, i.json);
        cut.finish();
        std::vector<std::pair<uint64_t, std::string>> got;
        for (const Payload& p : out) got.emplace_back(p.last_seq, p.body);
        EXPECT_EQ(got, row.want);
    }
}

TEST(WebhookBody, EveryItemInSeqOrderInOneArray) {
    EXPECT_EQ(json_array({read(1), event(2), read(3)}), "[r1,e2,r3]");
    EXPECT_EQ(json_array({}), "[]");
}

// RFC 4231, test case 2.
TEST(WebhookSignature, IsHmacSha256InHex) {
    EXPECT_EQ(hmac_sha256_hex("Jefe", "what do ya want for nothing?"),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
}

}  // namespace
}  // namespace uhfd
