// MAP library life cycle and transfer syntaxes, with the log lines that
// operators and other programs rely on.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "codec_test_util.h"
#include "v2xapp_gbmap.h"
#include "v2xlog.h"

extern "C" int gbmap_c_round_trip(uint32_t msgCnt, uint32_t* out);

using namespace codectest;

namespace {

class GBMap : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    logPath_ = ::testing::TempDir() + "gbmap_test.log";
    std::remove(logPath_.c_str());
    ASSERT_EQ(v2xlog_Init(logPath_.c_str(), "TEST", 1, 0, 0), 0);
    v2xlog_SetAllTagLevel(7);
  }
  void SetUp() override { logStart_ = logText().size(); }
  // Log lines written since the test began.
  std::string newLog() const {
    v2xlog_Flush();
    return logText().substr(logStart_);
  }
  bool logged(const std::string& tagLevelText) const { return newLog().find(tagLevelText) != std::string::npos; }

  static std::string logText() {
    v2xlog_Flush();
    std::ifstream in(logPath_);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
  }
  static std::string logPath_;
  size_t logStart_ = 0;
};
std::string GBMap::logPath_;

TEST_F(GBMap, LifeCycleAndCounters) {
  V2XAPP_GBMHANDLE map = nullptr;
  ASSERT_EQ(v2xapp_GBMapStrInit(&map), 0);
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(static_cast<MessageFrame_t*>(map)->present, MessageFrame_PR_mapFrame);

  uint32_t value = 99;
  EXPECT_EQ(v2xapp_GBMapGetMsgCnt(map, &value), 0);
  EXPECT_EQ(value, 0U);
  EXPECT_EQ(v2xapp_GBMapSetMsgCnt(map, 127), 0);
  EXPECT_EQ(v2xapp_GBMapGetMsgCnt(map, &value), 0);
  EXPECT_EQ(value, 127U);

  EXPECT_EQ(v2xapp_GBMapGetTimStamp(map, &value), -3);
  EXPECT_EQ(v2xapp_GBMapSetTimStamp(map, 1440), 0);
  EXPECT_EQ(v2xapp_GBMapGetTimStamp(map, &value), 0);
  EXPECT_EQ(value, 1440U);
  // A second stamp replaces the pointer; the first value is left to whoever
  // still holds it (here: the test, to keep the leak checker quiet).
  MinuteOfTheYear_t* first = static_cast<MessageFrame_t*>(map)->choice.mapFrame.timeStamp;
  EXPECT_EQ(v2xapp_GBMapSetTimStamp(map, 527040), 0);
  EXPECT_EQ(v2xapp_GBMapGetTimStamp(map, &value), 0);
  EXPECT_EQ(value, 527040U);
  EXPECT_EQ(*first, 1440);
  std::free(first);

  const std::pair<const char*, int32_t> nullArgs[] = {
      {"SetMsgCnt", v2xapp_GBMapSetMsgCnt(nullptr, 1)},
      {"GetMsgCnt", v2xapp_GBMapGetMsgCnt(nullptr, &value)},
      {"GetMsgCnt out", v2xapp_GBMapGetMsgCnt(map, nullptr)},
      {"SetTimStamp", v2xapp_GBMapSetTimStamp(nullptr, 1)},
      {"GetTimStamp", v2xapp_GBMapGetTimStamp(nullptr, &value)},
      {"GetTimStamp out", v2xapp_GBMapGetTimStamp(map, nullptr)},
      {"UperEncode", v2xapp_GBMapUperEncode(nullptr, nullptr, nullptr)},
      {"XerEncode", v2xapp_GBMapXerEncode(nullptr, nullptr, nullptr)},
  };
  for (const auto& [what, rc] : nullArgs) EXPECT_EQ(rc, -2) << what;
  EXPECT_EQ(v2xapp_GBMapPrint(nullptr), 0);

  EXPECT_EQ(v2xapp_GBMapStrDel(&map), 0);
  EXPECT_EQ(map, nullptr);
  EXPECT_EQ(v2xapp_GBMapStrDel(&map), -2);  // no double free

  const std::string log = newLog();
  for (const char* line :
       {"[GMAP][TRACE] src/maplib/v2xapp_gbmap.cpp:v2xapp_GBMapStrInit:", "v2xapp_GBMapStrInit start \n",
        "v2xapp_GBMapStrInit end,ret=0", "v2xapp_GBMapSetMsgCnt start", "v2xapp_GBMapSetMsgCnt end ret=0",
        "v2xapp_GBMapGetMsgCnt:", "v2xapp_GBMapSetTimStamp end ret=0", "v2xapp_GBMapGetTimStamp end ret=-3",
        "v2xapp_GBMapStrDel end ret=-2"}) {
    EXPECT_NE(log.find(line), std::string::npos) << line;
  }
  EXPECT_EQ(log.find("v2xapp_GBMapGetMsgCnt start"), std::string::npos);  // the getter traces the setter's name
  EXPECT_NE(log.find("[GMAP][INFO] src/maplib/v2xapp_gbmap.cpp:v2xapp_GBMapStrDel:"), std::string::npos);
  EXPECT_NE(log.find(":ASN_STRUCT_FREE\n"), std::string::npos);
}

