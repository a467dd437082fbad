// The local IPC between real processes: the service, the stack peer
// (v2x_stack_sim) and the log tool (v2x_logtool), on loopback ports chosen
// per test.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <regex>
#include <string>
#include <vector>

#include "ipc_test_util.h"
#include "map_conv_stack_interface.h"
#include "map_samples.h"

#ifdef V2X_CLOUD_SIM_BIN
#include <mbedtls/md5.h>
#endif

namespace {

using v2xtest::ChildProcess;

size_t countOf(const std::string& text, const std::string& needle) {
  size_t n = 0;
  for (size_t pos = text.find(needle); pos != std::string::npos; pos = text.find(needle, pos + 1)) ++n;
  return n;
}

// A working directory with its own ports, and the service started on it.
class IpcProcess : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(v2xtest::prepareWorkdir(work_.path()));
    v2xtest::writeIpcConfig(work_.path(), ports_);
  }
  void TearDown() override {
    if (service_.signal(SIGTERM)) service_.waitExit();
  }
  std::string log() const { return v2xtest::readFile(work_.file("log/map_conv.log")); }
  void startService(std::vector<std::string> extra = {}) {
    std::vector<std::string> argv = {V2X_SERVICE_BIN, "-w", work_.path(), "-f", work_.file("log/map_conv.log")};
    argv.insert(argv.end(), extra.begin(), extra.end());
    ASSERT_TRUE(service_.start(argv, {}, work_.file("service.err")));
    ASSERT_TRUE(waitForLog("started, device id"));
  }
  bool waitForLog(const std::string& needle, size_t times = 1) const {
    for (int i = 0; i < 400 && countOf(log(), needle) < times; ++i) usleep(50000);
    return countOf(log(), needle) >= times;
  }
  // Runs the log tool to its end; its exit code, and its output in `out`.
  int logTool(const std::vector<std::string>& args, std::string& out) {
    ChildProcess p;
    std::vector<std::string> argv = {V2X_LOGTOOL_BIN, "-w", work_.path(), "-T", "1000"};
    argv.insert(argv.end(), args.begin(), args.end());
    if (!p.start(argv, {}, work_.file("logtool.err"))) return -1;
    int st = p.waitExit();
    out = p.output() + v2xtest::readFile(work_.file("logtool.err"));
    std::remove(work_.file("logtool.err").c_str());
    return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  }

  v2xtest::TempDir work_;
  v2xtest::IpcPorts ports_;
  ChildProcess service_;
};

std::vector<uint8_t> logRequest(uint16_t cmdType, uint8_t logCmd) {
  std::vector<uint8_t> p(sizeof(v2xipc_dataHead) + sizeof(v2xipc_logCmd), 0);
  auto* head = reinterpret_cast<v2xipc_dataHead*>(p.data());
  head->m_headFlag[0] = 0xA5;
  head->m_headFlag[1] = 0x5A;
  head->m_cmdType = cmdType;
  head->m_packLen = sizeof(v2xipc_logCmd);
  reinterpret_cast<v2xipc_logCmd*>(head->m_pack)->m_logCmd = logCmd;
  return p;
}

struct ToolStep {
  std::vector<std::string> args;
  int exitCode;
  std::vector<std::string> output;  // each must appear
};

TEST_F(IpcProcess, LogToolReadsAndSetsLevelsAndBadRequestsGetNoReply) {
  startService();
  // The read reply of the 14 registered tags, byte by byte; bad packets before it get no reply.
  v2xtest::UdpPeer tool;
  ASSERT_TRUE(tool.sendTo(ports_.logTool, {0xA5, 0x5A, 4}));
  ASSERT_TRUE(tool.sendTo(ports_.logTool, logRequest(20, 1)));
  ASSERT_TRUE(tool.sendTo(ports_.logTool, logRequest(50, 1)));
  std::vector<uint8_t> reply;
  ASSERT_TRUE(tool.receive(reply));
  ASSERT_EQ(reply.size(), 162U);
  v2xipc_dataHead head;
  v2xipc_logCmd cmd;
  std::memcpy(&head, reply.data(), sizeof(head));
  std::memcpy(&cmd, reply.data() + sizeof(head), sizeof(cmd));
  EXPECT_EQ(head.m_cmdType, 51);
  EXPECT_EQ(head.m_packLen, 145);
  EXPECT_EQ(cmd.m_result, 0);
  EXPECT_EQ(cmd.m_dataLen, 140);
  const std::string names(reinterpret_cast<const char*>(reply.data() + 22), 140);
  EXPECT_EQ(names.substr(70, 10), std::string("SINF\0\0\0\0\4\0", 10)) << "entry 7: name, level 4";
  EXPECT_FALSE(tool.receive(reply, nullptr, 300)) << "only the read command is answered";

  const ToolStep steps[] = {
      {{"set", "ALL", "6"}, 0, {"reply: command 2, result 0", "ALL set to level 6"}},
      {{"read"}, 0, {"14 tags:", "  UDPA     6", "  VIPC     6"}},
      {{"set", "SINF", "7"}, 0, {"SINF set to level 7"}},
      {{"set", "NOPE", "3"}, 1, {"no reply"}},
      {{"set", "MDDS", "9"}, 1, {"no reply"}},
      {{"read"}, 0, {"  SINF     7", "  MDDS     6", "  MMAP     6"}},
  };
  for (const ToolStep& s : steps) {
    std::string out;
    EXPECT_EQ(logTool(s.args, out), s.exitCode) << s.args.back();
    for (const std::string& text : s.output) EXPECT_NE(out.find(text), std::string::npos) << text << " in\n" << out;
  }
  EXPECT_TRUE(waitForLog("[SINF][TRACE]")) << "the new level is live";
  EXPECT_NE(log().find("exec v2xlog_GetTagHandle error ret=-1"), std::string::npos);
  EXPECT_NE(log().find("get error data,type pStr->m_cmdType=20"), std::string::npos);
}

