// uhfctl: the command-line tool for UHF RFID readers, built on the public
// C API of libuhfhost. Options and dispatch; the subcommands live beside it.
#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdio>
#include <sstream>

#include "UHF.h"
#include "commands.h"
#include "completion.h"
#include "format.h"
#include "version.h"

using namespace uhfctl;

namespace {

const char* kIntro =
    "uhfctl - talk to UHF RFID reader modules.\n\n"
    "Name the reader with --tcp, --serial, --usb or --sim (repeat them to work on several readers at\n"
    "once), or set UHF_READER (tcp:HOST[:PORT], serial:PATH[@BAUD], usb or sim; comma-separated).\n"
    "The first tag of a --sim reader is always EPC E20034120123456789ABCDEF, access password 12345678,\n"
    "kill password 0BADCAFE, with a temperature sensor: the examples of every --help run against it.\n";

const char* kFooter =
    "Exit codes: 0 ok, 1 the reader reported a failure, 2 usage, 3 connection.\n\n"
    "Examples:\n"
    "  uhfctl demo                                   no hardware: a virtual reader, 10 s of live inventory\n"
    "  uhfctl --tcp 192.168.1.50:8888 info           versions, temperature, settings\n"
    "  uhfctl --serial /dev/ttyUSB0@115200 inventory --duration 5\n"
    "  UHF_READER=tcp:192.168.1.50 uhfctl inventory --format json --unique\n"
    "  uhfctl --sim --log transfer raw 0x02          one command frame, with the frames dumped\n";

// --log names to the library's categories.
const std::pair<const char*, ENUM_LOG> kLogNames[] = {{"usb", USB_LOG},       {"function", FUNCTION_LOG},
                                                      {"serial", SERIAL_LOG}, {"transfer", TRANSFER_LOG},
                                                      {"base", BASE_LOG},     {"fifo", TAG_FIFO_LOG}};

bool enable_logs(const std::string& list, std::string& err) {
    std::stringstream in(list);
    std::string item;
    while (std::getline(in, item, ',')) {
        bool known = false;
        for (const auto& [name, cat] : kLogNames) {
            if (item == name || item == "all") {
                openLog(cat);
                known = true;
            }
        }
        if (!known) {
            err = "--log " + item + ": the categories are usb, function, serial, transfer, base, fifo and all";
            return false;
        }
    }
    if (!library_log_to_stderr()) {
        err = "--log: cannot send the library's log to stderr";
        return false;
    }
    openLog(ENABLE_LOG);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{kIntro, "uhfctl"};
    app.footer(kFooter);
    app.set_version_flag("--version", uhftools::version_text("uhfctl"), "Print the versions of uhfctl and libuhfhost");
    app.require_subcommand(1);
    app.fallthrough();  // connection options may follow the subcommand too

    Context ctx;
    std::string logs;
    auto* conn = app.add_option_group("Readers");
    conn->add_option("--tcp", ctx.connect.tcp, "Reader on the network, HOST[:PORT] (port 8888 by default)")
        ->type_name("HOST[:PORT]");
    conn->add_option("--serial", ctx.connect.serial, "Reader on a serial port, PATH[@BAUD] (115200 by default)")
        ->type_name("PATH[@BAUD]");
    conn->add_flag("--usb", ctx.connect.usb, "The reader on USB (HID 2047:0301)");
    conn->add_flag("--sim", ctx.connect.sim, "A virtual reader inside uhfctl (repeat for several)");
    conn->add_option("--sim-tags", ctx.connect.sim_tags, "Tags in each virtual reader's field")
        ->check(CLI::Range(1u, 1000u))
        ->capture_default_str();
    conn->add_option("--sim-rate", ctx.connect.sim_rate, "Reads per second of each virtual reader")
        ->check(CLI::Range(1u, 100000u))
        ->capture_default_str();
    std::vector<std::string> log_words{"all"};
    for (const auto& [name, cat] : kLogNames) log_words.push_back(name);
    offer(app.add_option("--log", logs, "Library diagnostics on stderr: usb,function,serial,transfer,base,fifo or all")
              ->type_name("CATEGORY,..."),
          log_words);

    add_demo_command(app, ctx);
    add_inventory_command(app, ctx);
    add_info_command(app, ctx);
    add_tag_commands(app, ctx);
    add_sensor_commands(app, ctx);
    add_settings_commands(app, ctx);
    add_upgrade_command(app, ctx);
    add_debug_commands(app, ctx);
    add_completion_flag(app);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // CLI11 takes an unknown word for a stray argument; name it.
        if (app.get_subcommands().empty() && !app.remaining().empty() && e.get_exit_code() != 0)
            return fail(kUsage, "unknown subcommand " + app.remaining().front() + " (uhfctl --help lists them)");
        if (e.get_exit_code() == 0) return app.exit(e) == 0 ? kOk : kUsage;  // --help, --version
        // One line that names the tool, the subcommand and where its usage is.
        std::string sub = app.get_subcommands().empty() ? "" : app.get_subcommands().front()->get_name();
        std::string what = e.what();
        if (!what.empty()) what[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(what[0])));
        return fail(kUsage,
                    (sub.empty() ? "" : sub + ": ") + what + " (uhfctl " + (sub.empty() ? "" : sub + " ") + "--help)");
    }

    std::string err;
    if (!logs.empty() && !enable_logs(logs, err)) return fail(kUsage, err);
    install_stop_handler();
    if (!ctx.opens_itself) {
        std::vector<Target> targets;
        int rc = ctx.connections.targets(ctx.connect, targets, err);
        if (rc == kOk) rc = ctx.connections.open(targets, ctx.connect, ctx.session.readers, err, ctx.keep_going);
        if (rc != kOk) return fail(rc, err);
        ctx.session.reopen = [&ctx, targets](size_t i, std::string& e) {
            Reader& r = ctx.session.readers[i];
            if (r.is_open()) {
                LinkSelect(r.slot);
                ClosePort();
            }
            return ctx.connections.open_one(targets[i], ctx.connect, r, e);
        };
    }
    int rc = ctx.run ? ctx.run() : kUsage;
    ctx.connections.close_all();
    return rc;
}
