#include "commands.h"

#include <cstdlib>

#include <CLI/CLI.hpp>

namespace uhfctl {

void set_runner(CLI::App* cmd, Context& ctx, std::function<int()> run, const std::vector<std::string>& formats) {
    std::shared_ptr<std::string> format;
    if (!formats.empty()) {
        format = std::make_shared<std::string>(formats.front());
        std::string names;
        for (const auto& f : formats) names += (names.empty() ? "" : ", ") + f;
        cmd->add_option("-f,--format", *format, names)->check(CLI::IsMember(formats))->capture_default_str();
    }
    cmd->callback([&ctx, format, run] {
        if (format)
            ctx.session.format = *format == "json" ? Format::Json : *format == "csv" ? Format::Csv : Format::Text;
        ctx.run = run;
    });
}

std::string check_seconds(std::string& text) {
    char* end = nullptr;
    double v = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0') return "a number of seconds is expected, not " + text;
    return v > 0 ? std::string() : "must be more than 0 seconds, not " + text;
}

}  // namespace uhfctl