TEST_F(IpcProcess, StackPeerAnswersTheOncePerSecondRequestsWithItsMaps) {
  const std::vector<uint8_t> maps[] = {v2xtest::uperMap(1, 100, "first"), v2xtest::uperMap(2, 200)};
  for (int i = 0; i < 2; ++i) {
    ASSERT_FALSE(maps[i].empty());
    v2xtest::writeFile(work_.file("mapdata/map_data_" + std::to_string(i)),
                       std::string(maps[i].begin(), maps[i].end()));
  }
  ChildProcess sim;
  ASSERT_TRUE(sim.start({V2X_STACK_SIM_BIN, "-w", work_.path(), "-n", "3", "-t", "30"}));
  ASSERT_TRUE(sim.waitForOutput("listening on 127.0.0.1:" + std::to_string(ports_.appRs)));
  startService({"-d", "6"});
  int st = sim.waitExit(std::chrono::seconds(30));
  ASSERT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0);
  const size_t answer = 17 + 11 + 4 + maps[0].size() + maps[1].size();
  EXPECT_EQ(countOf(sim.output(), "request: file time 0, answered with 2 map(s), " + std::to_string(answer) + " bytes"),
            3U)
      << sim.output();
  ASSERT_TRUE(waitForLog("map 1 of 2 decoded", 3));
  const std::string text = log();
  EXPECT_EQ(countOf(text, "map 0 of 2 decoded, " + std::to_string(maps[0].size()) + " bytes"), 3U);
  EXPECT_EQ(countOf(text, "map 1 of 2 decoded, " + std::to_string(maps[1].size()) + " bytes"), 3U);
  EXPECT_EQ(text.find("UDP send error"), std::string::npos);
}

TEST_F(IpcProcess, WithoutAPeerTheServiceWarnsAndKeepsRunning) {
  startService();
  ASSERT_TRUE(waitForLog("UDP send error", 2));
  EXPECT_EQ(::kill(service_.pid(), 0), 0);
  const std::string text = log();
  EXPECT_EQ(text.find("[SINF][ERR]"), std::string::npos) << text;
  EXPECT_EQ(text.find("[VIPC][ERR]"), std::string::npos) << text;
  ASSERT_TRUE(service_.signal(SIGTERM));
  int st = service_.waitExit();
  ASSERT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st << "\n" << v2xtest::readFile(work_.file("service.err"));
}

#ifdef V2X_CLOUD_SIM_BIN
std::string md5Hex(const std::string& data) {
  unsigned char sum[16];
  mbedtls_md5_ret(reinterpret_cast<const unsigned char*>(data.data()), data.size(), sum);
  std::string hex;
  for (unsigned char b : sum) {
    char t[3];
    std::snprintf(t, sizeof(t), "%02x", b);
    hex += t;
  }
  return hex;
}

// The whole road: the cloud publishes a map of three slices, the service
// stores them, tells the stack peer about each file, and its next requests
// carry the time of the stored map.
TEST_F(IpcProcess, StoredSlicesAreAnnouncedToTheStackPeer) {
  const std::string device = "IPC-" + std::to_string(getpid());
  std::string sysinfo = v2xtest::readFile(work_.file("conf/rsu_sysinfo.xml"));
  const size_t a = sysinfo.find("<device_id>"), b = sysinfo.find("</device_id>");
  ASSERT_TRUE(a != std::string::npos && b != std::string::npos);
  v2xtest::writeFile(work_.file("conf/rsu_sysinfo.xml"), sysinfo.replace(a + 11, b - a - 11, device));

  ChildProcess sim;
  ASSERT_TRUE(sim.start({V2X_STACK_SIM_BIN, "-w", work_.path(), "-t", "60"}));
  ASSERT_TRUE(sim.waitForOutput("listening on"));
  startService();
  const uint64_t before = static_cast<uint64_t>(std::time(nullptr));
  ChildProcess cloud;
  ASSERT_TRUE(cloud.start({V2X_CLOUD_SIM_BIN, "--device", device, "--gen", "3", "--count", "3", "--kind", "ack",
                           "--timeout", "40", "--quiet"}));
  const int cloudStatus = cloud.waitExit(std::chrono::seconds(45));
  ASSERT_TRUE(WIFEXITED(cloudStatus) && WEXITSTATUS(cloudStatus) == 0) << cloud.output();

  for (int id = 2; id >= 0; --id) {
    const std::string file = v2xtest::readFile(work_.file("mapdata/map_data_" + std::to_string(id)));
    ASSERT_FALSE(file.empty()) << id;
    EXPECT_TRUE(sim.waitForOutput("notice: file id " + std::to_string(id) + ", md5 " + md5Hex(file) + ", file time 0"))
        << sim.output();
  }
  const std::regex request("request: file time ([0-9]+),");
  bool sawMapTime = false;
  for (int i = 0; i < 50 && !sawMapTime; ++i) {
    sim.waitForOutput("\n(never printed)", std::chrono::milliseconds(200));
    const std::string out = sim.output();
    for (auto it = std::sregex_iterator(out.begin(), out.end(), request); it != std::sregex_iterator(); ++it)
      sawMapTime = sawMapTime || std::stoull((*it)[1].str()) >= before;
  }
  EXPECT_TRUE(sawMapTime) << sim.output();
  EXPECT_EQ(countOf(sim.output(), "notice: "), 3U) << sim.output();
  sim.signal(SIGINT);
  sim.waitExit();
}
#endif

}  // namespace
