// The service under the field profile, with the real cloud peer and V2X
// stack peer: a map replaces the previous one whole or not at all, eTags are
// compared whole, a failed write reaches the cloud, refused starts end with
// status 1, and --check names every problem of a working directory.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "map_store_files.h"
#include "test_process.h"
#include "udp_peer.h"

namespace {

using v2xtest::ChildProcess;
using v2xtest::countOf;
using v2xtest::readFile;
using v2xtest::TempDir;

constexpr const char* kSampleTag = "jiading-grid-v2";

void replaceIn(const std::string& path, const std::string& from, const std::string& to) {
  std::string text = readFile(path);
  const size_t at = text.find(from);
  ASSERT_NE(at, std::string::npos) << from << " in " << path;
  v2xtest::writeFile(path, text.replace(at, from.size(), to));
}

class FieldRun : public ::testing::Test {
 protected:
  void SetUp() override { prepare("field"); }
  void prepare(const std::string& profile) {
    ASSERT_TRUE(v2xtest::prepareWorkdir(work_.path(), device_));
    v2xtest::setProfile(work_.path(), profile);
  }
  std::string mapDir() const { return work_.file("mapdata"); }
  void startService() { ASSERT_TRUE(v2xtest::startService(service_, work_.path())); }
  // The stack peer on a port of its own, named in the working directory.
  void startStack() {
    ASSERT_TRUE(stack_.start({V2X_STACK_SIM_BIN, "-w", work_.path()}));
    ASSERT_TRUE(stack_.waitForOutput(", maps from"));
    std::smatch port;
    const std::string out = stack_.output();
    ASSERT_TRUE(std::regex_search(out, port, std::regex("listening on 127\\.0\\.0\\.1:([1-9][0-9]*)"))) << out;
    v2xtest::writeIpcConfig(work_.path(), static_cast<uint16_t>(std::stoul(port[1])));
  }
  // The refresh notices the stack peer has printed, once there are `count`.
  std::vector<std::string> notices(size_t count) {
    for (int i = 0; i < 100 && countOf(stack_.output(), "notice: ") < count; ++i)
      stack_.waitForOutput("\n\n", std::chrono::milliseconds(100));
    std::vector<std::string> found;
    const std::regex md5("notice: file id [0-9]+, md5 ([0-9a-f]{32})");
    const std::string out = stack_.output();
    for (std::sregex_iterator m(out.begin(), out.end(), md5), end; m != end; ++m) found.push_back((*m)[1]);
    return found;
  }
  // Publishes these sample slices, in this order, as map eTag and returns
  // the cloud peer's output once every slice is acknowledged.
  std::string publish(const std::vector<int>& slices, const std::string& eTag) {
    std::vector<std::string> argv = {V2X_CLOUD_SIM_BIN, "--device", device_};
    for (int slice : slices) {
      const std::string doc = work_.file(eTag + "-" + std::to_string(slice) + ".json");
      v2xtest::writeFile(
          doc, readFile(std::string(V2X_SOURCE_DIR) + "/etc/samples/map_slice" + std::to_string(slice) + ".json"));
      replaceIn(doc, kSampleTag, eTag);
      argv.insert(argv.end(), {"--map", doc});
    }
    argv.insert(argv.end(), {"--count", std::to_string(slices.size()), "--kind", "ack", "--timeout", "30"});
    ChildProcess cloud;
    EXPECT_TRUE(cloud.start(argv));
    EXPECT_EQ(cloud.waitExit(std::chrono::seconds(60)), 0) << cloud.output();
    return cloud.output();
  }
  std::string storedETag() {
    return v2xtest::recordValue(work_.file("conf/v2x_map_convert.cfg"), "rsuMapConvertInfo.eTag");
  }

