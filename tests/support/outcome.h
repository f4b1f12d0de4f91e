// What a call of the C API hands back, in one comparable value.
#pragma once

#include <cstring>
#include <vector>

namespace uhftest {

// A call's result and its outputs, flattened (sentinels where untouched).
struct Outcome {
    int result;
    std::vector<unsigned> out;
    bool operator==(const Outcome&) const = default;
};

// A call with no outputs.
inline Outcome done(int r) { return {r, {}}; }

// A call's result and its N outputs of type T, each set to 0xEE bytes first,
// so an untouched one shows.
template <class T, size_t N, class F>
Outcome filled(F&& call) {
    T v[N];
    memset(v, 0xEE, sizeof v);
    int r = call(v);
    return {r, std::vector<unsigned>(v, v + N)};
}

}  // namespace uhftest
