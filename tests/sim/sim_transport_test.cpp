#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "sim_test_util.h"
#include "transport/servers.h"

using namespace simtest;
using namespace std::chrono_literals;
using uhfsim::SimOptions;

namespace {

// Generous bound so a wedged server fails the test instead of hanging it; the
// tests never assert on how long anything took.
constexpr int kPatienceMs = 10000;

struct Fd {
  int fd = -1;
  explicit Fd(int f) : fd(f) {}
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

int connect_to(uint16_t port) {
  const int s = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(port);
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    ::close(s);
    return -1;
  }
  return s;
}

void send_all(int fd, const Bytes& b) {
  size_t off = 0;
  while (off < b.size()) {
    const ssize_t n = ::write(fd, b.data() + off, b.size() - off);
    ASSERT_GT(n, 0);
    off += static_cast<size_t>(n);
  }
}

// Reads until `done(bytes)` holds or the peer closes; `eof` tells which.
Bytes read_until(int fd, const std::function<bool(const Bytes&)>& done, bool* eof = nullptr) {
  Bytes got;
  uint8_t buf[4096];
  if (eof) *eof = false;
  while (!done(got)) {
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, kPatienceMs) <= 0) break;
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n <= 0) {
      if (eof) *eof = true;
      break;
    }
    got.insert(got.end(), buf, buf + n);
  }
  return got;
}

// Cuts the leading whole frames off a stream (a stream may end mid-frame).
std::vector<Reply> whole_frames(const Bytes& b) {
  size_t i = 0;
  while (i + 4 <= b.size()) {
    const size_t len = size_t{b[i + 2]} << 8 | b[i + 3];
    if (len < 8 || i + len > b.size()) break;
    i += len;
  }
  auto r = unframe(Bytes(b.begin(), b.begin() + static_cast<long>(i)));
  return r ? *r : std::vector<Reply>{};
}

// True once the bytes hold at least `n` whole frames.
auto frames(size_t n) {
  return [n](const Bytes& b) { return whole_frames(b).size() >= n; };
}

// Opens the slave side of a pseudo-terminal in raw mode.
int open_raw(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY);
  termios t{};
  if (fd < 0 || ::tcgetattr(fd, &t) != 0) return -1;
  cfmakeraw(&t);
  return ::tcsetattr(fd, TCSANOW, &t) == 0 ? fd : -1;
}

SimOptions field_of(size_t n) {
  SimOptions o;
  o.tags = uhfsim::TagField::random(n, 4);
  return o;
}

}  // namespace

TEST(SimTcp, AnswersARawSocketClient) {
  uhfsim::TcpServer srv(field_of(3));
  ASSERT_TRUE(srv.start()) << srv.error();
  ASSERT_NE(srv.port(), 0);
  Fd c(connect_to(srv.port()));
  ASSERT_GE(c.fd, 0);
  // Two requests in one write, the second split across two writes.
  const Bytes b = frame(0x2E);
  send_all(c.fd, frame(0x04) + Bytes{b.begin(), b.begin() + 3});
  send_all(c.fd, Bytes{b.begin() + 3, b.end()});
  send_all(c.fd, frame(0x77));
  const Bytes got = read_until(c.fd, frames(2));
  EXPECT_EQ(unframe(got), (std::vector<Reply>{{0x05, {0x20, 0x24, 0x00, 0x01}}, {0x2F, {0x01, 0x01}}}));
  send_all(c.fd, frame(0x34));  // the unknown code got no reply: the next reply is this one
  EXPECT_EQ(unframe(read_until(c.fd, frames(1))), (std::vector<Reply>{{0x35, {0x01, 0x0C, 0x4E}}}));
  const auto st = srv.stats();
  EXPECT_EQ(st.requests[0x04], 1u);
  EXPECT_EQ(st.requests[0x2E], 1u);
  EXPECT_EQ(st.unknown_codes, 1u);
  EXPECT_EQ(st.frames_sent, 3u);

  uhfsim::FaultOptions f;  // faults can be set on a running server
  f.ignore_codes = {0x2E};
  srv.set_faults(f);
  send_all(c.fd, frame(0x2E) + frame(0x04));
  EXPECT_EQ(unframe(read_until(c.fd, frames(1))), (std::vector<Reply>{{0x05, {0x20, 0x24, 0x00, 0x01}}}));
  EXPECT_EQ(srv.stats().ignored, 1u);
}

