#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "test_process.h"
#include "v2xpub.h"

namespace {

void countRun(void* arg) { ++*static_cast<std::atomic<int>*>(arg); }

// A task as the service makes them: periodic, without enter or exit routine
// (nothing uses those, nor one-shot tasks); the argument counts the runs.
v2xpub_TaskInitPara_t taskPara(uint32 intervalUs, std::atomic<int>* runs) {
  v2xpub_TaskInitPara_t p{};
  std::snprintf(p.m_taskName, sizeof(p.m_taskName), "test_task");
  p.m_intervals = intervalUs;
  p.m_tskType = V2XTASK_TYPE_RR;
  p.f_tskFunExec = countRun;
  p.mp_arg = runs;
  return p;
}

// Every 2 ms, and every minute: the first runs until stopped, the second
// never runs, and its stop returns at once, not after a minute.
TEST(Task, RunsEveryPeriodUntilStoppedAndNothingBeforeTheFirst) {
  std::atomic<int> runs{0}, never{0};
  auto p = taskPara(2000, &runs), q = taskPara(60000000, &never);
  V2XPUB_TASKHANDLE h = nullptr, late = nullptr;
  ASSERT_EQ(v2xpub_TaskCreate(&h, &p), 0);
  ASSERT_EQ(v2xpub_TaskCreate(&late, &q), 0);
  for (int i = 0; i < 1000 && runs.load() < 5; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_GE(runs.load(), 5);
  EXPECT_EQ(v2xpub_TaskStop(h), 0);  // joins the task's thread
  EXPECT_EQ(v2xpub_TaskStop(late), 0);
  EXPECT_EQ(never.load(), 0);
}

TEST(Task, RefusesBadParameters) {
  V2XPUB_TASKHANDLE h = nullptr;
  std::atomic<int> runs{0};
  auto p = taskPara(1000, &runs), noExec = p, zero = p;
  noExec.f_tskFunExec = nullptr;
  zero.m_intervals = 0;
  for (const v2xpub_TaskInitPara_t* bad : {&noExec, &zero, static_cast<decltype(&p)>(nullptr)})
    EXPECT_EQ(v2xpub_TaskCreate(&h, bad), -2);
  EXPECT_EQ(v2xpub_TaskCreate(nullptr, &p), -2);
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
