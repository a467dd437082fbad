// The service between real processes on loopback: the stack peer
// (v2x_stack_sim), the log tool (v2x_logtool) and the cloud peer
// (v2x_cloud_sim) over DDS, each test on its own device id, ports and working
// directory: the log tool's requests, a missing stack peer, a sliced map from
// the cloud to the stack peer, faulty and over-long documents.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <ctime>
#include <regex>
#include <string>
#include <vector>

#include "map_store_files.h"
#include "udp_peer.h"

namespace {

using v2xtest::ChildProcess;
using v2xtest::countOf;

// A working directory with its own device id (with '-' and '.', so the DDS
// topic name mapping is on the path) and ports, and the service started on it.
class ServiceProcess : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(v2xtest::prepareWorkdir(work_.path(), device_)); }
  void TearDown() override {
    if (!service_.signal(SIGTERM)) return;
    const int st = service_.waitExit();
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st << "\n" << v2xtest::readFile(work_.file("service.err"));
  }
  std::string log() const { return v2xtest::readFile(work_.file("log/map_conv.log")); }
  void startService(std::vector<std::string> extra = {}) {
    ASSERT_TRUE(v2xtest::startService(service_, work_.path(), extra));
    logToolPort_ = v2xtest::loggedServerPort(log(), "MAP_C_LOGTOOL");
    ASSERT_NE(logToolPort_, 0);
  }
  bool waitForLog(const std::string& needle, size_t times = 1) const {
    return v2xtest::waitForText(work_.file("log/map_conv.log"), needle, times);
  }
  // Starts the stack peer on a port the kernel chooses and points the port
  // file at it (before the service starts, so there is no race for a port).
  void startStackPeer(ChildProcess& sim, std::vector<std::string> extra) {
    std::vector<std::string> argv = {V2X_STACK_SIM_BIN, "-w", work_.path()};
    argv.insert(argv.end(), extra.begin(), extra.end());
    ASSERT_TRUE(sim.start(argv));
    ASSERT_TRUE(sim.waitForOutput(", maps from"));
    const std::string out = sim.output();
    std::smatch port;
    ASSERT_TRUE(std::regex_search(out, port, std::regex("listening on 127\\.0\\.0\\.1:([1-9][0-9]*)"))) << out;
    v2xtest::writeIpcConfig(work_.path(), static_cast<uint16_t>(std::stoul(port[1])));
  }
  // Runs a peer program to its end (its own time bound ends it); its output
  // and standard error, and its exit code in rc.
  std::string run(std::vector<std::string> argv, int& rc) {
    ChildProcess p;
    const std::string err = work_.file("peer.err");
    if (!p.start(argv, {}, err)) return "";
    const int st = p.waitExit(std::chrono::seconds(60));
    rc = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    const std::string out = p.output() + v2xtest::readFile(err);
    std::remove(err.c_str());
    return out;
  }
  std::string cloud(std::vector<std::string> args, int& rc) {
    args.insert(args.begin(), {V2X_CLOUD_SIM_BIN, "--device", device_});
    return run(args, rc);
  }
  std::string logTool(std::vector<std::string> args, int& rc) {
    args.insert(args.begin(), {V2X_LOGTOOL_BIN, "-w", work_.path(), "-p", std::to_string(logToolPort_), "-T", "1000"});
    return run(args, rc);
  }
  std::string writeDoc(const std::string& name, const std::string& text) {
    v2xtest::writeFile(work_.file(name), text);
    return work_.file(name);
  }

  v2xtest::TempDir work_;
  const std::string device_ = v2xtest::uniqueDevice("IPC");
  uint16_t logToolPort_ = 0;
  ChildProcess service_;
};
using IpcProcess = ServiceProcess;        // with the stack peer or the log tool
using CloudLinkProcess = ServiceProcess;  // with the cloud peer only

// A request of the log tool: head (flags, no time, command, body length 5),
// then the log command, no data.
std::vector<uint8_t> logRequest(uint8_t cmdType, uint8_t logCmd) {
  return {0xA5, 0x5A, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, cmdType, 0, 5, 0, 0, logCmd, 0, 0, 0, 0};
}

