// Searching a prepared haystack must answer exactly as folding the whole text does.
// Input: haystack, a newline, needle.
#include <cstdlib>
#include <string>

#include "core/support/text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const size_t split = input.find('\n');
  const std::string_view text = input.substr(0, split);
  const std::string needle =
      velto::foldedForSearch(split == std::string_view::npos ? "" : input.substr(split + 1));
  velto::FoldedHaystack haystack;
  haystack.reset(text);
  const bool expected = velto::foldedForSearch(text).find(needle) != std::string::npos;
  if (haystack.contains(needle) != expected) std::abort();
  (void)velto::characterCount(input);
  (void)velto::splitAtWhitespace(input);
  return 0;
}