  TempDir work_;
  const std::string device_ = v2xtest::uniqueDevice("FIELD");
  ChildProcess stack_, service_;
};

TEST_F(FieldRun, ABrokenOffMapLeavesThePreviousOneAndACompleteMapReplacesItWhole) {
  startStack();
  startService();
  std::string eTag, why;
  EXPECT_EQ(countOf(publish({3, 2, 1}, "map-A"), " ok raw="), 3U);
  ASSERT_TRUE(v2xtest::oneCompleteMap(mapDir(), 3, &eTag, &why)) << why;
  EXPECT_EQ(eTag, "map-A");
  const auto mapA = v2xtest::listing(mapDir());
  EXPECT_EQ(notices(3).size(), 3U);

  // Slices 3 and 2 of map B, then the transfer breaks off.
  EXPECT_EQ(countOf(publish({3, 2}, "map-B"), " ok raw="), 2U);
  EXPECT_TRUE(v2xtest::listing(mapDir()) == mapA) << "map B's slices changed the map data directory";
  EXPECT_EQ(storedETag(), "map-A");

  EXPECT_EQ(countOf(publish({3, 2, 1}, "map-C"), " ok raw="), 3U);
  ASSERT_TRUE(v2xtest::oneCompleteMap(mapDir(), 3, &eTag, &why)) << why;
  EXPECT_EQ(eTag, "map-C");
  EXPECT_EQ(storedETag(), "map-C");
  // Map B's staged files were never announced; map C's are, after the switch.
  const std::vector<std::string> sent = notices(6);
  ASSERT_EQ(sent.size(), 6U);
  std::set<std::string> current;
  for (const auto& [name, bytes] : v2xtest::listing(mapDir()))
    if (name.rfind("map_data_", 0) == 0) current.insert(v2xtest::md5Hex(bytes));
  EXPECT_EQ(std::set<std::string>(sent.begin() + 3, sent.end()), current);
}

TEST_F(FieldRun, AnETagThatStartsTheLastOneIsANewMap) {
  startService();
  for (const std::string eTag : {"prefix-test-10", "prefix-test-1"}) {
    EXPECT_EQ(countOf(publish({1}, eTag), " ok raw="), 1U) << eTag;
    EXPECT_EQ(storedETag(), eTag);
    EXPECT_EQ(v2xtest::recordValue(mapDir() + "/map_cfg_0", "Name"), eTag);
  }
}

// A map data directory below a plain file cannot be written: the reference
// behaviour acknowledges the map as stored, the field one with code 18.
TEST(FieldStore, AnUnwritableMapDirectoryIsAcknowledgedWithCode18) {
  const struct {
    const char* profile;
    const char* ack;
  } cases[] = {
      {"reference", "ACK seqNum=201 ok raw="},
      {"field", "errorDesc=\"Set MAP config error\""},
  };
  for (const auto& c : cases) {
    TempDir work;
    const std::string device = v2xtest::uniqueDevice("UNWR");
    ASSERT_TRUE(v2xtest::prepareWorkdir(work.path(), device));
    v2xtest::setProfile(work.path(), c.profile);
    v2xtest::writeFile(work.file("blocked"), "a file, not a directory\n");
    replaceIn(work.file("conf/v2x_map_convert.cfg"), "MapDataDir = \"mapdata\"", "MapDataDir = \"blocked/mapdata\"");
    ChildProcess service, cloud;
    ASSERT_TRUE(v2xtest::startService(service, work.path()));
    ASSERT_TRUE(cloud.start({V2X_CLOUD_SIM_BIN, "--device", device, "--map",
                             std::string(V2X_SOURCE_DIR) + "/etc/samples/map_slice1.json", "--count", "1", "--kind",
                             "ack", "--timeout", "30"}));
    EXPECT_EQ(cloud.waitExit(std::chrono::seconds(60)), 0);
    EXPECT_NE(cloud.output().find(c.ack), std::string::npos) << c.profile << ": " << cloud.output();
  }
}

// Starts that the field profile refuses end with status 1 and say why on
// standard error.
TEST(FieldStart, RefusedStartsEndWithStatusOne) {
  v2xtest::UdpPeer portTaker;
  const struct {
    const char* name;
    std::function<void(const std::string& dir)> spoil;
    std::string err;
  } cases[] = {
      {"configuration that does not parse",
       [](const std::string& dir) { replaceIn(dir + "/conf/v2x_map_convert.cfg", "eTag = \"\";", "eTag = ;"); },
       "configuration "},
      {"unknown profile",
       [](const std::string& dir) { replaceIn(dir + "/conf/v2x_map_convert.cfg", "\"field\"", "\"Field\""); },
       "configuration "},
      {"device file missing", [](const std::string& dir) { std::filesystem::remove(dir + "/conf/rsu_sysinfo.xml"); },
       "device file"},
      {"log tool port taken",
       [&](const std::string& dir) {
         v2xtest::writeFile(dir + "/conf/v2x_ipc_port.cfg",
                            "ports : { m_map_conv_sndport = 0; m_mapconv_logtool_rcvport = " +
                                std::to_string(portTaker.port()) + "; };\n");
       },
       "IPC sockets cannot be opened"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir work;
    ASSERT_TRUE(v2xtest::prepareWorkdir(work.path(), v2xtest::uniqueDevice("REFUSE")));
    v2xtest::setProfile(work.path(), "field");
    c.spoil(work.path());
    ChildProcess p;
    ASSERT_TRUE(
        p.start({V2X_SERVICE_BIN, "-w", work.path(), "-f", work.file("log/map_conv.log")}, {}, work.file("err")));
    const int st = p.waitExit(std::chrono::seconds(60));
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 1) << st;
    EXPECT_NE(readFile(work.file("err")).find(c.err), std::string::npos) << readFile(work.file("err"));
  }
}

TEST_F(FieldRun, ASecondInstanceOnTheSameWorkingDirectoryIsRefused) {
  startService();
  ChildProcess second;
  ASSERT_TRUE(second.start({V2X_SERVICE_BIN, "-w", work_.path(), "-f", work_.file("log/second.log")}, {},
                           work_.file("second.err")));
  const int st = second.waitExit(std::chrono::seconds(60));
  EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 1) << st;
  EXPECT_NE(readFile(work_.file("second.err"))
                .find("is held by another running instance (pid " + std::to_string(service_.pid()) + ")"),
            std::string::npos)
      << readFile(work_.file("second.err"));
  // --check sees the same, and only that.
  ChildProcess check;
  ASSERT_TRUE(check.start({V2X_SERVICE_BIN, "--check", "-w", work_.path()}));
  EXPECT_EQ(WEXITSTATUS(check.waitExit()), 1);
  EXPECT_EQ(check.output(), "work directory " + work_.path() + ": held by another running instance (pid " +
                                std::to_string(service_.pid()) + ")\n");
}

