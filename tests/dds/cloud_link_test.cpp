// The service's cloud link in process: topic names, sending without a peer,
// joining samples into messages (map documents and upload acknowledgements),
// the communication software's status.
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "map_conv_config.h"
#include "map_conv_interface.h"
#include "map_conv_mapup.h"
#include "map_conv_profile.h"
#include "map_conv_v2xcloud_dds.h"
#include "test_process.h"
#include "v2xlog.h"

namespace {

class CloudLink : public ::testing::Test {
 protected:
  void SetUp() override {
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
  v2xtest::TempDir dir_;
  size_t seen_ = 0;
};

// Every topic of a device is on the road of the process tests; here the ids
// at the edges: none, and one too long, cut with the topic at 127 characters.
TEST_F(CloudLink, TopicsAreBuiltFromTheDeviceIdAndFreedAtExit) {
  const std::string longId(200, 'L');
  const std::pair<std::string, std::string> cases[] = {{"", "rsu//map/down"}, {longId, "rsu/" + longId.substr(0, 123)}};
  for (auto [esn, down] : cases) {
    SCOPED_TRACE(esn.size());
    v2xcloud_comm_ddsinfo_t info{};
    ASSERT_EQ(v2xcloud_ddsInit(&info, esn.data()), 0);
    EXPECT_EQ(info.m_domain_id, 200);
    EXPECT_NE(info.dds_object, nullptr);
    EXPECT_STREQ(info.mp_map_down_topic, down.c_str());
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

// Nine full samples, then the rest.
std::vector<unsigned> nineThen(const std::vector<unsigned>& rest) {
  std::vector<unsigned> v(9, 1024);
  v.insert(v.end(), rest.begin(), rest.end());
  return v;
}

// Hands text to a receiver in samples of these sizes.
void feed(void (*receive)(void*, unsigned int), std::string& text, const std::vector<unsigned>& samples) {
  size_t at = 0;
  for (unsigned len : samples) {
    receive(text.data() + at, len);
    at += len;
  }
}

// A map-down document of exactly len bytes (spaces before the last brace),
// its envelope keys at the end: only a complete join reads them.
std::string mapDoc(const std::string& eTag, const std::string& seqNum, size_t len) {
  std::string doc = R"({"map":{"nodes":[{"id":{"id":7},"refPos":{"lon":121.16,"lat":31.28}}]},"mapSlice":"1",)"
                    R"("ack":false,"seqNum":")" +
                    seqNum + R"(","eTag":")" + eTag + "\"";
  doc.append(len - doc.size() - 1, ' ');
  return doc + "}";
}

// Samples cut from a document go through the map-down receiver; a document
// that arrives whole is stored with the eTag and sequence number at its end.
TEST_F(CloudLink, MapDownSamplesAreJoinedIntoTheDocument) {
  v2xtest::TempDir work;
  ASSERT_TRUE(v2xtest::prepareWorkdir(work.path()));
  ASSERT_EQ(v2xmapconv_InitCfg(work.path().c_str()), 0);
  struct Case {
    const char* name;
    size_t len;
    std::vector<unsigned> samples;  // bytes past the document's end are zero
    bool stored;
    const char* log;
  };
  const std::vector<Case> cases = {
      {"2048 and the zero tail", 2048, {1024, 1024, 1}, true, "recv_total:2049"},
      {"9999 exactly", 9999, nineThen({783}), true, "recv_total:9999"},
      {"10300: the tenth sample overflows, the rest is no document", 10300, nineThen({1024, 60}), false,
       "Map msg data is too long:10240"},
  };
  std::string lastStored = "(none)";
  for (size_t i = 0; i < cases.size(); ++i) {
    const Case& c = cases[i];
    SCOPED_TRACE(c.name);
    const std::string eTag = std::string("J").append(std::to_string(i)).append("-").append(std::to_string(getpid()));
    const std::string seqNum = std::to_string(100 + i);
    std::string doc = mapDoc(eTag, seqNum, c.len);
    doc.resize(doc.size() + 1024, '\0');
    newLog();
    feed(v2xcloud_ddsRecvMapDown, doc, c.samples);
    EXPECT_NE(newLog().find(c.log), std::string::npos) << c.log;
    v2xcloud_map_data_t* got = nullptr;
    ASSERT_EQ(v2xcloud_GetMapDownData(&got), 0);
    EXPECT_EQ(std::string(got->eTag), c.stored ? eTag : "");
    EXPECT_EQ(std::string(got->seqNum), c.stored ? seqNum : "");
    if (c.stored) lastStored = eTag;
    EXPECT_NE(v2xtest::readFile(work.file("conf/v2x_map_convert.cfg")).find("eTag = \"" + lastStored + "\";"),
              std::string::npos);
  }
}

// Under the field profile a document over 9999 bytes is dropped whole with
// one line giving its length; nothing of it is read, and the next is stored.
TEST_F(CloudLink, FieldDropsOverlongMapDownWhole) {
  v2xtest::TempDir work;
  ASSERT_TRUE(v2xtest::prepareWorkdir(work.path()));
  v2xtest::setProfile(work.path(), "field");
  ASSERT_EQ(v2xmapconv_InitCfg(work.path().c_str()), 0);
  map_conv_config_t* cfg = nullptr;
  ASSERT_EQ(v2xmapconv_GetCfgData(&cfg), 0);
  ASSERT_TRUE(v2xmapconv_IsFieldProfile());
  const struct {
    size_t len;
    std::vector<unsigned> samples;
  } cases[] = {{12000, nineThen({1024, 1024, 736})}, {12288, nineThen({1024, 1024, 1024, 1})}};
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    SCOPED_TRACE(c.len);
    const std::string tag = std::string("F") + std::to_string(i) + "-" + std::to_string(getpid());
    std::string big = mapDoc("big-" + tag, "1", c.len) + std::string(1024, '\0');
    std::string good = mapDoc("good-" + tag, "2", 2000);
    newLog();
    feed(v2xcloud_ddsRecvMapDown, big, c.samples);
    feed(v2xcloud_ddsRecvMapDown, good, {1024, 976});
    const std::string log = newLog();
    EXPECT_EQ(v2xtest::countOf(log, "Map msg of " + std::to_string(c.len) + " bytes is over 9999, dropped"), 1u) << log;
    EXPECT_EQ(v2xtest::countOf(log, "recv_total:"), 1u) << "only the good document is read\n" << log;
    EXPECT_EQ(log.find("cJSON_Parse Error!"), std::string::npos) << log;
    v2xcloud_map_data_t* got = nullptr;
    ASSERT_EQ(v2xcloud_GetMapDownData(&got), 0);
    EXPECT_EQ(std::string(got->eTag), "good-" + tag);
  }
  v2xmapconv_SetProfile(MAP_CONV_PROFILE_REFERENCE);
}

// Acknowledgements of uploads through the receiver the link registers (the
// upload module's own joiner is registered nowhere): it joins samples the way
// the map-down receiver does, and notes each acknowledgement's size.
TEST_F(CloudLink, UploadAcknowledgementSamplesAreJoined) {
  std::string source(12000, 'a');
  const struct {
    const char* name;
    std::vector<unsigned> samples;
    std::vector<std::string> notes;  // in this order
  } cases[] = {
      {"1500 as 1024 + 476", {1024, 476}, {"Map_Ack recv_total:1500\n"}},
      {"9999 fit", nineThen({783}), {"Map_Ack recv_total:9999\n"}},
      {"the tenth full sample overflows; the next short one stands alone",
       nineThen({1024, 10}),
       {"Msg data is too long\n", "Map_Ack recv_total:10\n"}},
      {"overflow on the last sample", nineThen({784}), {"Msg data is too long\n", "Map_Ack recv_total:0\n"}},
  };
  // The receiver the link registers, and the upload module's own (built,
  // not registered), which joins the same way under its own name.
  const struct {
    void (*receive)(void*, unsigned int);
    const char* name;
  } receivers[] = {{v2xcloud_ddsRecvMapAck, "Map_Ack"}, {v2xmapconv_ddsRecvMapUpAck, "MapUpAck"}};
  for (const auto& r : receivers) {
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(r.name) + ": " + c.name);
      newLog();
      feed(r.receive, source, c.samples);
      const std::string log = newLog();
      size_t from = 0;
      for (std::string note : c.notes) {
        if (note.rfind("Map_Ack", 0) == 0) note.replace(0, 7, r.name);
        from = log.find(note, from);
        ASSERT_NE(from, std::string::npos) << note << " in\n" << log;
      }
      EXPECT_EQ(v2xtest::countOf(log, "recv_total:"), 1u) << log;
    }
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
