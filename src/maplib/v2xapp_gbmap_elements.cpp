// Elements the builder hands out before they are attached: who owns them,
// their release, and the bit-string setters that write the message set's
// named bits.
#include <mutex>
#include <unordered_map>

#include "gbmap_internal.h"
#include "v2xapp_gbmap_build.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "GMAP"};

// Elements made by an ...Init call and not yet attached or released, with
// their kind. An element leaves the table when a parent takes it, so an
// address found here is always a live element that nothing else owns.
std::mutex g_freeMutex;
std::unordered_map<void*, gbmap::ElementKind> g_freeElements;

const asn_TYPE_descriptor_t* descriptorOf(gbmap::ElementKind kind) {
  switch (kind) {
    case gbmap::ElementKind::Node: return &asn_DEF_Node;
    case gbmap::ElementKind::Link: return &asn_DEF_Link;
    case gbmap::ElementKind::Lane: return &asn_DEF_Lane;
    case gbmap::ElementKind::Movement: return &asn_DEF_Movement;
    case gbmap::ElementKind::Connection: return &asn_DEF_Connection;
  }
  return nullptr;
}

// Writes flags into a bit string of nbits bits: bit n of flags is the
// string's bit n, counted from the first bit of the first octet. The earlier
// buffer is released. -3 when a flag lies beyond nbits; -2 when no memory.
int32_t putFlags(BIT_STRING_t& bits, uint32_t flags, int nbits) {
  if ((flags >> nbits) != 0) return -3;
  const int octets = (nbits + 7) / 8;
  auto* buf = static_cast<uint8_t*>(std::calloc(static_cast<size_t>(octets), 1));
  if (buf == nullptr) return -2;
  for (int n = 0; n < nbits; ++n) {
    if ((flags & (1U << n)) != 0) buf[n / 8] |= static_cast<uint8_t>(0x80U >> (n % 8));
  }
  std::free(bits.buf);
  bits.buf = buf;
  bits.size = octets;
  bits.bits_unused = octets * 8 - nbits;
  return 0;
}

// The optional bit string behind slot, allocated when absent, then filled.
int32_t putOptionalFlags(BIT_STRING_t*& slot, uint32_t flags, int nbits) {
  if ((flags >> nbits) != 0) return -3;
  if (gbmap::ensure(slot) == nullptr) return -2;
  return putFlags(*slot, flags, nbits);
}

// The same, for a bit string inside an optional record (the record created
// when absent; nothing is created for flags beyond nbits).
template <class Holder>
int32_t putNestedFlags(Holder*& holder, BIT_STRING_t* Holder::*slot, uint32_t flags, int nbits) {
  if ((flags >> nbits) != 0) return -3;
  if (gbmap::ensure(holder) == nullptr) return -2;
  return putOptionalFlags(holder->*slot, flags, nbits);
}

constexpr int kManeuverBits = 12;
constexpr int kSharingBits = 10;
constexpr int kVehicleBits = 8;
constexpr int kOtherTypeBits = 16;

}  // namespace

namespace gbmap {

void trackElement(void* element, ElementKind kind) {
  std::lock_guard lock(g_freeMutex);
  g_freeElements[element] = kind;
}

bool isFreeElement(void* element, ElementKind kind) {
  std::lock_guard lock(g_freeMutex);
  auto it = g_freeElements.find(element);
  return it != g_freeElements.end() && it->second == kind;
}

void forgetElement(void* element) {
  std::lock_guard lock(g_freeMutex);
  g_freeElements.erase(element);
}

}  // namespace gbmap

extern "C" {

int32_t v2xapp_GBMapElementRelease(V2XAPP_GBMHANDLE* p_element) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  if (p_element == nullptr || *p_element == nullptr) {
    GBLOG(&g_curTag, 2, "null element");
  } else {
    const asn_TYPE_descriptor_t* td = nullptr;
    {
      std::lock_guard lock(g_freeMutex);
      auto it = g_freeElements.find(*p_element);
      if (it != g_freeElements.end()) {
        td = descriptorOf(it->second);
        g_freeElements.erase(it);
      }
    }
    if (td == nullptr) {
      GBLOG(&g_curTag, 2, "not an unattached element: its parent owns it");
      ret = -4;
    } else {
      ASN_STRUCT_FREE(*td, *p_element);
      *p_element = nullptr;
      ret = 0;
    }
  }
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapLaneSetManeuverFlags(V2XAPP_GBMHANDLE laneHandle, uint16_t flags) {
  GBLOG_START(&g_curTag);
  auto* lane = static_cast<Lane_t*>(laneHandle);
  const int32_t ret = lane != nullptr ? putOptionalFlags(lane->maneuvers, flags, kManeuverBits) : -2;
  if (ret != 0) GBLOG(&g_curTag, 2, "null lane, no memory or flags 0x%x beyond 12 bits (%d)", flags, ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapLaneSetShareFlags(V2XAPP_GBMHANDLE laneHandle, uint16_t flags) {
  GBLOG_START(&g_curTag);
  auto* lane = static_cast<Lane_t*>(laneHandle);
  const int32_t ret =
      lane != nullptr ? putNestedFlags(lane->laneAttributes, &LaneAttributes::shareWith, flags, kSharingBits) : -2;
  if (ret != 0) GBLOG(&g_curTag, 2, "null lane, no memory or flags 0x%x beyond 10 bits (%d)", flags, ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapLaneSetTypeFlags(V2XAPP_GBMHANDLE laneHandle, int type, uint16_t flags) {
  GBLOG_START(&g_curTag);
  auto* lane = static_cast<Lane_t*>(laneHandle);
  const int nbits = type == V2XAPP_GBMAP_LANE_VEHICLE ? kVehicleBits : kOtherTypeBits;
  int32_t ret = -2;
  if (lane == nullptr) {
    GBLOG(&g_curTag, 2, "null lane");
  } else if (type < V2XAPP_GBMAP_LANE_VEHICLE || type > V2XAPP_GBMAP_LANE_PARKING || (flags >> nbits) != 0) {
    GBLOG(&g_curTag, 2, "lane type %d with flags 0x%x: no such type or flags beyond its %d bits", type, flags, nbits);
    ret = -3;
  } else if (gbmap::ensure(lane->laneAttributes) == nullptr) {
    GBLOG(&g_curTag, 2, "no memory for the lane attributes");
  } else {
    // Every alternative is a bit string at the same place.
    LaneTypeAttributes_t& laneType = lane->laneAttributes->laneType;
    ret = putFlags(laneType.choice.vehicle, flags, nbits);
    if (ret == 0) laneType.present = static_cast<LaneTypeAttributes_PR>(type);
  }
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapConnectToSetManeuverFlags(V2XAPP_GBMHANDLE connectToHandle, uint16_t flags) {
  GBLOG_START(&g_curTag);
  auto* connection = static_cast<Connection_t*>(connectToHandle);
  const int32_t ret = connection != nullptr
                          ? putNestedFlags(connection->connectingLane, &ConnectingLane::maneuver, flags, kManeuverBits)
                          : -2;
  if (ret != 0) GBLOG(&g_curTag, 2, "null connection, no memory or flags 0x%x beyond 12 bits (%d)", flags, ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

}  // extern "C"
