// LLRP's binary encoding: message framing, a bounds-checked reader of
// parameters and fields, a writer that appends to a buffer it reuses, and
// the LLRPStatus every answer carries. Every byte read is treated as hostile:
// each length is checked against what holds it, nesting is bounded, and a
// failed read stays failed so a parser checks once at the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace uhfd::llrp {

// Message types (10 bits).
namespace msg {
enum : uint16_t {
    GET_READER_CAPABILITIES = 1,
    GET_READER_CONFIG = 2,
    SET_READER_CONFIG = 3,
    CLOSE_CONNECTION_RESPONSE = 4,
    GET_READER_CAPABILITIES_RESPONSE = 11,
    GET_READER_CONFIG_RESPONSE = 12,
    SET_READER_CONFIG_RESPONSE = 13,
    CLOSE_CONNECTION = 14,
    ADD_ROSPEC = 20,
    DELETE_ROSPEC = 21,
    START_ROSPEC = 22,
    STOP_ROSPEC = 23,
    ENABLE_ROSPEC = 24,
    DISABLE_ROSPEC = 25,
    GET_ROSPECS = 26,
    ADD_ROSPEC_RESPONSE = 30,
    DELETE_ROSPEC_RESPONSE = 31,
    START_ROSPEC_RESPONSE = 32,
    STOP_ROSPEC_RESPONSE = 33,
    ENABLE_ROSPEC_RESPONSE = 34,
    DISABLE_ROSPEC_RESPONSE = 35,
    GET_ROSPECS_RESPONSE = 36,
    ADD_ACCESSSPEC = 40,
    DELETE_ACCESSSPEC = 41,
    ENABLE_ACCESSSPEC = 42,
    DISABLE_ACCESSSPEC = 43,
    GET_ACCESSSPECS = 44,
    CLIENT_REQUEST_OP = 45,
    GET_SUPPORTED_VERSION = 46,
    SET_PROTOCOL_VERSION = 47,
    ADD_ACCESSSPEC_RESPONSE = 50,
    DELETE_ACCESSSPEC_RESPONSE = 51,
    ENABLE_ACCESSSPEC_RESPONSE = 52,
    DISABLE_ACCESSSPEC_RESPONSE = 53,
    GET_ACCESSSPECS_RESPONSE = 54,
    CLIENT_REQUEST_OP_RESPONSE = 55,
    GET_SUPPORTED_VERSION_RESPONSE = 56,
    SET_PROTOCOL_VERSION_RESPONSE = 57,
    GET_REPORT = 60,
    RO_ACCESS_REPORT = 61,
    KEEPALIVE = 62,
    READER_EVENT_NOTIFICATION = 63,
    ENABLE_EVENTS_AND_REPORTS = 64,
    KEEPALIVE_ACK = 72,
    ERROR_MESSAGE = 100,
    CUSTOM_MESSAGE = 1023,
};
}  // namespace msg

