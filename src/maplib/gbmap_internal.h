// Shared by the MAP library's sources (never installed): access to the frame
// behind a handle, zero-filled records, list appends and the trace lines.
#ifndef GBMAP_INTERNAL_H
#define GBMAP_INTERNAL_H

#include <cstdint>
#include <cstdlib>

#include "MessageFrame.h"
#include "v2x_asn_codec.h"
#include "v2xlog.h"

// Trace lines of an operation under a fixed name. A start text with a
// trailing blank pairs with "end,ret=", one without with "end ret=". Macros,
// so that the line prefix names the calling operation and line. Each source
// defines its own g_curTag.
#define GMAP_START(name) V2XLOG(&g_curTag, 7, name " start")
#define GMAP_END(name, ret) V2XLOG(&g_curTag, 7, name " end ret=%d", static_cast<int>(ret))
#define GMAP_START_B(name) V2XLOG(&g_curTag, 7, name " start ")
#define GMAP_END_B(name, ret) V2XLOG(&g_curTag, 7, name " end,ret=%d", static_cast<int>(ret))

namespace gbmap {

// The MapData of a map handle; null for a null handle or a frame of another kind.
inline MapData_t* mapOf(void* handle) {
  auto* frame = static_cast<MessageFrame_t*>(handle);
  if (frame == nullptr || frame->present != MessageFrame_PR_mapFrame) return nullptr;
  return &frame->choice.mapFrame;
}

// One zero-filled record (the tree's free releases it); null when no memory.
template <class T>
T* newRecord() {
  return static_cast<T*>(std::calloc(1, sizeof(T)));
}

// The optional record behind *slot, allocated zero-filled when absent.
template <class T>
T* ensure(T*& slot) {
  if (slot == nullptr) slot = newRecord<T>();
  return slot;
}

// Appends elem to an asn1c list unless it is already there (the tree's free
// would then release it twice). 0; -1 when it is there already; -3 when the
// list cannot grow.
template <class List, class Elem>
int32_t appendOnce(List& list, Elem* elem) {
  for (int i = 0; i < list.count; ++i) {
    if (list.array[i] == elem) return -1;
  }
  return asn_set_add(&list, elem) == 0 ? 0 : -3;
}

// Element index of a list, or null when the index is not below its count.
template <class List>
auto* elementAt(const List& list, int64_t index) {
  return index >= 0 && index < list.count ? list.array[index] : nullptr;
}

}  // namespace gbmap

#endif
