// The link table: rotation, wrap, release rules, the JSON list, idle times.
#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "link_helpers.h"

using namespace uhftest;

namespace {

// A listener that never accepts: the kernel completes connections into its
// backlog, enough for a full table of links.
class Backlog {
public:
    Backlog() {
        fd_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a);
        listen(fd_, 64);
        socklen_t n = sizeof a;
        getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &n);
        port_ = ntohs(a.sin_port);
    }
    ~Backlog() { close(fd_); }
    int port() const { return port_; }

private:
    int fd_;
    int port_;
};

// A loopback port with nobody listening.
int closed_port() {
    Backlog b;
    return b.port();  // closed again when b goes away
}

class Links : public ::testing::Test {
protected:
    void SetUp() override { reset_links(); }
    void TearDown() override { reset_links(); }
    void open_n(int n) {
        for (int i = 0; i < n; i++) ASSERT_EQ(TCPConnect("127.0.0.1", server.port()), 0) << i;
    }
    Backlog server;
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
    EXPECT_EQ(TCPConnect("127.0.0.1", closed_port()), -1);
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
    EXPECT_EQ(TCPConnect(long_host.c_str(), server.port()), -1);
    EXPECT_EQ(TCPConnect(nullptr, server.port()), -1);
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

TEST_F(Links, ClosePortReleasesTheSelectedLink) {
    open_n(3);
    ASSERT_EQ(LinkSelect(1), 0);
    ClosePort();
    EXPECT_EQ(my_terminals[1].device_info.trans_type, TYPE_INVALID);
    EXPECT_EQ(my_terminals[0].connected, 1);
    EXPECT_EQ(my_terminals[2].connected, 1);
}

TEST_F(Links, LinkListIsIndentedJsonInKeyOrder) {
    EXPECT_EQ(link_info(), "[]");
    open_n(2);
    std::string text = link_info();
    EXPECT_NE(text.find('\n'), std::string::npos);  // the formatted rendering
    cJSON* root = cJSON_Parse(text.c_str());
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(cJSON_GetArraySize(root), 2);
    for (int i = 0; i < 2; i++) {
        cJSON* item = cJSON_GetArrayItem(root, i);
        const char* keys[] = {"id", "type", "ip", "port", "connected", "working"};
        cJSON* member = item->child;
        for (const char* k : keys) {
            ASSERT_NE(member, nullptr);
            EXPECT_STREQ(member->string, k);
            member = member->next;
        }
        EXPECT_EQ(member, nullptr);
        EXPECT_EQ(cJSON_GetObjectItem(item, "id")->valueint, i);
        EXPECT_STREQ(cJSON_GetObjectItem(item, "type")->valuestring, "NETWORK");
        EXPECT_STREQ(cJSON_GetObjectItem(item, "ip")->valuestring, "127.0.0.1");
        EXPECT_EQ(cJSON_GetObjectItem(item, "port")->valueint, server.port());
        EXPECT_TRUE(cJSON_IsTrue(cJSON_GetObjectItem(item, "connected")));
        EXPECT_TRUE(cJSON_IsFalse(cJSON_GetObjectItem(item, "working")));
    }
    cJSON_Delete(root);
}
