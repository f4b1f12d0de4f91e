// The link table: rotation, wrap, release rules, the JSON list, idle times.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "link_helpers.h"

using namespace uhftest;

namespace {

// A loopback socket on a free port. Bound only, a connect to it is refused;
// listening, the kernel completes connections into its backlog (enough for a
// full link table) while nobody accepts.
struct LoopbackSocket {
    int fd = -1;
    int port = 0;
    explicit LoopbackSocket(bool listening) {
        fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
        socklen_t len = sizeof a;
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
        port = ntohs(a.sin_port);
        if (listening) listen(fd, 64);
    }
    ~LoopbackSocket() { close(fd); }
};

class Links : public ::testing::Test {
protected:
    void SetUp() override { reset_links(); }
    void TearDown() override { reset_links(); }
    void open_n(int n) {
        for (int i = 0; i < n; i++) ASSERT_EQ(TCPConnect("127.0.0.1", server.port), 0) << i;
    }
    LoopbackSocket server{true};
};

void on_disconnect(int) {}

std::string link_info() {
    char buf[8192];
    int n = LinkGetInfo(buf, sizeof buf);
    EXPECT_GT(n, 0);
    return std::string(buf);
}

}  // namespace

TEST_F(Links, TwentyFirstOpenWrapsOntoSlotZeroWithIdTwenty) {
    open_n(1);
    ASSERT_EQ(SetDisconnectCallback(on_disconnect), 0);  // slot 0 selected and connected
    open_n(19);
    EXPECT_EQ(terminal_index, 20);
    EXPECT_EQ(LinkGetSelected(), 19);  // the newest link is selected
    for (int i = 0; i < 20; i++) {
        EXPECT_EQ(my_terminals[i].device_info.trans_type, TYPE_NETWORK);
        EXPECT_EQ(my_terminals[i].device_info.id, i);
        EXPECT_EQ(my_terminals[i].connected, 1);
    }
    open_n(1);
    EXPECT_EQ(terminal_index, 1);
    EXPECT_EQ(LinkGetSelected(), 0);
    EXPECT_EQ(my_terminals[0].device_info.id, 20);
    // Creation does not clear the old occupant's callback.
    EXPECT_EQ(my_terminals[0].disconnect_callback, &on_disconnect);
}

TEST_F(Links, FailedOpenLeavesTheFailedSlotSelectedAndEmpty) {
    open_n(2);
    EXPECT_EQ(TCPConnect("127.0.0.1", LoopbackSocket(false).port), -1);
    EXPECT_EQ(LinkGetSelected(), 2);
    EXPECT_EQ(my_terminals[2].device_info.trans_type, TYPE_INVALID);
    EXPECT_EQ(terminal_index, 2);  // the next attempt reuses the slot
    EXPECT_EQ(link_info().find("\"id\":\t2"), std::string::npos);
    EXPECT_EQ(LinkSelect(2), -1);
    EXPECT_EQ(LinkSelect(1), 0);
    open_n(1);
    EXPECT_EQ(LinkGetSelected(), 2);
}

TEST_F(Links, RefusedArgumentsTakeNoSlot) {
    open_n(1);
    std::string long_host(64, '1');
    EXPECT_EQ(TCPConnect(long_host.c_str(), server.port), -1);
    EXPECT_EQ(TCPConnect(nullptr, server.port), -1);
    std::string long_path(128, 'p');
    EXPECT_EQ(ComOpenWithBaud(long_path.c_str(), 115200), -1);
    EXPECT_EQ(terminal_index, 1);
    EXPECT_EQ(LinkGetSelected(), 0);
    EXPECT_EQ(my_terminals[1].device_info.trans_type, TYPE_INVALID);
}

TEST_F(Links, TcpDisconnectReleasesTheSlotTheNextLinkWouldTake) {
    open_n(2);
    TCPDisconnect();  // slot 2 is free: nothing closes
    EXPECT_EQ(my_terminals[0].connected, 1);
    EXPECT_EQ(my_terminals[1].connected, 1);
    open_n(18);
    TCPDisconnect();  // terminal_index is 20, past the table
    for (int i = 0; i < 20; i++) EXPECT_EQ(my_terminals[i].connected, 1) << i;
    open_n(1);        // wraps: terminal_index 1
    TCPDisconnect();  // closes the link in slot 1
    EXPECT_EQ(my_terminals[1].device_info.trans_type, TYPE_INVALID);
    EXPECT_EQ(LinkGetSelected(), 1);
    EXPECT_EQ(my_terminals[0].connected, 1);
}

TEST_F(Links, LinkListIsIndentedJsonInKeyOrder) {
    EXPECT_EQ(link_info(), "[]");
    open_n(2);
    std::string item = "{\n\t\t\"id\":\tN,\n\t\t\"type\":\t\"NETWORK\",\n\t\t\"ip\":\t\"127.0.0.1\",\n\t\t\"port\":\t" +
                       std::to_string(server.port) + ",\n\t\t\"connected\":\ttrue,\n\t\t\"working\":\tfalse\n\t}";
    auto with_id = [&](char id) { return std::string(item).replace(item.find('N'), 1, 1, id); };
    EXPECT_EQ(link_info(), "[" + with_id('0') + ", " + with_id('1') + "]");
}
