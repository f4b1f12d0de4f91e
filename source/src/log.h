// Category-gated diagnostics: every call site tests its bit before formatting.
#pragma once

#include "globe_var.h"

namespace uhf {

enum : unsigned long {
    kLogUsb = 0x1,
    kLogFunction = 0x2,
    kLogSerial = 0x4,
    kLogTransfer = 0x8,
    kLogBase = 0x10,
    kLogTagFifo = 0x20,
};

inline bool log_on(unsigned long bit) { return (print_debug_log & bit) != 0; }

}  // namespace uhf

// Print through my_printf when the category bit is on.
#define UHF_LOG(bit, ...)                               \
    do {                                                \
        if (::uhf::log_on(bit)) my_printf(__VA_ARGS__); \
    } while (0)

// A refused argument: traced under the function category with the calling
// function and the condition, then -1 with nothing sent.
#define UHF_REFUSE_IF(cond)                                                             \
    do {                                                                                \
        if (cond) {                                                                     \
            UHF_LOG(::uhf::kLogFunction, "%s: argument refused (%s)", __func__, #cond); \
            return -1;                                                                  \
        }                                                                               \
    } while (0)
