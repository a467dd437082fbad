// v2x_map_tool as a process, for the tests of its commands, and the check of
// runs that must fail.
#ifndef MAP_TOOL_RUN_H
#define MAP_TOOL_RUN_H

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
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

struct ToolFailure {
  std::vector<std::string> args;
  int status;
  const char* message;
};

// Each run ends with its status and one line naming the fault on standard
// error, and nothing on standard output.
inline void expectToolFailures(const v2xtest::TempDir& dir, const std::vector<ToolFailure>& cases) {
  for (const ToolFailure& c : cases) {
    SCOPED_TRACE(c.message);
    const ToolRun r = runTool(dir, c.args);
    EXPECT_EQ(r.status, c.status);
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_EQ(r.out, "");
  }
}

}  // namespace codectest

#endif
