#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "test_process.h"
#include "v2xlog.h"

namespace {

v2xlog_config_t g_testTag = {nullptr, "TLOG"};
v2xlog_config_t g_unregistered = {nullptr, "UPER"};

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(v2xlog_Init(dir_.file("log/test.log").c_str(), "TEST", 1, 0, 0), 0);
    handle_ = v2xlog_AddTag("TLOG");
    ASSERT_NE(handle_, nullptr);
  }
  std::string logText() {
    v2xlog_Flush();
    return v2xtest::readFile(dir_.file("log/test.log"));
  }
  v2xtest::TempDir dir_;
  V2XLOG_HANDLE handle_ = nullptr;
};

TEST_F(LogTest, LineCarriesTagLevelAndSourcePrefix) {
  v2xlog_SetTagLevel(handle_, 4);
  V2XLOG(&g_testTag, 2, "open %s error", "/x");
  const int line = __LINE__ - 1;
  std::string text = logText();
  std::string expected =
      std::string("[TLOG][ERR] ") + __FILE__ + ":TestBody:" + std::to_string(line) + ":open /x error";
  EXPECT_NE(text.find(expected), std::string::npos) << text;
}

TEST_F(LogTest, LevelsFilterBeforeFormatting) {
  v2xlog_SetTagLevel(handle_, 3);
  std::atomic<int> formatted{0};
  auto count = [&] { return ++formatted; };
  V2XLOG(&g_testTag, 4, "notice %d", count());
  V2XLOG(&g_testTag, 3, "warning %d", count());
  EXPECT_EQ(formatted.load(), 1);  // the disabled line never evaluated its arguments
  std::string text = logText();
  EXPECT_EQ(text.find("notice"), std::string::npos);
  EXPECT_NE(text.find("warning 1"), std::string::npos);

  v2xlog_SetTagLevel(handle_, 0);
  V2XLOG(&g_testTag, 1, "silent");
  EXPECT_EQ(logText().find("silent"), std::string::npos);
}

TEST_F(LogTest, RegistryHandlesByNameAndIndex) {
  EXPECT_EQ(v2xlog_AddTag("TLOG"), handle_);  // adding twice gives the same tag
  EXPECT_EQ(v2xlog_AddTag(""), nullptr);
  EXPECT_EQ(v2xlog_AddTag("TOOLONG"), nullptr);
  EXPECT_EQ(v2xlog_AddTag(nullptr), nullptr);

  V2XLOG_HANDLE h = nullptr;
  EXPECT_EQ(v2xlog_GetTagHandle("TLOG", &h), 0);
  EXPECT_EQ(h, handle_);
  EXPECT_EQ(v2xlog_GetTagHandle("NOPE", &h), -1);
  EXPECT_EQ(v2xlog_GetTagHandle(nullptr, &h), -2);

  EXPECT_EQ(v2xlog_SetTagLevel(handle_, 6), 0);
  EXPECT_EQ(v2xlog_SetTagLevel(handle_, 8), -2);
  EXPECT_EQ(v2xlog_SetTagLevel(handle_, -1), -2);
  EXPECT_EQ(v2xlog_SetTagLevel(nullptr, 3), -2);

  // Names and levels by index are what the log tool reads from the service
  // (its process test checks them byte by byte); here only the end.
  char name[8];
  int16 level;
  EXPECT_EQ(v2xlog_GetTagLevelByIndex(v2xlog_GetTagNum(), name, &level), -2);
}

TEST_F(LogTest, UnregisteredTagFollowsDefaultLevel) {
  ASSERT_EQ(v2xlog_SetAllTagLevel(V2XLOG_DEFAULT_LEVEL), 0);
  V2XLOG(&g_unregistered, 4, "codec notice");
  V2XLOG(&g_unregistered, 5, "codec detail");
  std::string text = logText();
  EXPECT_NE(text.find("[UPER][NOTE]"), std::string::npos);
  EXPECT_EQ(text.find("codec detail"), std::string::npos);

  ASSERT_EQ(v2xlog_SetAllTagLevel(7), 0);
  V2XLOG(&g_unregistered, 7, "codec trace");
  EXPECT_NE(logText().find("codec trace"), std::string::npos);
  EXPECT_EQ(v2xlog_GetLevel(&g_testTag), 7);  // set-all reached the registered tag too
  EXPECT_EQ(v2xlog_SetAllTagLevel(9), -2);

  // Registered later, the tag's own level applies to the record from then on.
  ASSERT_EQ(v2xlog_SetTagLevel(v2xlog_AddTag("UPER"), 5), 0);
  EXPECT_EQ(v2xlog_GetLevel(&g_unregistered), 5);
  v2xlog_SetAllTagLevel(V2XLOG_DEFAULT_LEVEL);
}

TEST_F(LogTest, LongLinesAreCutNotOverrun) {
  v2xlog_SetTagLevel(handle_, 4);
  std::string big(10000, 'a');
  V2XLOG(&g_testTag, 4, "%s", big.c_str());
  std::string text = logText();
  EXPECT_NE(text.find(std::string(4000, 'a')), std::string::npos);
  EXPECT_EQ(text.find(std::string(V2XLOG_LINE_MAX, 'a')), std::string::npos);
}

// Records are resolved on first use, from whichever thread logs first: a
// record no thread has used yet, taken by several at once while levels change
// (ThreadSanitizer checks the cache), loses no line.
TEST_F(LogTest, FreshRecordSharedByThreadsWhileLevelsChange) {
  static v2xlog_config_t fresh = {nullptr, "TLOG"};
  v2xlog_SetTagLevel(handle_, 3);
  constexpr int kThreads = 4, kLines = 200;
  std::vector<std::thread> writers;
  for (int t = 0; t < kThreads; ++t)
    writers.emplace_back([] {
      for (int i = 0; i < kLines; ++i) V2XLOG(&fresh, 2, "shared record line");
    });
  for (int i = 0; i < 200; ++i) v2xlog_SetAllTagLevel(3 + i % 5);
  for (auto& w : writers) w.join();
  v2xlog_SetAllTagLevel(V2XLOG_DEFAULT_LEVEL);
  EXPECT_EQ(v2xtest::countOf(logText(), "shared record line"), static_cast<size_t>(kThreads * kLines));
}

}  // namespace
