// XER input is read strictly: the XER decoder skips elements it does not know
// (a misspelt <laneWdth>350</laneWdth> is lost without a word, and even
// <laneWdth>350</laneWidth> passes), so before decoding, every element is
// checked against the member names of its type in the message set's own
// type descriptions, and every closing tag against its opening one.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "MessageFrame.h"
#include "constr_CHOICE.h"
#include "constr_SEQUENCE.h"
#include "constr_SET_OF.h"
#include "map_tool.h"

namespace maptool {
namespace {

enum class Shape { Members, List, ValueList, Value };

Shape shapeOf(const asn_TYPE_descriptor_t* td) {
  if (td->free_struct == SEQUENCE_free || td->free_struct == CHOICE_free) return Shape::Members;
  if (td->free_struct == SET_OF_free) {
    const auto* specs = static_cast<const asn_SET_OF_specifics_t*>(td->specifics);
    return specs != nullptr && specs->as_XMLValueList != 0 ? Shape::ValueList : Shape::List;
  }
  return Shape::Value;
}

// The tag an element of td takes, and its type; null when td has none so named.
const asn_TYPE_descriptor_t* childType(const asn_TYPE_descriptor_t* td, const std::string& tag) {
  for (int i = 0; i < td->elements_count; ++i) {
    const asn_TYPE_member_t& m = td->elements[i];
    const char* name = shapeOf(td) == Shape::List && *m.name == '\0' ? m.type->xml_tag : m.name;
    if (tag == name) return m.type;
  }
  return nullptr;
}

// The member names td takes, for the message, the nearest to tag first
// when it is near enough to be a slip.
std::string names(const asn_TYPE_descriptor_t* td, const std::string& tag) {
  std::string out, nearest;
  size_t best = SIZE_MAX;
  for (int i = 0; i < td->elements_count && out.size() < 200; ++i) {
    const asn_TYPE_member_t& m = td->elements[i];
    const std::string name = *m.name == '\0' ? m.type->xml_tag : m.name;
    if (!out.empty()) out += ", ";
    out += name;
    const size_t d = nameDistance(tag, name);
    if (d < best) best = d, nearest = name;
  }
  if (best <= std::max<size_t>(2, tag.size() / 3))
    return "did you mean <" + nearest + ">? " + td->name + " holds " + out;
  return std::string(td->name) + " holds " + out;
}

struct Open {
  std::string tag;
  const asn_TYPE_descriptor_t* type;  // null inside a value (enumerated names, booleans)
  int line;
};

}  // namespace

bool checkXerElements(const std::vector<uint8_t>& data, std::string& error) {
  const std::string text(data.begin(), data.end());
  std::vector<Open> stack;
  int line = 1;
  bool rootSeen = false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n') ++line;
    if (text[i] != '<') continue;
    const int at = line;
    if (text.compare(i, 4, "<!--") == 0 || text.compare(i, 2, "<?") == 0 || text.compare(i, 2, "<!") == 0) {
      const char* close = text.compare(i, 4, "<!--") == 0 ? "-->" : ">";
      const size_t end = text.find(close, i);
      if (end == std::string::npos) break;
      for (size_t k = i; k < end; ++k) line += text[k] == '\n';
      i = end;
      continue;
    }
    const size_t end = text.find('>', i);
    if (end == std::string::npos) {
      error = "line " + std::to_string(at) + ": a tag that does not end";
      return false;
    }
    for (size_t k = i; k < end; ++k) line += text[k] == '\n';
    std::string body = text.substr(i + 1, end - i - 1);
    i = end;
    const bool closing = !body.empty() && body[0] == '/';
    const bool empty = !body.empty() && body.back() == '/';
    if (closing) body.erase(0, 1);
    if (empty) body.pop_back();
    const std::string tag = body.substr(0, body.find_first_of(" \t\r\n"));
    if (closing) {
      if (stack.empty() || stack.back().tag != tag) {
        error = "line " + std::to_string(at) + ": </" + tag + "> closes " +
                (stack.empty() ? std::string("nothing")
                               : "<" + stack.back().tag + "> of line " + std::to_string(stack.back().line));
        return false;
      }
      stack.pop_back();
      continue;
    }
    const asn_TYPE_descriptor_t* type = nullptr;
    if (stack.empty()) {
      if (rootSeen || tag != asn_DEF_MessageFrame.xml_tag) {
        error = "line " + std::to_string(at) + ": <" + tag + "> where the document holds one <MessageFrame>";
        return false;
      }
      rootSeen = true;
      type = &asn_DEF_MessageFrame;
    } else if (const asn_TYPE_descriptor_t* parent = stack.back().type; parent == nullptr) {
      // Inside a value: enumerated names and booleans, nothing below them.
    } else if (shapeOf(parent) == Shape::Members || shapeOf(parent) == Shape::List) {
      type = childType(parent, tag);
      if (type == nullptr) {
        error = "line " + std::to_string(at) + ": unknown element <" + tag + "> in <" + stack.back().tag + "> (" +
                names(parent, tag) + ")";
        return false;
      }
    } else if (!empty) {
      error = "line " + std::to_string(at) + ": element <" + tag + "> inside the value <" + stack.back().tag + ">";
      return false;
    }
    if (!empty) stack.push_back({tag, type, at});
  }
  if (!stack.empty()) {
    error = "line " + std::to_string(line) + ": <" + stack.back().tag + "> of line " +
            std::to_string(stack.back().line) + " is not closed";
    return false;
  }
  return true;
}

}  // namespace maptool
