// "validate": the encoder's verdict on the frame the service would store.
#ifndef V2X_MAP_TOOL_VALIDATE_FRAME_H
#define V2X_MAP_TOOL_VALIDATE_FRAME_H

#include <cstddef>
#include <string>

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
// into a buffer of the storage's size, and says what fails.
EncoderVerdict encoderVerdict(void* frame);

}  // namespace maptool

#endif
