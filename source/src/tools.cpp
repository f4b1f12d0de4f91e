// Diagnostics: time-stamped console lines, hex dumps and the clocks.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>

#include "globe_var.h"
#include "log.h"

unsigned long print_debug_log = 0;

namespace {

unsigned long category_bit(ENUM_LOG type) {
    return type == ENABLE_LOG ? UHF_LOG_MASTER_BIT : 1UL << (static_cast<int>(type) - 1);
}

bool valid_category(ENUM_LOG type) {
    return static_cast<int>(type) >= ENABLE_LOG && static_cast<int>(type) <= TAG_FIFO_LOG;
}

}  // namespace

void openLog(ENUM_LOG type) {
    if (valid_category(type)) print_debug_log |= category_bit(type);
}

void closeLog(ENUM_LOG type) {
    if (!valid_category(type)) return;
    // Clearing the master switch keeps only the low 31 bits, so categories
    // survive and come back with the next openLog(ENABLE_LOG).
    if (type == ENABLE_LOG)
        print_debug_log &= 0x7FFFFFFFUL;
    else
        print_debug_log &= ~category_bit(type);
}

void my_printf(const char* ms, ...) {
    if (!(print_debug_log & UHF_LOG_MASTER_BIT) || ms == nullptr) return;
    char text[1024] = {0};
    va_list args;
    va_start(args, ms);
    vsnprintf(text, sizeof text, ms, args);  // bounded: long messages are cut
    va_end(args);
    time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    printf("%02d:%02d:%02d:%03d %s\n", local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(tv.tv_usec / 1000),
           text);
}

void display_buffer_hex(const unsigned char* buffer, unsigned int size) {
    if (!(print_debug_log & UHF_LOG_MASTER_BIT)) return;
    if (buffer == nullptr) size = 0;
    for (unsigned int row = 0; row < size; row += 16) {
        printf("\n  %08x  ", row);
        for (unsigned int col = 0; col < 16; col++) {
            if (row + col < size)
                printf("%02x ", buffer[row + col]);
            else
                printf("   ");
        }
        printf(" ");
        for (unsigned int col = 0; col < 16 && row + col < size; col++) {
            unsigned char c = buffer[row + col];
            putchar(c >= 0x20 && c <= 0x7E ? c : '.');
        }
    }
    printf("\n");
}

void mLOG(const char* ms, ...) {
    // The file logger is switched off for good; keep the entry point only.
    (void)ms;
}

long long getTimestamp(void) {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return static_cast<long long>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
}

long getClock(void) { return static_cast<long>(clock()); }
