// uhfctl read, write, erase, lock, kill and permalock against a virtual
// reader on a pseudo-terminal, whose tags keep what one run did for the next.
#include <gtest/gtest.h>

#include "cli_helpers.h"

using namespace clitest;

namespace {

const char* kEpcA = "E20034120123456789ABCDEF";
const char* kEpcB = "300000000000000000000001";

const char* kField = R"({ "tags": [
  { "epc": "E200 3412 0123 4567 89AB CDEF", "tid": "E280 1160 2000 7A1B 0C3D 4E5F",
    "user": "0011 2233 4455 6677 8899 AABB CCDD EEFF",
    "kill_password": "0BADCAFE", "access_password": "12345678", "rssi": { "1": -50.0 } },
  { "epc": "3000 0000 0000 0000 0000 0001", "tid": "E280 1160 2000 0000 0000 0002",
    "rssi": { "1": -60.0 } } ] })";

class CliTags : public PtyReaderTest {
protected:
    void SetUp() override {
        uhfsim::SimOptions o;
        o.tags = field(kField);
        ASSERT_EQ(o.tags.size(), 2u);
        o.tags.tags()[1].user.assign(48, 0);  // room for a write too long for the plain command
        start(o);
    }
    // What `read` prints for these arguments; "" when it failed.
    std::string read(std::vector<std::string> args) {
        args.insert(args.begin(), "read");
        Result r = ctl(args);
        return r.code == 0 ? r.out : "";
    }
    // A copy of tag i as the reader holds it now.
    uhfsim::Tag tag(size_t i) {
        uhfsim::Tag t;
        pty->for_each_reader([&](uhfsim::VirtualReader& r) { t = r.field().tags()[i]; });
        return t;
    }
};

struct ReadRow {
    const char* name;
    std::vector<std::string> args;
    const char* out;
};

class CliRead : public CliTags, public ::testing::WithParamInterface<ReadRow> {};

TEST_P(CliRead, PrintsTheWords) { EXPECT_EQ(read(GetParam().args), std::string(GetParam().out) + "\n"); }