TEST_F(GBMap, EmptyMapIsRefusedByTheEncoder) {
  V2XAPP_GBMHANDLE map = nullptr;
  ASSERT_EQ(v2xapp_GBMapStrInit(&map), 0);
  uint8_t buf[64];
  uint32_t len = sizeof(buf);
  EXPECT_EQ(v2xapp_GBMapUperEncode(map, buf, &len), -3);
  EXPECT_EQ(len, sizeof(buf));
  EXPECT_TRUE(logged("[GMAP][NOTE] src/maplib/v2xapp_gbmap.cpp:v2xapp_GBMapUperEncode:"));
  EXPECT_TRUE(logged(":ret_val.failed_type->name = NodeList\n"));
  EXPECT_TRUE(logged("v2xapp_GBMapUperEncode end,ret=-3"));
  v2xapp_GBMapStrDel(&map);
}

TEST_F(GBMap, UperAndXerRoundTripsAndShortBuffer) {
  Bytes map = fromHex(kMap528);
  V2XAPP_GBMHANDLE frame = nullptr;
  ASSERT_EQ(v2xapp_GBMapUperDecode(&frame, map.data(), static_cast<uint32_t>(map.size())), 0);

  Bytes out(600);
  uint32_t len = static_cast<uint32_t>(out.size());
  ASSERT_EQ(v2xapp_GBMapUperEncode(frame, out.data(), &len), 0);
  out.resize(len);
  EXPECT_EQ(out, map);

  // One byte short: still 0, with the full length; the caller compares.
  Bytes shortBuf(map.size() - 1);
  len = static_cast<uint32_t>(shortBuf.size());
  EXPECT_EQ(v2xapp_GBMapUperEncode(frame, shortBuf.data(), &len), 0);
  EXPECT_EQ(len, map.size());

  Bytes text(64);
  len = static_cast<uint32_t>(text.size());
  ASSERT_EQ(v2xapp_GBMapXerEncode(frame, text.data(), &len), 0);
  text.resize(len);
  ASSERT_EQ(v2xapp_GBMapXerEncode(frame, text.data(), &len), 0);
  EXPECT_EQ(std::string(text.begin(), text.begin() + 14), "<MessageFrame>");

  V2XAPP_GBMHANDLE fromXml = nullptr;
  ASSERT_EQ(v2xapp_GBMapXerDecode(&fromXml, text.data(), len), 0);
  len = static_cast<uint32_t>(out.size());
  ASSERT_EQ(v2xapp_GBMapUperEncode(fromXml, out.data(), &len), 0);
  EXPECT_EQ(out, map);
  EXPECT_TRUE(logged("v2xapp_GBMapXerDecode end,ret=0"));
  EXPECT_TRUE(logged("v2xapp_GBMapUperDecode end,ret=0"));
  v2xapp_GBMapStrDel(&frame);
  v2xapp_GBMapStrDel(&fromXml);
}

TEST_F(GBMap, BadInputFailsWithTheDecodersCodeAndKeepsWhatWasBuilt) {
  Bytes map = fromHex(kMap528);
  struct Case {
    const char* what;
    uint32_t length;
    const char* logLine;
  };
  const Case cases[] = {
      {"truncated", 100, "asn_decode error retVal.code= 1 retVal.consumed="},
      {"empty", 0, "asn_decode error retVal.code= 1 retVal.consumed=0\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    logStart_ = logText().size();
    V2XAPP_GBMHANDLE frame = nullptr;
    EXPECT_EQ(v2xapp_GBMapUperDecode(&frame, map.data(), c.length), -2);
    EXPECT_TRUE(logged("[GMAP][ERR] src/maplib/v2xapp_gbmap.cpp:v2xapp_GBMapUperDecode:"));
    EXPECT_TRUE(logged(c.logLine)) << newLog();
    EXPECT_TRUE(logged("v2xapp_GBMapUperDecode end,ret=-2"));
    v2xapp_GBMapStrDel(&frame);  // frees whatever the decoder had built
  }
  V2XAPP_GBMHANDLE frame = nullptr;
  uint8_t xml[] = "<MessageFrame><mapFrame><msgCnt>1</msgCnt>";
  EXPECT_EQ(v2xapp_GBMapXerDecode(&frame, xml, sizeof(xml) - 1), -2);
  EXPECT_TRUE(logged("v2xapp_GBMapXerDecode end,ret=-2"));
  v2xapp_GBMapStrDel(&frame);
}

TEST_F(GBMap, HeaderWorksFromC) {
  uint32_t out = 0;
  EXPECT_EQ(gbmap_c_round_trip(77, &out), 0);
  EXPECT_EQ(out, 77U);
}

}  // namespace
