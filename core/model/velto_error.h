#pragma once

#include <cstdint>
#include <string>

#include "core/model/browser.h"
#include "core/support/result.h"

namespace velto {

// Every sentence the core library reports itself, kept in one place. Each builder gives
// an Error of the velto domain whose message is shown to the user unchanged.
namespace VeltoError {

Error message(std::string text);

Error newerLibrary();
Error memoryUnavailable();
Error onlyWebLinks();
Error notInstalled(Browser browser);
Error tabPinned();
Error tabChanged();
Error scriptNotCreated();
// Where Velto reads tabs from the browsers' files and cannot ask a browser to close one.
Error closingUnavailable();
Error secureKeyUnavailable();
// The sentence for an automation (Apple Event) error number: -600, -1712 and -1743 have
// their own; any other number, 0 included, is quoted in the generic sentence.
Error automationFailure(int64_t errorNumber);

}  // namespace VeltoError

}  // namespace velto
