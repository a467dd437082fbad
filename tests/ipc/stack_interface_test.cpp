// The service's side of the local IPC, in process: the packets it sends to the
// V2X protocol process (caught by a real peer socket) and its checks of the
// map data response.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "map_conv_profile.h"
#include "map_conv_stack_interface.h"
#include "udp_peer.h"
#include "v2xlog.h"
#include "v2xpub.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Two MapData frames of one intersection each, as the MAP library encodes
// them from XER: msgCnt 1 with node 100 named "first", msgCnt 2 with node 200
// named "X" (both at 31.0 N, 121.0 E).
const Bytes kMap0 = {0x10, 0x08, 0x10, 0x99, 0xB4, 0xF2, 0xE7, 0xD0, 0x00,
                     0xC8, 0x90, 0x3E, 0x45, 0x01, 0x66, 0xD1, 0xE8, 0xFE};
const Bytes kMap1 = {0x10, 0x10, 0x10, 0x16, 0x00, 0x19, 0x09, 0x03, 0xE4, 0x50, 0x16, 0x6D, 0x1E, 0x8F, 0xE0};

// Map items as the stack peer lays them out: each a 16-bit length, then the bytes.
Bytes mapItems(const std::vector<Bytes>& maps) {
  Bytes items;
  for (const Bytes& m : maps) {
    items.push_back(static_cast<uint8_t>(m.size()));
    items.push_back(static_cast<uint8_t>(m.size() >> 8));
    items.insert(items.end(), m.begin(), m.end());
  }
  return items;
}

// Appends v as n little-endian bytes.
Bytes& put(Bytes& out, uint64_t v, size_t n) {
  for (size_t i = 0; i < n; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
  return out;
}

// A packet: head (flags, inc 4, direction 0, time, command, body length, 0), then the body.
Bytes packet(uint16_t cmd, const Bytes& body, int packLenDelta = 0, uint8_t flag0 = 0xA5,
             uint64_t time = 1700000000000ULL) {
  Bytes p = {flag0, 0x5A, 4, 0};
  put(put(put(p, time, 8), cmd, 2), static_cast<uint64_t>(static_cast<int64_t>(body.size()) + packLenDelta), 2);
  p.push_back(0);
  p.insert(p.end(), body.begin(), body.end());
  return p;
}

// An RSU body: data type, count, data length, 0, then the data.
Bytes rsuBody(int32_t type, int32_t count, const Bytes& data) {
  Bytes b;
  put(put(put(b, static_cast<uint32_t>(type), 4), static_cast<uint32_t>(count), 4), data.size(), 2).push_back(0);
  b.insert(b.end(), data.begin(), data.end());
  return b;
}

class StackInterface : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(v2xlog_Init(dir_.file("t.log").c_str(), "TEST", 1, 0, 0), 0);
    v2xlog_SetAllTagLevel(6);
    v2xtest::writeIpcConfig(dir_.path(), peer_.port());
    ASSERT_EQ(v2xipc_CfgInit(dir_.path().c_str()), 0);
    ASSERT_EQ(v2xmapconv_StackInterfaceInit(), 0);
  }
  void TearDown() override { v2xmapconv_StackInterfaceExit(); }
  std::string log() {
    v2xlog_Flush();
    return v2xtest::readFile(dir_.file("t.log"));
  }

  v2xtest::TempDir dir_;
  v2xtest::UdpPeer peer_;  // the V2X protocol process
};

// Each packet whole, byte by byte, with the time it carries (taken between
// the call and its return); the peer answers with the same data type.
TEST_F(StackInterface, NoticeAndRequestPacketsOnTheWire) {
  v2xipc_mapRefresh_t refresh{};  // slice 1: file 0
  Bytes notice(9, 0);             // file id, file time
  for (uint8_t i = 0; i < 16; ++i) notice.push_back(refresh.m_CheckSum[i] = static_cast<uint8_t>(0xF0 + i));
  notice.resize(73, 0);
  int32 ret = 0;
  const struct {
    const char* name;
    std::function<void()> send;
    int32_t type;
    Bytes data;
  } cases[] = {
      {"map refresh notice", [&] { ret = v2xmapconv_UpdataMapDataNotify(&refresh); }, 7, notice},
      {"map data request before any map", [] { SendGetMapDataToAPP(nullptr); }, 10, Bytes(8, 0)},
  };
  const uint16_t clientPort = v2xtest::loggedClientPort(log(), "MAP_CONV_SEND");
  ASSERT_NE(clientPort, 0);
  for (const auto& c : cases) {
    const uint64_t before = v2xpub_CommGetCurrentTime64();
    ret = 0;  // the request has no result of its own
    std::thread sender(c.send);
    Bytes got;
    sockaddr_in from{};
    const bool received = peer_.receive(got, &from);
    if (received) peer_.sendTo(from, packet(21, rsuBody(c.type, 0, {})));
    sender.join();
    ASSERT_TRUE(received) << c.name;
    EXPECT_EQ(ret, 0) << c.name;
    EXPECT_EQ(ntohs(from.sin_port), clientPort) << c.name << ": sent from the port the log names";
    ASSERT_GE(got.size(), 12u) << c.name;
    uint64_t sent = 0;
    for (size_t i = 0; i < 8; ++i) sent |= static_cast<uint64_t>(got[4 + i]) << (8 * i);
    EXPECT_GE(sent, before) << c.name;
    EXPECT_LE(sent, v2xpub_CommGetCurrentTime64()) << c.name;
    EXPECT_EQ(got, packet(20, rsuBody(c.type, 1, c.data), 0, 0xA5, sent)) << c.name;
  }
  EXPECT_EQ(log().find("UDP send error"), std::string::npos);
  EXPECT_EQ(v2xmapconv_UpdataMapDataNotify(nullptr), -2);
}

