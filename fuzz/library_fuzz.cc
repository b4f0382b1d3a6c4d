// Arbitrary bytes as library.json: decoding must never crash, whatever decodes must be
// JSON by a second, independent parser and survive an encode-decode round trip unchanged
// (decoded dates are already whole seconds), and bytes that are not JSON must fail as a
// whole document, never as one of its values.
//
// An input with a NUL byte is two versions of one file (NUL never stands in JSON): the
// second, decoded over the first as the server decodes a changed file (with a memo of
// the first's saved tabs), must decode exactly as it does alone, and every tab said to
// be kept must be the same tab, in the same order, as before.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>

#include "core/model/library_codec.h"

namespace {

void checkAlone(velto::LibraryDecoder& decoder, std::string_view bytes) {
  const velto::Result<velto::LibraryState> decoded = decoder.decode(bytes);
  const bool json = nlohmann::json::accept(bytes);
  if (!decoded.ok()) {
    // The decoder reads only what it needs, so malformed JSON elsewhere must still win
    // over a value of the wrong form.
    constexpr std::string_view kWholeDocument = "The library file is damaged: the document";
    if (!json && !decoded.error().message.starts_with(kWholeDocument)) std::abort();
    return;
  }
  if (!json) std::abort();
  const velto::Result<velto::LibraryState> again = decoder.decode(velto::encodeLibrary(*decoded));
  if (!again.ok() || *again != *decoded) std::abort();
}

void checkOver(velto::LibraryDecoder& decoder, std::string_view first, std::string_view second) {
  velto::LibraryState state;
  velto::SavedTabMemo memo;
  if (!decoder.decodeInto(first, state, memo).ok()) state = {};
  const velto::LibraryState before = state;
  const velto::Result<void> over = decoder.decodeInto(second, state, memo);
  const velto::Result<velto::LibraryState> alone = decoder.decode(second);
  if (over.ok() != alone.ok()) std::abort();
  if (!over.ok()) {
    if (over.error() != alone.error() || !memo.sources.empty()) std::abort();
    return;
  }
  if (state != *alone) std::abort();
  if (memo.sources.size() != state.tabs.size()) return;  // "tabs" twice: nothing kept
  int64_t last = -1;
  for (size_t k = 0; k < state.tabs.size(); ++k) {
    const uint32_t origin = memo.sources[k].origin;
    if (origin == velto::SavedTabMemo::kFresh) continue;
    if (origin >= before.tabs.size() || int64_t(origin) <= last) std::abort();
    if (before.tabs[origin] != state.tabs[k]) std::abort();
    last = origin;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // One decoder for every input, as the server keeps one: leftovers of a previous
  // (longer) document in its buffers must never leak into the next.
  static velto::LibraryDecoder decoder;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (const size_t split = bytes.find('\0'); split != std::string_view::npos) {
    checkOver(decoder, bytes.substr(0, split), bytes.substr(split + 1));
  } else {
    checkAlone(decoder, bytes);
  }
  return 0;
}
