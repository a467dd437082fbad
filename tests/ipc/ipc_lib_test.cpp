// The UDP IPC library: port configuration, server sockets and request/response
// exchanges over real loopback sockets.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ipc_test_util.h"
#include "v2xipc.h"
#include "v2xlog.h"

namespace {

using v2xtest::TempDir;
using v2xtest::UdpPeer;

// ------------------------------------------------------------ configuration

struct CfgCase {
  const char* name;
  const char* text;  // nullptr: no file at all
  int32 ret;
  uint16 appRs, convSnd, logTool;
  const char* rsuRcv;       // address of "RSU_RCV"
  const char* logToolBind;  // bind override of "MAP_C_LOGTOOL", "" for none
};

const char* bindOf(const v2x_ipc_config_t* c, const char* name) {
  for (uint16 i = 0; i < c->m_bindNum; ++i)
    if (std::strcmp(c->m_binds[i].m_name, name) == 0) return c->m_binds[i].m_addr;
  return "";
}

TEST(IpcConfig, FileValuesAndDefaults) {
  const CfgCase cases[] = {
      {"missing file", nullptr, -1, 20100, 20110, 20111, "127.0.0.1", ""},
      {"syntax error", "ports : { m_app_rs_rcvport = 1 ", -1, 20100, 20110, 20111, "127.0.0.1", ""},
      {"complete",
       "ports : { m_app_rs_rcvport = 30001; m_map_conv_sndport = 30002; m_mapconv_logtool_rcvport = 30003; };\n"
       "endpoints : { RSU_RCV = \"10.1.2.3\"; OTHER = \"10.0.0.9\"; };\n"
       "bind : { MAP_C_LOGTOOL = \"127.0.0.1\"; };\n",
       0, 30001, 30002, 30003, "10.1.2.3", "127.0.0.1"},
      {"bad values keep defaults",
       "ports : { m_app_rs_rcvport = 70000; m_map_conv_sndport = \"x\"; m_mapconv_logtool_rcvport = 0; };\n"
       "endpoints : { RSU_RCV = \"localhost\"; };\nbind : { MAP_C_LOGTOOL = 5; };\n",
       0, 20100, 20110, 0, "127.0.0.1", ""},
  };
  for (const CfgCase& c : cases) {
    TempDir dir;
    if (c.text != nullptr) v2xtest::writeFile(dir.file("conf/v2x_ipc_port.cfg"), c.text);
    EXPECT_EQ(v2xipc_CfgInit(dir.path().c_str()), c.ret) << c.name;
    v2x_ipc_config_t* conf = nullptr;
    ASSERT_EQ(v2xipc_GetIpcConfValue(&conf), 0);
    EXPECT_EQ(conf->m_app_rs_rcvport, c.appRs) << c.name;
    EXPECT_EQ(conf->m_map_conv_sndport, c.convSnd) << c.name;
    EXPECT_EQ(conf->m_mapconv_logtool_rcvport, c.logTool) << c.name;
    char addr[V2XIPC_ADDR_LEN];
    ASSERT_EQ(v2xipc_GetEndpointAddr(conf, "RSU_RCV", addr), 0) << c.name;
    EXPECT_STREQ(addr, c.rsuRcv) << c.name;
    EXPECT_STREQ(bindOf(conf, "MAP_C_LOGTOOL"), c.logToolBind) << c.name;
  }
  EXPECT_EQ(v2xipc_CfgInit(nullptr), -2);
}

TEST(IpcConfig, MissingFileIsLogged) {
  TempDir dir;
  ASSERT_EQ(v2xlog_Init(dir.file("t.log").c_str(), "TEST", 1, 0, 0), 0);
  EXPECT_EQ(v2xipc_CfgInit(dir.path().c_str()), -1);
  v2xlog_Flush();
  EXPECT_NE(v2xtest::readFile(dir.file("t.log")).find("cannot be read, using default ports"), std::string::npos);
}

// ------------------------------------------------------------ sockets

v2xpub_SocketInitPara_t clientPara(uint16 cliPort = 0) {
  v2xpub_SocketInitPara_t p{};
  std::strcpy(p.m_sockName, "TEST_CLI");
  std::strcpy(p.m_localIP, "127.0.0.1");
  p.m_cliPort = cliPort;
  p.m_cliEnable = 1;
  return p;
}

// Server routine that sends every datagram straight back.
void echo(V2X_UDPSOCKHANDLE h, void* data, void* addr, int16_t addrLen) {
  v2xipc_SocketRespSend(h, nullptr, static_cast<v2xpub_UdpSocketDataHead_t*>(data), addr, addrLen);
}

// An echo server on a free port and a client aimed at it.
class Exchange : public ::testing::Test {
 protected:
  void SetUp() override {
    svrPort_ = v2xtest::freeUdpPort();
    v2xpub_SocketInitPara_t s{};
    std::strcpy(s.m_sockName, "TEST_SVR");
    std::strcpy(s.m_localIP, "127.0.0.1");
    s.m_svrPort = svrPort_;
    s.m_svrEnable = 1;
    s.f_msgFunc = echo;
    ASSERT_EQ(v2xipc_SocketInit(&server_, nullptr, &s), 0);
    v2xpub_SocketInitPara_t c = clientPara();
    ASSERT_EQ(v2xipc_SocketInit(&client_, nullptr, &c), 0);
    ASSERT_EQ(v2xipc_SocketSetSendAddr(client_, nullptr, "127.0.0.1", svrPort_), 0);
  }
  void TearDown() override {
    v2xipc_SocketClose(client_);
    v2xipc_SocketClose(server_);
  }

