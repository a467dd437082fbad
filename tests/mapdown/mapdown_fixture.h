// Shared set-up of the map download tests: a working directory with a real
// configuration file, a real frame for the reader, and the log file to search.
#pragma once

#include <MessageFrame.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "map_conv_config.h"
#include "map_conv_mapdown.h"
#include "test_process.h"
#include "v2x_asn_codec.h"
#include "v2xlog.h"

namespace mapdown_test {

namespace fs = std::filesystem;

using v2xtest::readFile;
using v2xtest::writeFile;

// One zeroed frame with the map choice, as the reception hands it to the reader.
struct Frame {
  MessageFrame_t* frame = static_cast<MessageFrame_t*>(std::calloc(1, sizeof(MessageFrame_t)));
  Frame() { frame->present = MessageFrame_PR_mapFrame; }
  ~Frame() { ASN_STRUCT_FREE(asn_DEF_MessageFrame, frame); }
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;
  MapData_t& map() { return frame->choice.mapFrame; }
};

class MapDownTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(tmp_.path().empty());
    fs::create_directories(dir_ / "mapdata");
    writeConfig("stored-etag", "mapdata");
    v2xlog_Init(log_.c_str(), "TEST", 1, 0, 0);
    v2xmapconv_InitCfg(dir_.c_str());
    v2xmapconv_ResetCfgForTest();
    v2xmapconv_MapDownResetForTest();
  }
  void TearDown() override {
    v2xmapconv_ResetCfgForTest();
    v2xmapconv_MapDownResetForTest();
    v2xlog_Init(nullptr, "TEST", 0, 0, 0);
  }

  void writeConfig(const std::string& eTag, const std::string& mapDir) {
    writeFile(dir_ / "conf/v2x_map_convert.cfg",
              "rsuMapConvertInfo :\n{\n  eTag = \"" + eTag + "\";\n  MapDataDir = \"" + mapDir +
                  "\";\n  MapFilename = \"map\";\n  MapCfgname = \"mapcfg\";\n  Sysinfoname = \"" +
                  (dir_ / "conf/none.xml").string() + "\";\n};\n");
  }

  // Reads a document into a fresh record and frame; the frame stays for inspection.
  int32 read(const std::string& text) {
    Frame fresh;
    std::swap(frame_.frame, fresh.frame);
    record_ = {};
    record_.map = frame_.frame;
    std::string copy = text;
    return v2xmapconv_MapDownJsonToStruct(copy.data(), &record_);
  }

  std::string logText() {
    v2xlog_Flush();
    return readFile(log_);
  }

  v2xtest::TempDir tmp_;
  fs::path dir_ = tmp_.path();
  fs::path log_ = dir_ / "test.log";
  Frame frame_;
  v2xcloud_map_data_t record_{};
};

inline std::string sample(const char* name) { return readFile(fs::path(V2X_SOURCE_DIR) / "etc/samples" / name); }

// A document around one node; `links` is the JSON text of its "inLinks" value.
inline std::string docWithLinks(const std::string& links, const std::string& eTag = "e1") {
  return R"({"mapSlice":"1","eTag":")" + eTag + R"(","ack":true,"seqNum":"42","map":{"nodes":[)" +
         R"({"id":{"region":1,"id":7},"refPos":{"lon":121.16,"lat":31.28,"ele":4.6},"inLinks":)" + links + "}]}}";
}

// A document around one link; `lanes` is the JSON text of its "lanes" value, `extra` more link keys.
inline std::string docWithLanes(const std::string& lanes, const std::string& extra = "") {
  return docWithLinks(R"([{"upstreamNodeId":{"id":8},"linkWidth":700,)" + extra + R"("lanes":)" + lanes + "}]");
}

}  // namespace mapdown_test
