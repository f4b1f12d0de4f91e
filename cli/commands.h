// The subcommands of uhfctl. Each add_* registers one (or a group) on the
// app; its callback stores what to run once the readers are open.
#pragma once

#include <functional>
#include <string>

#include "connection.h"
#include "session.h"

namespace CLI {
class App;
}

namespace uhfctl {

struct Context {
    Session session;
    ConnectOptions connect;
    Connections connections;
    std::function<int()> run;   // the chosen subcommand
    bool opens_itself = false;  // demo brings its own reader
    bool keep_going = false;    // inventory runs with the readers that open (and retries the others)
};

// Makes run the command when cmd is chosen; with formats, adds --format
// (the first is the default; "table" and "text" both mean text).
void set_runner(CLI::App* cmd, Context& ctx, std::function<int()> run, const std::vector<std::string>& formats = {});

// --duration: a number of seconds above 0, with a plain message otherwise.
std::string check_seconds(std::string& text);

void add_inventory_command(CLI::App& app, Context& ctx);
void add_demo_command(CLI::App& app, Context& ctx);
void add_info_command(CLI::App& app, Context& ctx);
void add_settings_commands(CLI::App& app, Context& ctx);  // get, set, reset, factory-reset
void add_tag_commands(CLI::App& app, Context& ctx);       // read, write, erase, lock, kill, permalock
void add_sensor_commands(CLI::App& app, Context& ctx);    // sensor log|voltage|temp
void add_upgrade_command(CLI::App& app, Context& ctx);
void add_debug_commands(CLI::App& app, Context& ctx);  // links, raw

}  // namespace uhfctl
