// `uhfctl info`: everything the reader tells about itself on one screen.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "UHF.h"
#include "commands.h"
#include "settings.h"

namespace uhfctl {

namespace {

int run_info(const Session& s) {
    char built[32] = {};
    UHFGetVersionCode(built);
    return s.each([&](const Reader& r) {
        Json obj(cJSON_CreateObject());
        cJSON_AddStringToObject(obj.get(), "reader", r.label.c_str());
        cJSON_AddStringToObject(obj.get(), "library", built);
        if (s.format == Format::Text) print("%-14s %s\n%-14s built %s\n", "reader", r.label.c_str(), "library", built);
        size_t answered = 0, asked = 0;
        for (const Setting& st : all_settings()) {
            if (!st.in_info) continue;
            if (stop_requested()) return static_cast<int>(kReaderFailed);
            asked++;
            Value v;
            bool ok = st.get(v);
            answered += ok;
            if (s.format == Format::Json)
                cJSON_AddItemToObject(obj.get(), st.name.c_str(), ok ? v.json.release() : cJSON_CreateNull());
            else
                print("%-14s %s\n", st.name.c_str(), ok ? v.text.c_str() : "(no answer)");
        }
        if (s.format == Format::Json)
            print("%s\n", json_line(obj.get()).c_str());
        else if (s.several())
            print("\n");
        std::fflush(out());
        // A reader that lacks some commands still has an identity worth showing.
        if (answered == 0) return reader_failed(r, "info");
        return static_cast<int>(kOk);
    });
}

}  // namespace

void add_info_command(CLI::App& app, Context& ctx) {
    auto* cmd = app.add_subcommand("info", "Versions, identity, temperature and settings of the reader");
    cmd->footer(
        "What the reader does not answer shows as \"(no answer)\" (null in JSON).\n\n"
        "Examples:\n  uhfctl --tcp 192.168.1.50 info\n  uhfctl --sim info --format json");
    set_runner(cmd, ctx, [&ctx] { return run_info(ctx.session); }, {"text", "json"});
}

}  // namespace uhfctl
