// The upload flow in process: the frame is released on every path and a
// sequence number is taken for every envelope filled (there is no DDS link
// in this process, so a good map ends at the link). The envelope's values
// are checked by the process test.
#include <MessageFrame.h>
#include <gtest/gtest.h>

#include <string>

#include "map_conv_mapup.h"
#include "test_process.h"
#include "v2xlog.h"

namespace {

// The sequence number the next envelope gets.
int nextSeqNum() {
  v2xcloud_map_data_t up{};
  int frame = 0;
  v2xmapconv_SetMapDataValue(&up, &frame, 0);
  return std::stoi(up.seqNum);
}

TEST(MapUpload, EveryPathReleasesTheFrame) {
  v2xtest::TempDir dir;
  ASSERT_EQ(v2xlog_Init(dir.file("up.log").c_str(), "TEST", 1, 0, 0), 0);
  v2xlog_SetAllTagLevel(4);
  struct Case {
    const char* name;
    int present;  // of the frame handed in; -1: none
    int32 ret;
    int numbersTaken;
    const char* log;
  };
  const Case cases[] = {
      {"no frame", -1, -2, 0, "input param error"},
      {"not a map", MessageFrame_PR_rsiFrame, -2, 0, "input param error"},
      {"a map, no DDS link", MessageFrame_PR_mapFrame, -3, 1, "Get ddsinfo failed!"},
  };
  size_t seen = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    V2XAPP_GBMHANDLE handle = nullptr;
    if (c.present >= 0) {
      ASSERT_EQ(v2xapp_GBMapStrInit(&handle), 0);
      static_cast<MessageFrame_t*>(handle)->present = static_cast<MessageFrame_PR>(c.present);
    }
    const int seq = nextSeqNum();
    EXPECT_EQ(v2xmapconv_MapDataUp(&handle, 0), c.ret);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(nextSeqNum(), seq + 1 + c.numbersTaken);
    v2xlog_Flush();
    const std::string log = v2xtest::readFile(dir.file("up.log"));
    EXPECT_NE(log.find(c.log, seen), std::string::npos) << c.log;
    seen = log.size();
  }
  EXPECT_EQ(v2xmapconv_MapDataUp(nullptr, 0), -2);
  v2xcloud_map_data_t up{};
  EXPECT_EQ(v2xmapconv_SetMapDataValue(nullptr, &up, 0), -2);
  EXPECT_EQ(v2xmapconv_SetMapDataValue(&up, nullptr, 0), -2);
  v2xlog_Init(nullptr, "TEST", 0, 0, 0);
}

}  // namespace
