// Extension additions this module does not know. The input chooses a map and,
// for each extensible SEQUENCE in it (MapData, Node, Link, Lane, RoadPoint),
// unknown additions: bitmap bits, which are set, each open type's length (up
// to fragmented ones) with random octets. Nodes may also carry the known
// prohibited zone, with unknown additions of its own. The map is written as
// unaligned PER twice, plain and with the additions:
//  - the plain frame decodes and encodes back to itself (the writer is right);
//  - the frame with additions decodes to the plain map;
//  - with unknown additions on the map, the frame is refused when its last
//    announced open type is missing or empty, or its bitmap has no bit set.
#include <algorithm>
#include <vector>

#include "support.h"
#include "v2xapp_gbmap.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Most significant bit first, as unaligned PER writes them.
struct Bits {
  Bytes bytes;
  size_t count = 0;
  void put(uint64_t value, int width) {
    for (int i = width - 1; i >= 0; i--, count++) {
      if (count % 8 == 0) bytes.push_back(0);
      if ((value >> i) & 1U) bytes.back() |= static_cast<uint8_t>(0x80U >> (count % 8));
    }
  }
};

// The input as a stream of bit fields; zeros once it is used up.
class Source {
 public:
  Source(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  uint64_t take(int width) {
    uint64_t v = 0;
    for (int i = 0; i < width; i++, pos_++) {
      const size_t byte = pos_ / 8;
      v = (v << 1) | (byte < size_ ? (data_[byte] >> (7 - pos_ % 8)) & 1U : 0U);
    }
    return v;
  }
  bool flag() { return take(1) != 0; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

// Unknown additions of one SEQUENCE: bitmap bits after the known ones, and an
// open type length per set bit.
struct Unknown {
  std::vector<bool> bits;
  std::vector<size_t> lengths;
  bool any() const { return !lengths.empty(); }
};

class Writer {
 public:
  Writer(const uint8_t* data, size_t size) : in_(data, size), seed_(0x9E3779B97F4A7C15ULL ^ size) {
    for (size_t i = 0; i < size; i++) seed_ = (seed_ ^ data[i]) * 0x100000001B3ULL;
  }

  Bits plain, ext;
  // The frame with additions cut before the map's last open type, and before
  // the map's whole extension part (0 bits: no unknown additions on the map).
  Bits beforeLastOpenType, beforeMapBitmap;

  void map() {
    put(0, 1);  // MessageFrame in its root
    put(1, 3);  // mapFrame
    const Unknown u = pickUnknown();
    extensionBits(false, u.any());
    const bool timeStamp = optional();
    put(in_.take(7), 7);
    if (timeStamp) put(in_.take(20) % 527041, 20);
    const int nodes = 1 + static_cast<int>(in_.take(1));
    put(nodes - 1, 5);
    for (int i = 0; i < nodes; i++) node();
    if (u.any()) {
      beforeMapBitmap = ext;
      extensionPart(ext, {}, u, nullptr, true);
    }
  }

 private:
  Source in_;
  uint64_t seed_;
  size_t budget_ = 100000;  // octets of unknown additions in one frame

  void put(uint64_t value, int width) {
    plain.put(value, width);
    ext.put(value, width);
  }
  // An optional member's presence bit, chosen by the input.
  bool optional() {
    const bool present = in_.flag();
    put(present, 1);
    return present;
  }

  // A SEQUENCE's extension bit in each frame.
  void extensionBits(bool inPlain, bool inExt) {
    plain.put(inPlain, 1);
    ext.put(inExt, 1);
  }

  uint8_t randomOctet() {
    seed_ ^= seed_ << 13;
    seed_ ^= seed_ >> 7;
    seed_ ^= seed_ << 17;
    return static_cast<uint8_t>(seed_);
  }

  size_t pickLength() {
    static const size_t kEdges[] = {1, 2, 3, 127, 128, 129, 255, 256, 16383};
    static const size_t kLong[] = {16384, 16385, 32768 + 3, 65536, 65537, 5 * 16384 + 1};
    switch (in_.take(3)) {
      case 5: return 1 + in_.take(8);
      case 6: return kEdges[in_.take(4) % 9];
      case 7: {  // one in four: fragmented
        const size_t len = kLong[in_.take(3) % 6];
        if (in_.take(2) == 0 && len <= budget_) return len;
        return 1 + in_.take(16) % 16383;
      }
      default: return 1 + in_.take(4);
    }
  }

  Unknown pickUnknown() {
    Unknown u;
    if (!in_.flag()) return u;
    size_t n = 1 + in_.take(3);
    if (in_.take(4) == 0) n = 60 + in_.take(5);  // past 64: the bitmap length's long form
    for (size_t i = 0; i < n; i++) u.bits.push_back(in_.flag());
    if (std::find(u.bits.begin(), u.bits.end(), true) == u.bits.end()) u.bits.back() = true;
    for (bool b : u.bits) {
      if (!b) continue;
      const size_t len = pickLength();
      budget_ -= len < budget_ ? len : budget_;
      u.lengths.push_back(len);
    }
    return u;
  }

  // Length determinant and octets of one open type, fragmented above 16K.
  void openType(Bits& w, size_t octets, const Bytes* content) {
    size_t left = octets, at = 0;
    auto next = [&] { return content != nullptr ? (*content)[at++] : randomOctet(); };
    while (left >= 16384) {
      const size_t m = left / 16384 < 4 ? left / 16384 : 4;
      w.put(0xC0 | m, 8);
      for (size_t i = 0; i < m * 16384; i++) w.put(next(), 8);
      left -= m * 16384;
    }
    w.put(left < 128 ? left : (0x8000 | left), left < 128 ? 8 : 16);
    for (size_t i = 0; i < left; i++) w.put(next(), 8);
  }

  // Bitmap length, bitmap (known bits, then unknown ones) and open types.
  void extensionPart(Bits& w, const std::vector<bool>& known, const Unknown& u, const Bytes* knownContent, bool isMap) {
    const size_t n = known.size() + u.bits.size();
    if (n <= 64) {
      w.put(n - 1, 7);
    } else {
      w.put(1, 1);
      w.put(n, 8);
    }
    for (bool b : known) w.put(b, 1);
    for (bool b : u.bits) w.put(b, 1);
    if (knownContent != nullptr) openType(w, knownContent->size(), knownContent);
    for (size_t i = 0; i < u.lengths.size(); i++) {
      if (isMap && i + 1 == u.lengths.size()) beforeLastOpenType = w;
      openType(w, u.lengths[i], nullptr);
    }
  }

  void name() {
    const uint64_t len = 1 + in_.take(2);
    put(len - 1, 6);
    for (uint64_t i = 0; i < len; i++) put(in_.take(7), 7);
  }

  void nodeReference() {
    const bool region = optional();
    if (region) put(in_.take(16), 16);
    put(in_.take(16), 16);
  }

  void node() {
    const Unknown u = pickUnknown();
    const bool hasZone = in_.flag();
    extensionBits(hasZone, hasZone || u.any());
    const bool hasName = optional(), links = optional();
    if (hasName) name();
    nodeReference();
    const bool elevation = optional();
    put(in_.take(31) % 1800000002, 31);
    put(in_.take(32) % 3600000001, 32);
    if (elevation) put(in_.take(16), 16);
    if (links) {
      const int n = 1 + static_cast<int>(in_.take(1));
      put(n - 1, 5);
      for (int i = 0; i < n; i++) link();
    }
    if (hasZone) {
      Bits plainZone, extZone;
      zone(plainZone, extZone);
      extensionPart(plain, {false, true}, Unknown{}, &plainZone.bytes, false);
      extensionPart(ext, {false, true}, u, &extZone.bytes, false);
    } else if (u.any()) {
      extensionPart(ext, {false, false}, u, nullptr, false);
    }
  }

  // A known addition, itself extensible: a prohibited zone (a central
  // polygon of four position-LL1 corners), plain and with unknown additions.
  void zone(Bits& plainZone, Bits& extZone) {
    const Unknown u = pickUnknown();
    plainZone.put(0, 1);
    extZone.put(u.any(), 1);
    for (Bits* w : {&plainZone, &extZone}) w->put(0x80, 8);  // central polygon only, four corners
    for (int i = 0; i < 4; i++) {
      const uint64_t corner = in_.take(24);
      for (Bits* w : {&plainZone, &extZone}) {
        w->put(0, 4);  // no vertical offset, position-LL1
        w->put(corner, 24);
      }
    }
    if (u.any()) extensionPart(extZone, {}, u, nullptr, false);
  }

  void points() {
    const int n = 2 + static_cast<int>(in_.take(1));
    put(n - 2, 5);
    for (int i = 0; i < n; i++) {
      const Unknown u = pickUnknown();
      extensionBits(false, u.any());
      put(0, 1);  // no vertical offset
      put(0, 3);  // position-LL1
      put(in_.take(12), 12);
      put(in_.take(12), 12);
      if (u.any()) extensionPart(ext, {}, u, nullptr, false);
    }
  }

  void link() {
    const Unknown u = pickUnknown();
    extensionBits(false, u.any());
    const bool hasName = optional(), limits = optional(), pts = optional(), movements = optional();
    if (hasName) name();
    nodeReference();
    if (limits) {
      put(0, 4);                 // one limit
      put(0, 1);                 // type in the root
      put(in_.take(4) % 13, 4);  // type
      put(in_.take(13), 13);     // speed
    }
    put(in_.take(15), 15);  // width
    if (pts) points();
    if (movements) {
      put(0, 5);  // one movement
      const bool phase = optional();
      nodeReference();
      if (phase) put(in_.take(8), 8);
    }
    const int lanes = 1 + static_cast<int>(in_.take(1));
    put(lanes - 1, 5);
    for (int i = 0; i < lanes; i++) lane();
    if (u.any()) extensionPart(ext, {}, u, nullptr, false);
  }

  void lane() {
    const Unknown u = pickUnknown();
    extensionBits(false, u.any());
    const bool width = optional(), attributes = optional(), maneuvers = optional();
    put(0, 2);  // no connections, no speed limits
    const bool pts = optional();
    put(in_.take(8), 8);
    if (width) put(in_.take(15), 15);
    if (attributes) {
      put(0, 1);  // no sharing
      put(0, 1);  // lane type in the root
      put(0, 3);  // vehicle
      put(0, 1);  // eight bits, the root size
      put(in_.take(8), 8);
    }
    if (maneuvers) put(in_.take(12), 12);
    if (pts) points();
    if (u.any()) extensionPart(ext, {}, u, nullptr, false);
  }
};

bool decodes(const Bits& frame, Bytes* reencoded) {
  Bytes copy = frame.bytes;
  V2XAPP_GBMHANDLE h = nullptr;
  const bool ok = v2xapp_GBMapUperDecode(&h, copy.data(), static_cast<uint32_t>(copy.size())) == 0;
  if (ok && reencoded != nullptr) v2xfuzz::require(v2xfuzz::encodeUper(h, *reencoded), "a decoded map does not encode");
  v2xapp_GBMapStrDel(&h);
  return ok;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  v2xfuzz::quietLogger();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Writer w(data, size);
  w.map();

  Bytes again;
  v2xfuzz::require(decodes(w.plain, &again), "the plain map does not decode");
  v2xfuzz::require(again == w.plain.bytes, "the plain map does not encode back to itself");
  v2xfuzz::require(decodes(w.ext, &again), "a map with unknown additions does not decode");
  v2xfuzz::require(again == w.plain.bytes, "unknown additions changed the decoded map");

  if (w.beforeMapBitmap.count > 0) {
    Bits cut = w.beforeLastOpenType;
    v2xfuzz::require(!decodes(cut, nullptr), "a missing announced open type is accepted");
    cut.put(0, 8);
    v2xfuzz::require(!decodes(cut, nullptr), "an empty open type is accepted");
    Bits clear = w.beforeMapBitmap;
    clear.put(2, 7);
    clear.put(0, 3);
    v2xfuzz::require(!decodes(clear, nullptr), "a bitmap without a set bit is accepted");
  }
  return 0;
}
