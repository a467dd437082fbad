// The service's cloud link in process: topic names, sending without a peer,
// joining samples into messages, the communication software's status.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "map_conv_interface.h"
#include "map_conv_v2xcloud_dds.h"
#include "test_process.h"
#include "v2xlog.h"

namespace {

class CloudLink : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.path().empty());
    ASSERT_EQ(v2xlog_Init(dir_.file("link.log").c_str(), "TEST", 1, 0, 0), 0);
    v2xlog_SetAllTagLevel(7);
  }
  void TearDown() override { v2xlog_Init(nullptr, "TEST", 0, 0, 0); }
  // Log text written since the last call.
  std::string newLog() {
    v2xlog_Flush();
    std::string all = v2xtest::readFile(dir_.file("link.log"));
    std::string fresh = all.substr(std::min(seen_, all.size()));
    seen_ = all.size();
    return fresh;
  }
  static size_t count(const std::string& text, const std::string& needle) {
    size_t n = 0;
    for (size_t p = text.find(needle); p != std::string::npos; p = text.find(needle, p + 1)) n++;
    return n;
  }
  v2xtest::TempDir dir_;
  size_t seen_ = 0;
};

TEST_F(CloudLink, TopicsAreBuiltFromTheDeviceIdAndFreedAtExit) {
  struct Case {
    std::string esn;
    std::string down;
  };
  const std::string longId(200, 'L');
  const std::vector<Case> cases = {
      {"R1", "rsu/R1/map/down"},
      {"", "rsu//map/down"},
      {longId, ("rsu/" + longId).substr(0, 127)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.esn.size());
    v2xcloud_comm_ddsinfo_t info{};
    std::string esn = c.esn;
    ASSERT_EQ(v2xcloud_ddsInit(&info, esn.data()), 0);
    EXPECT_EQ(info.m_domain_id, 200);
    EXPECT_NE(info.dds_object, nullptr);
    EXPECT_STREQ(info.mp_map_down_topic, c.down.c_str());
    EXPECT_STREQ(info.mp_commsoft_recv_topic, "/murel/cloud/v2x/service_status");
    EXPECT_STREQ(info.mp_map_conv_send_topic, "/murel/v2x/cloud/service_status");
    if (c.esn == "R1") {
      EXPECT_STREQ(info.mp_map_down_ack_topic, "rsu/R1/map/down/ack");
      EXPECT_STREQ(info.mp_map_up_topic, "rsu/R1/map/up");
      EXPECT_STREQ(info.mp_map_up_ack_topic, "rsu/R1/map/up/ack");
      EXPECT_STREQ(info.mp_map_to_rsucloud_topic, "rsu/R1/map/rsucloud");
    }
    EXPECT_EQ(info.mp_rsu_cloud_send_topic, nullptr);  // not this service's
    EXPECT_EQ(v2xcloud_ddsExit(&info), 0);
  }
}

TEST_F(CloudLink, SendingWithoutPeerOrLink) {
  uint8 rec[26] = {1, 1};
  // A start-up that stopped early leaves an all-zero record: sends and exit are harmless.
  v2xcloud_comm_ddsinfo_t info{};
  EXPECT_EQ(v2xcloud_ddsInit(&info, nullptr), -2);
  EXPECT_EQ(v2xcloud_ddsSend(info.dds_object, info.mp_map_conv_send_topic, rec, sizeof(rec)), -2);
  EXPECT_EQ(v2xcloud_ddsExit(&info), 0);

  char esn[] = "NOPEER_x";
  ASSERT_EQ(v2xcloud_ddsInit(&info, esn), 0);
  void* obj = info.dds_object;
  char* topic = info.mp_map_to_rsucloud_topic;
  EXPECT_EQ(v2xcloud_ddsSend(obj, topic, rec, 0), -2);
  EXPECT_EQ(v2xcloud_ddsSend(obj, topic, nullptr, 1), -2);
  newLog();
  // Nobody reads this device's map records: a warning and 0.
  EXPECT_EQ(v2xcloud_ddsSend(obj, topic, rec, sizeof(rec)), 0);
  EXPECT_NE(newLog().find("Don't match:rsu/NOPEER_x/map/rsucloud"), std::string::npos);
  // Receive-only topic: the wrapper refuses, and the count comes back as is.
  EXPECT_LT(v2xcloud_ddsSend(obj, info.mp_map_down_topic, rec, sizeof(rec)), 0);
  ASSERT_EQ(v2xcloud_ddsExit(&info), 0);
  // The status task outlives the link: a send after exit must not touch it.
  EXPECT_EQ(v2xcloud_ddsSend(obj, "rsu/NOPEER_x/map/rsucloud", rec, sizeof(rec)), -2);
}

// Feeds samples straight into the receivers and reads their traces.
TEST_F(CloudLink, SamplesAreJoinedIntoMessages) {
  struct Case {
    const char* name;
    void (*recv)(void*, unsigned int);
    std::vector<unsigned> samples;
    std::vector<std::string> expect;  // log texts, in this order
    const char* totalPrefix;
    size_t totals;  // complete messages
  };
  const std::vector<Case> cases = {
      {"2548 in three", v2xcloud_ddsRecvMapDown, {1024, 1024, 500}, {"recv_total:2548"}, "recv_total:", 1},
      {"2048 and the zero tail", v2xcloud_ddsRecvMapDown, {1024, 1024, 1}, {"recv_total:2049"}, "recv_total:", 1},
      {"overflow then a fresh message",
       v2xcloud_ddsRecvMapDown,
       {1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 300, 700},
       {"Map msg data is too long:10240", "recv_total:300", "recv_total:700"},
       "recv_total:",
       2},
      {"9999 bytes exactly fit",
       v2xcloud_ddsRecvMapDown,
       {1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 783},
       {"recv_total:9999"},
       "recv_total:",
       1},
      {"upload ack 1500", v2xcloud_ddsRecvMapAck, {1024, 476}, {"Map_Ack recv_total:1500"}, "Map_Ack recv_total:", 1},
      {"upload ack overflow",
       v2xcloud_ddsRecvMapAck,
       {1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 1024, 10},
       {"Msg data is too long", "Map_Ack recv_total:10"},
       "Map_Ack recv_total:",
       1},
  };
  std::vector<char> text(1024, 'x');  // not JSON: the reader refuses it, nothing is stored
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    newLog();
    for (unsigned len : c.samples) c.recv(text.data(), len);
    std::string log = newLog();
    size_t at = 0;
    for (const std::string& e : c.expect) {
      size_t p = log.find(e, at);
      ASSERT_NE(p, std::string::npos) << e;
      at = p + e.size();
    }
    EXPECT_EQ(count(log, c.totalPrefix), c.totals);
  }
}

TEST_F(CloudLink, OnlyTheCloudStatusIsTakenFromCommSoftRecords) {
  struct Case {
    uint8 type, status;
    unsigned len;
    uint8 expect;
  };
  const Case cases[] = {
      {5, 2, 26, 2},  // the cloud's status
      {1, 1, 26, 2},  // another service: ignored
      {5, 1, 2, 1},   // only the first two bytes matter
      {5, 2, 1, 1},   // too short to hold a status: ignored
  };
  for (const Case& c : cases) {
    uint8 rec[26] = {c.type, c.status};
    v2xcloud_ddsRecvCommSoft(rec, c.len);
    service_status_t st{};
    v2xmapconv_GetCloudStatus(&st);
    EXPECT_EQ(st.service_type, 5);
    EXPECT_EQ(st.run_status, c.expect) << int(c.type) << "," << int(c.status) << " len " << c.len;
  }
}

}  // namespace
