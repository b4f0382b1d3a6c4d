// Arbitrary bytes as library.json: decoding must never crash, and whatever decodes must
// survive an encode-decode round trip unchanged (decoded dates are already whole seconds).
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/model/library_codec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // One decoder for every input, as the server keeps one: leftovers of a previous
  // (longer) document in its buffers must never leak into the next.
  static velto::LibraryDecoder decoder;
  const velto::Result<velto::LibraryState> decoded =
      decoder.decode(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!decoded.ok()) return 0;
  const velto::Result<velto::LibraryState> again =
      decoder.decode(velto::encodeLibrary(*decoded));
  if (!again.ok() || *again != *decoded) std::abort();
  return 0;
}
