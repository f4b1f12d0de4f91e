#include <gtest/gtest.h>

#include "sim_test_util.h"
#include "transport/fault_filter.h"
#include "transport/session.h"

using namespace simtest;
using namespace std::chrono_literals;
using uhfsim::FaultFilter;
using uhfsim::FaultOptions;
using uhfsim::TimePoint;

namespace {

const Bytes kReply = {0xA5, 0x5A, 0x00, 0x09, 0x8D, 0x01, 0x85, 0x0D, 0x0A};
const TimePoint t0{std::chrono::seconds(50)};

struct Wire {
  std::vector<Bytes> writes;
  Bytes all() const {
    Bytes out;
    for (const auto& w : writes) out.insert(out.end(), w.begin(), w.end());
    return out;
  }
  FaultFilter::Write sink() {
    return [this](const uint8_t* p, size_t n) { writes.emplace_back(p, p + n); };
  }
};

Wire run(const FaultOptions& f, int frames, TimePoint drain_at = t0) {
  FaultFilter filter(f);
  Wire w;
  for (int i = 0; i < frames; ++i) filter.push(kReply.data(), kReply.size(), t0);
  filter.drain(drain_at, w.sink());
  return w;
}

}  // namespace

TEST(SimFaults, DelayHoldsEachReplyUntilItsTime) {
  FaultOptions f;
  f.delay_ms = 10;
  FaultFilter filter(f);
  Wire w;
  filter.push(kReply.data(), kReply.size(), t0);
  filter.push(kReply.data(), kReply.size(), t0 + 5ms);
  EXPECT_EQ(filter.next_deadline(), t0 + 10ms);
  filter.drain(t0 + 9ms, w.sink());
  EXPECT_TRUE(w.writes.empty());
  filter.drain(t0 + 10ms, w.sink());
  EXPECT_EQ(w.writes.size(), 1u);
  EXPECT_EQ(filter.next_deadline(), t0 + 15ms);
  filter.drain(t0 + 15ms, w.sink());
  EXPECT_EQ(w.writes.size(), 2u);
  EXPECT_FALSE(filter.next_deadline());
}

TEST(SimFaults, DropAndCorruptHitTheirShare) {
  struct Row {
    double drop, corrupt;
    size_t min_out, max_out, min_bad, max_bad;
  };
  const Row rows[] = {
      {0.0, 0.0, 1000, 1000, 0, 0},  // no faults: every frame whole
      {1.0, 0.0, 0, 0, 0, 0},
      {0.0, 1.0, 1000, 1000, 1000, 1000},
      {0.5, 0.0, 400, 600, 0, 0},
      {0.0, 0.25, 1000, 1000, 180, 320},
      {0.5, 1.0, 400, 600, 400, 600},
  };
  for (const auto& r : rows) {
    FaultOptions f;
    f.drop_ratio = r.drop;
    f.corrupt_ratio = r.corrupt;
    const Wire w = run(f, 1000);
    size_t bad = 0;
    for (const auto& x : w.writes) {
      ASSERT_EQ(x.size(), kReply.size());
      // Only the check byte may differ.
      Bytes masked = x;
      masked[6] = kReply[6];
      EXPECT_EQ(masked, kReply);
      bad += x[6] != kReply[6];
    }
    EXPECT_GE(w.writes.size(), r.min_out) << r.drop << "/" << r.corrupt;
    EXPECT_LE(w.writes.size(), r.max_out) << r.drop << "/" << r.corrupt;
    EXPECT_GE(bad, r.min_bad) << r.drop << "/" << r.corrupt;
    EXPECT_LE(bad, r.max_bad) << r.drop << "/" << r.corrupt;
    // A corrupted frame must fail the host's check.
    if (r.corrupt == 1.0 && !w.writes.empty()) {
      EXPECT_FALSE(unframe(w.writes[0]));
    }
  }
}

TEST(SimFaults, GarbageGoesBeforeEachReplyAndNeverLooksLikeAFrameStart) {
  FaultOptions f;
  f.garbage_bytes = 7;
  const Wire w = run(f, 200);
  ASSERT_EQ(w.writes.size(), 200u);
  for (const auto& x : w.writes) {
    ASSERT_EQ(x.size(), 7 + kReply.size());
    EXPECT_EQ(Bytes(x.begin() + 7, x.end()), kReply);
    for (size_t i = 0; i < 7; ++i) {
      EXPECT_NE(x[i], 0xA5);
      EXPECT_NE(x[i], 0xAA);
    }
  }
}

TEST(SimFaults, SessionAppliesFaultsToEngineReplies) {
  uhfsim::SimOptions opts;
  opts.faults.ignore_codes = {0x8C};
  opts.faults.split_bytes = true;
  uhfsim::Session s(opts);
  Wire w;
  const Bytes stop = frame(0x8C), region = frame(0x2E);
  s.receive(stop.data(), stop.size(), t0);
  s.receive(region.data(), region.size(), t0);
  s.service(t0, w.sink());
  EXPECT_EQ(w.writes.size(), 10u) << "only the region reply, byte by byte";
  EXPECT_EQ(unframe(w.all()), (std::vector<Reply>{{0x2F, {0x01, 0x01}}}));
}
