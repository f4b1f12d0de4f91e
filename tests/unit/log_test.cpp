// Diagnostic output: exact line formats and the category bit rules.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "globe_var.h"

namespace {

class Log : public ::testing::Test {
protected:
    void SetUp() override { print_debug_log = 0; }
    void TearDown() override { print_debug_log = 0; }
};

std::string dump(const unsigned char* p, unsigned n) {
    testing::internal::CaptureStdout();
    display_buffer_hex(p, n);
    return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST_F(Log, OpenAndCloseSetTheDocumentedBits) {
    struct Case {
        ENUM_LOG type;
        unsigned long bit;
    } cases[] = {{ENABLE_LOG, 0x80000000UL}, {USB_LOG, 0x1},   {FUNCTION_LOG, 0x2}, {SERIAL_LOG, 0x4},
                 {TRANSFER_LOG, 0x8},        {BASE_LOG, 0x10}, {TAG_FIFO_LOG, 0x20}};
    for (const Case& c : cases) {
        print_debug_log = 0;
        openLog(c.type);
        EXPECT_EQ(print_debug_log, c.bit) << c.type;
        closeLog(c.type);
        EXPECT_EQ(print_debug_log, 0UL) << c.type;
    }
    openLog(static_cast<ENUM_LOG>(7));
    openLog(static_cast<ENUM_LOG>(-1));
    EXPECT_EQ(print_debug_log, 0UL);
}

TEST_F(Log, ClosingMasterKeepsCategoriesAndDropsHighBits) {
    print_debug_log = ~0UL;
    closeLog(ENABLE_LOG);
    EXPECT_EQ(print_debug_log, 0x7FFFFFFFUL);
    print_debug_log = 0;
    openLog(TRANSFER_LOG);
    openLog(ENABLE_LOG);
    closeLog(ENABLE_LOG);
    EXPECT_EQ(print_debug_log, 0x8UL);
    openLog(ENABLE_LOG);
    EXPECT_EQ(print_debug_log, 0x80000008UL);
}

static std::string printed(const char* fmt, const char* arg) {
    testing::internal::CaptureStdout();
    my_printf(fmt, arg);
    return testing::internal::GetCapturedStdout();
}

TEST_F(Log, MyPrintfNeedsTheMasterBitStampsAndCuts) {
    openLog(TRANSFER_LOG);
    const unsigned char b[] = {1, 2, 3};
    EXPECT_EQ(dump(b, 3), "");
    EXPECT_EQ(printed("hello %s", "5"), "");

    openLog(ENABLE_LOG);
    // The message's own newline stays, and one more follows it.
    const std::string out = printed("value %s\n", "42");
    EXPECT_TRUE(std::regex_match(out, std::regex(R"(\d\d:\d\d:\d\d:\d\d\d value 42\n\n)"))) << out;
    EXPECT_EQ(printed("%s", std::string(5000, 'x').c_str()).size(), 13 + 1023 + 1u);  // stamp, 1023 chars, newline
}

TEST_F(Log, HexDumpRows) {
    openLog(ENABLE_LOG);
    unsigned char b[17];
    for (int i = 0; i < 17; i++) b[i] = static_cast<unsigned char>(0x41 + i);
    b[1] = 0x00;
    std::string row1 = "\n  00000000  41 00 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50  A.CDEFGHIJKLMNOP";
    std::string row2 = "\n  00000010  51 " + std::string(15 * 3, ' ') + " Q";
    EXPECT_EQ(dump(b, 17), row1 + row2 + "\n");
    EXPECT_EQ(dump(b, 0), "\n");
}
