// Commands through the whole library over the fake USB device to the virtual
// reader engine: exchanges, frames longer than a report either way, and a
// continuous inventory polled with 0xEB, whose batches reach both the tag
// queue and the data callback.
#include <pthread.h>

#include <algorithm>
#include <mutex>

#include "usb_fixture.h"

using namespace usbtest;

namespace {

constexpr size_t kTags = 20;

// Every data-cell list the callback got, copied, with the thread it ran on.
struct Delivery {
    std::vector<std::pair<uint8_t, Bytes>> cells;
    pthread_t thread;
};

std::mutex g_mu;
std::vector<Delivery> g_deliveries;

void collect(ST_UHF_DATA_CELL* c) {
    Delivery d{{}, pthread_self()};
    for (; c != nullptr; c = c->next) d.cells.emplace_back(c->type, Bytes(c->pdata, c->pdata + c->len));
    std::lock_guard<std::mutex> lock(g_mu);
    g_deliveries.push_back(std::move(d));
}

std::vector<Delivery> deliveries() {
    std::lock_guard<std::mutex> lock(g_mu);
    return g_deliveries;
}

class UsbReader : public UsbTest {
protected:
    void SetUp() override {
        UsbTest::SetUp();
        {
            std::lock_guard<std::mutex> lock(g_mu);
            g_deliveries.clear();
        }
        opts.tags = uhfsim::TagField::random(kTags, 7);
        opts.engine.read_rate = 400;
        opts.engine.delivery = uhfsim::ReportDelivery::Buffered;
        fakehid::use_reader(opts);
        fakehid::set_devices({kReader});
        ASSERT_EQ(UsbOpen(), 0);
    }

    bool is_tag_epc(const Bytes& epc) const {
        return std::any_of(opts.tags.tags().begin(), opts.tags.tags().end(),
                           [&](const uhfsim::Tag& t) { return t.epc() == epc; });
    }
    bool is_tag_uii(const Bytes& uii) const {
        return std::any_of(opts.tags.tags().begin(), opts.tags.tags().end(),
                           [&](const uhfsim::Tag& t) { return t.uii() == uii; });
    }
    uint64_t requests(uint8_t code) {
        uint64_t n = 0;
        fakehid::with_reader([&](uhfsim::VirtualReader& r) { n = r.stats().requests[code]; });
        return n;
    }

    uhfsim::SimOptions opts;
};

bool rssi_plausible(const Bytes& b) {
    int16_t v = static_cast<int16_t>(b[0] << 8 | b[1]);
    return v <= -250 && v >= -1200;
}

}  // namespace

TEST_F(UsbReader, SingleShotInventoryReachesReplyAndCallback) {
    setOnDataReceived(collect);
    uint8_t len = 0;
    uint8_t uii[64];
    ASSERT_EQ(UHFInventorySingle(&len, uii), 0);
    ASSERT_EQ(len, 14);
    EXPECT_TRUE(is_tag_uii(Bytes(uii, uii + 14)));

    ASSERT_TRUE(eventually([] { return !deliveries().empty(); }));
    const auto d = deliveries();
    ASSERT_EQ(d.size(), 1u);
    const auto& cells = d[0].cells;
    ASSERT_EQ(cells.size(), 3u);
    EXPECT_EQ(cells[0].first, CELL_UHF_EPC);
    EXPECT_EQ(cells[0].second, Bytes(uii + 2, uii + 14));
    EXPECT_EQ(cells[1].first, CELL_UHF_PC);
    EXPECT_EQ(cells[1].second, Bytes(uii, uii + 2));
    EXPECT_EQ(cells[2].first, CELL_UHF_RSSI);
    EXPECT_TRUE(rssi_plausible(cells[2].second));
    EXPECT_TRUE(pthread_equal(d[0].thread, thread_id)) << "runs on the receive thread";
}

TEST_F(UsbReader, ContinuousInventoryPollsBatches) {
    setOnDataReceived(collect);
    ASSERT_EQ(UHFInventory(), 0);

    std::vector<Bytes> fetched;
    ASSERT_TRUE(eventually([&] {
        uint8_t out[512];
        int len = 0;
        if (UHF_GetReceived_EX(&len, out) == 0) fetched.emplace_back(out, out + len);
        return fetched.size() >= 40;
    }));
    EXPECT_EQ(UHFStopGet(), 0);
    EXPECT_EQ(my_terminals[cur_index].recv_task_running, 0);

    EXPECT_EQ(requests(0x82), 1u);
    EXPECT_GE(requests(0xEB), 2u) << "batches are asked for, not streamed";
    for (const auto& f : fetched) {
        ASSERT_EQ(f.size(), 1u + 14 + 1 + 3);
        EXPECT_EQ(f[0], 14);
        EXPECT_TRUE(is_tag_uii(Bytes(f.begin() + 1, f.begin() + 15)));
        EXPECT_EQ(f[15], 0) << "no extra data";
        EXPECT_TRUE(rssi_plausible(Bytes(f.begin() + 16, f.begin() + 18)));
    }

    // One callback per batch record, on the receive thread: PC, then the
    // record's last two bytes as RSSI, then the bytes between as EPC (the
    // reader's antenna byte shifts them: the EPC cell ends with the RSSI's
    // high byte, and the RSSI cell holds its low byte and the antenna).
    // The frame is handed over before its callback runs, so the last
    // callbacks may still be on their way.
    ASSERT_TRUE(eventually([&] { return deliveries().size() >= fetched.size(); }));
    for (const auto& del : deliveries()) {
        EXPECT_TRUE(pthread_equal(del.thread, thread_id));
        ASSERT_EQ(del.cells.size(), 3u);
        EXPECT_EQ(del.cells[0].first, CELL_UHF_PC);
        EXPECT_EQ(del.cells[1].first, CELL_UHF_RSSI);
        EXPECT_EQ(del.cells[2].first, CELL_UHF_EPC);
        ASSERT_EQ(del.cells[2].second.size(), 13u);
        const Bytes& epc = del.cells[2].second;
        EXPECT_TRUE(is_tag_epc(Bytes(epc.begin(), epc.begin() + 12)));
        EXPECT_EQ(del.cells[0].second.size(), 2u);
        EXPECT_EQ(del.cells[1].second.size(), 2u);
        EXPECT_GE(del.cells[1].second[1], 1) << "antenna byte";
    }
}
