// Shared pieces of the tag-access wire tests: row types for tables whose
// rows differ in command code, the sample tag and the filters sent.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "command_rows.h"

namespace tagtest {

using uhftest::Bytes;

// The sample tag: PC 0x3000 (six EPC words) and a 96-bit EPC.
inline const Bytes kUii = {0x30, 0x00, 0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
inline const Bytes kPwdBytes = {0x12, 0x34, 0x56, 0x78};

// One request-bytes row: the call, its command code, a good reply's data and
// the request data the call must send.
struct RequestCase {
    const char* name;
    uint8_t cmd;
    Bytes reply;
    std::function<int()> call;
    Bytes request;
};

// One reply-status row: the call, its command code, a reply's data and the
// result the call must give for it.
struct ResultCase {
    const char* name;
    uint8_t cmd;
    std::function<int()> call;
    Bytes reply;
    int result;
};

// The command-row fixture with the pieces every tag-access table uses.
class TagWire : public uhftest::CommandTest {
protected:
    // Scripts the reply (data of a frame with code reply_code, or silence
    // when nullopt), runs call and returns its result; the request it sent
    // is in sent_cmd / sent_data.
    int run(uint8_t reply_code, std::optional<Bytes> reply, const std::function<int()>& call) {
        return exchange(reply ? uhftest::frame(reply_code, *reply) : Bytes{}, call);
    }

    void expect_requests(const std::vector<RequestCase>& cases) {
        for (const RequestCase& c : cases) {
            SCOPED_TRACE(c.name);
            EXPECT_EQ(run(c.cmd + 1, c.reply, c.call), 0);
            EXPECT_EQ(sent_cmd, c.cmd);
            EXPECT_EQ(sent_data, c.request);
        }
    }

    void expect_results(const std::vector<ResultCase>& cases) {
        for (const ResultCase& c : cases) {
            SCOPED_TRACE(c.name);
            EXPECT_EQ(run(c.cmd + 1, c.reply, c.call), c.result);
        }
    }

    // Checks that none of the calls sent a byte: a good exchange after them
    // must be the first and only thing the reader saw.
    void expect_silent_refusals(const std::function<void()>& calls) {
        calls();
        reader.reply_frame(0xB3, {0x01});
        ASSERT_EQ(UHF_Dwelltime(1, 1), 0);
        auto reqs = reader.requests();
        ASSERT_EQ(reqs.size(), 1u) << "a refused call reached the wire";
        EXPECT_EQ(reqs[0], uhftest::frame(0xB2, {0, 0, 0, 1, 0, 0, 0, 1}));
    }

    uint8_t pwd[4] = {0x12, 0x34, 0x56, 0x78};
    // A mask long enough for every filter length used (the sample EPC first).
    uint8_t mask[16] = {0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x11, 0x22, 0x33, 0x44};
};

// The filter blocks the tables send (bank 1, bit address 0x20, the mask
// member of TagWire), written out as the wire must carry them.
struct FilterCase {
    unsigned bits;
    Bytes block;
};
inline const FilterCase kFilters[] = {
    {0, {0x01, 0x00, 0x20, 0x00, 0x00}},
    {9, {0x01, 0x00, 0x20, 0x00, 0x09, 0xE2, 0x00}},
    {12, {0x01, 0x00, 0x20, 0x00, 0x0C, 0xE2, 0x00}},
    {96, {0x01, 0x00, 0x20, 0x00, 0x60, 0xE2, 0x00, 0x34, 0x12, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}},
};

}  // namespace tagtest
