// The library's build stamp: the parser on known texts, and the exported call
// on the library's own build date and time.
#include <gtest/gtest.h>
#include <time.h>

#include <cstring>
#include <string>

#include "UHF.h"
#include "uhf/device.h"

TEST(BuildStamp, ParsesCompilerDateAndTime) {
    struct Case {
        const char* date;
        const char* time;
        const char* stamp;
    } cases[] = {
        {"Nov 11 2022", "17:07:21", "2022-11-11 17:07:21"},
        {"Jan  1 2024", "00:00:00", "2024-01-01 00:00:00"},
        {"Feb 29 2028", "23:59:59", "2028-02-29 23:59:59"},
        {"Mar  3 2025", "01:02:03", "2025-03-03 01:02:03"}, {"Apr 30 2025", "12:00:00", "2025-04-30 12:00:00"},
        {"May  9 2025", "12:00:00", "2025-05-09 12:00:00"}, {"Jun 10 2025", "12:00:00", "2025-06-10 12:00:00"},
        {"Jul 31 2025", "12:00:00", "2025-07-31 12:00:00"}, {"Aug  8 2025", "12:00:00", "2025-08-08 12:00:00"},
        {"Sep 15 2025", "12:00:00", "2025-09-15 12:00:00"}, {"Oct  2 2025", "12:00:00", "2025-10-02 12:00:00"},
        {"Dec 25 2026", "08:30:00", "2026-12-25 08:30:00"},
        {"Xyz  7 2025", "12:00:00", "2025-00-07 12:00:00"},
    };
    for (const Case& c : cases) {
        char out[uhf::kBuildStampLen + 4];
        memset(out, 0x7E, sizeof out);
        uhf::format_build_stamp(c.date, c.time, out);
        EXPECT_STREQ(out, c.stamp) << c.date;
        EXPECT_EQ(out[uhf::kBuildStampLen], 0x7E) << "wrote past 20 bytes";
    }
}

