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
    ::testing::Values(
        ReadRow{"tid_by_epc", {"tid", "0", "6", "--epc", kEpcA}, "E280116020007A1B0C3D4E5F"},
        ReadRow{"epc_by_tid_filter", {"epc", "2", "6", "--filter", "tid:0:96:E28011602000000000000002"}, kEpcB},
        ReadRow{"odd_bit_filter", {"user", "0", "1", "--filter", "user:8:4:10"}, "0011"},
        ReadRow{"bank_by_number", {"3", "7", "1", "--epc", kEpcA}, "EEFF"}),
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

TEST_F(CliTags, LockPayloadCoversSeveralAreas) {
    Result l = ctl({"lock", "access", "permalock", "epc", "lock", "--epc", kEpcA, "-p", "12345678"});
    ASSERT_EQ(l.code, 0) << l.err;
    EXPECT_NE(l.out.find("payload 03C0E0"), std::string::npos) << l.out;
    EXPECT_EQ(tag(0).lock_bits, 0x00E0);
}

}  // namespace
