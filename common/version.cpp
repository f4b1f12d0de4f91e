#include "version.h"

#include <dlfcn.h>

#include <cstring>

#include "UHF.h"

namespace uhftools {

std::string version_text(const char* tool) {
    std::string lib = "libuhfhost " UHFTOOLS_VERSION;
    // The file the dynamic loader actually mapped: its name carries the soname.
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&UHFInventory), &info) != 0 && info.dli_fname != nullptr) {
        const char* slash = std::strrchr(info.dli_fname, '/');
        lib += std::string(" (") + (slash ? slash + 1 : info.dli_fname) + ")";
    }
    return tool_version(tool) + "\n" + lib;
}

}  // namespace uhftools
