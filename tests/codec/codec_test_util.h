// Shared helpers of the codec tests: reference vectors, hex, a bit writer for
// expected encodings, frame builders and value comparison through XER.
#ifndef CODEC_TEST_UTIL_H
#define CODEC_TEST_UTIL_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "MessageFrame.h"
#include "v2x_asn_codec.h"

namespace codectest {

using Bytes = std::vector<uint8_t>;

// mapFrame: msgCnt 1, one node {id 1, lat 397870006, long 1165119042}.
inline const char* const kD1 = "1008000005356fb2dac2f08104";
// mapFrame with most optional members of nodes, links and lanes present.
inline const char* const kD2 =
    "1428c3500183398c0028004f356fb2dac2f08104400005800500090146820a501800500060381e80814a800000c001c00280032028000e00"
    "3ce4643ac2f0946a6adf424076";
// D1 plus a lane-level link (inLinks-ex).
inline const char* const kD3 =
    "1008200005356fb2dac2f081040c4601400040af00c000608400016de02bc800038000c000f0210004007f51017d1fd44040";
// D1 plus a prohibited zone.
inline const char* const kD4 = "1008200005356fb2dac2f081040a2080080a80a07f680a07f67f6080a7f600";
// A 528-byte intersection with four links (each with speed limits, points,
// movements and one lane with three connections).
inline const char* const kMap528 =
    "1403a1a100c0004025519919eaaba86a67c678000804a0946844000089811aba86806a33265709aba868762332588a9aba86904e33248dd1"
    "aba869a1a33239498b0001044301c000402580b000104470302d011131c00b80008221c05000078000804b4060000b80008223c048000c46"
    "aea1a01a8cc995c26aea1a1d88cc9622a6aea1a4138cc923746aea1a6868cc8e52678000804b0946844000089811aba86cd26332012b9aba"
    "86c74a3320e261aba86bfca3321e479aba86b46e3322e0e0b0001044709c000402502b000104430b02d011131c00b80008223c0500007800"
    "0804a4060000b80008221c048000c46aea1b3498cc804ae6aea1b1d28cc838986aea1aff28cc8791e6aea1ad1b8cc8b83878000822189468"
    "44000051411aba88006e33236a41aba87889a33236371aba87314233236029aba86de3a33235e78b0001009605c0004111c1b00010094070"
    "2d010a29c00b8000804b4050001780008223c060001b8000804a4048001c46aea2001b8cc8da906aea1e2268cc8d8dc6aea1cc508cc8d80a"
    "6aea1b78e8cc8d79e7800082238946844000051411aba8533e233230a29aba85a26a332316c9aba861582332326c1aba8670ee332332d0b0"
    "00100940dc0004110c3b000100960f02d010a29c00b8000804a4050003780008221c060003b8000804b4048003c46aea14cf88cc8c28a6ae"
    "a1689a8cc8c5b26aea185608cc8c9b06aea19c3b8cc8ccb4";

inline Bytes fromHex(const std::string& hex) {
  Bytes out;
  for (size_t i = 0; i + 1 < hex.size(); i += 2)
    out.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  return out;
}

inline std::string toHex(const Bytes& b) {
  static const char* digits = "0123456789abcdef";
  std::string s;
  for (uint8_t c : b) {
    s += digits[c >> 4];
    s += digits[c & 15];
  }
  return s;
}

// Most significant bit first, as unaligned PER writes them.
struct BitWriter {
  Bytes bytes;
  size_t bits = 0;
  BitWriter& put(uint64_t value, int width) {
    for (int i = width - 1; i >= 0; i--, bits++) {
      if (bits % 8 == 0) bytes.push_back(0);
      if ((value >> i) & 1U) bytes.back() |= static_cast<uint8_t>(0x80U >> (bits % 8));
    }
    return *this;
  }
};

// Encodes any value of td; empty on failure.
inline Bytes encode(const asn_TYPE_descriptor_t& td, const void* value,
                    asn_transfer_syntax ats = ATS_UNALIGNED_BASIC_PER) {
  asn_enc_rval_t er = asn_encode_to_buffer(nullptr, ats, &td, value, nullptr, 0);
  if (er.encoded < 0) return {};
  Bytes out(static_cast<size_t>(er.encoded));
  er = asn_encode_to_buffer(nullptr, ats, &td, value, out.data(), out.size());
  return er.encoded == static_cast<ssize_t>(out.size()) ? out : Bytes{};
}

inline std::string xer(const MessageFrame_t* f) {
  Bytes b = encode(asn_DEF_MessageFrame, f, ATS_BASIC_XER);
  return std::string(b.begin(), b.end());
}

// Owns a decoded or built frame.
struct Frame {
  MessageFrame_t* p = nullptr;
  Frame() = default;
  explicit Frame(MessageFrame_t* f) : p(f) {}
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;
  ~Frame() { ASN_STRUCT_FREE(asn_DEF_MessageFrame, p); }
  MessageFrame_t* operator->() const { return p; }
  MapData_t& map() const { return p->choice.mapFrame; }
};

inline asn_dec_rval_t decode(const Bytes& b, Frame& f, asn_transfer_syntax ats = ATS_UNALIGNED_BASIC_PER) {
  return asn_decode(nullptr, ats, &asn_DEF_MessageFrame, reinterpret_cast<void**>(&f.p), b.data(), b.size());
}

// Zero-filled record of T, as the tree's free operation expects.
template <class T>
T* make() {
  return static_cast<T*>(std::calloc(1, sizeof(T)));
}
template <class T>
T* make(long v) {
  T* p = make<T>();
  *p = v;
  return p;
}

// Appends an element to any generated list.
template <class List, class T>
T* add(List& list, T* elem) {
  asn_set_add(&list.list, elem);
  return elem;
}

// "1100..." into a BIT STRING.
inline void setBits(BIT_STRING_t& bs, const char* bits) {
  size_t n = std::strlen(bits);
  bs.size = static_cast<int>((n + 7) / 8);
  bs.bits_unused = static_cast<int>(bs.size * 8 - n);
  bs.buf = static_cast<uint8_t*>(std::calloc(static_cast<size_t>(bs.size), 1));
  for (size_t i = 0; i < n; i++) {
    if (bits[i] == '1') bs.buf[i / 8] |= static_cast<uint8_t>(0x80U >> (i % 8));
  }
}

// A map frame with one node {id, lat, long}; owned by the caller.
inline MessageFrame_t* newMap(long msgCnt, long nodeId, long lat, long lon) {
  auto* f = make<MessageFrame_t>();
  f->present = MessageFrame_PR_mapFrame;
  f->choice.mapFrame.msgCnt = msgCnt;
  Node_t* n = add(f->choice.mapFrame.nodes, make<Node_t>());
  n->id.id = nodeId;
  n->refPos.lat = lat;
  n->refPos.Long = lon;
  return f;
}

// Every lat/lon offset alternative is {lon, lat} at the same place.
inline void setLL(PositionOffsetLL_t& ll, PositionOffsetLL_PR present, long lon, long lat) {
  ll.present = present;
  ll.choice.position_LL1.lon = lon;
  ll.choice.position_LL1.lat = lat;
}

}  // namespace codectest

#endif
