// Crash safety of the map storage: the service is killed (SIGKILL) at every
// point where storing a map makes a file durable (a crash point preloaded into
// it), and at random moments; after each kill the configuration and the map
// records must parse, every record must match its map file, and the service
// must start (removing what the killed write left) and store a map again.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "map_store_files.h"
#include "test_process.h"
#include "v2xdds.h"
#include "v2xlog.h"

namespace {

namespace fs = std::filesystem;
using v2xtest::ChildProcess;
using v2xtest::readFile;

constexpr unsigned kDomain = 200;
constexpr int kSlices = 3;

bool isTemp(const std::string& name) {
  const size_t at = name.rfind(".tmp");
  return at != std::string::npos && at > 0 && name.size() == at + 10;
}

class StorageCrash : public ::testing::Test {
 protected:
  void SetUp() override {
    v2xlog_SetAllTagLevel(2);
    ASSERT_TRUE(v2xtest::prepareWorkdir(work_.path(), device_));
    for (int slice = kSlices; slice >= 1; --slice) {
      const std::string doc =
          readFile(std::string(V2X_SOURCE_DIR) + "/etc/samples/map_slice" + std::to_string(slice) + ".json");
      ASSERT_NE(doc.find(kSampleTag), std::string::npos);
      docs_.push_back(doc);
    }
  }