// Parameter types: 1..127 are TV-encoded (fixed length), the rest TLV.
namespace param {
enum : uint16_t {
    // TV
    AntennaID = 1,
    FirstSeenTimestampUTC = 2,
    FirstSeenTimestampUptime = 3,
    LastSeenTimestampUTC = 4,
    LastSeenTimestampUptime = 5,
    PeakRSSI = 6,
    ChannelIndex = 7,
    TagSeenCount = 8,
    ROSpecID = 9,
    InventoryParameterSpecID = 10,
    C1G2CRC = 11,
    C1G2PC = 12,
    EPC96 = 13,
    SpecIndex = 14,
    ClientRequestOpSpecResult = 15,
    AccessSpecID = 16,
    OpSpecID = 17,
    C1G2SingulationDetails = 18,
    C1G2XPCW1 = 19,
    C1G2XPCW2 = 20,
    // TLV
    UTCTimestamp = 128,
    Uptime = 129,
    GeneralDeviceCapabilities = 137,
    ReceiveSensitivityTableEntry = 139,
    PerAntennaAirProtocol = 140,
    GPIOCapabilities = 141,
    LLRPCapabilities = 142,
    RegulatoryCapabilities = 143,
    UHFBandCapabilities = 144,
    TransmitPowerLevelTableEntry = 145,
    FrequencyInformation = 146,
    FrequencyHopTable = 147,
    FixedFrequencyTable = 148,
    PerAntennaReceiveSensitivityRange = 149,
    ROSpec = 177,
    ROBoundarySpec = 178,
    ROSpecStartTrigger = 179,
    PeriodicTriggerValue = 180,
    GPITriggerValue = 181,
    ROSpecStopTrigger = 182,
    AISpec = 183,
    AISpecStopTrigger = 184,
    TagObservationTrigger = 185,
    InventoryParameterSpec = 186,
    RFSurveySpec = 187,
    RFSurveySpecStopTrigger = 188,
    AccessSpec = 207,
    AccessSpecStopTrigger = 208,
    AccessCommand = 209,
    ClientRequestOpSpec = 210,
    ClientRequestResponse = 211,
    LLRPConfigurationStateValue = 217,
    Identification = 218,
    GPOWriteData = 219,
    KeepaliveSpec = 220,
    AntennaProperties = 221,
    AntennaConfiguration = 222,
    RFReceiver = 223,
    RFTransmitter = 224,
    GPIPortCurrentState = 225,
    EventsAndReports = 226,
    ROReportSpec = 237,
    TagReportContentSelector = 238,
    AccessReportSpec = 239,
    TagReportData = 240,
    EPCData = 241,
    RFSurveyReportData = 242,
    FrequencyRSSILevelEntry = 243,
    ReaderEventNotificationSpec = 244,
    EventNotificationState = 245,
    ReaderEventNotificationData = 246,
    HoppingEvent = 247,
    GPIEvent = 248,
    ROSpecEvent = 249,
    ReportBufferLevelWarningEvent = 250,
    ReportBufferOverflowErrorEvent = 251,
    ReaderExceptionEvent = 252,
    RFSurveyEvent = 253,
    AISpecEvent = 254,
    AntennaEvent = 255,
    ConnectionAttemptEvent = 256,
    ConnectionCloseEvent = 257,
    LLRPStatus = 287,
    FieldError = 288,
    ParameterError = 289,
    C1G2LLRPCapabilities = 327,
    C1G2UHFRFModeTable = 328,
    C1G2UHFRFModeTableEntry = 329,
    C1G2InventoryCommand = 330,
    C1G2Filter = 331,
    C1G2TagInventoryMask = 332,
    C1G2TagInventoryStateAwareFilterAction = 333,
    C1G2TagInventoryStateUnawareFilterAction = 334,
    C1G2RFControl = 335,
    C1G2SingulationControl = 336,
    C1G2TagInventoryStateAwareSingulationAction = 337,
    C1G2TagSpec = 338,
    C1G2TargetTag = 339,
    C1G2Read = 341,
    C1G2Write = 342,
    C1G2Kill = 343,
    C1G2Lock = 344,
    C1G2LockPayload = 345,
    C1G2BlockErase = 346,
    C1G2BlockWrite = 347,
    C1G2EPCMemorySelector = 348,
    C1G2ReadOpSpecResult = 349,
    C1G2WriteOpSpecResult = 350,
    C1G2KillOpSpecResult = 351,
    C1G2LockOpSpecResult = 352,
    C1G2BlockEraseOpSpecResult = 353,
    C1G2BlockWriteOpSpecResult = 354,
    LoopSpec = 355,
    SpecLoopEvent = 356,
    C1G2Recommission = 357,
    C1G2BlockPermalock = 358,
    C1G2GetBlockPermalockStatus = 359,
    C1G2RecommissionOpSpecResult = 360,
    C1G2BlockPermalockOpSpecResult = 361,
    C1G2GetBlockPermalockStatusOpSpecResult = 362,
    MaximumReceiveSensitivity = 363,
    RFSurveyFrequencyCapabilities = 365,
    Custom = 1023,
};
}  // namespace param

// LLRPStatus codes: M_ for a message, P_ a parameter, A_ a field, R_ the reader.
enum StatusCode : uint16_t {
    M_Success = 0,
    M_ParameterError = 100,
    M_FieldError = 101,
    M_UnexpectedParameter = 102,
    M_MissingParameter = 103,
    M_DuplicateParameter = 104,
    M_OverflowParameter = 105,
    M_OverflowField = 106,
    M_UnknownParameter = 107,
    M_UnknownField = 108,
    M_UnsupportedMessage = 109,
    M_UnsupportedVersion = 110,
    M_UnsupportedParameter = 111,
    M_UnexpectedMessage = 112,
    P_ParameterError = 200,
    P_FieldError = 201,
    P_UnexpectedParameter = 202,
    P_MissingParameter = 203,
    P_DuplicateParameter = 204,
    P_OverflowParameter = 205,
    P_OverflowField = 206,
    P_UnknownParameter = 207,
    P_UnknownField = 208,
    P_UnsupportedParameter = 209,
    A_Invalid = 300,
    A_OutOfRange = 301,
    R_DeviceError = 401,
};

constexpr uint8_t kVersion = 1;  // LLRP 1.0.1: the only version we speak
constexpr size_t kHeaderSize = 10;
constexpr uint32_t kMaxMessage = 1u << 20;  // a longer message is refused as malformed
constexpr int kMaxDepth = 12;               // parameters nested deeper are refused

