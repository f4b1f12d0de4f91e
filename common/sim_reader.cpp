#include "sim_reader.h"

#include <string>
#include <vector>

#include "transport/servers.h"

namespace uhftools {

namespace {

void name_first_tag(uhfsim::Tag& t) {
    std::vector<uint8_t> epc;
    for (const char* p = kSimFirstEpc; p[0] && p[1]; p += 2)
        epc.push_back(static_cast<uint8_t>(std::stoi(std::string(p, 2), nullptr, 16)));
    t.set_epc(epc);
    t.reserved = {static_cast<uint16_t>(kSimFirstKillPassword >> 16), static_cast<uint16_t>(kSimFirstKillPassword),
                  static_cast<uint16_t>(kSimFirstAccessPassword >> 16), static_cast<uint16_t>(kSimFirstAccessPassword)};
}

}  // namespace

SimReader::SimReader(unsigned tags, unsigned rate, unsigned seed) : tags_(tags) {
    uhfsim::SimOptions o;
    // Tags spread over the first two antennas so the antenna column means something.
    o.tags = uhfsim::TagField::random(tags, seed, 2);
    if (!o.tags.tags().empty()) name_first_tag(o.tags.tags().front());
    // Every eighth tag carries a temperature sensor, for `sensor` to find.
    for (size_t i = 0; i < o.tags.size(); i += 8) {
        uhfsim::TempSensor sensor;
        sensor.centi_celsius = static_cast<int16_t>(2150 + 25 * static_cast<int>(i / 8));
        o.tags.tags()[i].sensor = sensor;
    }
    o.engine.read_rate = rate;
    o.engine.seed = seed;
    o.engine.state.current.antenna_mask = o.engine.state.saved.antenna_mask = 0x0003;
    server_ = std::make_unique<uhfsim::TcpServer>(std::move(o));
}

SimReader::~SimReader() = default;

bool SimReader::start(std::string& err) {
    if (server_->start()) return true;
    err = "cannot start the virtual reader: " + server_->error();
    return false;
}

uint16_t SimReader::port() const { return server_->port(); }

}  // namespace uhftools
