#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

// Decides every HTTP redirect met during one icon download, under the same rules as the
// icon addresses themselves (FaviconPolicy::allowsRedirect), and follows at most three.
// One guard serves one download; it is not shared between threads.
class FaviconRedirectGuard {
 public:
  static constexpr int64_t kMaxRedirects = 3;

  explicit FaviconRedirectGuard(std::vector<std::string> exclusions)
      : exclusions_(std::move(exclusions)) {}

  // Counts the redirect and answers whether to follow it to `target` (absent when the
  // response named no usable address). A refused redirect ends the download with the
  // redirect response itself.
  bool follow(std::optional<std::string_view> target);

  int64_t redirects() const { return redirects_; }

 private:
  std::vector<std::string> exclusions_;
  int64_t redirects_ = 0;
};

}  // namespace velto
