// QT memory views (Impinj Monza QT): set and get a tag's QT control byte
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

std::string read_qt(VirtualReader& r, const Request& req) {
  FieldReader f(req.data);
  const AccessHead head = read_head(f);
  const uint8_t qt = f.u8();
  const uint8_t bank = f.u8();
  const uint16_t addr = f.u16();
  const uint16_t count = f.u16();
  if (!f.at_end()) return refuse(r, req, AccessError::BadRequest);
  std::vector<uint16_t> words;
  if (auto e = read_access(r, head, bank, addr, count, view_named(qt), words)) return refuse(r, req, *e);
  return done(r, req, counted_words(words));
}

std::string write_qt(VirtualReader& r, const Request& req) {
  FieldReader f(req.data);
  const AccessHead head = read_head(f);
  const uint8_t qt = f.u8();
  const uint8_t bank = f.u8();
  const uint16_t addr = f.u16();
  const uint16_t count = f.u16();
  const auto data = f.bytes(2u * count);
  if (!f.at_end()) return refuse(r, req, AccessError::BadRequest);
  return finish(r, req, write_access(r, head, bank, addr, data, view_named(qt)));
}

}  // namespace

void register_qt(Dispatcher& d) {
  d.on(0x97, "set QT control", set_qt);
  d.on(0x99, "get QT control", get_qt);
  d.on(0x9B, "read memory in a QT view", read_qt);
  d.on(0x9D, "write memory in a QT view", write_qt);
}

}  // namespace uhfsim
