// "validate": every fault of a cloud map-down document, found by the service's
// own reader and encoder, each with its place in the document. Also the API
// that other parts of v2x_map_tool (the map view) use to mark the faults.
#ifndef V2X_MAP_TOOL_VALIDATE_H
#define V2X_MAP_TOOL_VALIDATE_H

#include <string>
#include <vector>

namespace maptool {

// One fault, as the service meets it.
struct Finding {
  // Where in the document, keys as the cloud writes them and indices from 0:
  // "nodes[0].inLinks[1].lanes[2].laneWidth",
  // "nodes[0].inLinks[1].lanes[2].points[3].lat",
  // "nodes[0].inLinks[1].speedLimits[0].speed". Envelope keys stand alone
  // ("eTag"); "map" is the map body itself.
  std::string path;
  std::string value;   // the value found (JSON text), or "absent"
  std::string range;   // what the service accepts there ("required", "0 to 32767 cm", ...)
  std::string text;    // the description of the code ("NODE Link lanes lanewidth error")
  std::string effect;  // what the service does ("document refused", "value kept", ...)
  std::string log;     // the service's log line for it (without file, function and line)
  int code = 0;        // download error code (1 to 17 from the reader, 18 from the encoder; 0: none recorded)
};

struct Validation {
  bool readable = false;  // false: the text is not JSON (the service reads nothing and sends nothing)
  int result = 0;         // the reader's result: 0 stored, -18 eTag unchanged, other: refused
  bool stored = false;    // the service would store the map (reader and encoder both content)
  // Faults that record a code or refuse the document, in the order the reader
  // meets them; the encoder's verdict on the frame (code 18) comes last.
  std::vector<Finding> findings;
  // Problems the service logs without recording a code or refusing anything.
  std::vector<Finding> notes;
  std::string ack;            // the acknowledgement the service sends when the document has "ack": true
  bool ackRequested = false;  // the document has "ack": true
};

// Runs the service's reader (and, for a document it accepts, the encoder) on
// the text of one map-down document. The stored eTag is taken as empty.
Validation validateDocument(const std::string& text);

}  // namespace maptool

#endif
