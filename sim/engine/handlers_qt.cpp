// QT memory views: set and get a tag's QT control byte
// (0x97/0x99) and read or write memory in the view a QT byte names
// (0x9B/0x9D): bit 1 set, the public view; clear, the private one.
#include "engine/handlers_access.h"

namespace uhfsim {

namespace {

View view_named(uint8_t qt) { return (qt & Tag::kQtPublic) ? View::Public : View::Private; }

// Changing the control needs the secured state, as on the chip.
std::string set_qt(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const AccessHead head = read_head(f);
    const uint8_t qt = f.u8();
    if (!f.at_end()) return refuse(r, req, AccessError::BadRequest);
    const Opened o = open_tag(r, head);
    if (o.error) return refuse(r, req, *o.error);
    if (!o.secured) return refuse(r, req, AccessError::NotSecured);
    o.tag->qt_control = static_cast<uint16_t>((o.tag->qt_control & 0xFF00) | qt);
    return done(r, req);
}

// Answers 01 and the control's low byte.
std::string get_qt(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const AccessHead head = read_head(f);
    if (!f.at_end()) return refuse(r, req, AccessError::BadRequest);
    const Opened o = open_tag(r, head);
    if (o.error) return refuse(r, req, *o.error);
    r.reply(reply_code(req), {kAccepted, static_cast<uint8_t>(o.tag->qt_control & 0xFF)});
    return "ok";
}

// Head, QT byte, then the target: 0x9B and 0x9D.
struct QtAccess {
    AccessHead head;
    View view;
    Target target;
};

QtAccess read_qt_access(FieldReader& f) {
    QtAccess a;
    a.head = read_head(f);
    a.view = view_named(f.u8());
    a.target = read_target(f);
    return a;
}

std::string read_qt(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const QtAccess a = read_qt_access(f);
    if (!f.at_end()) return refuse(r, req, AccessError::BadRequest);
    std::vector<uint16_t> words;
    const Target& t = a.target;
    if (auto e = read_access(r, a.head, t.bank, t.addr, t.count, a.view, words)) return refuse(r, req, *e);
    return done(r, req, counted_words(words));
}

std::string write_qt(VirtualReader& r, const Request& req) {
    FieldReader f(req.data);
    const QtAccess a = read_qt_access(f);
    const auto data = f.bytes(2u * a.target.count);
    if (!f.at_end()) return refuse(r, req, AccessError::BadRequest);
    return finish(r, req, write_access(r, a.head, a.target.bank, a.target.addr, data, a.view));
}

}  // namespace

void register_qt(Dispatcher& d) {
    d.on(0x97, "set QT control", set_qt);
    d.on(0x99, "get QT control", get_qt);
    d.on(0x9B, "read memory in a QT view", read_qt);
    d.on(0x9D, "write memory in a QT view", write_qt);
}

}  // namespace uhfsim
