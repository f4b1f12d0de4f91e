// `get`, `set`, `reset` and `factory-reset`.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <map>

#include "UHF.h"
#include "commands.h"
#include "completion.h"
#include "settings.h"

namespace uhfctl {

namespace {

std::string settings_list(bool writable_only) {
    std::string s;
    for (const Setting& st : all_settings()) {
        if (writable_only && !st.set) continue;
        char line[300];
        std::snprintf(line, sizeof line, "  %-14s %s%s%s\n", st.name.c_str(), st.help.c_str(),
                      writable_only ? ": " : (st.get ? "" : " [set only]"), writable_only ? st.syntax.c_str() : "");
        s += line;
    }
    return s;
}

std::vector<std::string> setting_names(bool writable_only) {
    std::vector<std::string> names;
    for (const Setting& st : all_settings())
        if (!writable_only || st.set) names.push_back(st.name);
    return names;
}

int run_get(const Session& s, const std::vector<std::string>& names) {
    // Every name is checked before anything is sent.
    for (const auto& n : names) {
        const Setting* st = find_setting(n);
        if (!st) return fail(kUsage, "get " + n + ": no such setting (uhfctl get --help lists them)");
        if (!st->get) return fail(kUsage, "get " + n + ": the reader has no query for it; it can only be set");
    }
    return s.each([&](const Reader& r) {
        int rc = kOk;
        Json obj(cJSON_CreateObject());
        cJSON_AddStringToObject(obj.get(), "reader", r.label.c_str());
        for (const auto& n : names) {
            Value v;
            bool ok = find_setting(n)->get(v);
            if (!ok) rc = reader_failed(r, "get " + n);
            if (s.format == Format::Json) {
                cJSON_AddItemToObject(obj.get(), n.c_str(), ok ? v.json.release() : cJSON_CreateNull());
            } else if (ok) {
                print("%s%s%-14s %s\n", s.several() ? r.label.c_str() : "", s.several() ? "  " : "", n.c_str(),
                      v.text.c_str());
            }
        }
        if (s.format == Format::Json) print("%s\n", json_line(obj.get()).c_str());
        return rc;
    });
}

int run_set(const Session& s, const std::string& name, const std::vector<std::string>& values, bool save) {
    const Setting* st = find_setting(name);
    if (!st) return fail(kUsage, "set " + name + ": no such setting (uhfctl set --help lists them)");
    if (!st->set) return fail(kUsage, "set " + name + ": read-only");
    if (values.empty()) return fail(kUsage, "set " + name + ": expected " + st->syntax);
    return s.each([&](const Reader& r) {
        std::string err;
        int rc = st->set(values, save, err);
        if (rc == kUsage) return fail(kUsage, "set " + name + ": " + err);
        if (rc != kOk) return reader_failed(r, "set " + name);
        print("%s%s%s set\n", s.several() ? r.label.c_str() : "", s.several() ? ": " : "", name.c_str());
        return static_cast<int>(kOk);
    });
}

// The shared settings table, for people and for the Python package's test.
int run_table(Format format) {
    int width = 0;
    for (const uhftools::SettingRow& row : uhftools::settings_table())
        width = std::max(width, static_cast<int>(uhftools::range_text(row).size()));
    for (const uhftools::SettingRow& row : uhftools::settings_table()) {
        if (format == Format::Json)
            std::printf("%s\n", uhftools::row_json(row).c_str());
        else
            std::printf("%-15s %-*s  %s\n", row.name, width, uhftools::range_text(row).c_str(), row.meaning);
    }
    return kOk;
}

int run_simple(const Session& s, const char* what, int (*call)(), const char* done) {
    return s.each([&](const Reader& r) {
        if (call() != 0) return reader_failed(r, what);
        print("%s: %s\n", r.label.c_str(), done);
        return static_cast<int>(kOk);
    });
}

}  // namespace

void add_settings_commands(CLI::App& app, Context& ctx) {
    auto names = std::make_shared<std::vector<std::string>>();
    auto* get = app.add_subcommand("get", "Read settings or status of the reader");
    get->footer("Names:\n" + settings_list(false) +
                "\nExamples:\n  uhfctl --tcp 192.168.1.50 get beep outputs\n  uhfctl --sim get ip --format json");
    offer(get->add_option("name", *names, "Setting names")->required(), setting_names(false));
    set_runner(get, ctx, [&ctx, names] { return run_get(ctx.session, *names); }, {"text", "json"});

    auto name = std::make_shared<std::string>();
    auto values = std::make_shared<std::vector<std::string>>();
    auto save = std::make_shared<bool>(false);
    auto* set = app.add_subcommand("set", "Change a setting of the reader");
    set->footer("Names and values:\n" + settings_list(true) +
                "\n--save asks the reader to keep the value across a power cycle, for the settings whose command\n"
                "has a save flag; the others are kept at once.\n\nExamples:\n"
                "  uhfctl --sim set beep 1\n  uhfctl --sim set gen2 --session 1 --target 0 --q 4\n  uhfctl --tcp "
                "192.168.1.50 set outputs 1 high\n"
                "  uhfctl --tcp 192.168.1.50 set ip 192.168.1.60:8888 255.255.255.0 192.168.1.1");
    offer(set->add_option("name", *name, "Setting name")->required(), setting_names(true));
    set->add_option("values", *values, "New value(s)");
    set->add_flag("--save", *save, "Keep across a power cycle");
    // gen2 fields by name: --q 4 --session 2 become q=4 session=2.
    auto fields = std::make_shared<std::map<std::string, std::string>>();
    for (const uhftools::SettingRow* row : uhftools::gen2_rows())
        set->add_option("--" + std::string(row->name), (*fields)[row->name],
                        std::string(row->meaning) + " (" + uhftools::range_text(*row) + ")")
            ->type_name("N")
            ->group("Gen2 fields");
    set->callback([&ctx, name, values, save, fields] {
        for (const auto& [field, value] : *fields)
            if (!value.empty()) values->push_back(field + "=" + value);
        ctx.run = [&ctx, name, values, save] { return run_set(ctx.session, *name, *values, *save); };
    });

    auto* table = app.add_subcommand("settings", "List every setting: name, range or choices, meaning");
    table->footer(
        "No reader needed. uhfd's configuration and REST API and the Python package use the same names\n"
        "and ranges; gen2's fields are the rows from select_target to link_frequency.\n"
        "JSON: one object per line, {\"name\",\"meaning\",\"unit\",\"min\",\"max\"} or "
        "{\"name\",\"meaning\",\"choices\"}.\n\n"
        "Examples:\n  uhfctl settings\n  uhfctl settings --format json");
    set_runner(table, ctx, [&ctx] { return run_table(ctx.session.format); }, {"text", "json"});
    table->parse_complete_callback([&ctx] { ctx.opens_itself = true; });

    auto* reset = app.add_subcommand("reset", "Restart the reader: unsaved settings fall back to the saved ones");
    reset->footer("Example:\n  uhfctl --tcp 192.168.1.50 reset");
    set_runner(reset, ctx, [&ctx] { return run_simple(ctx.session, "reset", UHFSetSoftReset, "restarting"); });
    auto* factory = app.add_subcommand("factory-reset", "Restore the reader's factory settings");
    factory->footer("Example:\n  uhfctl --serial /dev/ttyUSB0 factory-reset");
    set_runner(factory, ctx, [&ctx] {
        return run_simple(ctx.session, "factory-reset", UHFSetDefaultMode, "factory settings restored");
    });
}

}  // namespace uhfctl
