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

TEST(BuildStamp, ExportedCallGivesAPlausibleBuildTime) {
    char out[32];
    memset(out, 0x7E, sizeof out);
    ASSERT_EQ(UHFGetVersionCode(out), 1);
    ASSERT_EQ(strlen(out), 19u);
    EXPECT_EQ(out[20], 0x7E);
    std::string stamp(out);

    // A real calendar time (month 1-12, a day that exists in that month, a
    // valid clock time) that is not in the future. strptime knows nothing of
    // the library's month table, so a wrong mapping shows here too.
    tm t{};
    ASSERT_NE(strptime(out, "%Y-%m-%d %H:%M:%S", &t), nullptr) << stamp;
    tm check = t;
    time_t when = timegm(&check);
    EXPECT_EQ(check.tm_mday, t.tm_mday) << "day does not exist in that month: " << stamp;
    EXPECT_EQ(check.tm_mon, t.tm_mon) << stamp;
    EXPECT_LE(when, time(nullptr) + 24 * 3600) << "build stamp in the future: " << stamp;
    EXPECT_GE(t.tm_year + 1900, 2024) << stamp;

    EXPECT_EQ(UHFGetVersionCode(nullptr), -1);
}
