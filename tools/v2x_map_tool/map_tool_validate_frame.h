// "validate": the encoder's verdict on the frame the service would store.
#ifndef V2X_MAP_TOOL_VALIDATE_FRAME_H
#define V2X_MAP_TOOL_VALIDATE_FRAME_H

#include <cstddef>
#include <string>
#include <vector>

namespace maptool {

struct EncoderVerdict {
  bool ok = false;
  size_t bytes = 0;     // length of the encoding (when it could be made)
  std::string path;     // the part the encoder refuses, in the document's terms ("" for the whole map)
  std::string value;    // what that part holds
  std::string range;    // what the message set allows there
  std::string message;  // the encoder's own words
};

// Encodes frame (a MessageFrame with the map choice) as the storage does,
// into a buffer of the storage's size, and says what fails; then mends the
// part it refuses (a number brought into its range, a list or text cut to its
// longest, else the smallest optional part or list element around it dropped)
// and tries again, at most max times. The verdicts in order; the last one is
// ok when the mended frame encodes. The frame is changed.
std::vector<EncoderVerdict> encoderVerdicts(void* frame, size_t max = 32);

}  // namespace maptool

#endif
