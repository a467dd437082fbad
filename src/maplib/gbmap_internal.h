// Shared by the MAP library's sources (never installed): access to the frame
// behind a handle, zero-filled records, list appends and the trace lines.
#ifndef GBMAP_INTERNAL_H
#define GBMAP_INTERNAL_H

#include <cstdint>
#include <cstdlib>

#include "MessageFrame.h"
#include "gbmap_log.h"
#include "v2x_asn_codec.h"
#include "v2xapp_commoncodec.h"

// Trace lines of an operation under a fixed name. A start text with a
// trailing blank pairs with "end,ret=", one without with "end ret=". Macros,
// so that the line prefix names the calling operation and line. Each source
// defines its own g_curTag.
#define GMAP_START(name) GBLOG(&g_curTag, 7, name " start")
#define GMAP_END(name, ret) GBLOG(&g_curTag, 7, name " end ret=%d", static_cast<int>(ret))
#define GMAP_START_B(name) GBLOG(&g_curTag, 7, name " start ")
#define GMAP_END_B(name, ret) GBLOG(&g_curTag, 7, name " end,ret=%d", static_cast<int>(ret))

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

// Kinds of the elements the builder hands out.
enum class ElementKind { Node, Link, Lane, Movement, Connection };

// The table of unattached elements (v2xapp_gbmap_elements.cpp): an ...Init
// call records its element, an attach takes it out. Thread-safe.
void trackElement(void* element, ElementKind kind);
bool isFreeElement(void* element, ElementKind kind);
void forgetElement(void* element);

// Attaches an unattached element of `kind` to list: 0; -2 when it is in the
// list already; -4 when it has a parent elsewhere or was not made as such an
// element by an ...Init call; -3 when the list cannot grow.
template <class List, class Elem>
int32_t attach(List& list, Elem* elem, ElementKind kind) {
  for (int i = 0; i < list.count; ++i) {
    if (list.array[i] == elem) return -2;
  }
  if (!isFreeElement(elem, kind)) return -4;
  if (asn_set_add(&list, elem) != 0) return -3;
  forgetElement(elem);
  return 0;
}

// An offset record as the compact record of the public API (its kinds and
// raw values).
void pointRecord(const PositionOffsetLLV_t& offset, v2xapp_gbMsg_PosStr_t& out);

// Element index of a list, or null when the index is not below its count.
template <class List>
auto* elementAt(const List& list, int64_t index) {
  return index >= 0 && index < list.count ? list.array[index] : nullptr;
}

}  // namespace gbmap

#endif
