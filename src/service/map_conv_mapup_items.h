// Value items of the upload rendering (C++ only, for the renderer).
//
// A rendering makes about a thousand small values. Inside
// v2xmapconv_StructToJson they come from one arena that is dropped whole
// after printing, with texts and member names referenced rather than copied;
// a writer called on its own makes ordinary cJSON items (copied names and
// texts) that its caller releases with cJSON_Delete. Writers therefore make,
// attach and release values only through these helpers.
#ifndef MAP_CONV_MAPUP_ITEMS_H
#define MAP_CONV_MAPUP_ITEMS_H

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace mapup {

// Member names the writers hand to one another: kept by reference when given
// back to a writer, where any other caller's name is copied.
inline constexpr char kId[] = "id";
inline constexpr char kUpstreamNodeId[] = "upstreamNodeId";
inline constexpr char kRemoteIntersection[] = "remoteIntersection";
inline constexpr char kLanes[] = "lanes";
inline constexpr char kConnectsTo[] = "connectsTo";
inline constexpr char kConnectingLane[] = "connectingLane";
inline constexpr char kLaneAttributes[] = "laneAttributes";
inline constexpr char kLaneType[] = "laneType";
inline constexpr char kMovements[] = "movements";
inline constexpr char kPoints[] = "points";
inline constexpr char kSpeedLimits[] = "speedLimits";

// Memory of one rendering: items and texts, released together.
class RenderArena {
 public:
  RenderArena() = default;
  RenderArena(const RenderArena&) = delete;
  RenderArena& operator=(const RenderArena&) = delete;

  // A zeroed item, or null when out of memory.
  cJSON* newItem();
  // A zero-terminated copy of n bytes, or null when out of memory.
  const char* store(const char* text, size_t n);

 private:
  void* take(size_t n);
  static constexpr size_t kBlock = 16384;
  alignas(alignof(cJSON)) char first_[kBlock];
  char* next_ = first_;
  size_t room_ = kBlock;
  std::vector<std::unique_ptr<char[]>> more_;
};

// Makes an arena the current thread's for the life of the scope.
class ArenaScope {
 public:
  explicit ArenaScope(RenderArena* arena);
  ~ArenaScope();
  ArenaScope(const ArenaScope&) = delete;
  ArenaScope& operator=(const ArenaScope&) = delete;

 private:
  RenderArena* previous_;
};

cJSON* newObject();
cJSON* newArray();
cJSON* newTrue();
// Releases a value that was not attached (nothing to do inside an arena).
void release(cJSON* item);

// Attaches item to obj under a name that lives as long as the program (a
// literal of the writers); on failure the item is released. False when item
// is null or cannot be attached.
bool attachLiteral(cJSON* obj, const char* key, cJSON* item);
// The same for a caller's name: one of the names above is kept by reference,
// any other is copied. A null name is refused.
bool attachNamed(cJSON* obj, const char* key, cJSON* item);

// An integer as cJSON prints one that is held as a double.
void addNumber(cJSON* obj, const char* key, int64_t value);
// n bytes of text (no zero byte among them).
void addText(cJSON* obj, const char* key, const char* text, size_t n);

}  // namespace mapup

#endif
