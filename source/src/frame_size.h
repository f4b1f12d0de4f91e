// Size limits shared by the link layer and the commands.
#pragma once

#include <stddef.h>

namespace uhf {

// Largest command frame (A5 5A header, code, data, check, 0D 0A) sent or
// taken whole by the exchange, and the most one exchange buffers.
constexpr size_t kMaxFrame = 2048;

// Header and trailer bytes of a command frame around its data.
constexpr size_t kFrameOverhead = 8;

// After the frame search found nothing in buf[0, len): the offset of a
// whole, check-correct frame that starts inside the claimed body of a false
// start (the search does not look there), else -1. *resume is where the
// stream can go on: the first start that may still become a frame, or len
// when nothing there can.
long frame_resync(const unsigned char* buf, size_t len, size_t* resume);

}  // namespace uhf