// What a parser found wrong, reported as an LLRPStatus. `code` is the code of
// the element at fault: a message code (M_) when param is 0 and field < 0, a
// field code (A_) when field >= 0, else a parameter code (P_). The status
// written names them: M_FieldError + FieldError, or M_ParameterError +
// ParameterError (+ FieldError under it when the field of a parameter is at fault).
struct Error {
    uint16_t code = M_Success;
    std::string description;
    uint16_t param = 0;  // the parameter type at fault, 0 when the message itself
    int field = -1;      // the field number at fault (0-based, in order of appearance), -1 none
    explicit operator bool() const { return code != M_Success; }
};

Error message_error(uint16_t code, std::string description);
Error param_error(uint16_t code, uint16_t param, std::string description);
Error field_error(uint16_t code, uint16_t param, int field, std::string description);
// The status code the LLRPStatus carries at its top for e.
uint16_t top_status(const Error& e);

struct Header {
    uint8_t version = 0;
    uint16_t type = 0;
    uint32_t length = 0;  // the whole message, header included
    uint32_t id = 0;
};

enum class Frame { NeedMore, Whole, Bad };
// Looks at the bytes received so far. Whole: h is filled and the first
// h.length bytes are one message. Bad: the length is below the header's or
// above kMaxMessage; the stream cannot be resynchronised.
Frame frame(std::string_view bytes, Header& h);

// The fixed body length of a TV parameter, -1 when the type is not one.
int tv_body_length(uint8_t type);

struct Param {
    uint16_t type = 0;
    bool tv = false;
    std::string_view body;  // after the type (TV) or type and length (TLV)
};

// Walks a sequence of parameters. next() is false at the end and on a
// malformed parameter; error() then says which (code 0 at a clean end).
// depth: how deep the sequence is nested (a message's own parameters: 0);
// a sequence deeper than kMaxDepth fails at once.
class Params {
public:
    explicit Params(std::string_view bytes, int depth = 0);
    bool next(Param& p);
    // The parameters after a parameter's fields, one level deeper.
    Params inside(std::string_view sub) const { return Params(sub, depth_ + 1); }
    int depth() const { return depth_; }
    bool ok() const { return !err_; }
    const Error& error() const { return err_; }

private:
    std::string_view rest_;
    int depth_;
    Error err_;
};

// Reads big-endian fields. A read past the end returns zero/empty and marks
// the reader failed for good; check ok() once after the last field.
class Reader {
public:
    explicit Reader(std::string_view bytes) : b_(bytes) {}
    uint8_t u8();
    uint16_t u16();
    uint32_t u32();
    uint64_t u64();
    std::string_view bytes(size_t n);
    std::string_view u8v();                  // u16 count, then count bytes
    std::string_view u16v();                 // u16 count, then count words (returned as 2*count raw bytes)
    std::string_view bits(uint16_t& nbits);  // u16 bit count, then ceil(n/8) bytes
    std::string_view utf8();                 // u16 byte count, then the bytes; invalid UTF-8 fails
    std::string_view rest();                 // everything left: the sub-parameters after the fields
    bool ok() const { return ok_; }
    size_t left() const { return b_.size() - at_; }

private:
    bool take(size_t n);
    std::string_view b_;
    size_t at_ = 0;
    bool ok_ = true;
};

// Appends to out, big-endian. Nothing allocates once out has the capacity.
// begin_* returns the offset end_* needs to back-patch the length.
class Writer {
public:
    explicit Writer(std::string& out) : out_(out) {}
    size_t begin_message(uint16_t type, uint32_t id, uint8_t version = kVersion);
    void end_message(size_t at);
    size_t begin(uint16_t param_type);
    void end(size_t at);                                 // a TLV parameter longer than 65535 bytes is cut to its header
    void tv(uint8_t type) { u8(uint8_t(0x80 | type)); }  // then its fields
    void u8(uint8_t v) { out_.push_back(char(v)); }
    void u16(uint16_t v);
    void u32(uint32_t v);
    void u64(uint64_t v);
    void bytes(std::string_view b) { out_.append(b); }
    void u8v(std::string_view b);                   // u16 count, then the bytes
    void u16v(std::string_view words);              // u16 word count, then the words' raw bytes
    void bits(uint16_t nbits, std::string_view b);  // u16 bit count, then ceil(n/8) bytes
    void utf8(std::string_view s);
    std::string& out() { return out_; }

private:
    std::string& out_;
};

// One LLRPStatus parameter for e (M_Success when e is empty).
void write_status(Writer& w, const Error& e);
// A whole message whose body is just an LLRPStatus: most responses, and
// ERROR_MESSAGE (msg::ERROR_MESSAGE).
void status_message(std::string& out, uint16_t type, uint32_t id, const Error& e, uint8_t version = kVersion);

}  // namespace uhfd::llrp
