// DDS wrapper through real participants on loopback: framing, order under a
// burst with a slow receiver, a stop during a send, misuse, name mapping.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "test_process.h"
#include "v2xdds.h"

namespace {

constexpr unsigned kDomain = 200;
constexpr auto kWait = std::chrono::seconds(20);

std::string uniqueTopic(const std::string& stem) { return "test/" + std::to_string(getpid()) + "/" + stem; }

// Joins samples into messages the way the service's receivers do: a sample
// shorter than V2XDDS_SAMPLE_MAX ends a message.
struct Collector {
  std::mutex m;
  std::condition_variable cv;
  std::vector<uint8_t> partial;
  std::vector<std::vector<uint8_t>> messages;
  unsigned maxSample = 0;
  size_t samples = 0;
  // When set, the first callback blocks until the test opens the gate.
  bool gateClosed = false;

  void reset() {
    std::lock_guard<std::mutex> l(m);
    partial.clear();
    messages.clear();
    maxSample = 0;
    samples = 0;
    gateClosed = false;
  }
  void onSample(const void* data, unsigned len) {
    std::unique_lock<std::mutex> l(m);
    cv.wait_for(l, kWait, [this] { return !gateClosed; });
    samples++;
    if (len > maxSample) maxSample = len;
    const uint8_t* p = static_cast<const uint8_t*>(data);
    partial.insert(partial.end(), p, p + len);
    if (len < V2XDDS_SAMPLE_MAX) {
      messages.push_back(std::move(partial));
      partial.clear();
    }
    cv.notify_all();
  }
  bool waitFor(size_t n) {
    std::unique_lock<std::mutex> l(m);
    return cv.wait_for(l, kWait, [&] { return messages.size() >= n; });
  }
  void openGate() {
    std::lock_guard<std::mutex> l(m);
    gateClosed = false;
    cv.notify_all();
  }
};

Collector g_rx;
void rxCallback(void* data, unsigned int len) { g_rx.onSample(data, len); }

// The framing senders use: a multiple of the sample size gets a zero-byte tail.
int32 sendMessage(void* obj, const std::string& topic, const std::vector<uint8_t>& msg) {
  const int32 ret = dds_send(obj, topic.c_str(), msg.data(), static_cast<unsigned>(msg.size()));
  return ret != 0 || msg.size() % V2XDDS_SAMPLE_MAX != 0 ? ret : dds_send(obj, topic.c_str(), "", 1);
}

bool waitMatched(void* obj, const std::string& topic, int32 want) {
  for (int i = 0; i < 2000 && get_match_cnt(obj, topic.c_str()) != want; i++) usleep(10000);
  return get_match_cnt(obj, topic.c_str()) == want;
}

std::vector<uint8_t> pattern(size_t len, unsigned seed) {
  std::vector<uint8_t> v(len);
  for (size_t i = 0; i < len; i++) v[i] = static_cast<uint8_t>((i * 31 + size_t{seed} * 7 + 1) % 251 + 1);
  return v;
}

// A publisher object and a subscriber object on one topic, started and matched.
class DdsPair : public ::testing::Test {
 protected:
  void open(const std::string& plainTopic) {
    topic = plainTopic;
    g_rx.reset();
    rx = create_dds();
    tx = create_dds();
    for (void* o : {rx, tx}) {
      ASSERT_TRUE(dds_reg(o, kDomain, topic.c_str(), o == rx ? rxCallback : nullptr, V2XDDS_DATA_TYPE_BYTES));
      ASSERT_EQ(set_history_qos(o, topic.c_str(), V2XDDS_HISTORY_KEEP_ALL, 0), 0);
      ASSERT_EQ(set_white_list_iface(o, "127.0.0.1"), 0);
      ASSERT_EQ(dds_start(o), 0);
    }
    ASSERT_TRUE(waitMatched(tx, topic, 1));
  }
  void TearDown() override {
    g_rx.openGate();
    destroy_dds(tx);
    destroy_dds(rx);
  }
  std::string topic;
  void* rx = nullptr;
  void* tx = nullptr;
};

// On a device topic with '-' and '.', which DDS itself refuses.
TEST_F(DdsPair, MessagesArriveWholeInSamplesOfAtMost1024Bytes) {
  open("rsu/T-" + std::to_string(getpid()) + ".a/map/down");
  struct Case {
    size_t len;
    size_t samples;  // including the zero tail of a multiple of 1024
  };
  const Case cases[] = {{1, 1}, {1023, 1}, {1024, 2}, {2048, 3}, {2548, 3}, {9999, 10}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.len);
    g_rx.reset();  // the previous message has ended: nothing of it is still on the way
    std::vector<uint8_t> msg = pattern(c.len, static_cast<unsigned>(c.len));
    ASSERT_EQ(sendMessage(tx, topic, msg), 0);
    ASSERT_TRUE(g_rx.waitFor(1));
    std::lock_guard<std::mutex> l(g_rx.m);
    if (c.len % V2XDDS_SAMPLE_MAX == 0) msg.push_back(0);  // the tail lands in the message
    EXPECT_EQ(g_rx.messages[0], msg);
    EXPECT_EQ(g_rx.samples, c.samples);
    EXPECT_LE(g_rx.maxSample, static_cast<unsigned>(V2XDDS_SAMPLE_MAX));
  }
}