INSTANTIATE_TEST_SUITE_P(
    Rows, CliRead,
    ::testing::Values(ReadRow{"tid_by_epc", {"tid", "0", "6", "--epc", kEpcA}, "E280116020007A1B0C3D4E5F"},
                      ReadRow{"user_offset", {"user", "2", "2", "--epc", kEpcA}, "44556677"},
                      ReadRow{"epc_by_tid_filter", {"epc", "2", "6", "--filter", "tid:0:96:E28011602000000000000002"},
                              kEpcB},
                      ReadRow{"odd_bit_filter", {"user", "0", "1", "--filter", "user:8:4:10"}, "0011"},
                      ReadRow{"bank_by_number", {"3", "7", "1", "--epc", kEpcA}, "EEFF"},
                      ReadRow{"passwords", {"reserved", "0", "4", "--epc", kEpcA}, "0BADCAFE12345678"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(CliTags, ReadJson) {
    Result r = ctl({"read", "tid", "0", "2", "--epc", kEpcB, "--format", "json"});
    ASSERT_EQ(r.code, 0) << r.err;
    Json j(cJSON_Parse(r.out.c_str()));
    EXPECT_EQ(str(j.get(), "bank"), "tid");
    EXPECT_EQ(str(j.get(), "data"), "E2801160");
}

TEST_F(CliTags, NoMatchingTagExitsOne) {
    Result r = ctl({"read", "tid", "0", "2", "--epc", "ABCD"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("read: serial " + pty->slave_path()), std::string::npos) << r.err;
}

TEST_F(CliTags, WriteThenReadBack) {
    Result w = ctl({"write", "user", "1", "CAFE", "BABE", "--epc", kEpcA, "-p", "12345678"});
    ASSERT_EQ(w.code, 0) << w.err;
    EXPECT_EQ(w.out, "wrote 2 words\n");
    EXPECT_EQ(read({"user", "0", "4", "--epc", kEpcA}), "0011CAFEBABE6677\n");
    EXPECT_EQ(tag(0).user[1], 0xCAFE);
}

// 40 words do not fit the plain write's request: they go as a block write.
TEST_F(CliTags, LongWriteGoesAsABlockWrite) {
    std::string words;
    char word[5];
    for (int i = 0; i < 40; i++) {
        snprintf(word, sizeof word, "A5%02X", i);
        words += word;
    }
    Result w = ctl({"write", "user", "0", words, "--epc", kEpcB});
    ASSERT_EQ(w.code, 0) << w.err;
    EXPECT_EQ(read({"user", "0", "40", "--epc", kEpcB}), words + "\n");
    EXPECT_EQ(pty->stats().requests[0x93], 1u);
    EXPECT_EQ(pty->stats().requests[0x86], 0u);
}

TEST_F(CliTags, EraseZeroesWords) {
    ASSERT_EQ(ctl({"erase", "user", "0", "2", "--epc", kEpcA, "-p", "12345678"}).code, 0);
    EXPECT_EQ(read({"user", "0", "3", "--epc", kEpcA}), "000000004455\n");
}

TEST_F(CliTags, LockedAreaNeedsThePassword) {
    Result l = ctl({"lock", "user", "lock", "--epc", kEpcA, "-p", "12345678"});
    ASSERT_EQ(l.code, 0) << l.err;
    EXPECT_EQ(tag(0).lock_bits & 0x3, 0x2);
    EXPECT_EQ(ctl({"write", "user", "0", "1111", "--epc", kEpcA}).code, 1);
    EXPECT_EQ(ctl({"write", "user", "0", "1111", "--epc", kEpcA, "-p", "12345678"}).code, 0);
    EXPECT_EQ(ctl({"lock", "user", "unlock", "--epc", kEpcA, "-p", "00000001"}).code, 1);
}

TEST_F(CliTags, LockPayloadCoversSeveralAreas) {
    Result l = ctl({"lock", "access", "permalock", "epc", "lock", "--epc", kEpcA, "-p", "12345678"});
    ASSERT_EQ(l.code, 0) << l.err;
    EXPECT_NE(l.out.find("payload 03C0E0"), std::string::npos) << l.out;
    EXPECT_EQ(tag(0).lock_bits, 0x00E0);
}

TEST_F(CliTags, KillTakesTheKillPassword) {
    EXPECT_EQ(ctl({"kill", "--epc", kEpcA, "-p", "12345678"}).code, 1);
    EXPECT_FALSE(tag(0).killed);
    Result k = ctl({"kill", "--epc", kEpcA, "-p", "0BADCAFE"});
    ASSERT_EQ(k.code, 0) << k.err;
    EXPECT_TRUE(tag(0).killed);
    Result inv = ctl({"inventory", "--format", "json", "--unique", "--duration", "1"});
    auto lines = json_lines(inv.out);
    ASSERT_EQ(lines.size(), 1u) << inv.out;
    EXPECT_EQ(str(lines[0].get(), "epc"), kEpcB);
}

TEST_F(CliTags, PermalockedBlocksRefuseWrites) {
    Result p = ctl({"permalock", "0", "C000", "--epc", kEpcA, "-p", "12345678"});
    ASSERT_EQ(p.code, 0) << p.err;
    EXPECT_EQ(p.out, "permalocked blocks: C000\n");
    EXPECT_EQ(ctl({"write", "user", "1", "1234", "--epc", kEpcA, "-p", "12345678"}).code, 1);
    EXPECT_EQ(ctl({"write", "user", "2", "1234", "--epc", kEpcA, "-p", "12345678"}).code, 0);
    // Reading the lock bits needs the secured state too.
    Result r = ctl({"permalock", "0", "--read", "1", "--epc", kEpcA, "-p", "12345678"});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out, "permalocked blocks: C000\n");
}

TEST_F(CliTags, SingleShotInventoryGivesOneTag) {
    Result r = ctl({"inventory", "--once", "--format", "json"});
    ASSERT_EQ(r.code, 0) << r.err;
    auto lines = json_lines(r.out);
    ASSERT_EQ(lines.size(), 1u);
    std::string epc = str(lines[0].get(), "epc");
    EXPECT_TRUE(epc == kEpcA || epc == kEpcB) << epc;
}

TEST(CliTagsEmptyField, SingleShotWithNoTagExitsOne) {
    uhfsim::SimOptions o;
    uhfsim::TcpServer sim(o);
    ASSERT_TRUE(sim.start());
    Result r = uhfctl({"--tcp", "127.0.0.1:" + std::to_string(sim.port()), "inventory", "--once"});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("no tag answered"), std::string::npos) << r.err;
}

}  // namespace
