// v2x_map_tool entry: global options, the subcommand table and shared file helpers.
#include <cjson/cJSON.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <iterator>

#include "map_tool.h"
#include "v2xlog.h"
#include "v2xpub.h"

namespace maptool {
namespace {

std::vector<Command>& commands() {
  static std::vector<Command> table;
  return table;
}

const Command* findCommand(const char* name) {
  for (const Command& c : commands()) {
    if (std::strcmp(c.name, name) == 0) return &c;
  }
  return nullptr;
}

void printUsage(FILE* out) {
  std::fprintf(out,
               "usage: v2x_map_tool [-v] <command> [args]\n"
               "       v2x_map_tool <command> --help\n"
               "\n"
               "  -v          show the MAP library's log lines on standard error\n"
               "  -h, --help  print this text and exit\n"
               "  --version   print the version and exit\n"
               "\n"
               "commands:\n");
  std::vector<Command> sorted = commands();
  std::sort(sorted.begin(), sorted.end(),
            [](const Command& a, const Command& b) { return std::strcmp(a.name, b.name) < 0; });
  for (const Command& c : sorted) std::fprintf(out, "  %-10s %s\n", c.name, c.summary);
}

}  // namespace

bool registerCommand(const Command& cmd) {
  commands().push_back(cmd);
  return true;
}

void printJsonLine(cJSON* doc) {
  char* text = cJSON_PrintUnformatted(doc);
  std::printf("%s\n", text != nullptr ? text : "{}");
  cJSON_free(text);
  cJSON_Delete(doc);
}

void fail(const char* cmd, const char* fmt, ...) {
  char text[1024];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(text, sizeof(text), fmt, ap);
  va_end(ap);
  std::fprintf(stderr, "v2x_map_tool %s: %s\n", cmd, text);
}

bool parseArgs(const char* cmd, int argc, char** argv, std::initializer_list<Option> options,
               std::vector<const char*>& args, size_t maxArgs) {
  for (int i = 1; i < argc; i++) {
    const char* arg = argv[i];
    const Option* option = nullptr;
    for (const Option& o : options) {
      if (std::strcmp(arg, o.name) == 0) option = &o;
    }
    if (option != nullptr && option->flag != nullptr) {
      *option->flag = true;
    } else if (option != nullptr) {
      if (i + 1 >= argc) {
        fail(cmd, "%s needs %s (see --help)", arg, option->what);
        return false;
      }
      *option->value = argv[++i];
    } else if (arg[0] == '-' && arg[1] != '\0' && !std::isdigit(static_cast<unsigned char>(arg[1])) && arg[1] != '.') {
      fail(cmd, "unknown option %s (see --help)", arg);
      return false;
    } else if (args.size() < maxArgs) {
      args.push_back(arg);
    } else {
      fail(cmd, "%s (see --help)", maxArgs == 1 ? "more than one input file" : "too many arguments");
      return false;
    }
  }
  return true;
}

bool readInput(const char* cmd, const std::string& path, std::vector<uint8_t>& data) {
  FILE* f = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
  if (f == nullptr) {
    fail(cmd, "%s: cannot open: %s", path.c_str(), std::strerror(errno));
    return false;
  }
  data.clear();
  uint8_t chunk[65536];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof(chunk), f)) > 0) data.insert(data.end(), chunk, chunk + n);
  bool ok = std::ferror(f) == 0;
  int err = errno;
  if (f != stdin) std::fclose(f);
  if (!ok) {
    fail(cmd, "%s: read error: %s", path.c_str(), std::strerror(err));
    return false;
  }
  return true;
}

bool writeOutput(const char* cmd, const std::string& path, const std::vector<uint8_t>& data) {
  if (path == "-") {
    if (std::fwrite(data.data(), 1, data.size(), stdout) != data.size() || std::fflush(stdout) != 0) {
      fail(cmd, "cannot write to standard output: %s", std::strerror(errno));
      return false;
    }
    return true;
  }
  if (data.size() > UINT32_MAX ||
      v2xpub_WriteFileData(path.c_str(), data.data(), static_cast<uint32>(data.size())) != 0) {
    fail(cmd, "%s: cannot write the file", path.c_str());
    return false;
  }
  return true;
}

bool writeOutput(const char* cmd, const std::string& path, const std::string& text) {
  return writeOutput(cmd, path, std::vector<uint8_t>(text.begin(), text.end()));
}

bool looksLikeXml(const std::vector<uint8_t>& data) {
  size_t i = 0;
  if (data.size() >= 3 && data[0] == 0xEF && data[1] == 0xBB && data[2] == 0xBF) i = 3;  // UTF-8 mark
  while (i < data.size() && (data[i] == ' ' || data[i] == '\t' || data[i] == '\r' || data[i] == '\n')) i++;
  if (i == data.size() || data[i] != '<') return false;
  return std::none_of(data.begin() + static_cast<std::ptrdiff_t>(i), data.end(),
                      [](uint8_t c) { return c < 0x20 && c != '\t' && c != '\r' && c != '\n'; });
}

}  // namespace maptool

int main(int argc, char** argv) {
  using namespace maptool;
  int i = 1;
  int logLevel = 0;  // the tool reports errors itself; library logs on request
  for (; i < argc && argv[i][0] == '-'; i++) {
    if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
      printUsage(stdout);
      return kExitOk;
    }
    if (std::strcmp(argv[i], "--version") == 0) {
      std::puts("v2x_map_tool " V2X_PACKAGE_VERSION);
      return kExitOk;
    }
    if (std::strcmp(argv[i], "-v") == 0) {
      logLevel = 7;
      continue;
    }
    std::fprintf(stderr, "v2x_map_tool: unknown option %s\n", argv[i]);
    printUsage(stderr);
    return kExitUsage;
  }
  v2xlog_SetAllTagLevel(logLevel);
  if (i >= argc) {
    printUsage(stderr);
    return kExitUsage;
  }
  const Command* cmd = findCommand(argv[i]);
  if (cmd == nullptr) {
    std::fprintf(stderr, "v2x_map_tool: unknown command %s\n", argv[i]);
    printUsage(stderr);
    return kExitUsage;
  }
  for (int k = i + 1; k < argc; k++) {
    if (std::strcmp(argv[k], "--help") == 0 || std::strcmp(argv[k], "-h") == 0) {
      std::fputs(cmd->usage, stdout);
      return kExitOk;
    }
  }
  return cmd->run(argc - i, argv + i);
}
