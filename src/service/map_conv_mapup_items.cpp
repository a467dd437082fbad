// Value items of the upload rendering: arena or ordinary cJSON items.
#include "map_conv_mapup_items.h"

#include <charconv>
#include <climits>
#include <cstring>
#include <new>
#include <string>

namespace mapup {

namespace {

thread_local RenderArena* t_arena = nullptr;

constexpr const char* kOwnNames[] = {kId,         kUpstreamNodeId, kRemoteIntersection, kLanes,
                                     kConnectsTo, kConnectingLane, kLaneAttributes,     kLaneType,
                                     kMovements,  kPoints,         kSpeedLimits};

cJSON* newValue(int type) {
  cJSON* item = t_arena != nullptr ? t_arena->newItem() : cJSON_CreateNull();
  if (item != nullptr) item->type = type;
  return item;
}

// A string or raw value over a copy of the text: referenced from the arena,
// or owned by the item.
cJSON* textValue(int type, const char* text, size_t n) {
  if (t_arena == nullptr) {
    std::string copy(text, n);
    return type == cJSON_Raw ? cJSON_CreateRaw(copy.c_str()) : cJSON_CreateString(copy.c_str());
  }
  const char* kept = t_arena->store(text, n);
  cJSON* item = kept != nullptr ? t_arena->newItem() : nullptr;
  if (item != nullptr) {
    item->type = type | cJSON_IsReference;
    item->valuestring = const_cast<char*>(kept);
  }
  return item;
}

}  // namespace

RenderArena* RenderArena::forThisThread() {
  thread_local std::unique_ptr<RenderArena> arena;
  if (arena == nullptr) arena.reset(new (std::nothrow) RenderArena());
  if (arena != nullptr) arena->restart();
  return arena.get();
}

void RenderArena::restart() {
  // An unusually large map leaves no more than a few blocks behind.
  if (blocks_.size() > kBlocksKept) blocks_.resize(kBlocksKept);
  current_ = 0;
  next_ = blocks_.empty() ? nullptr : blocks_[0].data.get();
  room_ = blocks_.empty() ? 0 : blocks_[0].size;
}

void* RenderArena::take(size_t n) {
  // Everything handed out is aligned for an item.
  constexpr size_t kAlign = alignof(cJSON);
  n = (n + kAlign - 1) / kAlign * kAlign;
  while (n > room_) {
    if (next_ == nullptr || current_ + 1 >= blocks_.size()) {
      const size_t size = n > kBlockSize ? n : kBlockSize;
      std::unique_ptr<char[]> data(new (std::nothrow) char[size]);
      if (data == nullptr) return nullptr;
      blocks_.push_back(Block{std::move(data), size});
      current_ = blocks_.size() - 1;
    } else {
      ++current_;
    }
    next_ = blocks_[current_].data.get();
    room_ = blocks_[current_].size;
  }
  void* out = next_;
  next_ += n;
  room_ -= n;
  return out;
}

cJSON* RenderArena::newItem() {
  void* p = take(sizeof(cJSON));
  if (p == nullptr) return nullptr;
  std::memset(p, 0, sizeof(cJSON));
  return static_cast<cJSON*>(p);
}

const char* RenderArena::store(const char* text, size_t n) {
  auto* out = static_cast<char*>(take(n + 1));
  if (out == nullptr) return nullptr;
  if (n > 0) std::memcpy(out, text, n);
  out[n] = '\0';
  return out;
}

ArenaScope::ArenaScope(RenderArena* arena) : previous_(t_arena) { t_arena = arena; }
ArenaScope::~ArenaScope() { t_arena = previous_; }

cJSON* newObject() { return newValue(cJSON_Object); }
cJSON* newArray() { return newValue(cJSON_Array); }
cJSON* newTrue() { return newValue(cJSON_True); }

void release(cJSON* item) {
  if (t_arena == nullptr) cJSON_Delete(item);
}

bool attachLiteral(cJSON* obj, const char* key, cJSON* item) {
  if (item == nullptr) return false;
  if (!cJSON_AddItemToObjectCS(obj, key, item)) {
    release(item);
    return false;
  }
  return true;
}

bool attachNamed(cJSON* obj, const char* key, cJSON* item) {
  if (item == nullptr) return false;
  if (key == nullptr) {
    release(item);
    return false;
  }
  for (const char* own : kOwnNames)
    if (key == own) return attachLiteral(obj, key, item);
  if (t_arena != nullptr) {
    const char* kept = t_arena->store(key, std::strlen(key));
    return attachLiteral(obj, kept, item);
  }
  if (!cJSON_AddItemToObject(obj, key, item)) {
    cJSON_Delete(item);
    return false;
  }
  return true;
}

void addNumber(cJSON* obj, const char* key, int64_t value) {
  // Inside a rendering an integer below 10^15 in magnitude is kept as the
  // digits cJSON prints for it (printf "%1.15g" of the double), which saves
  // the printer cJSON's printf and scanf round trip; larger ones, and every
  // number of a writer called on its own, are cJSON numbers.
  constexpr int64_t kPlainLimit = 1000000000000000;  // 10^15
  const double d = static_cast<double>(value);
  if (t_arena == nullptr) {
    attachLiteral(obj, key, cJSON_CreateNumber(d));
    return;
  }
  if (value <= -kPlainLimit || value >= kPlainLimit) {
    cJSON* number = newValue(cJSON_Number);
    if (number != nullptr) {
      number->valuedouble = d;
      number->valueint = value >= INT_MAX ? INT_MAX : (value <= INT_MIN ? INT_MIN : static_cast<int>(value));
    }
    attachLiteral(obj, key, number);
    return;
  }
  char digits[24];
  const char* end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
  attachLiteral(obj, key, textValue(cJSON_Raw, digits, static_cast<size_t>(end - digits)));
}

void addText(cJSON* obj, const char* key, const char* text, size_t n) {
  attachLiteral(obj, key, textValue(cJSON_String, text, n));
}

}  // namespace mapup
