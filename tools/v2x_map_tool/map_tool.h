// v2x_map_tool: one executable, several subcommands. Each subcommand lives in
// its own source file and registers itself with V2X_MAP_TOOL_COMMAND.
#ifndef V2X_MAP_TOOL_H
#define V2X_MAP_TOOL_H

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <vector>

struct cJSON;

namespace maptool {

// Exit codes shared by all subcommands.
constexpr int kExitOk = 0;
constexpr int kExitBadInput = 1;  // unreadable, undecodable or unencodable data
constexpr int kExitUsage = 2;     // wrong command line

struct Command {
  const char* name;
  const char* summary;  // one line for the command list
  const char* usage;    // full help text of the subcommand
  // argv[0] is the subcommand's name; "--help" is handled by the caller.
  int (*run)(int argc, char** argv);
};

// Registers a subcommand; used through V2X_MAP_TOOL_COMMAND at namespace scope.
bool registerCommand(const Command& cmd);

// Prints doc as one line of JSON on standard output ("{}" if it cannot be
// printed) and deletes it.
void printJsonLine(cJSON* doc);

// Prints "v2x_map_tool <cmd>: <message>" on standard error.
void fail(const char* cmd, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

// One option of a subcommand: a switch (sets *flag) or an option with a value
// (*value, described by `what` when it is missing: "a file name").
struct Option {
  const char* name;
  bool* flag = nullptr;
  const char** value = nullptr;
  const char* what = "a value";
};

// Reads a subcommand's command line (argv[1] on): the options listed, and any
// other argument ("-" and negative numbers included) as a positional one, at
// most maxArgs of them. Usage problems (an unknown option, a missing value,
// too many arguments) are reported through fail(); false then.
bool parseArgs(const char* cmd, int argc, char** argv, std::initializer_list<Option> options,
               std::vector<const char*>& args, size_t maxArgs = SIZE_MAX);

// Whole file (or standard input for "-") into data; false with errno text
// reported through fail() otherwise.
bool readInput(const char* cmd, const std::string& path, std::vector<uint8_t>& data);
// Writes data to path atomically (standard output for "-").
bool writeOutput(const char* cmd, const std::string& path, const std::vector<uint8_t>& data);
bool writeOutput(const char* cmd, const std::string& path, const std::string& text);

// True when data looks like an XML document (first non-blank byte '<' and no
// control bytes) rather than a binary encoding.
bool looksLikeXml(const std::vector<uint8_t>& data);

// Edit distance of two names, the case of letters ignored (for "did you mean").
size_t nameDistance(const std::string& a, const std::string& b);

// Checks an XER MessageFrame's elements against the message set before it
// is decoded: every element a member of its type, every closing tag its
// opening one's. False with a line naming the first fault otherwise.
bool checkXerElements(const std::vector<uint8_t>& data, std::string& error);

// Decodes a whole MessageFrame (UPER or XER as given) into *handle, which must
// be null on entry. On failure reports through fail() and leaves *handle null.
bool decodeFrame(const char* cmd, const std::string& path, const std::vector<uint8_t>& data, bool xer, void** handle);
// Reads a MessageFrame file (XER when it looks like XML, UPER otherwise) and
// decodes it as decodeFrame does.
bool readFrame(const char* cmd, const std::string& path, void** handle);
// Reads a map file of any form into a frame: a cloud map document as the
// service's reader reads it (so what the service would store), XER or UPER.
bool readAnyFrame(const char* cmd, const std::string& path, void** handle);
// Encodes a MessageFrame (UPER or XER) into out, sized to the encoding.
bool encodeFrame(const char* cmd, void* handle, bool xer, std::vector<uint8_t>& out);
// Frees a frame from decodeFrame (null is fine) and clears the handle.
void freeFrame(void** handle);

}  // namespace maptool

#define V2X_MAP_TOOL_CONCAT2(a, b) a##b
#define V2X_MAP_TOOL_CONCAT(a, b) V2X_MAP_TOOL_CONCAT2(a, b)
#define V2X_MAP_TOOL_COMMAND(...)                                                                         \
  namespace {                                                                                             \
  const bool V2X_MAP_TOOL_CONCAT(g_registered_,                                                           \
                                 __LINE__) = ::maptool::registerCommand(::maptool::Command{__VA_ARGS__}); \
  }

#endif
