// The operator's view: one line on stderr for everything an operator acts
// on (a reader's state, the broker, overflows, reloads), in logfmt so that
// journald, grep and log shippers read it alike:
//   uhfd: level=warn reader=dock-1 event=state state=reconnecting reason="it stopped sending"
// Under journald (JOURNAL_STREAM set) each line also carries its syslog
// priority prefix, so `journalctl -p warning` finds the trouble.
#pragma once

#include <initializer_list>
#include <string_view>
#include <utility>

namespace uhfd {

enum class Level { Error, Warn, Info };

using Field = std::pair<std::string_view, std::string_view>;

// reader may be empty for lines about the gateway itself.
void oplog(Level level, std::string_view reader, std::string_view event, std::initializer_list<Field> fields = {});

}  // namespace uhfd
