// The service and the cloud peer as processes over DDS on loopback: a map in
// slices is stored and acknowledged, repeated and faulty maps, the periodic
// status and map records, over-long messages and the communication software's
// status. Each test uses its own device id (with '-' and '.', so the topic
// name mapping is on the path) and its own working directory.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_process.h"

namespace {

using v2xtest::ChildProcess;
using v2xtest::readFile;
using v2xtest::TempDir;

using v2xtest::countOf;

class CloudLinkProcess : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(v2xtest::prepareWorkdir(work_.path(), device_));
    ASSERT_TRUE(v2xtest::startService(service_, work_.path(), {"-d", "7"}));
  }
  void TearDown() override {
    service_.signal(SIGTERM);
    int st = service_.waitExit();
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st;
  }

  std::string log() const { return work_.file("log/map_conv.log"); }

  // Runs the cloud peer to its end (its own time bound ends it); returns its
  // output and stores its exit status.
  std::string sim(std::vector<std::string> args, int* exitCode = nullptr) {
    std::vector<std::string> argv = {V2X_CLOUD_SIM_BIN, "--device", device_};
    argv.insert(argv.end(), args.begin(), args.end());
    ChildProcess p;
    if (!p.start(argv)) return "";
    int st = p.waitExit(std::chrono::seconds(60));
    if (exitCode != nullptr) *exitCode = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return p.output();
  }

  std::string writeDoc(const std::string& name, const std::string& text) {
    v2xtest::writeFile(work_.file(name), text);
    return work_.file(name);
  }

  TempDir work_;
  // With '-' and '.', so the topic name mapping is on the path.
  const std::string device_ = v2xtest::uniqueDevice("T");
  ChildProcess service_;
};

TEST_F(CloudLinkProcess, FaultyDocumentsAreAcknowledgedWithTheirError) {
  const std::string node = R"({"id":{"region":1,"id":7},"refPos":{"lon":121.16,"lat":31.28},"inLinks":)";
  struct Case {
    std::string doc;
    std::string ack;
  };
  const std::vector<Case> cases = {
      // Stored (with the first link) and the error recorded.
      {R"({"mapSlice":"1","eTag":"F1","ack":true,"seqNum":"9","map":{"nodes":[)" + node +
           R"([{"upstreamNodeId":{"id":8},"linkWidth":700,"lanes":[{"laneId":1}]},{"upstreamNodeId":{"id":9}}]}]}})",
       R"(ACK seqNum=9 errorCode=1 errorDesc="NODE Link linkwidth")"},
      // Rejected without an eTag, still with its sequence number.
      {R"({"mapSlice":"1","ack":true,"seqNum":"11","map":{"nodes":[]}})",
       R"(ACK seqNum=11 errorCode=1 errorDesc="Etag error")"},
  };
  std::vector<std::string> args;
  for (size_t i = 0; i < cases.size(); i++) {
    args.push_back("--map");
    args.push_back(writeDoc("doc" + std::to_string(i) + ".json", cases[i].doc));
  }
  args.insert(args.end(), {"--count", std::to_string(cases.size()), "--kind", "ack", "--timeout", "30"});
  int rc = -1;
  std::string out = sim(args, &rc);
  EXPECT_EQ(rc, 0) << out;
  for (const Case& c : cases) EXPECT_NE(out.find(c.ack), std::string::npos) << c.ack << "\n" << out;
}

// Also the communication software's status record, handled before the maps.
TEST_F(CloudLinkProcess, OverlongRunIsDroppedAndTheServiceGoesOn) {
  // 12000 bytes: the tenth sample overflows the 9999-byte buffer; the rest
  // (1760 bytes) arrives as a message of its own and is not JSON.
  std::string raw = writeDoc("long.txt", std::string(12000, 'x'));
  int rc = -1;
  std::string out = sim({"--commsoft-status", "5,2", "--raw", raw, "--gen", "1", "--etag", "after-" + device_,
                         "--count", "1", "--kind", "ack", "--timeout", "30"},
                        &rc);
  EXPECT_EQ(rc, 0) << out;
  EXPECT_NE(out.find("ACK seqNum=1 ok"), std::string::npos) << out;
  // Another writer than the maps': no order between the two, so a bounded wait.
  EXPECT_TRUE(v2xtest::waitForText(log(), "v2xcloud_ddsRecvCommSoft start recv:26"));
  EXPECT_EQ(countOf(out, "ACK "), 1u) << out;
}

}  // namespace
