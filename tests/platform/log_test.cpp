#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <sstream>
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

// The messages of the log lines that carry marker, in order, each as
// "[TAG][LEVEL] text".
std::vector<std::string> linesWith(const std::string& log, const std::string& marker) {
  std::vector<std::string> out;
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    const size_t tag = line.find(" [");
    if (line.find(marker) != std::string::npos && tag != std::string::npos) out.push_back(line.substr(tag + 1));
  }
  return out;
}

struct RepeatWindow {
  explicit RepeatWindow(uint32 ms) { v2xlog_SetRepeatWindow(ms); }
  ~RepeatWindow() { v2xlog_SetRepeatWindow(0); }
};

// Identical bad-packet, error and warning lines within the window are written
// once and summed up; anything else is written as it comes.
TEST_F(LogTest, RepeatsAreSummedUp) {
  static v2xlog_config_t other = {nullptr, "UPER"};
  v2xlog_SetTagLevel(handle_, 7);
  constexpr uint32 kLong = 600000;  // never passes during the test
  struct Write {
    v2xlog_config_t* tag;
    int32 level;
    std::string text;
    bool pause = false;  // wait out a short window before this line
  };
  auto err = [](const std::string& t) { return Write{&g_testTag, 2, t}; };
  std::vector<Write> distinct;
  for (int i = 0; i <= V2XLOG_REPEAT_SLOTS; ++i) distinct.push_back(err(std::string("S") + std::to_string(i)));
  distinct.push_back(err("S0"));
  std::vector<std::string> distinctOut;
  for (int i = 0; i <= V2XLOG_REPEAT_SLOTS; ++i) distinctOut.push_back("[TLOG][ERR] S" + std::to_string(i));
  distinctOut.push_back("[TLOG][ERR] S0");
  const struct {
    const char* name;
    uint32 window;
    std::vector<Write> writes;
    std::vector<std::string> lines;
  } cases[] = {
      {"five errors",
       kLong,
       {err("S a"), err("S a"), err("S a"), err("S a"), err("S a")},
       {"[TLOG][ERR] S a", "[TLOG][ERR] S a ... repeated 4 times"}},
      {"two lines interleaved",
       kLong,
       {err("S a"), err("S b"), err("S a"), err("S b"), err("S a")},
       {"[TLOG][ERR] S a", "[TLOG][ERR] S b", "[TLOG][ERR] S a ... repeated 2 times",
        "[TLOG][ERR] S b ... repeated 1 times"}},
      {"bad packets and warnings too, per level",
       kLong,
       {{&g_testTag, 1, "S p"}, {&g_testTag, 1, "S p"}, {&g_testTag, 3, "S p"}, {&g_testTag, 3, "S p"}},
       {"[TLOG][PKT] S p", "[TLOG][WARN] S p", "[TLOG][PKT] S p ... repeated 1 times",
        "[TLOG][WARN] S p ... repeated 1 times"}},
      {"same text under another tag", kLong, {err("S t"), {&other, 2, "S t"}}, {"[TLOG][ERR] S t", "[UPER][ERR] S t"}},
      {"notices and traces as they come",
       kLong,
       {{&g_testTag, 4, "S n"}, {&g_testTag, 4, "S n"}, {&g_testTag, 7, "S n"}},
       {"[TLOG][NOTE] S n", "[TLOG][NOTE] S n", "[TLOG][TRACE] S n"}},
      {"window off", 0, {err("S o"), err("S o")}, {"[TLOG][ERR] S o", "[TLOG][ERR] S o"}},
      {"after the window the sum, then the line again",
       1,
       {err("S w"), err("S w"), {&g_testTag, 2, "S w", true}},
       {"[TLOG][ERR] S w", "[TLOG][ERR] S w ... repeated 1 times", "[TLOG][ERR] S w"}},
      {"more lines than slots: the oldest gives way", kLong, distinct, distinctOut},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(v2xlog_Init(dir_.file(std::string("log/") + c.name).c_str(), "TEST", 1, 0, 0), 0);
    RepeatWindow window(c.window);
    for (const Write& w : c.writes) {
      if (w.pause) std::this_thread::sleep_for(std::chrono::milliseconds(20));
      v2xlog_Print(w.tag, w.level, "%s", w.text.c_str());
    }
    v2xlog_Flush();
    EXPECT_EQ(linesWith(v2xtest::readFile(dir_.file(std::string("log/") + c.name)), "] S"), c.lines) << c.name;
  }
}

// Threads writing the same error at once (ThreadSanitizer checks the
// counting): one line and one sum of all the others.
TEST_F(LogTest, RepeatsFromManyThreadsAreCountedOnce) {
  RepeatWindow window(600000);
  constexpr int kThreads = 4, kLines = 200;
  std::vector<std::thread> writers;
  for (int t = 0; t < kThreads; ++t)
    writers.emplace_back([] {
      for (int i = 0; i < kLines; ++i) v2xlog_Print(&g_testTag, 2, "%s", "S threads");
    });
  for (auto& w : writers) w.join();
  EXPECT_EQ(linesWith(logText(), "] S"),
            (std::vector<std::string>{"[TLOG][ERR] S threads", "[TLOG][ERR] S threads ... repeated " +
                                                                   std::to_string(kThreads * kLines - 1) + " times"}));
}

}  // namespace
