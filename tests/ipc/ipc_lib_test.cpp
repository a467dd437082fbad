// The UDP IPC library: port configuration, server sockets and request/response
// exchanges over real loopback sockets.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "udp_peer.h"
#include "v2xipc.h"

namespace {

using v2xtest::TempDir;
using v2xtest::UdpPeer;
using Bytes = std::vector<uint8_t>;

TEST(IpcConfig, FileValuesAndDefaults) {
  const struct {
    const char* name;
    const char* text;  // nullptr: no file
    int32 ret;
    uint16 appRs, convSnd, logTool;
    const char* rsuRcv;       // address of the endpoint "RSU_RCV"
    const char* logToolBind;  // bind override of "MAP_C_LOGTOOL", "" for none
  } cases[] = {
      {"missing file", nullptr, -1, 20100, 20110, 20111, "127.0.0.1", ""},
      {"syntax error", "ports : { m_app_rs_rcvport = 1 ", -1, 20100, 20110, 20111, "127.0.0.1", ""},
      {"complete",
       "ports : { m_app_rs_rcvport = 30001; m_map_conv_sndport = 30002; m_mapconv_logtool_rcvport = 30003; };\n"
       "endpoints : { RSU_RCV = \"10.1.2.3\"; OTHER = \"10.0.0.9\"; };\nbind : { MAP_C_LOGTOOL = \"127.0.0.1\"; };\n",
       0, 30001, 30002, 30003, "10.1.2.3", "127.0.0.1"},
      {"bad values keep defaults",
       "ports : { m_app_rs_rcvport = 70000; m_map_conv_sndport = \"x\"; m_mapconv_logtool_rcvport = 0; };\n"
       "endpoints : { RSU_RCV = \"localhost\"; };\nbind : { MAP_C_LOGTOOL = 5; };\n",
       0, 20100, 20110, 0, "127.0.0.1", ""},
  };
  for (const auto& c : cases) {
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
    EXPECT_STREQ(conf->m_bindNum > 0 ? conf->m_binds[0].m_addr : "", c.logToolBind) << c.name;
  }
}

// A server socket (with its routine) or a client socket on 127.0.0.1; port 0
// is the kernel's choice.
v2xpub_SocketInitPara_t para(const char* name, v2xipc_MsgFunc_t func, uint16 cliPort = 0) {
  v2xpub_SocketInitPara_t p{};
  std::strcpy(p.m_sockName, name);
  std::strcpy(p.m_localIP, "127.0.0.1");
  p.m_cliPort = cliPort;
  p.m_svrEnable = func != nullptr ? 1 : 0;
  p.m_cliEnable = func != nullptr ? 0 : 1;
  p.f_msgFunc = func;
  return p;
}

// Server routine that sends every datagram straight back.
void echo(V2X_UDPSOCKHANDLE h, void* data, void* addr, int16_t addrLen) {
  v2xipc_SocketRespSend(h, nullptr, static_cast<v2xpub_UdpSocketDataHead_t*>(data), addr, addrLen);
}

// An echo server and a client aimed at it, on ports the kernel chose.
class Exchange : public ::testing::Test {
 protected:
  void SetUp() override {
    v2xipc_CfgInit("/nonexistent");
    v2xpub_SocketInitPara_t s = para("TEST_SVR", echo), c = para("TEST_CLI", nullptr);
    ASSERT_EQ(v2xipc_SocketInit(&server_, nullptr, &s), 0);
    ASSERT_EQ(v2xipc_SocketInit(&client_, nullptr, &c), 0);
    svrPort_ = v2xipc_SocketLocalPort(server_, 1);
    cliPort_ = v2xipc_SocketLocalPort(client_, 0);
    ASSERT_EQ(v2xipc_SocketSetSendAddr(client_, nullptr, "127.0.0.1", svrPort_), 0);
  }
  void TearDown() override {
    v2xipc_SocketClose(client_);
    v2xipc_SocketClose(server_);
  }
  // One exchange; the answer lands in `answer`.
  int32 ask(Bytes question, Bytes& answer, int32 timeoutMs = 3000, int16 capacity = V2XIPC_MSG_MAX) {
    v2xpub_UdpSocketDataHead_t send{static_cast<int16>(question.size()), question.data()};
    answer.assign(static_cast<size_t>(capacity), 0);
    v2xpub_UdpSocketDataHead_t recv{capacity, answer.data()};
    int32 ret = v2xipc_SocketReqSend(client_, nullptr, timeoutMs, &send, &recv);
    answer.resize(ret == 0 ? static_cast<size_t>(recv.m_curMsgLen) : 0);
    return ret;
  }
  static Bytes pattern(size_t n, uint8_t seed) {
    Bytes v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(seed + i * 7);
    return v;
  }

