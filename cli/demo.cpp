// `uhfctl demo`: the whole tool without hardware. A virtual reader with a
// few dozen tags runs inside this process; a live inventory reads it.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

#include "commands.h"
#include "format.h"
#include "inventory.h"

namespace uhfctl {

namespace {

struct DemoOptions {
    double duration = 10;
    unsigned tags = 32;
    unsigned rate = 300;
};

int run_demo(Context& ctx, const DemoOptions& d) {
    ConnectOptions c;
    c.sim = 1;
    c.sim_tags = d.tags;
    c.sim_rate = d.rate;
    std::vector<Target> targets;
    std::string err;
    int rc = ctx.connections.targets(c, targets, err);
    if (rc == kOk) rc = ctx.connections.open(targets, c, ctx.session.readers, err);
    if (rc != kOk) return fail(rc, err);

    const bool tty = stdout_is_terminal();
    print("uhfctl demo: a virtual reader with %u tags on %s, reading for %.0f s\n", d.tags,
          ctx.session.readers.front().label.c_str(), d.duration);
    InventoryOptions o;
    o.duration = d.duration;
    o.live = tty;
    o.title = "demo (virtual reader, " + std::to_string(d.tags) + " tags)";
    InventoryResult r;
    ctx.session.format = Format::Text;
    rc = run_inventory(ctx.session, o, r);

    print("\nDemo summary\n");
    print("  tags seen       %zu of %u\n", r.tags.size(), d.tags);
    print("  reads           %llu in %.1f s (%.0f reads/s)\n", static_cast<unsigned long long>(r.reads), r.seconds,
          r.seconds > 0 ? static_cast<double>(r.reads) / r.seconds : 0.0);
    if (!r.tags.empty()) {
        auto strongest = std::max_element(r.tags.begin(), r.tags.end(),
                                          [](const TagSeen& a, const TagSeen& b) { return a.rssi_max < b.rssi_max; });
        auto busiest = std::max_element(r.tags.begin(), r.tags.end(),
                                        [](const TagSeen& a, const TagSeen& b) { return a.reads < b.reads; });
        print("  strongest tag   %s at %s dBm\n", strongest->epc.c_str(), dbm(strongest->rssi_max).c_str());
        print("  most reads      %s, %llu times\n", busiest->epc.c_str(),
              static_cast<unsigned long long>(busiest->reads));
    }
    print("  reader stopped  %s\n", r.stop_confirmed ? "yes, confirmed" : "NOT confirmed");
    print("\nNext: uhfctl --sim info, uhfctl --sim inventory --format json, uhfctl --help\n");
    if (rc == kOk && r.tags.empty()) return fail(kReaderFailed, "the demo saw no tag");
    return rc;
}

}  // namespace

void add_demo_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("demo", "Live inventory against a built-in virtual reader: no hardware needed");
    cmd->footer(
        "Starts a virtual reader inside uhfctl, reads its tags for --duration seconds (or until Ctrl-C)\n"
        "and prints a summary. Connection options are ignored.\n\n"
        "Examples:\n"
        "  uhfctl demo\n"
        "  uhfctl demo --duration 3 --tags 50");
    auto d = std::make_shared<DemoOptions>();
    cmd->add_option("-d,--duration", d->duration, "Seconds to read")
        ->check(CLI::Validator(check_seconds, "SECONDS"))
        ->capture_default_str();
    cmd->add_option("--tags", d->tags, "Tags in the virtual field")
        ->check(CLI::Range(1u, 1000u))
        ->capture_default_str();
    cmd->add_option("--rate", d->rate, "Reads per second of the virtual reader")
        ->check(CLI::Range(1u, 100000u))
        ->capture_default_str();
    cmd->callback([&ctx, d] {
        ctx.opens_itself = true;
        ctx.run = [&ctx, d] { return run_demo(ctx, *d); };
    });
}

}  // namespace uhfctl