// --check in both profiles: one line per problem, status 1 on any.
TEST(Check, NamesEveryProblemOfAWorkingDirectory) {
  v2xtest::UdpPeer portTaker;
  const struct {
    const char* name;
    const char* profile;
    std::function<void(const std::string& dir)> spoil;
    std::vector<std::string> lines;  // each problem line starts so; none: the OK line
  } cases[] = {
      {"good, reference", "reference", [](const std::string&) {}, {}},
      {"good, field", "field", [](const std::string&) {}, {}},
      {"no configuration",
       "field",
       [](const std::string& dir) { std::filesystem::remove(dir + "/conf/v2x_map_convert.cfg"); },
       {"configuration DIR/conf/v2x_map_convert.cfg: cannot be read or parsed"}},
      {"three problems",
       "reference",
       [&](const std::string& dir) {
         std::filesystem::remove(dir + "/conf/rsu_sysinfo.xml");
         std::filesystem::remove_all(dir + "/mapdata");
         v2xtest::writeFile(dir + "/conf/v2x_ipc_port.cfg",
                            "ports : { m_mapconv_logtool_rcvport = 0; m_map_conv_sndport = " +
                                std::to_string(portTaker.port()) + "; };\n");
       },
       {"device file DIR/conf/rsu_sysinfo.xml: No such file or directory",
        "map data directory DIR/mapdata: No such file or directory", "IPC socket MAP_CONV_SEND: cannot bind"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir work;
    ASSERT_TRUE(v2xtest::prepareWorkdir(work.path(), v2xtest::uniqueDevice("CHECK")));
    v2xtest::setProfile(work.path(), c.profile);
    c.spoil(work.path());
    ChildProcess p;
    ASSERT_TRUE(p.start({V2X_SERVICE_BIN, "--check", "-w", work.path()}));
    const int st = p.waitExit();
    ASSERT_TRUE(WIFEXITED(st));
    EXPECT_EQ(WEXITSTATUS(st), c.lines.empty() ? 0 : 1);
    if (c.lines.empty()) {
      EXPECT_EQ(p.output(), "check OK: " + work.path() + ", profile " + c.profile + "\n");
      continue;
    }
    EXPECT_EQ(countOf(p.output(), "\n"), c.lines.size()) << p.output();
    for (std::string line : c.lines) {
      line = std::regex_replace(line, std::regex("DIR"), work.path());
      EXPECT_NE(p.output().find(line), std::string::npos) << line << " in\n" << p.output();
    }
  }
}

}  // namespace
