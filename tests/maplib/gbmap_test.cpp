// MAP library life cycle, the encoder's refusal and bad input, with the log
// lines that operators and other programs rely on. The round trip through both
// transfer syntaxes is the map tool's (MapTool.DecodePrintsTheMap...).
#include <gtest/gtest.h>

#include "codec_test_util.h"
#include "maplib_test_util.h"
#include "v2xapp_gbmap.h"

using namespace codectest;
using maplibtest::LogCapture;

namespace {

TEST(GBMap, LifeCycleCountersTimeStampAndTheEmptyMapRefused) {
  LogCapture log;
  V2XAPP_GBMHANDLE map = nullptr;
  ASSERT_EQ(v2xapp_GBMapStrInit(&map), 0);
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(static_cast<MessageFrame_t*>(map)->present, MessageFrame_PR_mapFrame);

  uint32_t value = 99;
  EXPECT_EQ(v2xapp_GBMapSetMsgCnt(map, 127), 0);
  EXPECT_EQ(v2xapp_GBMapGetMsgCnt(map, &value), 0);
  EXPECT_EQ(value, 127U);
  EXPECT_EQ(v2xapp_GBMapGetTimStamp(map, &value), -3);
  EXPECT_EQ(v2xapp_GBMapSetTimStamp(map, 1440), 0);
  EXPECT_EQ(v2xapp_GBMapGetTimStamp(map, &value), 0);
  EXPECT_EQ(value, 1440U);
  // A second stamp replaces the pointer without freeing the first value,
  // which the test releases itself to keep the leak checker quiet.
  MinuteOfTheYear_t* first = static_cast<MessageFrame_t*>(map)->choice.mapFrame.timeStamp;
  EXPECT_EQ(v2xapp_GBMapSetTimStamp(map, 527040), 0);
  EXPECT_EQ(v2xapp_GBMapGetTimStamp(map, &value), 0);
  EXPECT_EQ(value, 527040U);
  EXPECT_EQ(*first, 1440);
  std::free(first);
  EXPECT_EQ(v2xapp_GBMapPrint(nullptr), 0);
  uint8_t buf[64];
  uint32_t len = sizeof(buf);
  EXPECT_EQ(v2xapp_GBMapUperEncode(map, buf, &len), -3);  // no node yet
  EXPECT_EQ(len, sizeof(buf));

  EXPECT_EQ(v2xapp_GBMapStrDel(&map), 0);
  EXPECT_EQ(map, nullptr);
  EXPECT_EQ(v2xapp_GBMapStrDel(&map), -2);  // no double free

  log.expect({"[GMAP][TRACE] src/maplib/v2xapp_gbmap.cpp:v2xapp_GBMapStrInit:", ":v2xapp_GBMapStrInit start \n",
              "v2xapp_GBMapStrInit end,ret=0", "v2xapp_GBMapGetMsgCnt:", "v2xapp_GBMapSetMsgCnt end ret=0",
              "v2xapp_GBMapGetTimStamp end ret=-3", "v2xapp_GBMapSetTimStamp end ret=0",
              "[GMAP][INFO] src/maplib/v2xapp_gbmap.cpp:v2xapp_GBMapStrDel:", ":ASN_STRUCT_FREE\n",
              "v2xapp_GBMapStrDel end ret=-2", "[GMAP][NOTE] src/maplib/v2xapp_gbmap.cpp:v2xapp_GBMapUperEncode:",
              ":ret_val.failed_type->name = NodeList\n", "v2xapp_GBMapUperEncode end,ret=-3"});
  EXPECT_EQ(log.since().find("v2xapp_GBMapGetMsgCnt start"), std::string::npos);  // traced as the setter
}

TEST(GBMap, BadInputFailsWithTheDecodersCode) {
  LogCapture log;
  Bytes map = fromHex(kMap528);
  for (uint32_t length : {100U, 0U}) {  // truncated, empty
    SCOPED_TRACE(length);
    log.mark();
    V2XAPP_GBMHANDLE frame = nullptr;
    EXPECT_EQ(v2xapp_GBMapUperDecode(&frame, map.data(), length), -2);
    log.expect({"[GMAP][ERR] src/maplib/v2xapp_gbmap.cpp:v2xapp_GBMapUperDecode:",
                ":asn_decode error retVal.code= 1 retVal.consumed=0\n", "v2xapp_GBMapUperDecode end,ret=-2"});
    v2xapp_GBMapStrDel(&frame);  // frees whatever the decoder had built
  }
  V2XAPP_GBMHANDLE frame = nullptr;
  uint8_t xml[] = "<MessageFrame><mapFrame><msgCnt>1</msgCnt>";
  EXPECT_EQ(v2xapp_GBMapXerDecode(&frame, xml, sizeof(xml) - 1), -2);
  log.expect({"v2xapp_GBMapXerDecode end,ret=-2"});
  v2xapp_GBMapStrDel(&frame);
}

}  // namespace