  // One exchange; returns the result and fills `answer`.
  int32 ask(V2X_UDPSOCKHANDLE h, std::vector<uint8_t> question, std::vector<uint8_t>& answer, int32 timeoutMs = 3000,
            int16 capacity = V2XIPC_MSG_MAX) {
    v2xpub_UdpSocketDataHead_t send{static_cast<int16>(question.size()), question.data()};
    answer.assign(static_cast<size_t>(capacity), 0);
    v2xpub_UdpSocketDataHead_t recv{capacity, answer.data()};
    int32 ret = v2xipc_SocketReqSend(h, nullptr, timeoutMs, &send, &recv);
    answer.resize(ret == 0 ? static_cast<size_t>(recv.m_curMsgLen) : 0);
    return ret;
  }

  static std::vector<uint8_t> pattern(size_t n, uint8_t seed) {
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(seed + i * 7);
    return v;
  }

  uint16 svrPort_ = 0;
  V2X_UDPSOCKHANDLE server_ = nullptr;
  V2X_UDPSOCKHANDLE client_ = nullptr;
};

TEST_F(Exchange, RoundTripKeepsEveryByteUpToTheLargestPacket) {
  for (size_t n : {size_t{1}, size_t{36}, size_t{17 + 20480}, size_t{V2XIPC_MSG_MAX}}) {
    std::vector<uint8_t> q = pattern(n, static_cast<uint8_t>(n)), a;
    ASSERT_EQ(ask(client_, q, a), 0) << n;
    EXPECT_EQ(a, q) << n;
  }
}

TEST_F(Exchange, StaleAndForeignDatagramsAreDiscarded) {
  // A peer that first has a foreign socket write to the client, then answers.
  UdpPeer peer, stranger;
  V2X_UDPSOCKHANDLE cli = nullptr;
  uint16 cliPort = v2xtest::freeUdpPort();
  v2xpub_SocketInitPara_t c = clientPara(cliPort);
  ASSERT_EQ(v2xipc_SocketInit(&cli, nullptr, &c), 0);
  ASSERT_EQ(v2xipc_SocketSetSendAddr(cli, nullptr, "127.0.0.1", peer.port()), 0);
  // A late answer to some earlier request, queued before this exchange starts.
  ASSERT_TRUE(peer.sendTo(cliPort, {'S', 'T', 'A', 'L', 'E'}));
  std::thread t([&] {
    std::vector<uint8_t> req;
    sockaddr_in from{};
    if (!peer.receive(req, &from)) return;
    stranger.sendTo(from, {'F', 'O', 'R', 'E', 'I', 'G', 'N'});
    peer.sendTo(from, {'A', 'N', 'S', 'W', 'E', 'R'});
  });
  std::vector<uint8_t> a;
  EXPECT_EQ(ask(cli, {1, 2, 3}, a), 0);
  t.join();
  EXPECT_EQ(std::string(a.begin(), a.end()), "ANSWER");
  v2xipc_SocketClose(cli);
}

TEST_F(Exchange, SilentPeerTimesOutAndMissingPeerIsRefused) {
  UdpPeer silent;
  std::vector<uint8_t> a;
  ASSERT_EQ(v2xipc_SocketSetSendAddr(client_, nullptr, "127.0.0.1", silent.port()), 0);
  EXPECT_EQ(ask(client_, {1}, a, 100), V2XIPC_ERR_TIMEOUT);
  ASSERT_EQ(v2xipc_SocketSetSendAddr(client_, nullptr, "127.0.0.1", v2xtest::freeUdpPort()), 0);
  EXPECT_EQ(ask(client_, {1}, a, 3000), V2XIPC_ERR_REFUSED);
  // The refusal is not left behind for the next exchange.
  ASSERT_EQ(v2xipc_SocketSetSendAddr(client_, nullptr, "127.0.0.1", svrPort_), 0);
  EXPECT_EQ(ask(client_, {9, 9}, a), 0);
  EXPECT_EQ(a, (std::vector<uint8_t>{9, 9}));
}

TEST_F(Exchange, TwoThreadsOnOneHandleEachGetTheirOwnAnswers) {
  std::atomic<int> mismatches{0}, failures{0};
  auto worker = [&](uint8_t id) {
    for (int i = 0; i < 100; ++i) {
      std::vector<uint8_t> q = pattern(20 + static_cast<size_t>(i), static_cast<uint8_t>(id * 100 + i)), a;
      q[0] = id;
      if (ask(client_, q, a) != 0) {
        ++failures;
      } else if (a != q) {
        ++mismatches;
      }
    }
  };
  std::thread t1(worker, 1), t2(worker, 2);
  t1.join();
  t2.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(mismatches.load(), 0);
}

TEST_F(Exchange, BadArgumentsAndTooSmallBuffers) {
  std::vector<uint8_t> q = {1, 2, 3, 4}, a;
  v2xpub_UdpSocketDataHead_t send{4, q.data()};
  uint8_t buf[8];
  v2xpub_UdpSocketDataHead_t recv{8, buf};
  EXPECT_EQ(v2xipc_SocketReqSend(nullptr, nullptr, 100, &send, &recv), V2XIPC_ERR_PARAM);
  EXPECT_EQ(v2xipc_SocketReqSend(client_, nullptr, 0, &send, &recv), V2XIPC_ERR_PARAM);
  EXPECT_EQ(v2xipc_SocketReqSend(client_, nullptr, 100, &send, nullptr), V2XIPC_ERR_PARAM);
  v2xpub_UdpSocketDataHead_t empty{0, q.data()};
  EXPECT_EQ(v2xipc_SocketReqSend(client_, nullptr, 100, &empty, &recv), V2XIPC_ERR_PARAM);
  EXPECT_EQ(v2xipc_SocketSetSendAddr(client_, nullptr, "NO_SUCH_PEER", 1), V2XIPC_ERR_PARAM);

  V2X_UDPSOCKHANDLE fresh = nullptr;
  v2xpub_SocketInitPara_t c = clientPara();
  ASSERT_EQ(v2xipc_SocketInit(&fresh, nullptr, &c), 0);
  EXPECT_EQ(v2xipc_SocketReqSend(fresh, nullptr, 100, &send, &recv), V2XIPC_ERR_NODEST);
  v2xipc_SocketClose(fresh);

  // The echo of 100 bytes does not fit a 50-byte buffer: an error, no overflow.
  EXPECT_EQ(ask(client_, pattern(100, 1), a, 3000, 50), V2XIPC_ERR_TOOBIG);
}

TEST(IpcSocket, ServerDropsOversizeDatagramsAndServesTheNext) {
  static std::atomic<int> calls{0}, lastLen{0};
  auto count = [](V2X_UDPSOCKHANDLE h, void* data, void* addr, int16_t addrLen) {
    auto* d = static_cast<v2xpub_UdpSocketDataHead_t*>(data);
    ++calls;
    lastLen = d->m_curMsgLen;
    v2xipc_SocketRespSend(h, nullptr, d, addr, addrLen);
  };
  uint16 port = v2xtest::freeUdpPort();
  v2xpub_SocketInitPara_t s{};
  std::strcpy(s.m_sockName, "TEST_SVR");
  std::strcpy(s.m_localIP, "127.0.0.1");
  s.m_svrPort = port;
  s.m_svrEnable = 1;
  s.f_msgFunc = count;
  V2X_UDPSOCKHANDLE h = nullptr;
  ASSERT_EQ(v2xipc_SocketInit(&h, nullptr, &s), 0);
  UdpPeer peer;
  ASSERT_TRUE(peer.sendTo(port, std::vector<uint8_t>(V2XIPC_MSG_MAX + 1, 0xEE)));
  ASSERT_TRUE(peer.sendTo(port, std::vector<uint8_t>(17, 0x11)));
  std::vector<uint8_t> back;
  ASSERT_TRUE(peer.receive(back));
  EXPECT_EQ(back, std::vector<uint8_t>(17, 0x11));
  EXPECT_EQ(calls.load(), 1);
  EXPECT_EQ(lastLen.load(), 17);
  v2xipc_SocketClose(h);
}

TEST(IpcSocket, InitRefusesBadParameters) {
  TempDir dir;
  v2xtest::writeFile(dir.file("conf/v2x_ipc_port.cfg"), "bind : { TEST_BAD = \"10.255.255.1\"; };\n");
  ASSERT_EQ(v2xipc_CfgInit(dir.path().c_str()), 0);
  UdpPeer taken;
  struct Case {
    const char* name;
    const char* ip;
    uint16 cliPort;
    int8 svr, cli;
    bool func;
    int32 ret;
  };
  const Case cases[] = {
      {"TEST_NONE", "127.0.0.1", 0, 0, 0, false, V2XIPC_ERR_PARAM},           // nothing enabled
      {"TEST_NOFN", "127.0.0.1", 0, 1, 0, false, V2XIPC_ERR_PARAM},           // server without routine
      {"TEST_ADDR", "not-an-ip", 0, 0, 1, false, V2XIPC_ERR_PARAM},           // bad local address
      {"TEST_BUSY", "127.0.0.1", taken.port(), 0, 1, false, V2XIPC_ERR_SYS},  // port in use
      {"TEST_BAD", "127.0.0.1", 0, 0, 1, false, V2XIPC_ERR_SYS},              // override not local
  };
  for (const Case& c : cases) {
    v2xpub_SocketInitPara_t p{};
    std::strcpy(p.m_sockName, c.name);
    std::strcpy(p.m_localIP, c.ip);
    p.m_cliPort = c.cliPort;
    p.m_svrEnable = c.svr;
    p.m_cliEnable = c.cli;
    p.f_msgFunc = c.func ? echo : nullptr;
    V2X_UDPSOCKHANDLE h = nullptr;
    EXPECT_EQ(v2xipc_SocketInit(&h, nullptr, &p), c.ret) << c.name;
    EXPECT_EQ(h, nullptr) << c.name;
  }
  v2xipc_CfgInit("/nonexistent");
}

}  // namespace
