// A map from the cloud over DDS, stored by the service as a process: the
// stored file holds exactly the bytes of the reference encoding of the sample
// map (data/map_slice1.uper, written by the x86-64 build). The ARM builds run
// this under emulation, so it shows that the RSU's processor stores the same.
#include <gtest/gtest.h>

#include <string>

#include "test_process.h"

namespace {

using v2xtest::ChildProcess;
using v2xtest::readFile;

std::string hex(const std::string& bytes) {
  static const char digits[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char b : bytes) out += {digits[b >> 4], digits[b & 15]};
  return out;
}

TEST(StoredMap, MapFromTheCloudIsStoredAsTheReferenceBytes) {
  v2xtest::TempDir work;
  const std::string device = v2xtest::uniqueDevice("BYTES");
  ASSERT_TRUE(v2xtest::prepareWorkdir(work.path(), device));
  ChildProcess service;
  ASSERT_TRUE(v2xtest::startService(service, work.path()));
  ChildProcess cloud;
  ASSERT_TRUE(
      cloud.start({V2X_CLOUD_SIM_BIN, "--device", device, "--map", V2X_SOURCE_DIR "/etc/samples/map_slice1.json",
                   "--count", "1", "--kind", "ack", "--timeout", "60"}));
  const int st = cloud.waitExit(std::chrono::seconds(90));
  ASSERT_TRUE(st >= 0 && WIFEXITED(st) && WEXITSTATUS(st) == 0) << cloud.output();

  const std::string reference = readFile(V2X_SOURCE_DIR "/tests/process/data/map_slice1.uper");
  ASSERT_FALSE(reference.empty());
  EXPECT_EQ(hex(readFile(work.file("mapdata/map_data_0"))), hex(reference));
  ASSERT_TRUE(service.signal(SIGTERM));
  EXPECT_EQ(service.waitExit(), 0);
}

}  // namespace
