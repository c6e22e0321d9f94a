#pragma once
// What the neighbour tool prints, from a Status tree alone (so that a tree rebuilt from
// the attribute log prints the same): one description of every port, counter and
// neighbour field, rendered as a table, in detail, or as JSON.
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Lldp/Lldp.h"
#include "tools/LldpRx/LldpRx.h"

namespace LldpNeighbors {

// A described field: a JSON key with its value, the label and unit a person reads, and
// the fields below it. A list's children are its elements (their keys unused).
struct Field {
  std::string key;
  std::string label;
  nlohmann::ordered_json value;  // null for a group or a list
  std::string unit;
  bool list = false;
  bool time = false;   // seconds since the epoch, shown as UTC
  bool bytes = false;  // text as sent (value: a string of any bytes)
  bool identifier = false;  // bytes shown in hex where they are not printable text
  std::optional<long long> code;  // the code a name (value) stands for

  std::vector<Field> children;

  Field const* child(std::string_view k) const;
};

Field describe(Lldp::Status const& status);

std::string renderTable(Field const& status);
// The same table, describing one neighbour at a time rather than the whole tree.
std::string renderTable(Lldp::Status const& status);
std::string renderDetail(Field const& status);
nlohmann::ordered_json toJson(Field const& f);
std::string renderJson(Field const& status);

using LldpRx::displayText;
// An enumerator's name as shown: without the prefix all of `all` share, lowerCamelCase
// ("cidMacAddress": "macAddress", "IeeeStandard_802_3at": "802.3at", "PSE": "pse").
std::string displayName(std::string_view name, std::vector<std::string_view> const& all);
// Text in JSON: a string when the bytes are UTF-8, else {"hex": "41 42 ff"}.
nlohmann::ordered_json jsonBytes(std::string const& bytes);

}  // namespace LldpNeighbors
