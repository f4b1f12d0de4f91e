// One LLRP 1.0.1 conversation as whole frames written by hand from the
// standard's binary encoding: every message the engine takes, each answer
// byte for byte, and what the reader sends unasked. A fixed clock makes the
// UTC timestamps exact; the fake reader starts an inventory at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "llrp_engine.h"
#include "llrp_test_support.h"

namespace uhfd::llrp {
namespace {

constexpr int64_t kT0 = 1700000000000;  // 2023-11-14 22:13:20 UTC: 0x00060A24181E4000 us

const std::string kOk = " 011F 0008 0000 0000";  // LLRPStatus: M_Success, no ErrorDescription

// ADD_ROSPEC's ROSpec, and GET_ROSPECS's echo of it with its CurrentState.
std::string rospec(const char* state) {
    return std::string(" 00B1 0041 00000001 00 ") + state +  // ROSpec: ID 1, Priority 0, CurrentState
           " 00B2 0012"                                      // ROBoundarySpec
           "   00B3 0005 00"                                 // ROSpecStartTrigger: Null
           "   00B6 0009 00 00000000"                        // ROSpecStopTrigger: Null, duration 0
           " 00B7 0018 0001 0001"                            // AISpec: 1 antenna, AntennaID 1
           "   00B8 0009 00 00000000"                        // AISpecStopTrigger: Null
           "   00BA 0007 0001 01"                            // InventoryParameterSpec: ID 1, EPCGlobal C1G2
           " 00ED 000D 02 0001"                              // ROReportSpec: end of ROSpec or N = 1 tags
           "   00EE 0006 1480";  // TagReportContentSelector: AntennaID, PeakRSSI, TagSeenCount
}

// ADD_ACCESSSPEC's AccessSpec, and GET_ACCESSSPECS's echo of it with its CurrentState bit.
std::string accessspec(const char* state) {
    return std::string(" 00CF 0040 00000001 0000 01 ") + state +  // AccessSpec: ID 1, any antenna, C1G2, C
           " 00000000"                                            // any ROSpec
           " 00D0 0007 00 0000"                                   // AccessSpecStopTrigger: Null
           " 00D1 0024"                                           // AccessCommand
           "   0152 0011 0153 000D 60 0020 0008 FF 0008 E2"       // C1G2TagSpec: EPC bank, match, bits 0x20.. = E2
           "   0155 000F 0001 00000000 C0 0000 0002"              // C1G2Read: OpSpecID 1, no password, USER 0, 2 words
           " 00EF 0005 01";                                       // AccessReportSpec: at the end of the AccessSpec
}

enum Act { Connect, Refuse, Send, TagRead, Tick };
struct Row {
    const char* what;
    Act act;
    std::string in, out;  // hex; a read's in is its EPC
};

std::string printable(std::string_view b) {
    std::string s;
    append_hex(reinterpret_cast<const uint8_t*>(b.data()), b.size(), s);
    return s;
}

Read read_of(const std::string& epc) {
    Read r;
    r.antenna = 1, r.rssi = -583, r.pc = 0x3000, r.time_ms = kT0;  // -58.3 dBm
    r.epc_len = uint8_t(std::min(epc.size(), r.epc.size()));
    std::copy_n(epc.begin(), r.epc_len, r.epc.begin());
    return r;
}

TEST(LlrpGolden, EachMessageAsTheStandardLaysItOut) {
    // Requests carry IDs from 0x10; what the reader sends unasked numbers itself from 1.
    const Row rows[] = {
        {"ConnectionAttemptEvent", Connect, "",
         "043F 00000020 00000001"         // READER_EVENT_NOTIFICATION, 32 bytes
         " 00F6 0016"                     // ReaderEventNotificationData
         "   0080 000C 00060A24181E4000"  // UTCTimestamp
         "   0100 0006 0000"},            // ConnectionAttemptEvent: Success
        {"second client refused", Refuse, "",
         "043F 00000020 00000000 00F6 0016 0080 000C 00060A24181E4000"
         "   0100 0006 0002"},  // Failed (a Client initiated connection already exists)
        {"GET_SUPPORTED_VERSION", Send, "082E 0000000A 00000010",       // version 2
         "0864 00000034 00000010"                                       // ERROR_MESSAGE in the request's version
         " 011F 002A 006E 0022 'this reader speaks LLRP 1.0.1 only'"},  // M_UnsupportedVersion
        {"GET_READER_CAPABILITIES", Send, "0401 0000000B 00000011 02",  // RequestedData: LLRPCapabilities
         "040B 0000002E 00000011" + kOk +
             " 008E 001C 00 07 0000"        // LLRPCapabilities: no options, priorities to 7, no timeout
             " 00000008 00000008 00000001"  // ROSpecs, AISpecs per ROSpec, InventoryParameterSpecs per AISpec
             " 00000008 00000008"},         // AccessSpecs, OpSpecs per AccessSpec
        {"SET_READER_CONFIG", Send,
         "0403 00000014 00000012 00"  // no reset
         " 00DC 0009 01 000003E8",    // KeepaliveSpec: periodic, 1000 ms
         "040D 00000012 00000012" + kOk},
        {"GET_READER_CONFIG", Send, "0402 00000011 00000013 0000 08 0000 0000",  // antenna 0, KeepaliveSpec, no GPIO
         "040C 0000001B 00000013" + kOk + " 00DC 0009 01 000003E8"},
        {"KEEPALIVE", Tick, "", "043E 0000000A 00000002"},
        {"KEEPALIVE_ACK", Send, "0448 0000000A 00000002", ""},
        {"ENABLE_EVENTS_AND_REPORTS", Send, "0440 0000000A 00000014", ""},  // nothing is held
        {"ADD_ROSPEC", Send, "0414 0000004B 00000015" + rospec("00"), "041E 00000012 00000015" + kOk},
        {"ENABLE_ROSPEC", Send, "0418 0000000E 00000016 00000001", "0422 00000012 00000016" + kOk},
        {"START_ROSPEC", Send, "0416 0000000E 00000017 00000001", "0420 00000012 00000017" + kOk},
        {"GET_ROSPECS", Send, "041A 0000000A 00000018", "0424 00000053 00000018" + kOk + rospec("02")},  // Active
        {"RO_ACCESS_REPORT", TagRead, "300833B2DDD9014000000001",
         "043D 00000023 00000003"          // RO_ACCESS_REPORT, 35 bytes
         " 00F0 0019"                      // TagReportData
         "   8D 300833B2DDD9014000000001"  // EPC-96
         "   81 0001"                      // AntennaID
         "   86 C6"                        // PeakRSSI: -58 dBm
         "   88 0001"},                    // TagSeenCount
        // Nothing left to report: an empty RO_ACCESS_REPORT, as the response, with the request's ID.
        {"GET_REPORT", Send, "043C 0000000A 00000019", "043D 0000000A 00000019"},
        {"STOP_ROSPEC", Send, "0417 0000000E 0000001A 00000001", "0421 00000012 0000001A" + kOk},
        {"DISABLE_ROSPEC", Send, "0419 0000000E 0000001B 00000001", "0423 00000012 0000001B" + kOk},
        {"DELETE_ROSPEC", Send, "0415 0000000E 0000001C 00000000", "041F 00000012 0000001C" + kOk},  // 0: all
        {"ADD_ACCESSSPEC", Send, "0428 0000004A 0000001D" + accessspec("00"), "0432 00000012 0000001D" + kOk},
        {"ENABLE_ACCESSSPEC", Send, "042A 0000000E 0000001E 00000001", "0434 00000012 0000001E" + kOk},
        {"GET_ACCESSSPECS", Send, "042C 0000000A 0000001F", "0436 00000052 0000001F" + kOk + accessspec("80")},
        {"DISABLE_ACCESSSPEC", Send, "042B 0000000E 00000020 00000001", "0435 00000012 00000020" + kOk},
        {"DELETE_ACCESSSPEC", Send, "0429 0000000E 00000021 00000001", "0433 00000012 00000021" + kOk},
        {"unknown message type", Send, "0784 0000000A 00000022",       // type 900
         "0464 00000033 00000022"                                      // ERROR_MESSAGE
         " 011F 0029 006D 0021 'message type 900 is not supported'"},  // M_UnsupportedMessage
        {"CLOSE_CONNECTION", Send, "040E 0000000A 00000023", "0404 00000012 00000023" + kOk},
    };
    FakePort port;
    Engine e(port, kT0);
    size_t answered = 0;
    for (const Row& r : rows) {
        std::string in = hex(r.in);
        switch (r.act) {
            case Connect: e.connected(kT0); break;
            case Refuse: write_connection_refused(e.output(), kT0); break;
            case Send: e.input(reinterpret_cast<const uint8_t*>(in.data()), in.size(), kT0); break;
            case TagRead: e.tag_read(read_of(in), kT0); break;
            case Tick: e.tick(kT0 + 1000); break;
        }
        for (; answered < port.starts.size(); answered++) e.done(port.starts[answered].second, "", kT0);
        EXPECT_EQ(printable(e.output()), printable(hex(r.out))) << r.what;
        e.output().clear();
    }
    EXPECT_FALSE(e.open());  // closed after CLOSE_CONNECTION_RESPONSE
}

}  // namespace
}  // namespace uhfd::llrp
