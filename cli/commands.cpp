#include "commands.h"

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
        if (format) ctx.session.format = *format == "json" ? Format::Json : *format == "csv" ? Format::Csv : Format::Text;
        ctx.run = run;
    });
}

}  // namespace uhfctl
