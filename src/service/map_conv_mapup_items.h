// Value items of the upload rendering (C++ only, for the renderer).
//
// A rendering makes about a thousand small values. Inside
// v2xmapconv_StructToJson they come from the thread's arena, which is emptied
// for the next rendering rather than released value by value, with texts and
// member names referenced rather than copied;
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

// Memory of a rendering: items and texts, handed out from blocks that the
// thread keeps for its next rendering (a few, the rest is released). One
// rendering at a time per thread.
class RenderArena {
 public:
  // The calling thread's arena, emptied; null when out of memory.
  static RenderArena* forThisThread();

  RenderArena(const RenderArena&) = delete;
  RenderArena& operator=(const RenderArena&) = delete;

  // A zeroed item, or null when out of memory.
  cJSON* newItem();
  // A zero-terminated copy of n bytes, or null when out of memory.
  const char* store(const char* text, size_t n);

 private:
  struct Block {
    std::unique_ptr<char[]> data;
    size_t size;
  };
  RenderArena() = default;
  void restart();
  void* take(size_t n);
  static constexpr size_t kBlockSize = 65536;
  static constexpr size_t kBlocksKept = 4;
  std::vector<Block> blocks_;
  size_t current_ = 0;
  char* next_ = nullptr;
  size_t room_ = 0;
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
