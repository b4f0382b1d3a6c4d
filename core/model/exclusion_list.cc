#include "core/model/exclusion_list.h"

#include <algorithm>

#include "core/support/host_name.h"
#include "core/support/text.h"
#include "core/support/url.h"

namespace velto {

namespace {

std::string lowercased(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

// Entries are often pasted from web pages, so a no-break or ideographic space around the
// domain must go as an ASCII one does.
std::string_view trimmedWhitespace(std::string_view text) {
  const auto pieces = splitAtWhitespace(text);
  if (pieces.empty()) return {};
  return {pieces.front().data(), pieces.back().data() + pieces.back().size()};
}

// FNV-1a taken from the last byte backwards, so that one pass over a host passes through
// the hash of each of its parent domains.
constexpr uint64_t kHashBasis = 0xcbf29ce484222325;
uint64_t suffixHashStep(uint64_t hash, char c) {
  return (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
}
// The high bits: they depend on every byte hashed.
size_t filterSlot(uint64_t hash) { return static_cast<size_t>(hash >> 52); }

}  // namespace

ExclusionList::ExclusionList(const std::vector<std::string>& entries) {
  for (const std::string& entry : entries) {
    auto domain = normalizedDomain(entry);
    if (!domain) continue;
    uint64_t hash = kHashBasis;
    for (auto c = domain->rbegin(); c != domain->rend(); ++c) hash = suffixHashStep(hash, *c);
    mayHold_.set(filterSlot(hash));
    domains_.emplace_back(hash, std::move(*domain));
  }
  std::sort(domains_.begin(), domains_.end());
}

bool ExclusionList::excludes(std::string_view url) const {
  // One buffer per thread, for the hosts that need rewriting: this runs for every tab of
  // a library.
  thread_local std::string buffer;
  const auto host = safeHttpHost(url, buffer);
  if (!host) return true;
  // The host itself and each parent domain at a label boundary, from the shortest up.
  uint64_t hash = kHashBasis;
  for (size_t i = host->size(); i-- > 0;) {
    hash = suffixHashStep(hash, (*host)[i]);
    if ((i > 0 && (*host)[i - 1] != '.') || !mayHold_.test(filterSlot(hash))) continue;
    const std::string_view candidate = host->substr(i);
    const auto byHash = [](const std::pair<uint64_t, std::string>& entry, uint64_t value) {
      return entry.first < value;
    };
    auto entry = std::lower_bound(domains_.begin(), domains_.end(), hash, byHash);
    for (; entry != domains_.end() && entry->first == hash; ++entry) {
      if (entry->second == candidate) return true;
    }
  }
  return false;
}

std::optional<std::string> ExclusionList::normalizedDomain(std::string_view entry) {
  std::string text = lowercased(trimmedWhitespace(entry));
  if (text.starts_with("*.")) text.erase(0, 2);
  if (text.find("://") == std::string::npos) text.insert(0, "https://");
  const auto url = Url::parse(text);
  if (!url || !url->hasHost) return std::nullopt;
  auto host = canonicalHost(url->host);
  if (!host || host->find('.') == std::string::npos || host->find(' ') != std::string::npos) {
    return std::nullopt;
  }
  return host;
}

}  // namespace velto
