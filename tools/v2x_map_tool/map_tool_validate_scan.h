// "validate": what the service's reader does with a document that its error
// codes never show: a text that is not JSON (and where it stops), a message
// too long for one map-down message, values of the wrong JSON kind (and what
// is read instead), a slice number outside 1 to 255, members the reader does
// not know and keys that differ only in the case of letters.
#ifndef V2X_MAP_TOOL_VALIDATE_SCAN_H
#define V2X_MAP_TOOL_VALIDATE_SCAN_H

#include <cstddef>
#include <string>
#include <vector>

#include "map_tool_validate.h"

struct cJSON;

namespace maptool {

// An item as unformatted JSON, cut to 60 characters.
std::string printed(const cJSON* item);

// Where the JSON library stops reading a text; ok when it reads a value.
struct TextPosition {
  bool ok = false;
  size_t offset = 0;  // byte offset of the first byte it could not take
  int line = 1;       // from 1
  int column = 1;     // bytes from the line's start, from 1
  std::string near;   // a few bytes from there, printable
};
TextPosition parsePosition(const std::string& text);
// "line 3, column 17 (byte 45), near '...'"
std::string positionText(const TextPosition& p);

// The largest map-down message, in bytes.
constexpr size_t kMessageMax = 9999;

// A text longer than one message, as the reception meets it in samples:
// the finding (empty path) saying what each profile does; none when it fits.
bool oversizeFinding(const std::string& text, Finding& out);

// The slice number: a finding when the text does not name a slice 1 to 255,
// with the file the slice lands in (fileNumber: the storage's number).
bool sliceFinding(const cJSON* root, unsigned fileNumber, Finding& out);

// Values of the wrong kind (faults) and unknown or case-duplicated members
// (warnings) of the document's tree.
void scanKinds(const cJSON* root, std::vector<Finding>& faults, std::vector<Finding>& warnings);

}  // namespace maptool

#endif
