#include "core/favicons/favicon_redirect_guard.h"

#include "core/favicons/favicon_policy.h"

namespace velto {

bool FaviconRedirectGuard::follow(std::optional<std::string_view> target) {
  ++redirects_;
  return redirects_ <= kMaxRedirects && target &&
         FaviconPolicy::allowsRedirect(*target, exclusions_);
}

}  // namespace velto
