#include "core/browser/reopen.h"

#include "core/model/velto_error.h"
#include "core/policy/tab_policy.h"

namespace velto {

Result<void> reopenTab(ApplicationLauncher& launcher, std::string_view url, Browser browser) {
  const std::optional<Url> safe = TabPolicy::safeURL(url);
  if (!safe) return VeltoError::onlyWebLinks();
  if (!launcher.isInstalled(browser)) return VeltoError::notInstalled(browser);
  return launcher.open(safe->text(), browser);
}

}  // namespace velto
