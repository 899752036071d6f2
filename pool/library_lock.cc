#include "pool/library_lock.h"

#include <mutex>

namespace tavo {
namespace {
std::recursive_mutex& library_mutex() {
  static std::recursive_mutex mutex;
  return mutex;
}
}  // namespace

LibraryLock::LibraryLock() { library_mutex().lock(); }
LibraryLock::~LibraryLock() { library_mutex().unlock(); }

}  // namespace tavo
