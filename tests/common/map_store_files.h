// Test support: what a map data directory holds, read back as the V2X stack
// reads it (map files and their libconfig records).
#pragma once

#include <mbedtls/md5.h>

#include <cstdio>
#include <filesystem>
#include <libconfig.h++>
#include <map>
#include <string>

#include "test_process.h"

namespace v2xtest {

inline std::string md5Hex(const std::string& data) {
  unsigned char sum[16];
  mbedtls_md5_ret(reinterpret_cast<const unsigned char*>(data.data()), data.size(), sum);
  char hex[33];
  for (int i = 0; i < 16; ++i) std::snprintf(hex + 2 * i, 3, "%02x", sum[i]);
  return hex;
}

// One setting of a map record, or "<unreadable>".
inline std::string recordValue(const std::string& path, const char* key) {
  try {
    libconfig::Config rec;
    rec.readFile(path.c_str());
    return rec.lookup(key).c_str();
  } catch (const libconfig::ConfigException&) {
    return "<unreadable>";
  }
}

// Every file of a directory (following a link to it): name to bytes.
inline std::map<std::string, std::string> listing(const std::string& dir) {
  std::map<std::string, std::string> files;
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(dir, ec))
    files[e.path().filename().string()] = readFile(e.path().string());
  return files;
}

// Whether dir holds exactly one complete map of `slices` slices: map_data_N
// and map_cfg_N for N below slices and nothing else, every record naming the
// same eTag (returned through eTag) and its map file's digest.
inline bool oneCompleteMap(const std::string& dir, int slices, std::string* eTag, std::string* why) {
  const auto files = listing(dir);
  if (files.size() != static_cast<size_t>(2 * slices)) {
    *why = std::to_string(files.size()) + " files";
    return false;
  }
  eTag->clear();
  for (int n = 0; n < slices; ++n) {
    const std::string map = "map_data_" + std::to_string(n), record = dir + "/map_cfg_" + std::to_string(n);
    const std::string name = recordValue(record, "Name");
    if (files.count(map) == 0 || recordValue(record, "MAPTepm.MD5Sum") != md5Hex(files.at(map))) {
      *why = map + " does not match its record";
      return false;
    }
    if (n > 0 && name != *eTag) {
      *why = "records of two maps: " + *eTag + " and " + name;
      return false;
    }
    *eTag = name;
  }
  return true;
}

}  // namespace v2xtest
