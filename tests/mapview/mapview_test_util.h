// Shared by the map view tests: the tool as a process and reading its output.
#ifndef MAPVIEW_TEST_UTIL_H
#define MAPVIEW_TEST_UTIL_H

#include <sys/wait.h>

#include <string>
#include <vector>

#include "test_process.h"

namespace mapviewtest {

struct ToolRun {
  int status = -1;
  std::string out, err;
};

// v2x_map_tool with args; standard error through a file in dir.
inline ToolRun runTool(const v2xtest::TempDir& dir, std::vector<std::string> args) {
  args.insert(args.begin(), V2X_BINARY_DIR "/tools/v2x_map_tool/v2x_map_tool");
  const std::string errFile = dir.file("tool.err");
  std::remove(errFile.c_str());
  v2xtest::ChildProcess tool;
  ToolRun r;
  if (!tool.start(args, {}, errFile)) return r;
  const int st = tool.waitExit(std::chrono::seconds(60));
  r.status = st >= 0 && WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  r.out = tool.output();
  r.err = v2xtest::readFile(errFile);
  return r;
}

}  // namespace mapviewtest

#endif