// A map data request waits on a stack that does not answer; a refresh notice
// given meanwhile reaches the stack before the request is answered.
TEST_F(StackInterface, NoticeGoesOutWhileARequestWaits) {
  std::thread request([] { SendGetMapDataToAPP(nullptr); });
  Bytes got;
  sockaddr_in from{};
  ASSERT_TRUE(peer_.receive(got, &from)) << "the request";
  ASSERT_GE(got.size(), 21u);
  EXPECT_EQ(got[17], 10) << "data type of the map data request";
  v2xipc_mapRefresh_t refresh{};
  refresh.m_mapFileID = 2;
  EXPECT_EQ(v2xmapconv_UpdataMapDataNotify(&refresh), 0);
  Bytes notice;
  const bool noticed = peer_.receive(notice);
  peer_.sendTo(from, packet(21, rsuBody(10, 0, {})));  // lets the request end
  request.join();
  ASSERT_TRUE(noticed) << "the notice while the request still waits for its answer";
  ASSERT_GE(notice.size(), 29u);
  EXPECT_EQ(notice[17], 7) << "data type of the notice";
  EXPECT_EQ(notice[28], 2) << "file id";
  EXPECT_EQ(log().find("UDP send error"), std::string::npos);
}

// The checks of a map data response. Three maps in one answer: the reference
// walk finds the first two only (the third is looked for at the wrong place),
// the field profile finds all three.
TEST_F(StackInterface, ResponseChecks) {
  const Bytes noMaps = rsuBody(10, 0, {});
  auto cut = [](Bytes p) {  // one byte less received, the head's body length to match
    p.pop_back();
    p[14] = static_cast<uint8_t>(p.size() - 17);
    p[15] = static_cast<uint8_t>((p.size() - 17) >> 8);
    return p;
  };
  const struct {
    const char* name;
    Bytes bytes;
    int32 ret;
    const char* logText;  // expected in the log, or nullptr
    map_conv_profile_e profile = MAP_CONV_PROFILE_REFERENCE;
  } cases[] = {
      {"bad head flag", packet(21, noMaps, 0, 0xA6), -3, "v2xmapconv_GetMapDataResp headflag error"},
      {"length mismatch", packet(21, noMaps, 1), -4, "v2xmapconv_GetMapDataResp too large ; error"},
      {"body above 20480", packet(21, rsuBody(10, 0, Bytes(20481 - 11, 0))), -4, "too large ; error"},
      {"shorter than a head", Bytes(10, 0xA5), -4, nullptr},
      {"wrong command", packet(51, noMaps), -6, "Recv cmdType error"},
      {"largest body, zero maps", packet(21, rsuBody(10, 0, Bytes(20480 - 11, 0))), 0, nullptr},
      {"body without its data head", packet(21, {10, 0, 0, 0, 1}), -4, nullptr},
      {"item past the end", packet(21, rsuBody(10, 1, {0xF4, 0x01, 1, 2, 3})), -4, "runs past"},
      {"length field past the end", packet(21, rsuBody(10, 1000, {0x01})), -4, "runs past"},
      {"undecodable map", packet(21, rsuBody(10, 1, {4, 0, 0xFF, 0xFF, 0xFF, 0xFF})), -5,
       "v2xapp_GBMapUperDecode error"},
      {"two maps", packet(21, rsuBody(10, 2, mapItems({kMap0, kMap1}))), 0, "map 1 of 2 decoded"},
      {"second map past the end", cut(packet(21, rsuBody(10, 2, mapItems({kMap0, kMap1})))), -4, "map 1 at offset"},
      {"second map undecodable", packet(21, rsuBody(10, 2, mapItems({kMap0, {0xFF, 0xFF}}))), -5,
       "v2xapp_GBMapUperDecode error"},
      {"three maps, reference walk", packet(21, rsuBody(10, 3, mapItems({kMap0, kMap1, kMap0}))), -4,
       "map 1 of 3 decoded"},
      {"three maps, field profile", packet(21, rsuBody(10, 3, mapItems({kMap0, kMap1, kMap0}))), 0,
       "map 2 of 3 decoded", MAP_CONV_PROFILE_FIELD},
  };
  for (const auto& c : cases) {
    v2xmapconv_SetProfile(c.profile);
    Bytes buf(c.bytes);  // exactly the received bytes on the heap: a read past them is caught
    v2xpub_UdpSocketDataHead_t d{static_cast<int16>(buf.size()), buf.data()};
    const size_t logged = log().size();
    EXPECT_EQ(v2xmapconv_GetMapDataResp(&d), c.ret) << c.name;
    if (c.logText != nullptr) {
      EXPECT_NE(log().find(c.logText, logged), std::string::npos) << c.name;
    }
  }
  v2xmapconv_SetProfile(MAP_CONV_PROFILE_REFERENCE);
  EXPECT_EQ(v2xmapconv_GetMapDataResp(nullptr), -2);
}

}  // namespace
