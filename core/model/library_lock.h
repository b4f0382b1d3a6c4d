#pragma once

#include <functional>

#include "core/model/library_store.h"
#include "core/support/result.h"

namespace velto {

// The writers' lock of one library: an exclusive advisory lock (flock) on
// kLibraryLockFileName beside library.json. Every process that changes the library holds
// it from its reload to its save, so no writer overwrites a change it has not seen.
// Readers (the server) take no lock: the store's atomic replacement is enough for them.
// The lock is held by the open file, so it ends with this object or with the process,
// however that ends, and it is not inherited by programs this process starts.
class LibraryLock {
 public:
  // Waits until no other writer holds the lock of `store`'s library, then holds it.
  // Creates the folder (createPrivateFolder) and the lock file (mode 0600) when needed.
  // Fails with Domain::file.
  static Result<LibraryLock> acquire(const LibraryStore& store);

  LibraryLock(LibraryLock&& other) noexcept;
  LibraryLock& operator=(LibraryLock&&) = delete;
  ~LibraryLock();

 private:
  explicit LibraryLock(int fd) : fd_(fd) {}
  int fd_ = -1;
};

// Changes the library without losing another writer's change: takes the lock, loads the
// library as it is now, lets `change` edit it, saves it if `change` returns true, and
// releases the lock. A library that fails to load is never overwritten: the load's error
// is returned and `change` is not called. `change` should be quick and do no I/O of its
// own: other writers wait while it runs.
Result<void> updateLibrary(const LibraryStore& store,
                           const std::function<bool(LibraryState&)>& change);

}  // namespace velto
