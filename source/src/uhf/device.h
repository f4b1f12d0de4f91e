// Internals of the device family that tests reach directly.
#pragma once

#include <stddef.h>

namespace uhf {

// Room UHFGetVersionCode's output needs: "YYYY-MM-DD hh:mm:ss" and a NUL.
constexpr size_t kBuildStampLen = 20;

// Turns the compiler's date text ("Nov 11 2022") and time text ("17:07:21")
// into "2022-11-11 17:07:21" in out (kBuildStampLen bytes). An unknown month
// name gives month 0.
void format_build_stamp(const char* date, const char* time, char* out);

// Largest user-parameter block: the 1024-byte request less its sub-command.
constexpr size_t kUserParamMax = 1023;

}  // namespace uhf