  uint16 svrPort_ = 0, cliPort_ = 0;
  V2X_UDPSOCKHANDLE server_ = nullptr, client_ = nullptr;
};

TEST_F(Exchange, RoundTripKeepsEveryByteUpToTheLargestPacket) {
  for (size_t n : {size_t{1}, size_t{36}, size_t{17 + 20480}, size_t{V2XIPC_MSG_MAX}}) {
    Bytes q = pattern(n, static_cast<uint8_t>(n)), a;
    ASSERT_EQ(ask(q, a), 0) << n;
    EXPECT_EQ(a, q) << n;
  }
  Bytes a;
  EXPECT_EQ(ask(pattern(100, 1), a, 3000, 50), V2XIPC_ERR_TOOBIG) << "an answer larger than the buffer";
}

TEST_F(Exchange, StaleAndForeignDatagramsAreDiscarded) {
  UdpPeer peer, stranger;
  ASSERT_EQ(v2xipc_SocketSetSendAddr(client_, nullptr, "127.0.0.1", peer.port()), 0);
  ASSERT_TRUE(peer.sendTo(cliPort_, {'S', 'T', 'A', 'L', 'E'}));  // queued before the exchange starts
  std::thread t([&] {
    Bytes req;
    sockaddr_in from{};
    if (!peer.receive(req, &from)) return;
    stranger.sendTo(from, {'F', 'O', 'R', 'E', 'I', 'G', 'N'});
    peer.sendTo(from, {'A', 'N', 'S', 'W', 'E', 'R'});
  });
  Bytes a;
  EXPECT_EQ(ask({1, 2, 3}, a), 0);
  t.join();
  EXPECT_EQ(std::string(a.begin(), a.end()), "ANSWER");
}

TEST_F(Exchange, SilentPeerTimesOutMissingPeerIsRefusedAndNeitherLingers) {
  UdpPeer silent;
  Bytes a;
  ASSERT_EQ(v2xipc_SocketSetSendAddr(client_, nullptr, "127.0.0.1", silent.port()), 0);
  EXPECT_EQ(ask({1}, a, 100), V2XIPC_ERR_TIMEOUT);
  uint16 gone = 0;
  {
    UdpPeer closed;  // a port nobody listens on any more
    gone = closed.port();
  }
  ASSERT_EQ(v2xipc_SocketSetSendAddr(client_, nullptr, "127.0.0.1", gone), 0);
  EXPECT_EQ(ask({1}, a), V2XIPC_ERR_REFUSED);
  ASSERT_EQ(v2xipc_SocketSetSendAddr(client_, nullptr, "127.0.0.1", svrPort_), 0);
  EXPECT_EQ(ask({9, 9}, a), 0);
  EXPECT_EQ(a, (Bytes{9, 9}));
}

TEST_F(Exchange, TwoThreadsOnOneHandleEachGetTheirOwnAnswers) {
  std::atomic<int> wrong{0};
  auto worker = [&](uint8_t id) {
    for (int i = 0; i < 100; ++i) {
      Bytes q = pattern(20 + static_cast<size_t>(i), static_cast<uint8_t>(id * 100 + i)), a;
      q[0] = id;
      if (ask(q, a) != 0 || a != q) ++wrong;
    }
  };
  std::thread t1(worker, 1), t2(worker, 2);
  t1.join();
  t2.join();
  EXPECT_EQ(wrong.load(), 0);
}

// Shutdown ends the exchange waiting for its answer and the one waiting for
// its turn (each would otherwise wait a minute), and every later one.
TEST_F(Exchange, ShutdownEndsEveryWaitAndRefusesLaterExchanges) {
  UdpPeer silent;
  ASSERT_EQ(v2xipc_SocketSetSendAddr(client_, nullptr, "127.0.0.1", silent.port()), 0);
  int32 first = 0, second = 0;
  std::thread waitsForAnswer([&] {
    Bytes a;
    first = ask({1}, a, 60000);
  });
  Bytes request;
  ASSERT_TRUE(silent.receive(request));  // the first exchange holds the turn now
  std::thread waitsForTurn([&] {
    Bytes a;
    second = ask({2}, a, 60000);
  });
  EXPECT_EQ(v2xipc_SocketShutdown(client_), 0);
  waitsForAnswer.join();
  waitsForTurn.join();
  EXPECT_EQ(first, V2XIPC_ERR_CLOSED);
  EXPECT_EQ(second, V2XIPC_ERR_CLOSED);
  Bytes a;
  EXPECT_EQ(ask({3}, a), V2XIPC_ERR_CLOSED);
  EXPECT_EQ(v2xipc_SocketShutdown(nullptr), V2XIPC_ERR_PARAM);
}

TEST(IpcSocket, BindOverrideAndBusyPortFailTheInit) {
  TempDir dir;
  v2xtest::writeFile(dir.file("conf/v2x_ipc_port.cfg"), "bind : { TEST_FAR = \"10.255.255.1\"; };\n");
  ASSERT_EQ(v2xipc_CfgInit(dir.path().c_str()), 0);
  UdpPeer taken;
  v2xpub_SocketInitPara_t far = para("TEST_FAR", nullptr), busy = para("TEST_BUSY", nullptr, taken.port());
  V2X_UDPSOCKHANDLE h = nullptr;
  EXPECT_EQ(v2xipc_SocketInit(&h, nullptr, &far), V2XIPC_ERR_SYS) << "the override, not 127.0.0.1, is bound";
  EXPECT_EQ(v2xipc_SocketInit(&h, nullptr, &busy), V2XIPC_ERR_SYS);
  EXPECT_EQ(h, nullptr);
  v2xipc_CfgInit("/nonexistent");
}

}  // namespace
