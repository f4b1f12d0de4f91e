// Tag access through the library against the virtual reader over TCP:
// selection by filter, memory read/write/erase, lock and permalock, kill,
// authenticate, QT views, single-shot inventory and the accepted-only calls.
#include <cstring>
#include <optional>

#include "sim_link.h"

using namespace uhftest;

namespace {

// Tag A: password-protected, killable. Tag B: open. Their EPCs differ in the
// first 12 bits, so a short filter picks one of them.
uint8_t kEpcA[12] = {0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
uint8_t kEpcB[12] = {0x30, 0x08, 0x33, 0xB2, 0xDD, 0xD9, 0x01, 0x40, 0x00, 0x00, 0x00, 0x01};
const Bytes kTidA = {0xE2, 0x80, 0x11, 0x60, 0x20, 0x00, 0x7A, 0x1B, 0x0C, 0x3D, 0x4E, 0x5F};
uint8_t kAccessA[4] = {0x12, 0x34, 0x56, 0x78};
uint8_t kKillA[4] = {0x55, 0x66, 0x77, 0x88};
uint8_t kNoPwd[4] = {0, 0, 0, 0};

uhfsim::Tag make_tag(const uint8_t* epc, std::vector<uint16_t> tid, uint32_t kill, uint32_t access) {
    uhfsim::Tag t;
    t.set_epc(std::span<const uint8_t>(epc, 12));
    t.tid = std::move(tid);
    t.user = {0x0011, 0x2233, 0x4455, 0x6677, 0x8899, 0xAABB, 0xCCDD, 0xEEFF};
    t.reserved = {uint16_t(kill >> 16), uint16_t(kill), uint16_t(access >> 16), uint16_t(access)};
    t.rssi[0] = -550;
    return t;
}

class TagAccess : public SimTcpTest {
protected:
    uhfsim::SimOptions options() override {
        uhfsim::SimOptions o;
        o.tags.add(make_tag(kEpcA, {0xE280, 0x1160, 0x2000, 0x7A1B, 0x0C3D, 0x4E5F}, 0x55667788, 0x12345678));
        o.tags.add(make_tag(kEpcB, {0xE280, 0x1105, 0x2000, 0x0001, 0x0002, 0x0003}, 0, 0));
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
    // EPCs of one inventory round (0xEB on an idle reader).
    std::set<Bytes> inventory_round() {
        uint8_t out[512];
        std::set<Bytes> epcs;
        int n = UHF_GetTagsData(out);
        if (n <= 0) return epcs;
        for (size_t i = 0, pos = 1; i < out[0] && pos < size_t(n); i++) {
            size_t len = out[pos];
            epcs.insert(Bytes(out + pos + 3, out + pos + 1 + ((out[pos + 1] >> 3) + 1) * 2));
            pos += 1 + len;
        }
        return epcs;
    }
};

const Bytes kEpcABytes(kEpcA, kEpcA + 12);
const Bytes kEpcBBytes(kEpcB, kEpcB + 12);

}  // namespace

TEST_F(TagAccess, ReadTidOfTheTagSelectedByItsEpc) {
    EXPECT_EQ(read(kNoPwd, kEpcA, 2, 0, 6), kTidA);
    auto tid_b = read(kNoPwd, kEpcB, 2, 0, 2);
    EXPECT_EQ(tid_b, (Bytes{0xE2, 0x80, 0x11, 0x05}));

    // Short filters compare only their bits: 12 bits of E20 pick A, 9 bits of 0x30 0x00 pick B.
    uint8_t out[4];
    uint8_t e20[2] = {0xE2, 0x0F};
    ASSERT_EQ(UHFReadData(kNoPwd, 1, 0x20, 12, e20, 2, 2, 1, out), 0);
    EXPECT_EQ(Bytes(out, out + 2), (Bytes{0x20, 0x00}));
    uint8_t b9[2] = {0x30, 0x7F};
    ASSERT_EQ(UHFReadData(kNoPwd, 1, 0x20, 9, b9, 2, 1, 1, out), 0);
    EXPECT_EQ(Bytes(out, out + 2), (Bytes{0x11, 0x05}));

    // No tag matches: an error reply, not a hang.
    uint8_t nobody[12] = {0x01};
    EXPECT_EQ(read(kNoPwd, nobody, 2, 0, 1), std::nullopt);
    // Past the end of the bank.
    EXPECT_EQ(read(kNoPwd, kEpcA, 2, 4, 3), std::nullopt);
}

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

TEST_F(TagAccess, LocksNeedThePassword) {
    // USER password-write lock: mask bit 11 (USER pwd), action bit 1.
    uint8_t lock_user[3] = {0x00, 0x08, 0x02};
    EXPECT_EQ(UHFLockTag(kNoPwd, 1, 0x20, 96, kEpcA, lock_user), 1) << "locking needs the access password";
    ASSERT_EQ(UHFLockTag(kAccessA, 1, 0x20, 96, kEpcA, lock_user), 0);

    EXPECT_EQ(write(kNoPwd, kEpcA, 3, 0, {0xAB, 0xCD}), -1);
    uint8_t wrong[4] = {0x12, 0x34, 0x56, 0x79};
    EXPECT_EQ(write(wrong, kEpcA, 3, 0, {0xAB, 0xCD}), -1);
    EXPECT_EQ(read(kNoPwd, kEpcA, 3, 0, 1), (Bytes{0x00, 0x11}));
    ASSERT_EQ(write(kAccessA, kEpcA, 3, 0, {0xAB, 0xCD}), 0);
    EXPECT_EQ(read(kNoPwd, kEpcA, 3, 0, 1), (Bytes{0xAB, 0xCD}));
    // The lock is per area: EPC memory stays writable without the password.
    EXPECT_EQ(write(kNoPwd, kEpcA, 1, 7, {0xCD, 0xEF}), 0);

    // Permalock USER as locked; no later lock may change it.
    uint8_t perma_user[3] = {0x00, 0x0C, 0x03};
    ASSERT_EQ(UHFLockTag(kAccessA, 1, 0x20, 96, kEpcA, perma_user), 0);
    EXPECT_EQ(write(kAccessA, kEpcA, 3, 0, {0x00, 0x00}), -1);
    uint8_t unlock_user[3] = {0x00, 0x0C, 0x00};
    EXPECT_EQ(UHFLockTag(kAccessA, 1, 0x20, 96, kEpcA, unlock_user), 1);

    // The access password reads back until its area is read/write locked.
    EXPECT_EQ(read(kNoPwd, kEpcA, 0, 2, 2), (Bytes{0x12, 0x34, 0x56, 0x78}));
    uint8_t lock_access[3] = {0x02, 0x00, 0x80};
    ASSERT_EQ(UHFLockTag(kAccessA, 1, 0x20, 96, kEpcA, lock_access), 0);
    EXPECT_EQ(read(kNoPwd, kEpcA, 0, 2, 2), std::nullopt);
    EXPECT_EQ(read(kAccessA, kEpcA, 0, 2, 2), (Bytes{0x12, 0x34, 0x56, 0x78}));
}

TEST_F(TagAccess, KilledTagVanishesFromInventories) {
    ASSERT_EQ(inventory_round(), (std::set<Bytes>{kEpcABytes, kEpcBBytes}));
    uint8_t wrong[4] = {0x55, 0x66, 0x77, 0x00};
    EXPECT_EQ(UHFKillTag(wrong, 1, 0x20, 96, kEpcA), -1);
    EXPECT_EQ(UHFKillTag(kNoPwd, 1, 0x20, 96, kEpcB), -1) << "a zero kill password never kills";
    ASSERT_EQ(UHFKillTag(kKillA, 1, 0x20, 96, kEpcA), 0);

    EXPECT_EQ(inventory_round(), (std::set<Bytes>{kEpcBBytes}));
    EXPECT_EQ(read(kNoPwd, kEpcA, 2, 0, 1), std::nullopt);
    EXPECT_EQ(UHFKillTag(kKillA, 1, 0x20, 96, kEpcA), -1);
    uint8_t len = 0, uii[64];
    for (int i = 0; i < 3; i++) {
        ASSERT_EQ(UHFInventorySingle(&len, uii), 0);
        EXPECT_EQ(Bytes(uii + 2, uii + len), kEpcBBytes);
    }
}

TEST_F(TagAccess, BlockPermalockRoundTrip) {
    uint8_t bits[2] = {0x00, 0x00};
    ASSERT_EQ(UHFBlockPermalock(kAccessA, 1, 0x20, 96, kEpcA, 0, 3, 0, 1, bits), 0);
    EXPECT_EQ(Bytes(bits, bits + 2), (Bytes{0x00, 0x00}));

    uint8_t lock_first_two[2] = {0xC0, 0x00};
    ASSERT_EQ(UHFBlockPermalock(kAccessA, 1, 0x20, 96, kEpcA, 1, 3, 0, 1, lock_first_two), 0);
    EXPECT_EQ(Bytes(lock_first_two, lock_first_two + 2), (Bytes{0xC0, 0x00}));

    uint8_t more[2] = {0x10, 0x00};  // block 3 as well: the bits add up
    ASSERT_EQ(UHFBlockPermalock(kAccessA, 1, 0x20, 96, kEpcA, 1, 3, 0, 1, more), 0);
    uint8_t now[2] = {};
    ASSERT_EQ(UHFBlockPermalock(kAccessA, 1, 0x20, 96, kEpcA, 0, 3, 0, 1, now), 0);
    EXPECT_EQ(Bytes(now, now + 2), (Bytes{0xD0, 0x00}));

    // Locked blocks refuse writes even with the password; others take them.
    EXPECT_EQ(write(kAccessA, kEpcA, 3, 1, {0x01, 0x02}), -1);
    EXPECT_EQ(write(kAccessA, kEpcA, 3, 3, {0x01, 0x02}), -1);
    EXPECT_EQ(write(kAccessA, kEpcA, 3, 2, {0x01, 0x02}), 0);
    EXPECT_EQ(UHFBlockEraseData(kAccessA, 1, 0x20, 96, kEpcA, 3, 0, 1), -1);
    // Blocks past the 8 USER words cannot be locked.
    uint8_t past[2] = {0x00, 0x80};
    EXPECT_EQ(UHFBlockPermalock(kAccessA, 1, 0x20, 96, kEpcA, 1, 3, 0, 1, past), -1);
    EXPECT_EQ(past[1], 0x80);
}

TEST_F(TagAccess, AuthenticateAnswersFromChallengeAndKey) {
    uint8_t challenge[3] = {0x10, 0x20, 0x30};
    unsigned short n = 0;
    uint8_t out[32];
    // Each byte XOR the key id, a pad byte, then TID word 0.
    ASSERT_EQ(UHFAuthenticate(0, 1, 0x20, kEpcA, 96, 0x05, 3, challenge, &n, out), 0);
    EXPECT_EQ(Bytes(out, out + n), (Bytes{0x15, 0x25, 0x35, 0x00, 0xE2, 0x80}));
    ASSERT_EQ(UHFAuthenticateCommon(0, 1, 0x20, kEpcA, 96, 0x0F, 2, challenge, &n, out), 0);
    EXPECT_EQ(Bytes(out, out + n), (Bytes{0x00, 0x02, 0x1F, 0x2F, 0xE2, 0x80}));
    EXPECT_EQ(UHFAuthenticate(0x11111111UL, 1, 0x20, kEpcA, 96, 0x05, 3, challenge, &n, out), -1);
}

namespace {

// One tag in the field, so single-shot calls always find it.
class OneTag : public SimTcpTest {
protected:
    uhfsim::SimOptions options() override {
        uhfsim::SimOptions o;
        o.tags.add(make_tag(kEpcA, {0xE280, 0x1160, 0x2000, 0x7A1B, 0x0C3D, 0x4E5F}, 0, 0));
        o.tags.tags()[0].set_public_epc(std::vector<uint8_t>{0xAA, 0xBB, 0xCC, 0xDD});
        o.engine.rssi_jitter = 0;
        return o;
    }
};

const Bytes kUiiA = Bytes{0x30, 0x00} + kEpcABytes;
const Bytes kRssiA = {0xFD, 0xDA};  // -55.0 dBm

}  // namespace

TEST_F(OneTag, SingleInventoryInItsThreeForms) {
    uint8_t len = 0, out[300];
    ASSERT_EQ(UHFInventorySingle(&len, out), 0);
    EXPECT_EQ(Bytes(out, out + len), kUiiA);

    // No bank region yet: no data.
    ASSERT_EQ(UHF_InventorySingle_R2000(&len, out), 0);
    EXPECT_EQ(Bytes(out, out + 18), Bytes{14} + kUiiA + Bytes{0} + kRssiA);

    // Reports now carry TID words 1..2.
    uint8_t pwd[4] = {};
    ASSERT_EQ(UHF_Inventory_Bank(pwd, 2, 1, 2), 0);
    EXPECT_EQ(bankflag, 2);

    ASSERT_EQ(UHF_InventorySingleEPCTIDUSER(&len, out), 0);
    Bytes tid12 = {0x11, 0x60, 0x20, 0x00};
    EXPECT_EQ(Bytes(out, out + len), Bytes{14} + kUiiA + Bytes{4} + tid12 + kRssiA + Bytes{0x01});

    ASSERT_EQ(UHF_InventorySingle_R2000(&len, out), 0);
    EXPECT_EQ(len, 1 + 14 + 1 + 4 + 2);
    EXPECT_EQ(Bytes(out, out + len), Bytes{14} + kUiiA + Bytes{4} + tid12 + kRssiA);

    ASSERT_EQ(UHFInventorySingle(&len, out), 0);
    EXPECT_EQ(Bytes(out, out + len), kUiiA);

    // The batch form carries the same report.
    int n = UHF_GetTagsData(out);
    ASSERT_EQ(n, 2 + 14 + 4 + 3);
    EXPECT_EQ(Bytes(out, out + n), (Bytes{1, 21} + kUiiA + tid12 + kRssiA + Bytes{0x01}));
}

TEST_F(OneTag, QtControlAndBothViews) {
    uint8_t qt = 0xFF, para = 0xFF;
    ASSERT_EQ(UHFGetQT(kNoPwd, 1, 0x20, 96, kEpcA, &qt), 0);
    EXPECT_EQ(qt, 0x00);
    ASSERT_EQ(UHF_GetQTPara(&para), 0);
    EXPECT_EQ(para, 1);

    // Private view: the whole TID; the public view shows two words of it.
    uint8_t out[64], n = 0;
    ASSERT_EQ(UHFReadQT(kNoPwd, 1, 0x20, 96, kEpcA, 0x00, 2, 0, 6, out, &n), 0);
    EXPECT_EQ(Bytes(out, out + n), kTidA);
    EXPECT_EQ(UHFReadQT(kNoPwd, 1, 0x20, 96, kEpcA, 0x02, 2, 0, 6, out, &n), -1);
    ASSERT_EQ(UHFReadQT(kNoPwd, 1, 0x20, 96, kEpcA, 0x02, 2, 0, 2, out, &n), 0);
    EXPECT_EQ(Bytes(out, out + n), Bytes(kTidA.begin(), kTidA.begin() + 4));

    // Switch the tag to its public view (the inverse mapping: 0 means public).
    ASSERT_EQ(UHF_SetQTPara(0), 0);
    ASSERT_EQ(UHF_GetQTPara(&para), 0);
    EXPECT_EQ(para, 0);
    uint8_t len = 0, uii[64];
    ASSERT_EQ(UHFInventorySingle(&len, uii), 0);
    EXPECT_EQ(Bytes(uii, uii + len), (Bytes{0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD}));
    // The private EPC no longer selects it; the public one does.
    EXPECT_EQ(UHFGetQT(kNoPwd, 1, 0x20, 96, kEpcA, &qt), -1);
    uint8_t public_epc[4] = {0xAA, 0xBB, 0xCC, 0xDD};
    ASSERT_EQ(UHFGetQT(kNoPwd, 1, 0x20, 32, public_epc, &qt), 0);
    EXPECT_EQ(qt, 0x02);

    // Plain reads see the public memory (no USER); QT reads name their view.
    uint8_t words[4];
    EXPECT_EQ(UHFReadData(kNoPwd, 1, 0x20, 32, public_epc, 3, 0, 1, words), -1);
    uint8_t found_uii[64], found_len = 0;
    ASSERT_EQ(UHF_ReadQTDataSingle(kNoPwd, 3, 1, 2, words, found_uii, &found_len), 0);
    EXPECT_EQ(Bytes(words, words + 4), (Bytes{0x22, 0x33, 0x44, 0x55}));
    EXPECT_EQ(Bytes(found_uii, found_uii + found_len), (Bytes{0x10, 0x00, 0xAA, 0xBB, 0xCC, 0xDD}));
    ASSERT_EQ(UHF_ReadQTData_Ex(kNoPwd, 1, 0x20, 32, public_epc, 1, 2, 6, out), 0);
    EXPECT_EQ(Bytes(out, out + 12), kEpcABytes);

    // A write through the private view lands in private memory.
    uint8_t data[2] = {0x5A, 0xA5};
    ASSERT_EQ(UHF_WriteQTDataSingle(kNoPwd, 3, 0, 1, data, found_uii, &found_len), 0);
    ASSERT_EQ(UHF_SetQTPara(1), 0);
    uint8_t back[2];
    ASSERT_EQ(UHFReadData(kNoPwd, 1, 0x20, 96, kEpcA, 3, 0, 1, back), 0);
    EXPECT_EQ(Bytes(back, back + 2), (Bytes{0x5A, 0xA5}));
}
