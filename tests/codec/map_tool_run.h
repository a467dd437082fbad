// v2x_map_tool as a process, for the tests of its commands.
#ifndef MAP_TOOL_RUN_H
#define MAP_TOOL_RUN_H

#include <sys/wait.h>

#include <string>
#include <vector>

#include "test_process.h"

namespace codectest {

struct ToolRun {
  int status = -1;
  std::string out, err;
};

// The tool with args; standard error through a file in dir.
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

}  // namespace codectest

#endif
