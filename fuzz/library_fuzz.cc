// Arbitrary bytes as library.json: decoding must never crash, whatever decodes must be
// JSON by a second, independent parser and survive an encode-decode round trip unchanged
// (decoded dates are already whole seconds), and bytes that are not JSON must fail as a
// whole document, never as one of its values.
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string_view>

#include "core/model/library_codec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // One decoder for every input, as the server keeps one: leftovers of a previous
  // (longer) document in its buffers must never leak into the next.
  static velto::LibraryDecoder decoder;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const velto::Result<velto::LibraryState> decoded = decoder.decode(bytes);
  const bool json = nlohmann::json::accept(bytes);
  if (!decoded.ok()) {
    // The decoder reads only what it needs, so malformed JSON elsewhere must still win
    // over a value of the wrong form.
    constexpr std::string_view kWholeDocument = "The library file is damaged: the document";
    if (!json && !decoded.error().message.starts_with(kWholeDocument)) std::abort();
    return 0;
  }
  if (!json) std::abort();
  const velto::Result<velto::LibraryState> again = decoder.decode(velto::encodeLibrary(*decoded));
  if (!again.ok() || *again != *decoded) std::abort();
  return 0;
}
