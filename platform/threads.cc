#include "platform/threads.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

namespace tavo::platform {
namespace {
std::atomic<ThreadCreate> g_create{nullptr};
}

int thread_create(pthread_t* thread, ThreadBody body, void* arg) {
  if (ThreadCreate create = g_create.load(std::memory_order_acquire)) return create(thread, body, arg);
  return pthread_create(thread, nullptr, body, arg);
}

void set_thread_create_for_testing(ThreadCreate create) {
  g_create.store(create, std::memory_order_release);
}

int current_tid() { return static_cast<int>(syscall(SYS_gettid)); }

}  // namespace tavo::platform
