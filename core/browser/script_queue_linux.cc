#include <pthread.h>

#include <string>

#include "core/browser/script_queue.h"

namespace velto {

void nameCurrentThread(std::string_view name) {
  // The kernel keeps 15 bytes and a NUL; longer names are refused outright, not cut.
  const std::string cut(name.substr(0, 15));
  pthread_setname_np(pthread_self(), cut.c_str());
}

}  // namespace velto
