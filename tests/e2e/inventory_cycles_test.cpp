// Starting and stopping an inventory as fast as an application can: never
// more than one receive thread on the link, and every record whole.
#include "sim_link.h"
#include "uhf/inventory.h"

using namespace uhftest;

namespace {

class InventoryCycles : public SimTcpTest {
protected:
    uhfsim::SimOptions options() override { return sim_options(10, 5000); }
};

}  // namespace

TEST_F(InventoryCycles, OneReceiveThreadPerLinkAndWholeRecords) {
    const auto epcs = field_epcs(opts.tags);
    int max_threads = 0;
    size_t fetched = 0;
    for (int cycle = 0; cycle < 200; cycle++) {
        ASSERT_EQ(UHFInventory(), 0);
        max_threads = std::max(max_threads, uhf::inventory_threads(cur_index));
        for (int i = 0; i < 3; i++) {
            uint8_t out[512];
            int len = 0;
            if (UHF_GetReceived_EX(&len, out) != 0) continue;
            fetched++;
            EXPECT_TRUE(epcs.count(epc_of_ex(out))) << "cycle " << cycle << ": " << epc_of_ex(out);
        }
        UHFStopGet();
        max_threads = std::max(max_threads, uhf::inventory_threads(cur_index));
    }
    EXPECT_LE(max_threads, 1);
    EXPECT_GT(fetched, 0u);
}
