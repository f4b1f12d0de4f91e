// uhfctl: usage errors exit 2 with a message that names the problem; help
// is there for the tool and every subcommand.
#include <gtest/gtest.h>

#include "cli_helpers.h"

using namespace clitest;

namespace {

struct UsageRow {
    const char* name;
    std::vector<std::string> args;
    Env env;
    const char* message;  // expected in stderr
};

class CliUsage : public ::testing::TestWithParam<UsageRow> {};

TEST_P(CliUsage, ExitsTwoWithMessage) {
    const UsageRow& row = GetParam();
    Env env = row.env;
    if (env.empty()) env.push_back("UHF_READER");
    Result r = uhfctl(row.args, env);
    EXPECT_EQ(r.code, 2) << r.err;
    EXPECT_NE(r.err.find(row.message), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CliUsage,
    // clang-format off
    ::testing::Values(
        UsageRow{"no_subcommand", {}, {}, "subcommand"},
        UsageRow{"unknown_subcommand", {"frobnicate"}, {}, "frobnicate"},
        UsageRow{"negative_duration", {"--sim", "inventory", "--duration", "-1"}, {},
                 "uhfctl: inventory: --duration: must be more than 0 seconds, not -1 (uhfctl inventory --help)"},
        UsageRow{"missing_argument", {"--sim", "get"}, {}, "uhfctl: get: name is required (uhfctl get --help)"},
        UsageRow{"odd_baud", {"--serial", "/dev/null@1234", "info"}, {}, "baud rate must be one of"},
        UsageRow{"no_reader", {"info"}, {"UHF_READER"}, "no reader given"},
        UsageRow{"raw_code_too_big", {"--sim", "raw", "0x100"}, {}, "code must be 0..255"},
        UsageRow{"get_unknown", {"--sim", "get", "colour"}, {}, "get colour: no such setting"},
        UsageRow{"set_read_only", {"--sim", "set", "hardware", "1"}, {}, "set hardware: read-only"},
        UsageRow{"set_bad_ip", {"--sim", "set", "ip", "1.2.3"}, {}, "1.2.3: expected A.B.C.D[:PORT]"},
        UsageRow{"epc_and_filter", {"--sim", "read", "tid", "0", "2", "--epc", "E2", "--filter", "tid:0:8:E2"}, {}, "give --epc or --filter, not both"},
        UsageRow{"filter_short_mask", {"--sim", "read", "tid", "0", "2", "--filter", "tid:0:16:E2"}, {}, "--filter takes BANK:BITADDR:BITLEN:HEX"},
        UsageRow{"bad_bank", {"--sim", "read", "flash", "0", "2"}, {}, "flash: the banks are"},
        UsageRow{"kill_any_tag", {"--sim", "kill", "-p", "0BADCAFE"}, {}, "name the tag with --epc or --filter"},
        UsageRow{"too_many_readers", [] { std::vector<std::string> a(21, "--sim"); a.push_back("links"); return a; }(), {}, "at most 20 readers"}),
    // clang-format on
    [](const auto& info) { return std::string(info.param.name); });

TEST(CliHelpText, ToolHelpListsExitCodesAndTheEnvironmentVariable) {
    Result r = uhfctl({"--help"});
    EXPECT_NE(r.out.find("0 ok, 1 the reader reported a failure, 2 usage, 3 connection"), std::string::npos);
    EXPECT_NE(r.out.find("UHF_READER"), std::string::npos);
}

}  // namespace
