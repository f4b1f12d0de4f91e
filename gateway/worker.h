// A reader's worker: a process of its own that owns one link through the
// library (its table, queue and threads are this process's alone), applies
// settings, keeps the reader inventorying and streams its reads to the
// supervisor over the socketpair on fd. It lives for one link: when the link
// cannot be opened or is lost it says why and exits, and the supervisor
// starts a new one after a backoff; exit cleans up every descriptor.
#pragma once

namespace uhfd {

// Exit codes: 0 told to stop; 3 the link failed or was lost; 4 the supervisor went away.
int worker_main(int fd);

}  // namespace uhfd
