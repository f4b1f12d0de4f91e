#include "http_routes.h"

#include <algorithm>
#include <vector>

namespace uhfd {

namespace {

struct Fixed {
    std::string_view path;
    Route route;
};
constexpr Fixed kFixed[] = {{"/", Route::Page},
                            {"/metrics", Route::Metrics},
                            {"/api/v1/readers", Route::Readers},
                            {"/api/v1/tags", Route::Tags},
                            {"/api/v1/stream", Route::Stream}};
constexpr std::string_view kReaders = "/api/v1/readers/";

// "a/b/c" -> {"a","b","c"}
std::vector<std::string_view> segments(std::string_view path) {
    std::vector<std::string_view> out;
    for (size_t at = 0; at <= path.size();) {
        size_t end = std::min(path.find('/', at), path.size());
        out.push_back(path.substr(at, end - at));
        at = end + 1;
    }
    return out;
}

// NAME, NAME/settings, NAME/inventory/start or NAME/inventory/stop
RouteMatch reader_route(std::string_view rest) {
    std::vector<std::string_view> s = segments(rest);
    RouteMatch m;
    if (s[0].empty()) return m;
    m.reader = std::string(s[0]);
    if (s.size() == 1) m.route = Route::Reader;
    if (s.size() == 2 && s[1] == "settings") m.route = Route::Settings;
    if (s.size() == 3 && s[1] == "inventory" && (s[2] == "start" || s[2] == "stop")) {
        m.route = Route::Inventory;
        m.start = s[2] == "start";
    }
    return m;
}

}  // namespace

const char* RouteMatch::method() const {
    if (route == Route::Settings) return "PUT";
    if (route == Route::Inventory) return "POST";
    return "GET";
}

RouteMatch match_route(std::string_view path) {
    RouteMatch m;
    for (const Fixed& f : kFixed)
        if (path == f.path) m.route = f.route;
    if (m.route == Route::None && path.substr(0, kReaders.size()) == kReaders)
        return reader_route(path.substr(kReaders.size()));
    return m;
}

bool method_fits(const RouteMatch& m, std::string_view method) {
    std::string_view want = m.method();
    return method == want || (want == "GET" && method == "HEAD");
}

}  // namespace uhfd
