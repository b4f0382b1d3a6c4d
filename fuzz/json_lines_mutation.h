#pragma once

// A structure-aware mutation for fuzz inputs made of JSON lines, for LLVMFuzzerCustomMutator.
// Byte mutations rarely keep a line valid JSON, and they reach one particular value (a
// limit of 37, a date in some year) only by chance, because it must appear as text. This
// mutates a line as JSON instead: one value becomes a nearby or boundary number, a string
// is edited within its own character classes or by libFuzzer (which brings its
// dictionary and the words the code compared against), a member is dropped or borrowed
// from elsewhere in the input. A quarter of the time, and for any line that does not
// parse, it leaves the bytes to libFuzzer, so the parser keeps its byte-level fuzzing.

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <string_view>
#include <vector>

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace velto::JSONLinesMutation {

using nlohmann::json;
using Random = std::minstd_rand;

inline size_t below(Random& random, size_t n) { return random() % n; }

// libFuzzer's own mutation of `bytes`, growing them by at most `room`.
inline void mutateBytes(std::string& bytes, size_t room) {
  const size_t size = bytes.size();
  bytes.resize(size + room);
  bytes.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(bytes.data()), size, bytes.size()));
}

// Small counts, where limits and positions lie, are drawn most often; then the
// neighbours of the value, the edges of integer and floating-point types, and the rest.
inline json mutatedNumber(const json& number, Random& random) {
  static const json kEdges[] = {0,
                                -1,
                                uint64_t(1) << 31,
                                uint64_t(1) << 32,
                                (uint64_t(1) << 53) + 1,
                                std::numeric_limits<int64_t>::max(),
                                std::numeric_limits<int64_t>::min(),
                                std::numeric_limits<uint64_t>::max(),
                                0.5,
                                -0.0,
                                1e308,
                                std::numeric_limits<double>::min()};
  switch (below(random, 8)) {
    case 0:
    case 1:
    case 2:
    case 3:
      return int64_t(below(random, 131)) - 2;
    case 4: {
      const int64_t delta = int64_t(below(random, 33)) - 16;
      if (number.is_number_float()) return number.get<double>() + double(delta);
      // Unsigned arithmetic wraps where the signed value would overflow.
      const uint64_t moved = number.get<uint64_t>() + uint64_t(delta);
      return number.is_number_unsigned() ? json(moved) : json(int64_t(moved));
    }
    case 5:
      return kEdges[below(random, std::size(kEdges))];
    case 6:
      return number.is_number_float() ? json(number.get<double>() + 0.5)
                                      : json(double(number.get<int64_t>()));
    default:
      return (uint64_t(random()) << 32) ^ random();
  }
}

// Each character stays in its class (digit, hexadecimal letter, other letter), so a date
// or a UUID usually stays one while its fields change.
inline void replaceCharacterInClass(std::string& text, Random& random) {
  if (text.empty()) return;
  char& c = text[below(random, text.size())];
  if (std::isdigit(static_cast<unsigned char>(c))) {
    c = char('0' + below(random, 10));
  } else if (std::isxdigit(static_cast<unsigned char>(c))) {
    c = char((std::isupper(static_cast<unsigned char>(c)) ? 'A' : 'a') + below(random, 6));
  } else if (std::isalpha(static_cast<unsigned char>(c))) {
    c = char((std::isupper(static_cast<unsigned char>(c)) ? 'A' : 'a') + below(random, 26));
  }
}

// A run of digits (a year, a day, a count) as a number of the same width: moved by a
// little, or any value of that width.
inline void mutateDigitRun(std::string& text, Random& random) {
  const auto isDigit = [&](size_t at) {
    return at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]));
  };
  size_t begin = below(random, text.size() + 1);
  while (begin < text.size() && !isDigit(begin)) ++begin;
  while (begin > 0 && isDigit(begin) && isDigit(begin - 1)) --begin;
  size_t end = begin;
  int64_t value = 0, range = 1;
  for (; isDigit(end) && end - begin < 9; ++end, range *= 10)
    value = value * 10 + (text[end] - '0');
  if (begin == end) return;
  value = below(random, 2) == 0 ? value + int64_t(below(random, 33)) - 16
                                : int64_t(below(random, size_t(range)));
  const std::string digits = std::to_string((value % range + range) % range);
  text.replace(begin, end - begin, std::string(end - begin - digits.size(), '0') + digits);
}

