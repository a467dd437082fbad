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
  std::string reach;   // one of the kReach* texts below
  std::string reads;   // what the service reads instead of the value written, when it differs
  std::string field;   // what the field profile does instead, where it differs
};

// How far a finding reaches, as the service meets the document.
constexpr const char* kReachRefuses = "refuses the document";
constexpr const char* kReachDropsList = "drops a list";
constexpr const char* kReachValueKept = "value kept";
constexpr const char* kReachValueChanged = "value changed";
constexpr const char* kReachLogged = "logged only";
constexpr const char* kReachNotReached = "not reached by the service";
constexpr const char* kReachIgnored = "ignored";

struct Validation {
  bool readable = false;    // false: the text is not JSON (the service reads nothing and sends nothing)
  int result = 0;           // the reader's result: 0 stored, -18 eTag unchanged, other: refused
  bool stored = false;      // the service would store the map (reader and encoder both content)
  bool tooLong = false;     // longer than one map-down message: the service never reads it whole
  unsigned fileNumber = 0;  // the number of the file the slice is stored in
  // Faults: the text's own (length, kinds of values, slice number), then those
  // that record a code or refuse the document, in the order the reader meets
  // them, then those past a refusing one ("not reached by the service", found
  // by reading again with each refusing value repaired), then every part the
  // encoder refuses (code 18).
  std::vector<Finding> findings;
  // Problems the service logs without recording a code or refusing anything.
  std::vector<Finding> notes;
  // Members the reader never reads: unknown names, keys that repeat another
  // one but for the case of letters.
  std::vector<Finding> warnings;
  // For a document the service refuses: the document with every value that
  // stopped the reader replaced by one it takes (a node's missing position by
  // the middle of its points), as read for the faults past the refusal.
  std::string mended;
  std::string ack;            // the acknowledgement the service sends when the document has "ack": true
  bool ackRequested = false;  // the document has "ack": true
};

// Runs the service's reader (and, for a document it accepts, the encoder) on
// the text of one map-down document. The stored eTag is taken as empty.
// Everything the service would not take as written is a fault or a warning.
Validation validateDocument(const std::string& text);

}  // namespace maptool

#endif