TEST(SimTcp, EachClientHasItsOwnReader) {
  uhfsim::TcpServer srv(field_of(3));
  ASSERT_TRUE(srv.start());
  Fd a(connect_to(srv.port())), b(connect_to(srv.port()));
  send_all(a.fd, frame(0x2C, {0x01, 0x06}));
  EXPECT_EQ(unframe(read_until(a.fd, frames(1))), (std::vector<Reply>{{0x2D, {0x01}}}));
  send_all(b.fd, frame(0x2E));
  send_all(a.fd, frame(0x2E));
  EXPECT_EQ(unframe(read_until(b.fd, frames(1))), (std::vector<Reply>{{0x2F, {0x01, 0x01}}}));
  EXPECT_EQ(unframe(read_until(a.fd, frames(1))), (std::vector<Reply>{{0x2F, {0x01, 0x06}}}));
  EXPECT_EQ(srv.client_count(), 2u);
}

TEST(SimTcp, StreamsUntilStoppedThenConfirmsAndStopsCleanlyWithAClient) {
  auto opts = field_of(5);
  opts.engine.read_rate = 2000;
  auto srv = std::make_unique<uhfsim::TcpServer>(opts);
  ASSERT_TRUE(srv->start());
  Fd c(connect_to(srv->port()));
  send_all(c.fd, frame(0x82, {0x00, 0x00}));
  const auto first = whole_frames(read_until(c.fd, frames(20)));
  ASSERT_GE(first.size(), 20u);
  for (const auto& f : first) {
    EXPECT_EQ(f.code, 0x83);
    EXPECT_EQ(f.data.size(), 14u + 3u);
  }
  send_all(c.fd, frame(0x8C));
  const Bytes tail = read_until(c.fd, [](const Bytes& b) {
    const Bytes stop_reply = {0xA5, 0x5A, 0x00, 0x09, 0x8D, 0x01, 0x85, 0x0D, 0x0A};
    return std::search(b.begin(), b.end(), stop_reply.begin(), stop_reply.end()) != b.end();
  });
  ASSERT_GE(tail.size(), 9u);
  EXPECT_EQ(Bytes(tail.end() - 9, tail.end()), frame(0x8D, {0x01})) << "nothing after the stop reply";
  send_all(c.fd, frame(0x82, {0x00, 0x00}));
  read_until(c.fd, frames(1));
  srv.reset();  // destructor stops the thread and closes the client
  bool eof = false;
  read_until(c.fd, [](const Bytes&) { return false; }, &eof);
  EXPECT_TRUE(eof);
}

TEST(SimPty, AnswersOverTheSlaveSideAtTheLineRate) {
  auto opts = field_of(2);
  opts.baud = 9600;  // 960 bytes/s
  uhfsim::PtyServer pty(opts);
  ASSERT_TRUE(pty.start()) << pty.error();
  ASSERT_FALSE(pty.slave_path().empty());
  Fd s(open_raw(pty.slave_path()));
  ASSERT_GE(s.fd, 0);
  send_all(s.fd, frame(0x00));
  send_all(s.fd, frame(0x80, {0x00, 0x64}));
  const auto got = whole_frames(read_until(s.fd, frames(2)));
  ASSERT_EQ(got.size(), 2u);
  EXPECT_EQ(got[0], (Reply{0x01, {0x01, 0x02, 0x00}}));
  EXPECT_EQ(got[1].code, 0x81);
  EXPECT_EQ(got[1].data.size(), 14u + 3u);
  EXPECT_EQ(pty.stats().requests[0x80], 1u);

  Bytes requests;
  for (int i = 0; i < 10; ++i) requests = requests + frame(0x12);
  const auto start = std::chrono::steady_clock::now();
  send_all(s.fd, requests);
  EXPECT_EQ(read_until(s.fd, frames(10)).size(), 10u * 29u);
  // A lower bound only: a busy machine can make this slower, never faster.
  EXPECT_GE(std::chrono::steady_clock::now() - start, 250ms) << "290 bytes at 960 bytes/s take about 0.3 s";
}