inline void collect(json& value, std::vector<json*>& nodes) {
  nodes.push_back(&value);
  if (value.is_structured()) {
    for (json& child : value) collect(child, nodes);
  }
}

// Changes one value of `line` in place; `donors` are values to borrow members and
// strings from.
inline void mutateValue(json& line, const std::vector<json*>& donors, Random& random) {
  // A third of the time a number, a third a string, however many of each the line holds:
  // that is where one request differs from another. A string is drawn by its length, so
  // that a query, a date or an id is edited more often than "2.0".
  std::vector<json*> nodes, numbers, strings;
  collect(line, nodes);
  for (json* node : nodes) {
    if (node->is_number()) numbers.push_back(node);
    if (node->is_string()) strings.insert(strings.end(), node->size() + 1, node);
  }
  const size_t kind = below(random, 3);
  const std::vector<json*>& from = kind == 0 && !numbers.empty()   ? numbers
                                   : kind == 1 && !strings.empty() ? strings
                                                                   : nodes;
  json& node = *from[below(random, from.size())];
  const json& donor = *donors[below(random, donors.size())];
  if (below(random, 8) == 0) {
    static const json kKinds[] = {nullptr, true, false, 1, "", json::array(), json::object()};
    node = kKinds[below(random, std::size(kKinds))];
  } else if (node.is_number()) {
    node = mutatedNumber(node, random);
  } else if (node.is_string()) {
    std::string& text = node.get_ref<std::string&>();
    switch (below(random, 4)) {
      case 0:
        mutateBytes(text, 16);
        break;
      case 1:
        replaceCharacterInClass(text, random);
        break;
      case 2:
        mutateDigitRun(text, random);
        break;
      default:
        if (donor.is_string()) text = donor.get<std::string>();
    }
  } else if (node.is_object()) {
    if (below(random, 2) == 0 && !node.empty()) {
      auto member = node.begin();
      std::advance(member, below(random, node.size()));
      if (below(random, 2) == 0) {
        node.erase(member);
      } else {
        std::string key = member.key();
        json value = member.value();
        mutateBytes(key, 8);
        node.erase(member);
        node[key] = std::move(value);
      }
    } else if (donor.is_object() && !donor.empty()) {
      auto member = donor.begin();
      std::advance(member, below(random, donor.size()));
      node[member.key()] = member.value();
    }
  } else if (node.is_array()) {
    if (!node.empty() && below(random, 2) == 0) {
      node.erase(below(random, node.size()));
    } else {
      node.push_back(donor);
    }
  } else {
    node = donor;
  }
}

inline size_t mutate(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
  Random random(seed);
  std::vector<std::string> lines;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  for (size_t start = 0; start <= input.size();) {
    const size_t end = std::min(input.find('\n', start), input.size());
    lines.emplace_back(input.substr(start, end - start));
    start = end + 1;
  }
  const size_t chosen = below(random, lines.size());
  json line = json::parse(lines[chosen], nullptr, false);
  if (line.is_discarded() || below(random, 4) == 0) return LLVMFuzzerMutate(data, size, maxSize);

  if (lines.size() < 4 && below(random, 10) == 0) {
    // Another request in the same session, after or before the others; a few are enough
    // to move through a session, and each one more costs every later run of the input.
    lines.insert(lines.begin() + below(random, lines.size() + 1), lines[chosen]);
  } else {
    // Values to borrow come from this line and one other, which may hold another tool's.
    json other = json::parse(lines[below(random, lines.size())], nullptr, false);
    std::vector<json*> donors;
    collect(line, donors);
    if (!other.is_discarded()) collect(other, donors);
    mutateValue(line, donors, random);
    lines[chosen] = line.dump(-1, ' ', false, json::error_handler_t::replace);
  }
  std::string joined = lines[0];
  for (size_t i = 1; i < lines.size(); ++i) joined += "\n" + lines[i];
  if (joined.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
  std::memcpy(data, joined.data(), joined.size());
  return joined.size();
}

}  // namespace velto::JSONLinesMutation
