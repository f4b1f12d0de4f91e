// The rules every HTTP request passes: UTF-8, Host and Origin names, the
// token, and which route a path names (the methods each takes: test_http.py).
#include <gtest/gtest.h>

#include <string>

#include "http_guard.h"
#include "http_routes.h"

namespace {

using uhfd::HostRule;

TEST(HttpGuard, Utf8) {
    struct Case {
        const char* name;
        std::string text;
        bool valid;
    } cases[] = {
        {"ASCII", "dock-1", true},
        {"two bytes", "caf\xc3\xa9", true},
        {"four bytes", "\xf0\x9f\x98\x80", true},
        {"the last code point", "\xf4\x8f\xbf\xbf", true},
        {"a byte never in UTF-8", "\xff", false},
        {"cut short", "\xe2\x82", false},
        {"overlong two bytes", "\xc0\xaf", false},
        {"overlong four bytes", "\xf0\x8f\xbf\xbf", false},
        {"a surrogate", "\xed\xa0\x80", false},
        {"past U+10FFFF", "\xf4\x90\x80\x80", false},
        {"ASCII where a continuation belongs", "\xe2\x28\xa1", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(uhfd::valid_utf8(c.text), c.valid);
    }
}

TEST(HttpGuard, BearerToken) {
    struct Case {
        const char* authorization;
        bool matches;
    } cases[] = {
        {"Bearer s3cret", true},  {"bearer s3cret", true}, {"Bearer s3cre", false}, {"Bearer s3cret!", false},
        {"Bearer s3creT", false}, {"s3cret", false},       {"Basic s3cret", false}, {"", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.authorization);
        EXPECT_EQ(uhfd::bearer_matches(c.authorization, "s3cret"), c.matches);
    }
}

TEST(HttpGuard, HostNames) {
    const HostRule loopback("127.0.0.1", false, {"gw.plant.example"});
    const HostRule lan("192.168.1.5", false, {});
    const HostRule any4("0.0.0.0", true, {});
    const HostRule v6("[2001:db8::5]", false, {});
    const HostRule named("gw.local", false, {});
    struct Case {
        const HostRule& rule;
        const char* host;
        bool allowed;
    } cases[] = {
        {loopback, "localhost", true},
        {loopback, "LOCALHOST:8080", true},
        {loopback, "127.9.9.9", true},
        {loopback, "[::1]:8080", true},
        {loopback, "GW.plant.example:443", true},
        {loopback, "plant.example", false},
        {loopback, "localhost.evil.example", false},
        {loopback, "192.168.1.5", false},
        {loopback, "127.1", false},  // not a dotted quad: a name nobody listed
        {loopback, "::1", false},    // IPv6 only in brackets
        {loopback, "[::1", false},
        {loopback, "[gw.plant.example]", false},
        {loopback, "localhost:", false},
        {loopback, "localhost:65536", false},
        {lan, "192.168.1.5:8080", true},
        {lan, "192.168.1.6", false},
        {any4, "10.0.0.7", true},
        {any4, "[fe80::1]", true},
        {any4, "evil.example", false},
        {v6, "[2001:db8:0::5]:8080", true},
        {v6, "[2001:db8::6]", false},
        {named, "gw.local:8080", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.host);
        EXPECT_EQ(c.rule.allows_host(c.host), c.allowed);
    }
}

TEST(HttpGuard, Origins) {
    const HostRule rule("127.0.0.1", false, {"gw.plant.example"});
    struct Case {
        const char* origin;
        bool allowed;
    } cases[] = {
        {"http://localhost:8080", true}, {"https://gw.plant.example", true},
        {"http://evil.example", false},  {"null", false},
        {"ftp://localhost", false},      {"localhost", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.origin);
        EXPECT_EQ(rule.allows_origin(c.origin), c.allowed);
    }
}

TEST(HttpGuard, Routes) {
    using uhfd::Route;
    struct Case {
        const char* path;
        Route route;
        const char* reader;
        bool start;
    } cases[] = {
        {"/", Route::Page, "", false},
        {"/api/v1/readers/dock-1", Route::Reader, "dock-1", false},
        {"/api/v1/readers/dock-1/settings", Route::Settings, "dock-1", false},
        {"/api/v1/readers/dock-1/inventory/start", Route::Inventory, "dock-1", true},
        {"/api/v1/readers/", Route::None, "", false},
        {"/api/v1/readers//settings", Route::None, "", false},
        {"/api/v1/readers/dock-1/inventory/pause", Route::None, "dock-1", false},
        {"/api/v1/readers/dock-1/settings/x", Route::None, "dock-1", false},
        {"/api/v1/tags/", Route::None, "", false},
        {"/API/v1/tags", Route::None, "", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        uhfd::RouteMatch m = uhfd::match_route(c.path);
        EXPECT_EQ(m.route, c.route);
        EXPECT_EQ(m.reader, c.reader);
        EXPECT_EQ(m.start, c.start);
    }
}

}  // namespace
