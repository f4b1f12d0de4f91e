// The bash completion of uhfctl, generated from the parser's own definitions
// (subcommands, options, the values they accept) so it cannot drift from
// --help. The build writes it with the hidden `uhfctl --bash-completion`.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace uhfctl {

// Words the completion offers for opt's value (a positional: its words).
// Options checked with CLI::IsMember offer their set without this.
CLI::Option* offer(CLI::Option* opt, std::vector<std::string> words);

// The hidden --bash-completion flag: prints the script for app and exits 0.
void add_completion_flag(CLI::App& app);

}  // namespace uhfctl
