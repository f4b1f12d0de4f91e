// LLRP's binary encoding against frames written by hand from the standard's
// encoding tables, and the decoder's refusals of malformed input.
#include <gtest/gtest.h>

#include "llrp_codec.h"

namespace uhfd::llrp {
namespace {

std::string hex(std::string_view h) {  // "04 0A" -> bytes
    std::string out;
    for (size_t i = h.find_first_not_of(' '); i != std::string_view::npos; i = h.find_first_not_of(' ', i + 2))
        out.push_back(char(std::stoi(std::string(h.substr(i, 2)), nullptr, 16)));
    return out;
}

TEST(LlrpCodec, WritesTheStandardsFrames) {
    const std::pair<void (*)(std::string&), const char*> cases[] = {
        {[](std::string& o) { status_message(o, msg::CLOSE_CONNECTION_RESPONSE, 7, Error{}); },
         "0404 00000012 00000007  011F 0008 0000 0000"},
        {[](std::string& o) { status_message(o, msg::ERROR_MESSAGE, 1, field_error(A_Invalid, 0, 1, "x")); },
         "0464 0000001B 00000001  011F 0011 0065 0001 78  0120 0008 0001 012C"},
        {[](std::string& o) { status_message(o, msg::ERROR_MESSAGE, 2, param_error(P_UnsupportedParameter, 223, "")); },
         "0464 0000001A 00000002  011F 0010 0064 0000  0121 0008 00DF 00D1"},
        {[](std::string& o) { status_message(o, msg::ERROR_MESSAGE, 3, field_error(A_OutOfRange, 224, 2, "")); },
         "0464 00000022 00000003  011F 0018 0064 0000  0121 0010 00E0 00C9  0120 0008 0002 012D"},
        {[](std::string& o) {
             Writer w(o);
             w.tv(param::AntennaID), w.u16(2), w.tv(param::PeakRSSI), w.u8(uint8_t(-60));
             size_t a = w.begin(param::EPCData);
             w.bits(12, hex("E201"));
             size_t b = w.begin(param::C1G2ReadOpSpecResult);
             w.u8(0), w.u16(5), w.u16v(hex("11223344"));
             w.end(b), w.end(a);
         },
         "81 0002  86 C4  00F1 0015 000C E201  015D 000D 00 0005 0002 11223344"},
    };
    for (const auto& [write, bytes] : cases) {
        std::string out;
        write(out);
        EXPECT_EQ(out, hex(bytes)) << bytes;
    }
}

TEST(LlrpCodec, FramesAStream) {
    const std::tuple<const char*, Frame, uint32_t> cases[] = {
        {"0404 0000", Frame::NeedMore, 0},
        {"0404 0000000A 00000007", Frame::Whole, 10},
        {"0404 0000000C 00000007 00", Frame::NeedMore, 12},
        {"0404 0000000B 00000007 00 FF", Frame::Whole, 11},  // the next message's first byte
        {"0404 00000009 00000007", Frame::Bad, 9},
        {"0404 00100001 00000007", Frame::Bad, 0x100001},
    };
    for (const auto& [bytes, want, length] : cases) {
        Header h;
        EXPECT_EQ(frame(hex(bytes), h), want) << bytes;
        EXPECT_EQ(h.length, length) << bytes;  // known as soon as the header is there
    }
}

TEST(LlrpCodec, RefusesMalformedParameters) {
    std::string deep;  // Custom parameters nested one level more than allowed
    for (int i = 0; i <= kMaxDepth + 1; i++) deep = hex("03FF") + char(0) + char(deep.size() + 4) + deep;
    const std::tuple<std::string, uint16_t, uint16_t> cases[] = {
        {hex("011F 00"), M_ParameterError, 0},                                            // header cut short
        {hex("011F 0003 00"), P_ParameterError, param::LLRPStatus},                       // length below the header
        {hex("011F 0010 0000 0000"), P_ParameterError, param::LLRPStatus},                // length beyond the data
        {hex("0001 0006 0003"), P_ParameterError, param::AntennaID},                      // a TLV with a TV type
        {hex("95 0000"), P_UnknownParameter, 0x15},                                       // unknown TV type
        {hex("8D 3000 1122"), P_ParameterError, param::EPC96},                            // TV cut short
        {hex("81 0001  00DE 0009 0001"), P_ParameterError, param::AntennaConfiguration},  // beyond its parent
        {deep, M_ParameterError, 0},
    };
    for (const auto& [bytes, code, type] : cases) {
        Params ps(bytes);
        Param p;
        while (ps.next(p))
            if (p.type == param::Custom) ps = ps.inside(p.body);
        EXPECT_EQ(std::make_tuple(ps.error().code, ps.error().param), std::make_tuple(code, type)) << bytes.size();
    }
}

TEST(LlrpCodec, FieldReaderFailsForGood) {
    const std::pair<const char*, std::string_view (*)(Reader&)> bad[] = {
        {"0005 4142", [](Reader& x) { return x.u8v(); }},
        {"0002 414243", [](Reader& x) { return x.u16v(); }},
        {"0011 4142",
         [](Reader& x) {
             uint16_t k;
             return x.bits(k);
         }},
        {"0002 C028", [](Reader& x) { return x.utf8(); }},    // overlong
        {"0002 41E2", [](Reader& x) { return x.utf8(); }},    // cut inside a character
        {"0003 EDA080", [](Reader& x) { return x.utf8(); }},  // UTF-16 surrogate
    };
    for (const auto& [h, read] : bad) {
        std::string b = hex(h);
        Reader x(b);
        EXPECT_TRUE(read(x).empty()) << h;
        EXPECT_EQ(x.u8(), 0) << h;  // sticky: what is left is not read any more
        EXPECT_FALSE(x.ok()) << h;
    }
}

}  // namespace
}  // namespace uhfd::llrp
