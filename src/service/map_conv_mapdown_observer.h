// Map download: an observer of the readers, for programs that report every
// fault of a map document with its place in it (v2x_map_tool validate). The
// readers behave and log exactly as without one; while none is set, they pay
// nothing but a test on the paths of a fault.
#ifndef MAP_CONV_MAPDOWN_OBSERVER_H
#define MAP_CONV_MAPDOWN_OBSERVER_H

#include <cstdint>

struct cJSON;
struct asn_TYPE_descriptor_s;

namespace v2xmapconv {

// A problem a reader found and logged.
struct MapDownFault {
  const char* reader;  // the public reader whose name the log line carries
  const char* text;    // the log line's text
  int32_t code;        // the download error code recorded with it, or -1
  int32_t ret;         // the result the reader gives for it
  // Where: the object that lacks key, or (key null) the item at fault.
  const cJSON* item;
  const char* key;
  // The message-set type whose range the value left, or null.
  const asn_TYPE_descriptor_s* type;
  // A value of the wrong JSON type that the reference reading takes as it
  // comes (no code, no log line): the observer hears of it all the same.
  bool misfit = false;
};

class MapDownObserver {
 public:
  virtual ~MapDownObserver() = default;
  // The document's tree; it lives until the entry point returns.
  virtual void onDocument(const cJSON* root) = 0;
  virtual void onFault(const MapDownFault& fault) = 0;
  // A reader's failure passed on by its caller (reader), logged with text and
  // recording code (-1: none). The entry point passing one on refuses the
  // document.
  virtual void onPassedOn(const char* reader, const char* text, int32_t code) = 0;
  // A list element that failed: it and the rest of its list are not in the map.
  virtual void onDropped(const cJSON* element) = 0;
};

// Sets the observer of the readers on the calling thread (null: none) and
// returns the one set before.
MapDownObserver* setMapDownObserver(MapDownObserver* observer);

}  // namespace v2xmapconv

#endif
