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