// A burst of 100 messages (about 500 samples) from another process, over the
// loopback network. The child is this binary running only DdsChild.Sender.
// The receiver's callbacks are held until the sender has exited, so more
// samples wait than the dispatch queue takes: the rest must come out of the
// reader complete and in order.
constexpr size_t kChildCount = 100;
std::vector<uint8_t> childMessage(size_t i) {
  std::vector<uint8_t> msg = pattern(1 + (i * 1499) % 9999, static_cast<unsigned>(i));
  msg[0] = static_cast<uint8_t>(i);
  return msg;
}

TEST(DdsChild, Sender) {
  const char* topic = getenv("V2XDDS_CHILD_TOPIC");
  if (topic == nullptr) GTEST_SKIP() << "runs as the sender of DdsProcesses.BurstFromAnotherProcess";
  void* tx = create_dds();
  ASSERT_TRUE(dds_reg(tx, kDomain, topic, nullptr, 0));
  ASSERT_EQ(dds_start(tx), 0);
  ASSERT_TRUE(waitMatched(tx, topic, 1));
  for (size_t i = 0; i < kChildCount; i++) ASSERT_EQ(sendMessage(tx, topic, childMessage(i)), 0);
  destroy_dds(tx);
}

TEST(DdsProcesses, BurstFromAnotherProcess) {
  const std::string topic = uniqueTopic("child");
  g_rx.reset();
  g_rx.gateClosed = true;
  void* rx = create_dds();
  ASSERT_TRUE(dds_reg(rx, kDomain, topic.c_str(), rxCallback, 0));
  ASSERT_EQ(dds_start(rx), 0);

  v2xtest::ChildProcess child;
  ASSERT_TRUE(child.start({"/proc/self/exe", "--gtest_filter=DdsChild.Sender"}, {"V2XDDS_CHILD_TOPIC=" + topic}));
  int status = child.waitExit(std::chrono::seconds(120));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << child.output();

  g_rx.openGate();
  ASSERT_TRUE(g_rx.waitFor(kChildCount));
  {
    std::lock_guard<std::mutex> l(g_rx.m);
    for (size_t i = 0; i < kChildCount; i++) {
      std::vector<uint8_t> want = childMessage(i);
      if (want.size() % V2XDDS_SAMPLE_MAX == 0) want.push_back(0);
      EXPECT_EQ(g_rx.messages[i], want) << "message " << i;
    }
  }
  destroy_dds(rx);
}

// A send that must wait for room in the reader's history (its callback is held,
// so the reader fills up) gives up once the object is stopped, instead of
// waiting its full time for every sample.
TEST_F(DdsPair, StopEndsASendThatWaitsForRoom) {
  open(uniqueTopic("stop"));
  {
    std::lock_guard<std::mutex> l(g_rx.m);
    g_rx.gateClosed = true;
  }
  std::vector<uint8_t> big(8u << 20, 7);  // more samples than the reader holds
  int32 ret = 0;
  std::thread sender([&] { ret = dds_send(tx, topic.c_str(), big.data(), static_cast<unsigned>(big.size())); });
  dds_stop(tx);
  sender.join();
  EXPECT_EQ(ret, V2XDDS_ERR_STATE);
}

