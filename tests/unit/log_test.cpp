// Diagnostic output: the master switch and the categories.
#include <gtest/gtest.h>

#include "globe_var.h"

namespace {

class Log : public ::testing::Test {
protected:
    void SetUp() override { print_debug_log = 0; }
    void TearDown() override { print_debug_log = 0; }
};

}  // namespace

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