// The V2X protocol process is gone meanwhile: the service's requests to it
// fail, with a warning each, and it goes on serving the log tool.
TEST_F(IpcProcess, LogToolIsServedAndBadRequestsGetNoReplyWithoutAStackPeer) {
  {
    v2xtest::UdpPeer gone;  // the V2X protocol process's port, nobody listening on it any more
    v2xtest::writeIpcConfig(work_.path(), gone.port());
  }
  startService();
  // The read reply of the 14 registered tags, byte by byte; bad packets before it get no reply.
  v2xtest::UdpPeer tool;
  ASSERT_TRUE(tool.sendTo(logToolPort_, {0xA5, 0x5A, 4}));
  ASSERT_TRUE(tool.sendTo(logToolPort_, logRequest(20, 1)));
  ASSERT_TRUE(tool.sendTo(logToolPort_, logRequest(50, 1)));
  std::vector<uint8_t> reply;
  ASSERT_TRUE(tool.receive(reply));
  ASSERT_EQ(reply.size(), 162U);
  auto bytes = [&](size_t at, size_t n) { return std::string(reply.begin() + at, reply.begin() + at + n); };
  EXPECT_EQ(bytes(12, 4), std::string("\x33\0\x91\0", 4)) << "command 51, body length 145";
  EXPECT_EQ(bytes(18, 4), std::string("\0\0\x8C\0", 4)) << "result 0, data length 140";
  EXPECT_EQ(bytes(92, 10), std::string("SINF\0\0\0\0\4\0", 10)) << "entry 7: name, level 4";
  EXPECT_FALSE(tool.receive(reply, nullptr, 300)) << "only the read command is answered";

  const struct {
    std::vector<std::string> args;
    int exitCode;
    std::vector<std::string> output;  // each must appear
  } steps[] = {
      {{"set", "ALL", "6"}, 0, {"reply: command 2, result 0", "ALL set to level 6"}},
      {{"set", "SINF", "7"}, 0, {"SINF set to level 7"}},
      {{"set", "NOPE", "3"}, 1, {"no reply"}},
      {{"set", "MDDS", "9"}, 1, {"no reply"}},
      {{"read"}, 0, {"14 tags:", "  SINF     7", "  MDDS     6", "  VIPC     6"}},
  };
  for (const auto& s : steps) {
    int rc = -1;
    const std::string out = logTool(s.args, rc);
    EXPECT_EQ(rc, s.exitCode) << s.args.back();
    for (const std::string& text : s.output) EXPECT_NE(out.find(text), std::string::npos) << text << " in\n" << out;
  }
  EXPECT_TRUE(waitForLog("[SINF][TRACE]")) << "the new level is live";
  EXPECT_NE(log().find("exec v2xlog_GetTagHandle error ret=-1"), std::string::npos);
  EXPECT_NE(log().find("get error data,type pStr->m_cmdType=20"), std::string::npos);
  ASSERT_TRUE(waitForLog("UDP send error", 2));
  EXPECT_TRUE(std::regex_search(log(), std::regex(R"(\[SINF\]\[WARN\][^\n]*UDP send error)")));
  EXPECT_FALSE(std::regex_search(log(), std::regex(R"(\]\[ERR\][^\n]*UDP send error)")));
}

// The whole road: the cloud publishes a map of three slices; the service
// stores and acknowledges each, tells the stack peer about each file, and its
// next requests carry the time of the stored map. The same map again is
// acknowledged, but neither stored nor announced again. Within one period the
// cloud gets a 26-byte status record of this service and a map record with
// the last slice and eTag.
TEST_F(IpcProcess, SlicedMapIsStoredAcknowledgedAnnouncedAndReported) {
  ChildProcess sim;
  startStackPeer(sim, {"-t", "60"});
  startService({"-d", "7"});
  const uint64_t before = static_cast<uint64_t>(std::time(nullptr));
  const std::string eTag = "E-" + device_;
  const std::vector<std::string> map = {"--gen", "3",      "--etag", eTag,        "--count",
                                        "3",     "--kind", "ack",    "--timeout", "30"};
  int rc = -1;
  std::string out = cloud(map, rc);
  EXPECT_EQ(rc, 0) << out;
  for (const char* seq : {"1", "2", "3"})
    EXPECT_NE(out.find(std::string("ACK seqNum=") + seq + " ok raw={\"seqNum\":\"" + seq + "\"}"), std::string::npos)
        << out;
  EXPECT_NE(v2xtest::readFile(work_.file("conf/v2x_map_convert.cfg")).find("eTag = \"" + eTag + "\";"),
            std::string::npos);
  for (int id = 2; id >= 0; --id) {
    const std::string file = v2xtest::readFile(work_.file("mapdata/map_data_" + std::to_string(id)));
    ASSERT_FALSE(file.empty()) << id;
    EXPECT_TRUE(
        sim.waitForOutput("notice: file id " + std::to_string(id) + ", md5 " + v2xtest::md5Hex(file) + ", file time 0"))
        << sim.output();
  }

  out = cloud(map, rc);
  EXPECT_EQ(rc, 0) << out;
  EXPECT_EQ(countOf(out, " ok raw="), 3u) << out;
  EXPECT_EQ(countOf(log(), "The etag of map is consistent"), 3u);

  out = cloud({"--count", "1", "--kind", "rsucloud", "--timeout", "15"}, rc);
  EXPECT_EQ(rc, 0) << out;
  EXPECT_NE(out.find("RSUCLOUD mapSlice=1 eTag=" + eTag + "\n"), std::string::npos) << out;
  EXPECT_NE(out.find("STATUS service_type=1 run_status=1 tx_packet_count=0 rx_packet_count=0 bytes=26"),
            std::string::npos)
      << out;

  const std::regex request("request: file time ([0-9]+),");
  bool sawMapTime = false;
  for (int i = 0; i < 50 && !sawMapTime; ++i) {
    sim.waitForOutput("\n(never printed)", std::chrono::milliseconds(200));
    const std::string text = sim.output();
    for (auto it = std::sregex_iterator(text.begin(), text.end(), request); it != std::sregex_iterator(); ++it)
      sawMapTime = sawMapTime || std::stoull((*it)[1].str()) >= before;
  }
  EXPECT_TRUE(sawMapTime) << sim.output();
  EXPECT_EQ(countOf(sim.output(), "notice: "), 3U) << sim.output();
  sim.signal(SIGINT);
  sim.waitExit();
}

