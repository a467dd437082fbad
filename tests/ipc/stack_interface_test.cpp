// The service's side of the local IPC, in process: the packets it sends to the
// V2X protocol process (caught by a real peer socket) and its checks of the
// map data response.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ipc_test_util.h"
#include "map_conv_stack_interface.h"
#include "map_samples.h"
#include "v2xlog.h"
#include "v2xpub.h"

namespace {

using v2xtest::mapItems;
using v2xtest::TempDir;
using v2xtest::UdpPeer;

std::vector<uint8_t> le(uint64_t v, size_t n) {
  std::vector<uint8_t> out(n);
  for (size_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(v >> (8 * i));
  return out;
}

uint64_t readLe(const std::vector<uint8_t>& p, size_t off, size_t n) {
  uint64_t v = 0;
  for (size_t i = 0; i < n; ++i) v |= static_cast<uint64_t>(p[off + i]) << (8 * i);
  return v;
}

// A complete packet: head (flags, inc 4, direction 0, time, command, body length, 0) and body.
std::vector<uint8_t> packet(uint16_t cmd, const std::vector<uint8_t>& body, int packLenDelta = 0,
                            uint8_t flag0 = 0xA5) {
  std::vector<uint8_t> p = {flag0, 0x5A, 4, 0};
  auto t = le(1700000000000ULL, 8);
  p.insert(p.end(), t.begin(), t.end());
  const int64_t packLen = static_cast<int64_t>(body.size()) + packLenDelta;
  auto c = le(cmd, 2), l = le(static_cast<uint64_t>(packLen), 2);
  p.insert(p.end(), c.begin(), c.end());
  p.insert(p.end(), l.begin(), l.end());
  p.push_back(0);
  p.insert(p.end(), body.begin(), body.end());
  return p;
}

// An RSU body: data type, count, data length, 0, then the data.
std::vector<uint8_t> rsuBody(int32_t type, int32_t count, const std::vector<uint8_t>& data) {
  std::vector<uint8_t> b = le(static_cast<uint32_t>(type), 4);
  auto n = le(static_cast<uint32_t>(count), 4), l = le(data.size(), 2);
  b.insert(b.end(), n.begin(), n.end());
  b.insert(b.end(), l.begin(), l.end());
  b.push_back(0);
  b.insert(b.end(), data.begin(), data.end());
  return b;
}

class StackInterface : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(v2xlog_Init(dir_.file("t.log").c_str(), "TEST", 1, 0, 0), 0);
    v2xlog_SetAllTagLevel(6);
    ports_ = v2xtest::freshPorts();
    v2xtest::writeIpcConfig(dir_.path(), ports_);
    ASSERT_EQ(v2xipc_CfgInit(dir_.path().c_str()), 0);
    ASSERT_EQ(v2xmapconv_StackInterfaceInit(), 0);
  }
  void TearDown() override { v2xmapconv_StackInterfaceExit(); }
  std::string log() {
    v2xlog_Flush();
    return v2xtest::readFile(dir_.file("t.log"));
  }

  TempDir dir_;
  v2xtest::IpcPorts ports_{};
};

struct Field {
  size_t offset;
  std::vector<uint8_t> bytes;
};

struct SendCase {
  const char* name;
  std::function<int32()> send;
  int32_t answerType;
  size_t length;
  std::vector<Field> fields;
};

TEST_F(StackInterface, NoticeAndRequestPacketsOnTheWire) {
  v2xipc_mapRefresh_t refresh{};
  refresh.m_mapFileID = 0;  // slice 1
  std::vector<uint8_t> md5(16);
  for (size_t i = 0; i < md5.size(); ++i) md5[i] = static_cast<uint8_t>(0xF0 + i);
  std::memcpy(refresh.m_CheckSum, md5.data(), md5.size());
  const std::vector<Field> head = {{0, {0xA5, 0x5A, 4, 0}}, {12, le(20, 2)}, {16, {0}}};

  const SendCase cases[] = {
      {"map refresh notice",
       [&] { return v2xmapconv_UpdataMapDataNotify(&refresh); },
       7,
       101,
       {{14, le(84, 2)},
        {17, le(7, 4)},
        {21, le(1, 4)},
        {25, le(73, 2)},
        {27, {0}},
        {28, {0}},
        {29, le(0, 8)},
        {37, md5},
        {53, std::vector<uint8_t>(48, 0)}}},
      {"map data request before any map",
       [] {
         SendGetMapDataToAPP(nullptr);
         return 0;
       },
       10,
       36,
       {{14, le(19, 2)}, {17, le(10, 4)}, {21, le(1, 4)}, {25, le(8, 2)}, {27, {0}}, {28, le(0, 8)}}},
  };
  UdpPeer peer(ports_.appRs);
  for (const SendCase& c : cases) {
    const uint64_t before = v2xpub_CommGetCurrentTime64();
    int32 ret = -100;
    std::thread sender([&] { ret = c.send(); });
    std::vector<uint8_t> got;
    sockaddr_in from{};
    const bool received = peer.receive(got, &from);
    if (received) peer.sendTo(from, packet(21, rsuBody(c.answerType, 0, {})));
    sender.join();
    const uint64_t after = v2xpub_CommGetCurrentTime64();
    ASSERT_TRUE(received) << c.name;
    EXPECT_EQ(ret, 0) << c.name;
    EXPECT_EQ(ntohs(from.sin_port), ports_.convSnd) << c.name << ": sent from the configured port";
    ASSERT_EQ(got.size(), c.length) << c.name;
    for (const auto& fieldList : {head, c.fields})
      for (const Field& f : fieldList)
        EXPECT_EQ(std::vector<uint8_t>(got.begin() + f.offset, got.begin() + f.offset + f.bytes.size()), f.bytes)
            << c.name << " at offset " << f.offset;
    const uint64_t sent = readLe(got, 4, 8);
    EXPECT_GE(sent, before) << c.name;
    EXPECT_LE(sent, after) << c.name;
  }
  EXPECT_EQ(log().find("UDP send error"), std::string::npos);
  EXPECT_EQ(v2xmapconv_UpdataMapDataNotify(nullptr), -2);
  EXPECT_EQ(v2xmapconv_PackMapRefreshAndSendData(20, nullptr), -2);
  uint32_t len = 0;
  EXPECT_EQ(MapRefresh_fill(nullptr, &refresh, &len), -2);
  EXPECT_EQ(GetMapData_fill(nullptr, &len), -2);
}

