// Size limits shared by the link layer and the commands.
#pragma once

#include <stddef.h>

namespace uhf {

// Largest command frame (A5 5A header, code, data, check, 0D 0A) sent or
// taken whole by the exchange, and the most one exchange buffers.
constexpr size_t kMaxFrame = 2048;

// Header and trailer bytes of a command frame around its data.
constexpr size_t kFrameOverhead = 8;

}  // namespace uhf