// Faulty documents are acknowledged with their error: one stored (with its
// first link) and the error recorded, one rejected for want of an eTag but
// still with its sequence number. An over-long run after them (12000 bytes:
// the tenth sample overflows the 9999-byte buffer; the rest, 1760 bytes,
// arrives as a message of its own and is not JSON) gets no answer, and the
// map after it is stored. The communication software's status record, sent
// first, is taken as well.
TEST_F(CloudLinkProcess, FaultyAndOverlongDocumentsAreAnsweredAndTheServiceGoesOn) {
  startService({"-d", "7"});
  const std::string stored =
      R"({"mapSlice":"1","eTag":"F1","ack":true,"seqNum":"9","map":{"nodes":[{"id":{"region":1,"id":7},)"
      R"("refPos":{"lon":121.16,"lat":31.28},"inLinks":[{"upstreamNodeId":{"id":8},"linkWidth":700,)"
      R"("lanes":[{"laneId":1}]},{"upstreamNodeId":{"id":9}}]}]}})";
  const std::string rejected = R"({"mapSlice":"1","ack":true,"seqNum":"11","map":{"nodes":[]}})";
  int rc = -1;
  const std::string out =
      cloud({"--commsoft-status", "5,2", "--map", writeDoc("stored.json", stored), "--map",
             writeDoc("rejected.json", rejected), "--raw", writeDoc("long.txt", std::string(12000, 'x')), "--gen", "1",
             "--etag", "after-" + device_, "--count", "3", "--kind", "ack", "--timeout", "30"},
            rc);
  EXPECT_EQ(rc, 0) << out;
  for (const char* ack : {R"(ACK seqNum=9 errorCode=1 errorDesc="NODE Link linkwidth")",
                          R"(ACK seqNum=11 errorCode=1 errorDesc="Etag error")", "ACK seqNum=1 ok"})
    EXPECT_NE(out.find(ack), std::string::npos) << ack << "\n" << out;
  EXPECT_EQ(countOf(out, "ACK "), 3u) << out;
  // Another writer than the maps': no order between the two, so a bounded wait.
  EXPECT_TRUE(waitForLog("v2xcloud_ddsRecvCommSoft start recv:26"));
}

// Under the field profile a latitude sent as a text is refused with code 5,
// and a 12000-byte message is dropped whole (one line, nothing of it read);
// the map after it is stored.
TEST_F(CloudLinkProcess, FieldRefusesWrongTypesAndDropsOverlongMessagesWhole) {
  v2xtest::setProfile(work_.path(), "field");
  startService();
  const std::string textLat = R"({"mapSlice":"1","eTag":"T1","ack":true,"seqNum":"21","map":{"nodes":[{"id":{"id":7},)"
                              R"("refPos":{"lon":121.16,"lat":"31.28"}}]}})";
  std::string big = R"({"mapSlice":"1","eTag":"BIG","ack":true,"seqNum":"22","map":{"nodes":[]}})";
  big.append(12000 - big.size(), ' ');
  int rc = -1;
  const std::string out = cloud({"--map", writeDoc("lat.json", textLat), "--raw", writeDoc("big.json", big), "--gen",
                                 "1", "--etag", "after-" + device_, "--count", "2", "--kind", "ack", "--timeout", "30"},
                                rc);
  EXPECT_EQ(rc, 0) << out;
  EXPECT_NE(out.find(R"(ACK seqNum=21 errorCode=1 errorDesc="NODE refPos latitude error")"), std::string::npos) << out;
  EXPECT_NE(out.find("ACK seqNum=1 ok"), std::string::npos) << out;
  EXPECT_EQ(countOf(out, "ACK "), 2u) << out;
  EXPECT_NE(v2xtest::readFile(work_.file("conf/v2x_map_convert.cfg")).find("eTag = \"after-" + device_ + "\";"),
            std::string::npos);
  EXPECT_EQ(countOf(log(), "Map msg of 12000 bytes is over 9999, dropped"), 1u) << log();
  EXPECT_EQ(countOf(log(), "cJSON_Parse Error!"), 0u) << log();
}

}  // namespace
