// Which route a (percent-decoded) path names, with the reader in it.
#pragma once

#include <string>
#include <string_view>

namespace uhfd {

enum class Route { None, Page, Readers, Reader, Settings, Inventory, Tags, Stream, Metrics };

struct RouteMatch {
    Route route = Route::None;
    std::string reader;
    bool start = false;  // inventory/start rather than /stop
    bool write() const { return route == Route::Settings || route == Route::Inventory; }
    // The method the route takes ("GET" routes answer HEAD too).
    const char* method() const;
};

RouteMatch match_route(std::string_view path);
// The method is the route's; false means 405.
bool method_fits(const RouteMatch& m, std::string_view method);

}  // namespace uhfd
