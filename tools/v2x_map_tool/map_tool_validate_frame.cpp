// "validate": the encoder's verdict on the frame the service would store, and
// the place of the part it refuses, found by walking the frame along the
// message set's own type descriptions.
#include "map_tool_validate_frame.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "BIT_STRING.h"
#include "MessageFrame.h"
#include "NativeInteger.h"
#include "OCTET_STRING.h"
#include "constr_CHOICE.h"
#include "constr_SEQUENCE.h"
#include "constr_SET_OF.h"
#include "map_conv_mapdown.h"
#include "v2x_asn_codec.h"
#include "v2xapp_gbmap.h"

namespace maptool {
namespace {

// One step from a part down to one of its members.
struct Step {
  void* holder;                     // the structure holding the member
  const asn_TYPE_member_t* member;  // its description
  int index;                        // its number in a list, -1 for a named member
  void* ptr;                        // the member itself
};

struct Found {
  std::vector<std::string> path;  // member names and "[i]"
  std::vector<Step> steps;
  const asn_TYPE_descriptor_t* type = nullptr;
  const asn_per_constraints_t* constraints = nullptr;
  const void* ptr = nullptr;
};

int presentOf(const asn_CHOICE_specifics_t* specs, const void* sptr) {
  const char* at = static_cast<const char*>(sptr) + specs->pres_offset;
  switch (specs->pres_size) {
    case 1: return *reinterpret_cast<const int8_t*>(at);
    case 2: return *reinterpret_cast<const int16_t*>(at);
    case 4: return *reinterpret_cast<const int32_t*>(at);
    default: return 0;
  }
}

bool encodes(const asn_TYPE_descriptor_t* td, const void* sptr) {
  return asn_encode_to_buffer(nullptr, ATS_UNALIGNED_BASIC_PER, td, sptr, nullptr, 0).encoded >= 0;
}

// Calls visit(member, its structure, its name) for each member that is there.
template <typename Visit>
bool anyMember(const asn_TYPE_descriptor_t* td, const void* sptr, Visit visit) {
  auto at = [](const asn_TYPE_member_t& m, const void* memb) {
    return (m.flags & ATF_POINTER) != 0 ? *static_cast<const void* const*>(memb) : memb;
  };
  if (td->free_struct == SEQUENCE_free) {
    for (int i = 0; i < td->elements_count; ++i) {
      const asn_TYPE_member_t& m = td->elements[i];
      const void* memb = at(m, static_cast<const char*>(sptr) + m.memb_offset);
      if (memb != nullptr && visit(m, memb, std::string(m.name))) return true;
    }
  } else if (td->free_struct == SET_OF_free) {
    const asn_anonymous_set_* list = _A_CSET_FROM_VOID(sptr);
    for (int i = 0; i < list->count; ++i) {
      std::string index(1, '[');
      index += std::to_string(i);
      index += ']';
      if (list->array[i] != nullptr && visit(td->elements[0], list->array[i], index)) {
        return true;
      }
    }
  } else if (td->free_struct == CHOICE_free) {
    auto specs = static_cast<const asn_CHOICE_specifics_t*>(td->specifics);
    int present = presentOf(specs, sptr);
    if (present >= 1 && present <= td->elements_count) {
      const asn_TYPE_member_t& m = td->elements[present - 1];
      const void* memb = at(m, static_cast<const char*>(sptr) + m.memb_offset);
      if (memb != nullptr && visit(m, memb, std::string(m.name))) return true;
    }
  }
  return false;
}

// From a part the encoder refuses down to the smallest one it refuses: a
// member that cannot be encoded on its own, else the part itself (a list of
// the wrong length, say).
void narrow(const asn_TYPE_descriptor_t* td, const asn_per_constraints_t* pc, const void* sptr, Found& found) {
  bool deeper = anyMember(td, sptr, [&](const asn_TYPE_member_t& m, const void* memb, const std::string& name) {
    if (encodes(m.type, memb)) return false;
    found.path.push_back(name);
    found.steps.push_back(
        {const_cast<void*>(sptr), &m, name[0] == '[' ? std::atoi(name.c_str() + 1) : -1, const_cast<void*>(memb)});
    narrow(m.type, m.per_constraints, memb, found);
    return true;
  });
  if (!deeper) {
    found.type = td;
    found.constraints = pc != nullptr ? pc : td->per_constraints;
    found.ptr = sptr;
  }
}

// The message set's member names as the cloud document names them.
std::string documentPath(const std::vector<std::string>& asn) {
  static const struct {
    const char* asn;
    const char* json;
  } kNames[] = {
      {"laneID", "laneId"}, {"long", "lon"}, {"elevation", "ele"}, {"lane", "laneId"}, {"maneuver", "maneuvers"},
  };
  std::string out;
  for (size_t i = 0; i < asn.size(); ++i) {
    const std::string& s = asn[i];
    if (i == 0 && s == "mapFrame") continue;
    // A point's position and elevation are its "lon", "lat" and "ele".
    if (s == "posOffset" || s == "offsetLL" || s == "position-LatLon") continue;
    if (s == "offsetV") {
      out += ".ele";
      break;
    }
    std::string name = s;
    for (const auto& n : kNames) {
      if (s == n.asn) name = n.json;
    }
    if (name[0] == '[') {
      out += name;
    } else {
      out += (out.empty() ? "" : ".") + name;
    }
  }
  return out;
}

// Lists, texts and bit strings are bound by their length, numbers by value.
std::string range(const asn_TYPE_descriptor_t* td, const asn_per_constraints_t* pc) {
  if (td != nullptr && td->free_struct == CHOICE_free) return "one of its alternatives";
  if (pc == nullptr) return "";
  char text[96] = "";
  if ((pc->size.flags & asn_per_constraint_s::APC_CONSTRAINED) != 0) {
    std::snprintf(text, sizeof(text), "%ld to %ld %s", pc->size.lower_bound, pc->size.upper_bound,
                  td->free_struct == SET_OF_free ? "elements" : "long");
  } else if ((pc->value.flags & asn_per_constraint_s::APC_CONSTRAINED) != 0) {
    std::snprintf(text, sizeof(text), "%ld to %ld", pc->value.lower_bound, pc->value.upper_bound);
  }
  return text;
}

std::string valueOf(const asn_TYPE_descriptor_t* td, const asn_per_constraints_t* pc, const void* sptr) {
  if (td == nullptr || sptr == nullptr) return "";
  if (td->free_struct == SET_OF_free) return std::to_string(_A_CSET_FROM_VOID(sptr)->count) + " elements";
  if (td->free_struct == CHOICE_free) {
    int present = presentOf(static_cast<const asn_CHOICE_specifics_t*>(td->specifics), sptr);
    return present == 0 ? "no alternative chosen" : "";
  }
  if (td->free_struct == SEQUENCE_free) return "";
  if (pc != nullptr && (pc->size.flags & asn_per_constraint_s::APC_CONSTRAINED) != 0) {
    // Texts and bit strings: their length in bytes.
    return std::to_string(static_cast<const OCTET_STRING_t*>(sptr)->size) + " bytes long";
  }
  return std::to_string(*static_cast<const long*>(sptr));
}

}  // namespace

namespace {

void freePart(const asn_TYPE_descriptor_t* td, void* ptr) {
  auto* type = const_cast<asn_TYPE_descriptor_t*>(td);
  type->free_struct(type, ptr, 0);
}

// Mends the part the encoder refuses (see encoderVerdicts); false when there
// is nothing left to drop.
bool mend(const Found& found) {
  const asn_TYPE_descriptor_t* td = found.type;
  const asn_per_constraints_t* pc = found.constraints;
  void* ptr = const_cast<void*>(found.ptr);
  if (td != nullptr && pc != nullptr && ptr != nullptr) {
    const bool sized = (pc->size.flags & asn_per_constraint_s::APC_CONSTRAINED) != 0;
    if (td->free_struct == NativeInteger_free && (pc->value.flags & asn_per_constraint_s::APC_CONSTRAINED) != 0) {
      long& value = *static_cast<long*>(ptr);
      const long mended = std::min(std::max(value, pc->value.lower_bound), pc->value.upper_bound);
      if (mended != value) {
        value = mended;
        return true;
      }
    } else if (sized && td->free_struct == SET_OF_free) {
      auto* list = _A_SET_FROM_VOID(ptr);
      if (list->count > pc->size.upper_bound) {
        for (int i = static_cast<int>(pc->size.upper_bound); i < list->count; ++i) {
          freePart(td->elements[0].type, list->array[i]);
        }
        list->count = static_cast<int>(pc->size.upper_bound);
        return true;
      }
    } else if (sized && td->print_struct != BIT_STRING_print && td->free_struct == OCTET_STRING_free) {
      auto* text = static_cast<OCTET_STRING_t*>(ptr);
      if (text->size > pc->size.upper_bound) {
        text->size = static_cast<int>(pc->size.upper_bound);
        return true;
      }
    }
  }
  // Drop the smallest optional part or list element that holds it.
  for (auto it = found.steps.rbegin(); it != found.steps.rend(); ++it) {
    const asn_TYPE_member_t& m = *it->member;
    if (it->index >= 0) {
      auto* list = _A_SET_FROM_VOID(it->holder);
      freePart(m.type, list->array[it->index]);
      for (int i = it->index; i + 1 < list->count; ++i) list->array[i] = list->array[i + 1];
      list->count--;
      return true;
    }
    if ((m.flags & ATF_POINTER) != 0 && m.optional != 0) {
      freePart(m.type, it->ptr);
      *reinterpret_cast<void**>(static_cast<char*>(it->holder) + m.memb_offset) = nullptr;
      return true;
    }
  }
  return false;
}

}  // namespace

std::vector<EncoderVerdict> encoderVerdicts(void* frame, size_t max) {
  std::vector<EncoderVerdict> out;
  for (size_t attempt = 0; attempt < max; ++attempt) {
    EncoderVerdict v;
    uint8_t buffer[MAP_CONV_UPER_BUF_SIZE];
    uint32_t length = sizeof(buffer);
    if (v2xapp_GBMapUperEncode(frame, buffer, &length) == 0) {
      v.bytes = length;
      v.ok = length <= sizeof(buffer);
      if (!v.ok) {
        v.value = std::to_string(length) + " bytes";
        v.range = "at most " + std::to_string(sizeof(buffer)) + " bytes";
        v.message = "the encoded map does not fit in the storage's buffer";
      }
      out.push_back(v);
      break;
    }
    v.message = v2x_asn_last_error();
    // The smallest part of the frame that the encoder refuses on its own.
    V2xAsnGuard lock;
    Found found;
    narrow(&asn_DEF_MessageFrame, nullptr, frame, found);
    v.path = documentPath(found.path);
    v.value = valueOf(found.type, found.constraints, found.ptr);
    v.range = range(found.type, found.constraints);
    // The encoder's words on that part.
    if (found.type != nullptr && !encodes(found.type, found.ptr)) v.message = v2x_asn_last_error();
    out.push_back(v);
    if (!mend(found)) break;
  }
  return out;
}

}  // namespace maptool