// Writing from a receive callback (the service acknowledges each map from
// the map-down callback) is on the road of every process test with the cloud
// peer; the match count only feeds a warning of the service.

TEST(DdsWrapper, MisuseIsRefusedWithoutHarm) {
  destroy_dds(nullptr);
  const std::string t = uniqueTopic("misuse");
  void* o = create_dds();
  uint8_t b = 1;
  EXPECT_EQ(dds_start(o), V2XDDS_ERR_STATE);  // nothing registered
  ASSERT_TRUE(dds_reg(o, kDomain, t.c_str(), nullptr, 0));
  EXPECT_FALSE(dds_reg(o, kDomain + 1, (t + "/x").c_str(), nullptr, 0));  // one domain per object
  // The address goes into the generated configuration: nothing but an address passes.
  EXPECT_EQ(set_white_list_iface(o, "127.0.0.1\"/><x"), V2XDDS_ERR_PARAM);
  EXPECT_EQ(dds_send(o, t.c_str(), &b, 1), V2XDDS_ERR_STATE);
  ASSERT_EQ(dds_start(o), 0);
  EXPECT_EQ(set_history_qos(o, t.c_str(), 2, 0), V2XDDS_ERR_STATE);
  EXPECT_EQ(dds_send(o, t.c_str(), &b, 1), 0);  // nobody listens: nothing kept, no error
  const std::string late = t + "/late";
  ASSERT_TRUE(dds_reg(o, kDomain, late.c_str(), rxCallback, 0));  // created at once
  EXPECT_EQ(get_match_cnt(o, late.c_str()), V2XDDS_ERR_NOTOPIC);  // o only reads it
  destroy_dds(o);
}

// The mapping must give names DDS accepts (letters, digits, '_' and '/', no
// digit first) and never give two names the same DDS name.
TEST(DdsTopicName, MappingKeepsValidNamesAndIsOneToOne) {
  const std::pair<const char*, const char*> cases[] = {
      {"/murel/cloud/v2x/service_status", "/murel/cloud/v2x/service_status"},
      {"rsu/RSU_DEMO_01/map/down", "rsu/RSU_DEMO_01/map/down"},
      {"rsu/RSU-01.a/map/down", "rsu/RSU_x2D01_x2Ea/map/down"},
      {"rsu/a_x2D/map", "rsu/a_x5Fx2D/map"},
      {"9abc", "_x39abc"},
      {"a b:\xC3\xA9", "a_x20b_x3A_xC3_xA9"},
      {"end_", "end_"},
      {"end_x", "end_x5Fx"},
  };
  char out[256];
  for (const auto& [in, want] : cases) {
    SCOPED_TRACE(in);
    ASSERT_EQ(v2xdds_MapTopicName(in, out, sizeof(out)), static_cast<int32>(std::strlen(want)));
    EXPECT_STREQ(out, want);
  }
  std::set<std::string> mapped;
  for (const char* n : {"a-b", "a_x2Db", "a_x2D", "a.b", "a_b", "a__b", "a_x5Fb", "a_xb", "a_", "a_x"}) {
    ASSERT_GT(v2xdds_MapTopicName(n, out, sizeof(out)), 0) << n;
    EXPECT_TRUE(mapped.insert(out).second) << n << " gives " << out << " again";
  }
  EXPECT_EQ(v2xdds_MapTopicName("a-b", out, 6), -2);  // needs 7 bytes
  EXPECT_EQ(v2xdds_MapTopicName("a-b", out, 7), 6);
  EXPECT_EQ(v2xdds_MapTopicName("", out, sizeof(out)), -2);
  EXPECT_EQ(v2xdds_MapTopicName(nullptr, out, sizeof(out)), -2);
}

}  // namespace
