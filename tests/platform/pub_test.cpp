#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "test_process.h"
#include "v2xpub.h"

namespace {

std::atomic<int> g_enters{0};
std::atomic<int> g_exits{0};

void countRun(void* arg) {
  if (arg != nullptr) ++*static_cast<std::atomic<int>*>(arg);
}
void countEnter(void*) { ++g_enters; }
void countExit(void*) { ++g_exits; }

v2xpub_TaskInitPara_t taskPara(uint32 intervalUs, bool oneShot = false) {
  v2xpub_TaskInitPara_t p{};
  std::snprintf(p.m_taskName, sizeof(p.m_taskName), "test_task");
  p.m_intervals = intervalUs;
  p.m_tskType = V2XTASK_TYPE_RR;
  p.m_isOneShot = oneShot;
  p.f_tskFunExec = countRun;
  return p;
}

// Waits (bounded) until the counter reaches n.
bool waitCount(const std::atomic<int>& c, int n) {
  for (int i = 0; i < 1000 && c.load() < n; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return c.load() >= n;
}

TEST(Task, RunsPeriodicallyWithEnterAndExitUntilStopped) {
  std::atomic<int> mine{0};
  auto p = taskPara(2000);
  p.mp_arg = &mine;
  p.f_tskFunEnter = countEnter;
  p.f_tskFunExit = countExit;
  g_enters = 0;
  g_exits = 0;
  V2XPUB_TASKHANDLE h = nullptr;
  ASSERT_EQ(v2xpub_TaskCreate(&h, &p), 0);
  ASSERT_TRUE(waitCount(mine, 5));
  EXPECT_EQ(v2xpub_TaskStop(h), 0);
  EXPECT_EQ(g_enters.load(), 1);
  EXPECT_EQ(g_exits.load(), 1);
}

TEST(Task, OneShotRunsOnceAndEndsByItself) {
  std::atomic<int> mine{0};
  auto p = taskPara(1000, true);
  p.mp_arg = &mine;
  p.f_tskFunExit = countExit;
  g_exits = 0;
  V2XPUB_TASKHANDLE h = nullptr;
  ASSERT_EQ(v2xpub_TaskCreate(&h, &p), 0);
  ASSERT_TRUE(waitCount(g_exits, 1));  // the exit routine runs without a stop
  EXPECT_EQ(mine.load(), 1);
  EXPECT_EQ(v2xpub_TaskRunCount(h), 1U);
  EXPECT_EQ(v2xpub_TaskStop(h), 0);
}

TEST(Task, StopBeforeFirstPeriodRunsNothing) {
  std::atomic<int> mine{0};
  auto p = taskPara(60000000);  // one minute
  p.mp_arg = &mine;
  V2XPUB_TASKHANDLE h = nullptr;
  ASSERT_EQ(v2xpub_TaskCreate(&h, &p), 0);
  EXPECT_EQ(v2xpub_TaskStop(h), 0);  // returns at once, not after a minute
  EXPECT_EQ(mine.load(), 0);
}

TEST(Task, RefusesBadParameters) {
  V2XPUB_TASKHANDLE h = nullptr;
  auto p = taskPara(1000);
  EXPECT_EQ(v2xpub_TaskCreate(nullptr, &p), -2);
  EXPECT_EQ(v2xpub_TaskCreate(&h, nullptr), -2);
  auto noExec = p;
  noExec.f_tskFunExec = nullptr;
  EXPECT_EQ(v2xpub_TaskCreate(&h, &noExec), -2);
  auto zero = p;
  zero.m_intervals = 0;
  EXPECT_EQ(v2xpub_TaskCreate(&h, &zero), -2);
  EXPECT_EQ(v2xpub_TaskStop(nullptr), -2);
}

size_t filesIn(const std::string& dir) {
  size_t n = 0;
  for ([[maybe_unused]] auto& e : std::filesystem::directory_iterator(dir)) ++n;
  return n;
}

TEST(WriteFileData, ReplacesWholeFileAndLeavesNoTemporary) {
  v2xtest::TempDir dir;
  std::string path = dir.file("map_data_0");
  std::string first(5000, 'x');
  ASSERT_EQ(v2xpub_WriteFileData(path.c_str(), first.data(), static_cast<uint32>(first.size())), 0);
  EXPECT_EQ(v2xtest::readFile(path), first);
  ASSERT_EQ(v2xpub_WriteFileData(path.c_str(), "ab", 2), 0);
  EXPECT_EQ(v2xtest::readFile(path), "ab");
  ASSERT_EQ(v2xpub_WriteFileData(path.c_str(), nullptr, 0), 0);
  EXPECT_EQ(v2xtest::readFile(path), "");
  EXPECT_EQ(filesIn(dir.path()), 1U);
  struct stat st {};
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644U);
}

TEST(RemoveStaleTempFiles, OnlyLeftoversOfAtomicWritesGo) {
  v2xtest::TempDir dir;
  struct Entry {
    const char* name;
    bool removed;
  };
  const Entry entries[] = {
      {"map_data_0.tmpAb12Zx", true},  {"v2x_map_convert.cfg.tmp000000", true}, {"map_data_0", false},
      {".tmpAbcdef", false},           {"map_data_0.tmp12345", false},          {"map_data_0.tmp1234567", false},
      {"map_data_0.tmpab-def", false}, {"map_data_0.tmpAbcdefg.x", false},
  };
  for (const Entry& e : entries) v2xtest::writeFile(dir.file(e.name), "x");
  std::filesystem::create_directory(dir.file("sub.tmpABCDEF"));  // only files go
  EXPECT_EQ(v2xpub_RemoveStaleTempFiles(dir.path().c_str()), 2);
  for (const Entry& e : entries) EXPECT_EQ(std::filesystem::exists(dir.file(e.name)), !e.removed) << e.name;
  EXPECT_TRUE(std::filesystem::is_directory(dir.file("sub.tmpABCDEF")));
  EXPECT_EQ(v2xpub_RemoveStaleTempFiles(dir.file("none").c_str()), -1);
  EXPECT_EQ(v2xpub_RemoveStaleTempFiles(nullptr), -2);
}

TEST(WriteFileData, FailureKeepsOldFileAndCleansUp) {
  v2xtest::TempDir dir;
  EXPECT_EQ(v2xpub_WriteFileData(dir.file("missing/dir/file").c_str(), "a", 1), -1);
  // A directory in the way of the target: the rename fails, the directory and
  // nothing else is left.
  std::filesystem::create_directory(dir.file("target"));
  EXPECT_EQ(v2xpub_WriteFileData(dir.file("target").c_str(), "a", 1), -1);
  EXPECT_TRUE(std::filesystem::is_directory(dir.file("target")));
  EXPECT_EQ(filesIn(dir.path()), 1U);
  EXPECT_EQ(v2xpub_WriteFileData(nullptr, "a", 1), -2);
  EXPECT_EQ(v2xpub_WriteFileData("", "a", 1), -2);
  EXPECT_EQ(v2xpub_WriteFileData(dir.file("x").c_str(), nullptr, 3), -2);
}

}  // namespace
