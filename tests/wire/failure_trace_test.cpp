// With the function category on, every failing command says what failed; with
// it off, nothing is printed.
#include "link_helpers.h"
#include "transport.h"

using namespace uhftest;

namespace {

class FailureTrace : public WireTest {
protected:
    void TearDown() override {
        print_debug_log = 0;
        WireTest::TearDown();
    }
    // UHFGetRegion (0x2E -> 0x2F) against `reply`, its output captured.
    std::string traced(const Bytes& reply, bool null_output = false) {
        if (!reply.empty()) reader.reply(reply);
        uint8_t region = 0;
        testing::internal::CaptureStdout();
        EXPECT_EQ(UHFGetRegion(null_output ? nullptr : &region), -1);
        return testing::internal::GetCapturedStdout();
    }
};

}  // namespace

TEST_F(FailureTrace, EachFailureKindIsNamed) {
    print_debug_log = 0x80000000UL | 0x2;
    const struct {
        Bytes reply;
        bool null_output;
        const char* says;
    } cases[] = {
        {frame(0x2F, {0x00, 0x01}), false, "cmd 0x2E: status 0x00, 0x01 expected"},
        {frame(0x2F, {0x01}), false, "cmd 0x2E: reply too short (1 bytes, 2 needed)"},
        {frame(0x55, {0x01}), false, "cmd 0x2E: another code answered"},
        {{}, true, "UHFGetRegion: argument refused (region == nullptr)"},
    };
    for (const auto& c : cases) EXPECT_NE(traced(c.reply, c.null_output).find(c.says), std::string::npos) << c.says;
    EXPECT_NE(traced({}).find("cmd 0x2E: no reply in 1500 ms"), std::string::npos);
    print_debug_log = 0;
    uhf::forget_late_replies(cur_index);
    EXPECT_EQ(traced(frame(0x2F, {0x00, 0x01})), "");
}
