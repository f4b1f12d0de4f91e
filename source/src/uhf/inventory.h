// What the link layer needs from the inventory receive threads.
#pragma once

namespace uhf {

// Tell the receive threads of slot index to stop and wait (bounded) until
// they have left, so the slot can be closed and wiped under nobody's feet.
void inventory_quiesce(int index);

// Receive threads of slot index started and not yet returned.
int inventory_threads(int index);

}  // namespace uhf
