#include <pthread.h>

#include <string>

#include "core/browser/script_queue.h"

namespace velto {

void nameCurrentThread(std::string_view name) {
  // macOS names only the calling thread and keeps up to 63 bytes.
  const std::string cut(name.substr(0, 63));
  pthread_setname_np(cut.c_str());
}

}  // namespace velto