  // Starts the service (with the crash point at call `crashAt`, 0: none) and
  // publishes the map's slices with this eTag, as the cloud does.
  void startAndSend(ChildProcess& service, long crashAt, const std::string& eTag) {
    std::string asan = std::getenv("ASAN_OPTIONS") != nullptr ? std::getenv("ASAN_OPTIONS") : "";
    const std::vector<std::string> env = {"LD_PRELOAD=" V2X_CRASHPOINT_LIB, "V2X_CRASH_AT=" + std::to_string(crashAt),
                                          "V2X_CRASH_COUNT=" + work_.file("calls"),
                                          // The preloaded library comes before the sanitizer's runtime.
                                          "ASAN_OPTIONS=" + asan + ":verify_asan_link_order=0"};
    ASSERT_TRUE(v2xtest::startService(service, work_.path(), {}, env));
    // Left by a killed write, removed at start.
    for (const char* dir : {"conf", "mapdata"}) {
      for (const auto& e : fs::directory_iterator(work_.file(dir))) {
        EXPECT_FALSE(isTemp(e.path().filename())) << e.path() << " survived the start";
      }
    }
    // A cloud peer of this run only: a new participant never heard of the
    // services killed before, so its match is this service's reader.
    cloud_ = create_dds();
    const std::string topic = "rsu/" + device_ + "/map/down";
    ASSERT_TRUE(dds_reg(cloud_, kDomain, topic.c_str(), nullptr, V2XDDS_DATA_TYPE_BYTES));
    ASSERT_EQ(dds_start(cloud_), 0);
    for (int i = 0; i < 1000 && get_match_cnt(cloud_, topic.c_str()) < 1; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(get_match_cnt(cloud_, topic.c_str()), 1);
    for (std::string doc : docs_) {
      doc.replace(doc.find(kSampleTag), std::strlen(kSampleTag), eTag);
      ASSERT_EQ(dds_send(cloud_, topic.c_str(), doc.data(), static_cast<unsigned>(doc.size())), 0);
      if (doc.size() % V2XDDS_SAMPLE_MAX == 0) {
        ASSERT_EQ(dds_send(cloud_, topic.c_str(), "", 1), 0);  // a message never ends with a full sample
      }
    }
  }
  void leave() {
    destroy_dds(cloud_);
    cloud_ = nullptr;
  }
  void TearDown() override { leave(); }

  std::string storedETag() {
    return v2xtest::recordValue(work_.file("conf/v2x_map_convert.cfg"), "rsuMapConvertInfo.eTag");
  }

  // What a crash may leave: the configuration holds the last complete map's
  // eTag or this one's; a record that exists parses and names the digest of
  // its map file, if that exists. A map file without a record is a slice whose
  // record was not written yet (or was removed first while the directory was
  // emptied): the V2X protocol process only hears of a slice once both are.
  // Returns the number of slices stored whole and the temporary files left.
  std::pair<int, int> checkStorage(const std::string& what, const std::string& before, const std::string& now) {
    const std::string eTag = storedETag();
    EXPECT_TRUE(eTag == before || eTag == now) << what << ": eTag " << eTag;
    int whole = 0, temps = 0;
    for (const char* dir : {"conf", "mapdata"})
      for (const auto& e : fs::directory_iterator(work_.file(dir))) temps += isTemp(e.path().filename()) ? 1 : 0;
    for (int n = 0; n < kSlices; ++n) {
      const std::string record = work_.file("mapdata/map_cfg_" + std::to_string(n));
      const std::string map = work_.file("mapdata/map_data_" + std::to_string(n));
      if (!fs::exists(record)) continue;
      const std::string md5 = v2xtest::recordValue(record, "MAPTepm.MD5Sum");
      EXPECT_NE(md5, "<unreadable>") << what << ": " << record;
      if (!fs::exists(map)) continue;
      EXPECT_EQ(v2xtest::md5Hex(readFile(map)), md5) << what << ": " << map << " does not match its record";
      ++whole;
    }
    return {whole, temps};
  }

  // Waits for the kill at the chosen call. A call counted in the run without
  // a crash may never come in a run that is not stopped (a line the log
  // sums up, the stop's own writes): then the kill comes from here, after
  // the store.
  static int waitKilled(ChildProcess& service) {
    int st = service.waitExit(std::chrono::seconds(20));
    if (st == -1 && service.signal(SIGKILL)) st = service.waitExit(std::chrono::seconds(60));
    return st;
  }

  static constexpr const char* kSampleTag = "jiading-grid-v2";
  v2xtest::TempDir work_;
  const std::string device_ = v2xtest::uniqueDevice("CRASH");
  std::vector<std::string> docs_;
  void* cloud_ = nullptr;
};

TEST_F(StorageCrash, KilledAtAnyPointTheStorageStaysWholeAndTheServiceServesAgain) {
  // A run without a crash counts the points: every durable step of storing
  // the map's slices and of saving its eTag.
  std::string stored = "";
  auto storeWhole = [&](const std::string& eTag) {
    ChildProcess service;
    startAndSend(service, 0, eTag);
    for (int i = 0; i < 1000 && storedETag() != eTag; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(storedETag(), eTag);
    leave();
    ASSERT_TRUE(service.signal(SIGTERM));
    const int st = service.waitExit(std::chrono::seconds(60));
    ASSERT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st;
    EXPECT_EQ(checkStorage(eTag, eTag, eTag), std::make_pair(kSlices, 0));
    stored = eTag;
  };
  storeWhole("counted");
  const long points = std::stol(readFile(work_.file("calls")));
  ASSERT_GE(points, 4 * (2 * kSlices + 1)) << "write, fsync, rename, fsync of each file";

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  const long stride = 3;  // the instrumented service starts slowly
#else
  const long stride = 1;
#endif
  int tempsLeft = 0;
  for (long at = 1; at <= points; at += stride) {
    const std::string eTag = "crash-at-" + std::to_string(at);
    ChildProcess service;
    startAndSend(service, at, eTag);
    const int st = waitKilled(service);
    ASSERT_TRUE(WIFSIGNALED(st) && WTERMSIG(st) == SIGKILL) << "not killed at call " << at << ": " << st;
    leave();
    tempsLeft += checkStorage(eTag, stored, eTag).second;
    if (storedETag() == eTag) stored = eTag;
  }
  EXPECT_GT(tempsLeft, 0) << "no kill fell between a temporary file and its rename";

  // Kills at random moments, also between the crash points.
  const unsigned seed = std::random_device{}();
  std::mt19937 rng(seed);
  for (int i = 0; i < 5; ++i) {
    const std::string eTag = "random-" + std::to_string(i);
    ChildProcess service;
    startAndSend(service, 0, eTag);
    std::this_thread::sleep_for(std::chrono::milliseconds(std::uniform_int_distribution<int>(0, 60)(rng)));
    service.signal(SIGKILL);
    service.waitExit(std::chrono::seconds(60));
    leave();
    checkStorage(eTag + " (seed " + std::to_string(seed) + ")", stored, eTag);
    if (storedETag() == eTag) stored = eTag;
  }

  storeWhole("served-again");
}

// The field profile: whatever the moment of the kill, the map data directory
// holds one complete map (the previous one or the new one), every file with
// its record, and the configuration never names a map the directory lacks.
class FieldStorageCrash : public StorageCrash {
 protected:
  void SetUp() override {
    StorageCrash::SetUp();
    v2xtest::setProfile(work_.path(), "field");
  }
  // The eTag of the one complete map in the map data directory ("" if none).
  std::string currentMap(const std::string& what) {
    std::string eTag, why;
    EXPECT_TRUE(v2xtest::oneCompleteMap(work_.file("mapdata"), kSlices, &eTag, &why)) << what << ": " << why;
    return eTag;
  }
};

TEST_F(FieldStorageCrash, KilledAtRandomPointsTheMapDirectoryHoldsOneCompleteMap) {
  // The first start also turns the plain directory into a version; the
  // second run counts the points of a start and an update alone.
  for (const std::string eTag : {"first", "counted"}) {
    ChildProcess service;
    startAndSend(service, 0, eTag);
    for (int i = 0; i < 1000 && storedETag() != eTag; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    leave();
    ASSERT_TRUE(service.signal(SIGTERM));
    ASSERT_TRUE(WIFEXITED(service.waitExit(std::chrono::seconds(60))));
  }
  ASSERT_EQ(currentMap("counted"), "counted");
  const long points = std::stol(readFile(work_.file("calls")));
  const unsigned seed = std::random_device{}();
  std::mt19937 rng(seed);
  std::string inDir = "counted", inCfg = "counted";
  for (int i = 0; i < 24; ++i) {
    const long at = std::uniform_int_distribution<long>(1, points)(rng);
    const std::string eTag = "field-" + std::to_string(i),
                      what = "killed at call " + std::to_string(at) + " (seed " + std::to_string(seed) + ")";
    ChildProcess service;
    startAndSend(service, at, eTag);
    const int st = waitKilled(service);
    leave();
    ASSERT_TRUE(WIFSIGNALED(st) && WTERMSIG(st) == SIGKILL) << what << ": " << st;
    const std::string dir = currentMap(what), cfg = storedETag();
    EXPECT_TRUE(dir == inDir || dir == eTag) << what << ": " << dir;
    EXPECT_TRUE(cfg == inCfg || cfg == eTag) << what << ": " << cfg;
    EXPECT_FALSE(cfg == eTag && dir != eTag) << what << ": the configuration is ahead of the map files";
    inDir = dir;
    inCfg = cfg;
  }
}

}  // namespace
