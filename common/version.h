// One --version line for uhfctl, uhfsim and uhfd. The tool part needs
// nothing but the build; the library part reports the libuhfhost actually
// loaded, which only tools linked with it can do.
#pragma once

#include <string>

namespace uhftools {

// "uhfctl 1.0.0 (commit abc1234)": the project version and the build's git
// commit ("unknown" outside a checkout). Header-only, so uhfsim can use it
// without linking the host library.
inline std::string tool_version(const char* tool) {
    return std::string(tool) + " " + UHFTOOLS_VERSION + " (commit " + UHFTOOLS_COMMIT + ")";
}

// The tool line, then "libuhfhost VERSION (FILE)" for the library loaded.
std::string version_text(const char* tool);

}  // namespace uhftools
