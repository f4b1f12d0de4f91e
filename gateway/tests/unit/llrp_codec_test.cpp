// LLRP's binary encoding against frames written by hand from the standard's
// encoding tables, and the decoder's refusals of malformed input.
#include <gtest/gtest.h>

#include "llrp_codec.h"

namespace uhfd::llrp {
namespace {

// "04 04 00" -> bytes; spaces ignored.
std::string hex(std::string_view h) {
    std::string out;
    int hi = -1;
    for (char c : h) {
        if (c == ' ') continue;
        int v = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
        if (hi < 0) {
            hi = v;
        } else {
            out.push_back(char(hi << 4 | v));
            hi = -1;
        }
    }
    return out;
}

struct Encoded {
    const char* name;
    void (*write)(std::string&);
    const char* bytes;
};

const Encoded kEncoded[] = {
    {"success response", [](std::string& o) { status_message(o, msg::CLOSE_CONNECTION_RESPONSE, 7, Error{}); },
     "0404 00000012 00000007  011F 0008 0000 0000"},
    {"message field at fault",
     [](std::string& o) { status_message(o, msg::ERROR_MESSAGE, 1, field_error(A_Invalid, 0, 1, "x")); },
     "0464 0000001B 00000001  011F 0011 0065 0001 78  0120 0008 0001 012C"},
    {"parameter at fault",
     [](std::string& o) { status_message(o, msg::ERROR_MESSAGE, 2, param_error(P_UnsupportedParameter, 223, "")); },
     "0464 0000001A 00000002  011F 0010 0064 0000  0121 0008 00DF 00D1"},
    {"field of a parameter at fault",
     [](std::string& o) { status_message(o, msg::ERROR_MESSAGE, 3, field_error(A_OutOfRange, 224, 2, "")); },
     "0464 00000022 00000003  011F 0018 0064 0000  0121 0010 00E0 00C9  0120 0008 0002 012D"},
    {"unsupported version: a bare status",
     [](std::string& o) { status_message(o, msg::ERROR_MESSAGE, 9, message_error(M_UnsupportedVersion, "")); },
     "0464 00000012 00000009  011F 0008 006E 0000"},
    {"TV parameters and fields",
     [](std::string& o) {
         Writer w(o);
         w.tv(param::AntennaID), w.u16(2);
         w.tv(param::PeakRSSI), w.u8(uint8_t(-60));
         w.tv(param::FirstSeenTimestampUTC), w.u64(0x0102030405060708);
         w.tv(param::ROSpecID), w.u32(0xAABBCCDD);
     },
     "81 0002  86 C4  82 0102030405060708  89 AABBCCDD"},
    {"nested TLV with arrays",
     [](std::string& o) {
         Writer w(o);
         size_t a = w.begin(param::EPCData);
         w.bits(12, hex("E201"));
         size_t b = w.begin(param::C1G2ReadOpSpecResult);
         w.u8(0), w.u16(5), w.u16v(hex("11223344"));
         w.end(b);
         w.end(a);
     },
     "00F1 0015 000C E201  015D 000D 00 0005 0002 11223344"},
};

TEST(LlrpCodec, WritesTheStandardsFrames) {
    for (const Encoded& c : kEncoded) {
        std::string out;
        c.write(out);
        EXPECT_EQ(out, hex(c.bytes)) << c.name;
    }
}

TEST(LlrpCodec, WriterAllocatesNothingOnceWarm) {
    std::string out;
    out.reserve(256);
    const char* data = out.data();
    for (int i = 0; i < 3; i++) {
        out.clear();
        Writer w(out);
        size_t m = w.begin_message(msg::RO_ACCESS_REPORT, 1);
        size_t p = w.begin(param::TagReportData);
        w.tv(param::EPC96), w.bytes(std::string(12, 'e'));
        w.end(p);
        w.end_message(m);
    }
    EXPECT_EQ(out.data(), data);
}

struct Framed {
    const char* bytes;
    Frame want;
    uint32_t length;
};

TEST(LlrpCodec, FramesAStream) {
    const Framed cases[] = {
        {"0404 0000", Frame::NeedMore, 0},
        {"0404 0000000A 00000007", Frame::Whole, 10},
        {"0404 0000000C 00000007 00", Frame::NeedMore, 12},
        {"0404 0000000B 00000007 00 FF", Frame::Whole, 11},  // the next message's first byte
        {"0404 00000009 00000007", Frame::Bad, 9},
        {"0404 00100001 00000007", Frame::Bad, 0x100001},
        {"0404 FFFFFFFF 00000007", Frame::Bad, 0xFFFFFFFF},
    };
    for (const Framed& c : cases) {
        Header h;
        EXPECT_EQ(frame(hex(c.bytes), h), c.want) << c.bytes;
        if (c.want != Frame::NeedMore) {
            EXPECT_EQ(h.length, c.length) << c.bytes;
        }
    }
    Header h;
    ASSERT_EQ(frame(hex("082E 0000000A 01020304"), h), Frame::Whole);
    EXPECT_EQ(h.version, 2);
    EXPECT_EQ(h.type, msg::GET_SUPPORTED_VERSION);
    EXPECT_EQ(h.id, 0x01020304u);
}

TEST(LlrpCodec, WalksParameters) {
    // An LLRPStatus holding a FieldError, then an AntennaID (TV) and an empty Custom.
    std::string bytes = hex("011F 0010 0000 0000 0120 0008 0001 012C  81 0003  03FF 0004");
    Params ps(bytes);
    Param p;
    ASSERT_TRUE(ps.next(p));
    EXPECT_EQ(p.type, param::LLRPStatus);
    EXPECT_FALSE(p.tv);
    Reader r(p.body);
    EXPECT_EQ(r.u16(), 0);
    EXPECT_EQ(r.utf8(), "");
    Params in = ps.inside(r.rest());
    Param q;
    ASSERT_TRUE(in.next(q));
    EXPECT_EQ(q.type, param::FieldError);
    EXPECT_EQ(q.body, hex("0001 012C"));
    EXPECT_FALSE(in.next(q));
    EXPECT_TRUE(in.ok());
    ASSERT_TRUE(ps.next(p));
    EXPECT_TRUE(p.tv);
    EXPECT_EQ(p.type, param::AntennaID);
    EXPECT_EQ(p.body, hex("0003"));
    ASSERT_TRUE(ps.next(p));
    EXPECT_EQ(p.type, param::Custom);
    EXPECT_TRUE(p.body.empty());
    EXPECT_FALSE(ps.next(p));
    EXPECT_TRUE(ps.ok());
}

struct Refused {
    const char* name;
    const char* bytes;
    uint16_t code;
    uint16_t param;
};

TEST(LlrpCodec, RefusesMalformedParameters) {
    const Refused cases[] = {
        {"header cut short", "011F 00", M_ParameterError, 0},
        {"length below the header", "011F 0003 00", P_ParameterError, param::LLRPStatus},
        {"length beyond the data", "011F 0010 0000 0000", P_ParameterError, param::LLRPStatus},
        {"TLV with a TV type", "0001 0006 0003", P_ParameterError, param::AntennaID},
        {"unknown TV type", "95 0000", P_UnknownParameter, 0x15},
        {"TV cut short", "8D 3000 1122", P_ParameterError, param::EPC96},
        {"second parameter beyond its parent", "81 0001  00DE 0009 0001", P_ParameterError,
         param::AntennaConfiguration},
    };
    for (const Refused& c : cases) {
        std::string bytes = hex(c.bytes);
        Params ps(bytes);
        Param p;
        while (ps.next(p)) {
        }
        EXPECT_FALSE(ps.ok()) << c.name;
        EXPECT_EQ(ps.error().code, c.code) << c.name;
        EXPECT_EQ(ps.error().param, c.param) << c.name;
    }
}

TEST(LlrpCodec, RefusesNestingTooDeep) {
    // Each level: a Custom parameter whose body is the next level.
    std::string bytes;
    for (int i = 0; i <= kMaxDepth + 1; i++) {
        uint16_t len = uint16_t(bytes.size() + 4);
        bytes = hex("03FF") + char(len >> 8) + char(len) + bytes;
    }
    Params ps(bytes);
    int depth = 0;
    Param p;
    while (ps.next(p)) {
        ps = ps.inside(p.body);
        depth++;
    }
    EXPECT_FALSE(ps.ok());
    EXPECT_EQ(depth, kMaxDepth + 1);
}

TEST(LlrpCodec, FieldReaderFailsForGood) {
    std::string bytes = hex("01 0203 04050607 0000000000000008  0003 414243  0002 AABBCCDD  000C F0F0  0002 C3A9");
    Reader r(bytes);
    EXPECT_EQ(r.u8(), 1);
    EXPECT_EQ(r.u16(), 0x0203);
    EXPECT_EQ(r.u32(), 0x04050607u);
    EXPECT_EQ(r.u64(), 8u);
    EXPECT_EQ(r.u8v(), "ABC");
    EXPECT_EQ(r.u16v(), hex("AABBCCDD"));
    uint16_t n = 0;
    EXPECT_EQ(r.bits(n), hex("F0F0"));
    EXPECT_EQ(n, 12);
    EXPECT_EQ(r.utf8(), "\xC3\xA9");
    EXPECT_TRUE(r.ok());
    EXPECT_EQ(r.left(), 0u);
    EXPECT_EQ(r.u8(), 0);
    EXPECT_FALSE(r.ok());

    struct Bad {
        const char* name;
        const char* bytes;
        std::string_view (*read)(Reader&);
    };
    const Bad bad[] = {
        {"u8v beyond the data", "0005 4142", [](Reader& x) { return x.u8v(); }},
        {"u16v beyond the data", "0002 414243", [](Reader& x) { return x.u16v(); }},
        {"bit array beyond the data", "0011 4142",
         [](Reader& x) {
             uint16_t k;
             return x.bits(k);
         }},
        {"invalid UTF-8", "0002 C028", [](Reader& x) { return x.utf8(); }},
        {"UTF-8 cut inside a character", "0002 41E2", [](Reader& x) { return x.utf8(); }},
        {"UTF-16 surrogate", "0003 EDA080", [](Reader& x) { return x.utf8(); }},
    };
    for (const Bad& c : bad) {
        std::string b = hex(c.bytes);
        Reader x(b);
        EXPECT_TRUE(c.read(x).empty()) << c.name;
        EXPECT_EQ(x.u8(), 0) << c.name;  // sticky: the bytes left are not read any more
        EXPECT_FALSE(x.ok()) << c.name;
    }
}

}  // namespace
}  // namespace uhfd::llrp