TEST_F(StackInterface, WithoutAPeerEachSendIsAWarning) {
  // ports_.appRs was free when chosen and nobody listens on it.
  v2xipc_mapRefresh_t refresh{};
  EXPECT_EQ(v2xmapconv_UpdataMapDataNotify(&refresh), V2XIPC_ERR_REFUSED);
  SendGetMapDataToAPP(nullptr);
  const std::string text = log();
  size_t warnings = 0;
  for (size_t pos = text.find("[SINF][WARN]"); pos != std::string::npos; pos = text.find("[SINF][WARN]", pos + 1))
    ++warnings;
  EXPECT_EQ(warnings, 2U);
  EXPECT_NE(text.find("UDP send error:-4"), std::string::npos);
  EXPECT_EQ(text.find("[SINF][ERR]"), std::string::npos);
}

struct RespCase {
  const char* name;
  std::vector<uint8_t> bytes;
  int32 ret;
  const char* logText;  // expected in the log, or nullptr
};

TEST_F(StackInterface, ResponseChecks) {
  const std::vector<uint8_t> noMaps = rsuBody(10, 0, {});
  const std::vector<uint8_t> map0 = v2xtest::uperMap(1, 100, "first"), map1 = v2xtest::uperMap(2, 200);
  ASSERT_FALSE(map0.empty());
  ASSERT_FALSE(map1.empty());
  ASSERT_NE(map0.size(), map1.size());
  // Drops the last byte, keeping the head's body length consistent with what is left.
  auto cut = [](std::vector<uint8_t> p) {
    p.pop_back();
    p[14] = static_cast<uint8_t>(p.size() - 17);
    p[15] = static_cast<uint8_t>((p.size() - 17) >> 8);
    return p;
  };
  const RespCase cases[] = {
      {"bad head flag", packet(21, noMaps, 0, 0xA6), -3, "v2xmapconv_GetMapDataResp headflag error"},
      {"length mismatch", packet(21, noMaps, 1), -4, "v2xmapconv_GetMapDataResp too large ; error"},
      {"body above 20480", packet(21, rsuBody(10, 0, std::vector<uint8_t>(20481 - 11, 0))), -4, "too large ; error"},
      {"shorter than a head", std::vector<uint8_t>(10, 0xA5), -4, nullptr},
      {"wrong command", packet(51, noMaps), -6, "Recv cmdType error"},
      {"zero maps", packet(21, noMaps), 0, nullptr},
      {"largest body, zero maps", packet(21, rsuBody(10, 0, std::vector<uint8_t>(20480 - 11, 0))), 0, nullptr},
      {"body without its data head", packet(21, {10, 0, 0, 0, 1}), -4, nullptr},
      // Item of 500 bytes in a body that holds 10; a count far above the items.
      {"item past the end", packet(21, rsuBody(10, 1, {0xF4, 0x01, 1, 2, 3, 4, 5, 6, 7, 8})), -4, "runs past"},
      {"length field past the end", packet(21, rsuBody(10, 1000, {0x01})), -4, "runs past"},
      {"undecodable map", packet(21, rsuBody(10, 1, {4, 0, 0xFF, 0xFF, 0xFF, 0xFF})), -5,
       "v2xapp_GBMapUperDecode error"},
      {"one map", packet(21, rsuBody(10, 1, mapItems({map0}))), 0, "map 0 of 1 decoded"},
      {"two maps", packet(21, rsuBody(10, 2, mapItems({map0, map1}))), 0, "map 1 of 2 decoded"},
      // The second item's bytes are cut short by the received length.
      {"second map past the end", cut(packet(21, rsuBody(10, 2, mapItems({map0, map1})))), -4, "map 1 at offset"},
      {"second map undecodable", packet(21, rsuBody(10, 2, mapItems({map0, {0xFF, 0xFF}}))), -5,
       "v2xapp_GBMapUperDecode error"},
  };
  for (const RespCase& c : cases) {
    // Exactly the received bytes on the heap: any read past them is caught.
    std::vector<uint8_t> buf(c.bytes);
    v2xpub_UdpSocketDataHead_t d{static_cast<int16>(buf.size()), buf.data()};
    const size_t logged = log().size();
    EXPECT_EQ(v2xmapconv_GetMapDataResp(&d), c.ret) << c.name;
    if (c.logText != nullptr) {
      EXPECT_NE(log().find(c.logText, logged), std::string::npos) << c.name;
    }
  }
  EXPECT_EQ(v2xmapconv_GetMapDataResp(nullptr), -2);
}

}  // namespace
