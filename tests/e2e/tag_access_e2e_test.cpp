// Tag access through the library against the virtual reader over TCP:
// memory written, read back and erased.
#include <optional>

#include "sim_link.h"

using namespace uhftest;

namespace {

// Two tags with the same USER words; A is password-protected.
uint8_t kEpcA[12] = {0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
uint8_t kEpcB[12] = {0x30, 0x08, 0x33, 0xB2, 0xDD, 0xD9, 0x01, 0x40, 0x00, 0x00, 0x00, 0x01};
uint8_t kNoPwd[4] = {0, 0, 0, 0};

class TagAccess : public SimTcpTest {
protected:
    uhfsim::SimOptions options() override {
        uhfsim::SimOptions o;
        o.tags = *uhfsim::TagField::from_json(R"({"tags":[
          {"epc":"E200 3412 0123 4567 89AB CDEF","user":"0011 2233 4455 6677 8899 AABB CCDD EEFF","access_password":"12345678"},
          {"epc":"3008 33B2 DDD9 0140 0000 0001","user":"0011 2233 4455 6677 8899 AABB CCDD EEFF"}]})");
        return o;
    }

    // Words read from the tag whose EPC is epc (whole 96-bit filter); nullopt on failure.
    std::optional<Bytes> read(uint8_t* pwd, const uint8_t* epc, uint8_t bank, int ptr, uint16_t count) {
        uint8_t out[128];
        if (UHFReadData(pwd, 1, 0x20, 96, const_cast<uint8_t*>(epc), bank, ptr, count, out) != 0) return std::nullopt;
        return Bytes(out, out + 2 * count);
    }
    int write(uint8_t* pwd, const uint8_t* epc, uint8_t bank, int ptr, Bytes data) {
        return UHFWriteData(pwd, 1, 0x20, 96, const_cast<uint8_t*>(epc), bank, ptr, uint16_t(data.size() / 2),
                            data.data());
    }
};

}  // namespace

TEST_F(TagAccess, WriteReadBackAndEraseUser) {
    ASSERT_EQ(write(kNoPwd, kEpcB, 3, 2, {0xCA, 0xFE, 0xBE, 0xEF}), 0);
    EXPECT_EQ(read(kNoPwd, kEpcB, 3, 1, 4), (Bytes{0x22, 0x33, 0xCA, 0xFE, 0xBE, 0xEF, 0x88, 0x99}));
    // Tag A's USER is untouched.
    EXPECT_EQ(read(kNoPwd, kEpcA, 3, 2, 2), (Bytes{0x44, 0x55, 0x66, 0x77}));
    // Writing past the bank's 8 words changes nothing.
    EXPECT_EQ(write(kNoPwd, kEpcB, 3, 7, {1, 2, 3, 4}), -1);
    EXPECT_EQ(read(kNoPwd, kEpcB, 3, 7, 1), (Bytes{0xEE, 0xFF}));

    // Block write takes the same data path.
    uint8_t words[6] = {0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F};
    ASSERT_EQ(UHFBlockWriteData(kNoPwd, 1, 0x20, 96, kEpcB, 3, 5, 3, words), 0);
    EXPECT_EQ(read(kNoPwd, kEpcB, 3, 5, 3), Bytes(words, words + 6));

    ASSERT_EQ(UHFBlockEraseData(kNoPwd, 1, 0x20, 96, kEpcB, 3, 1, 3), 0);
    EXPECT_EQ(read(kNoPwd, kEpcB, 3, 0, 5), (Bytes{0x00, 0x11, 0, 0, 0, 0, 0, 0, 0x88, 0x99}));
    EXPECT_EQ(UHFBlockEraseData(kNoPwd, 1, 0x20, 96, kEpcB, 3, 6, 3), -1);
}
