#include "pool/thread_pool.h"

#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "platform/log.h"
#include "platform/memory.h"
#include "platform/properties.h"
#include "platform/threads.h"
#include "pool/library_lock.h"

using tavo::platform::mem_alloc;
using tavo::platform::mem_free;

extern "C" {
TAVO_HDR_EXPORT thread_pool* pool = nullptr;
// Core of each worker; workers keep a pointer into it, so it outlives them.
TAVO_HDR_EXPORT int32_t g_args[4] = {0, 0, 0, 0};
}

namespace {

constexpr int32_t kNiceValue = -8;

// Parses "persist.bindcore.hdr": prefix, '_', count, then count times '_' and a
// core number, e.g. cpu_4_4_5_6_7. Worker i takes the i-th core; cores named for
// workers that do not exist are ignored. A value that breaks off before the
// cores it announces leaves every worker on its default core.
void parse_bind_cores(const char* value, int32_t workers, int32_t* cores) {
  const char* at = strchr(value, '_');
  if (at == nullptr) {
    HDR_LOG("bindcore value %s has no core count, default cores kept\n", value);
    return;
  }
  const int named = atoi(at + 1);
  int32_t parsed[tavo::kPoolWorkers];
  int32_t taken = 0;
  for (int i = 0; i < named; ++i) {
    at = strchr(at + 1, '_');
    if (at == nullptr) {
      HDR_LOG("bindcore value %s names %d cores but gives %d, default cores kept\n", value, named, i);
      return;
    }
    const int core = atoi(at + 1);
    if (i >= workers) {
      HDR_LOG("bindcore core %d for thread %d ignored: only %d threads\n", core, i, workers);
      continue;
    }
    parsed[taken++] = core;
  }
  for (int32_t i = 0; i < taken; ++i) {
    cores[i] = parsed[i];
    HDR_LOG("thread %d is blended on %dth core\n", i, cores[i]);
  }
}

// The pool's synchronisation objects, in the order they are made; a failure
// releases those made before it.
struct SyncInit {
  int (*init)(thread_pool*);
  void (*destroy)(thread_pool*);
  const char* name;
};
constexpr SyncInit kSync[] = {
    {[](thread_pool* t) { return pthread_mutex_init(&t->queue_lock, nullptr); },
     [](thread_pool* t) { pthread_mutex_destroy(&t->queue_lock); }, "queue_lock"},
    {[](thread_pool* t) { return pthread_cond_init(&t->queue_ready, nullptr); },
     [](thread_pool* t) { pthread_cond_destroy(&t->queue_ready); }, "queue_ready"},
    {[](thread_pool* t) { return pthread_mutex_init(&t->pro_lock, nullptr); },
     [](thread_pool* t) { pthread_mutex_destroy(&t->pro_lock); }, "pro_lock"},
    {[](thread_pool* t) { return pthread_cond_init(&t->pro_ready, nullptr); },
     [](thread_pool* t) { pthread_cond_destroy(&t->pro_ready); }, "pro_ready"},
    {[](thread_pool* t) { return pthread_mutex_init(&t->t_lock, nullptr); },
     [](thread_pool* t) { pthread_mutex_destroy(&t->t_lock); }, "t_lock"},
};

// Starts worker i on core g_args[i] for every i whose worker is not running;
// returns how many run now.
int32_t start_workers(thread_pool* tp) {
  int32_t running = 0;
  for (int32_t i = 0; i < tp->max_thread_num; ++i) {
    if (tp->thread_creatflag[i] != 1) {
      const int err = tavo::platform::thread_create(&tp->threadid[i], thread_routine, &g_args[i]);
      if (err != 0) HDR_LOG("can't create thread: %s\n", strerror(err));
      tp->thread_creatflag[i] = err == 0 ? 1 : 0;
    }
    running += tp->thread_creatflag[i];
  }
  return running;
}

// Set in a forked child whose pool had workers: they did not come along.
bool g_workers_lost = false;

void free_pool_record(thread_pool* tp) {
  mem_free(tp->threadid);
  mem_free(tp->thread_creatflag);
  mem_free(tp);
}

}  // namespace

extern "C" TAVO_HDR_EXPORT int32_t pool_init(int32_t max_thread_num) {
  const tavo::LibraryLock hold;  // one init or destroy at a time, never during a capture
  if (max_thread_num < 1 || max_thread_num > tavo::kPoolWorkers) {
    HDR_LOG("can't create %d threads, the pool holds 1 to %d\n", max_thread_num, tavo::kPoolWorkers);
    return -1;
  }
  if (pool != nullptr) {
    HDR_LOG("thread pool already running\n");
    return 0;
  }
  int32_t cores[tavo::kPoolWorkers] = {0, 1, 2, 3};

  auto* tp = static_cast<thread_pool*>(tavo::platform::mem_calloc(1, sizeof(thread_pool)));
  if (tp == nullptr) {
    HDR_LOG("can't alloc thread pool\n");
    return -1;
  }

  size_t made = 0;
  auto fail = [&]() {
    while (made > 0) kSync[--made].destroy(tp);
    free_pool_record(tp);
    return -1;
  };
  for (; made < std::size(kSync); ++made) {
    if (int err = kSync[made].init(tp); err != 0) {
      HDR_LOG("can't init pool->%s err:%d\n", kSync[made].name, err);
      return fail();
    }
  }

  tp->max_thread_num = max_thread_num;
  tp->cur_queue_size = 0;
  tp->queue_head = nullptr;
  tp->shutdown = 0;

  tp->threadid = static_cast<pthread_t*>(mem_alloc(sizeof(pthread_t) * max_thread_num));
  if (tp->threadid == nullptr) {
    HDR_LOG("can't malloc threadid\n");
    return fail();
  }
  tp->thread_creatflag = static_cast<int32_t*>(mem_alloc(sizeof(int32_t) * max_thread_num));
  if (tp->thread_creatflag == nullptr) {
    HDR_LOG("can't malloc thread_creatflag\n");
    return fail();
  }
  memset(tp->threadid, 0, sizeof(pthread_t) * max_thread_num);
  memset(tp->thread_creatflag, 0, sizeof(int32_t) * max_thread_num);

  char value[tavo::platform::kPropertyValueMax];
  tavo::platform::property_get("persist.bindcore.hdr", value, "");
  if (value[0] != '\0') {
    HDR_LOG("bindcore is %s\n", value);
    parse_bind_cores(value, max_thread_num, cores);
  }

  // Workers read the queue through `pool`; publish it before they start.
  pool = tp;
  g_workers_lost = false;
  for (int32_t i = 0; i < max_thread_num; ++i) g_args[i] = cores[i];
  if (start_workers(tp) == 0) {
    HDR_LOG("all LTM thread create failed.\n");
    pool = nullptr;
    return fail();
  }
  return 0;
}

// Measured on the processor's own clock, not the library's clock seam: this
// is scheduling, not a stage's time.
bool tavo::spin_until_ready(bool (*ready)(const void*), const void* arg) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(40);
  while (!ready(arg)) {
    if (std::chrono::steady_clock::now() > until) return false;
    sched_yield();
  }
  return true;
}

extern "C" TAVO_HDR_EXPORT void* thread_routine(void* arg) {
  const uint32_t core = static_cast<uint32_t>(*static_cast<int32_t*>(arg));
  uint32_t mask = core < 32 ? (1u << core) : 0u;
  if (sched_setaffinity(0, sizeof mask, reinterpret_cast<cpu_set_t*>(&mask)) != 0) {
    HDR_LOG("sched_setaffinity failed");
  }
  if (setpriority(PRIO_PROCESS, static_cast<id_t>(tavo::platform::current_tid()), kNiceValue) == -1) {
    HDR_LOG("setpriority function error，can not set thread priority\n");
  }

  thread_pool* tp = pool;
  // Queue size and shutdown flag are written under the queue lock, atomically,
  // so that they can be looked at without it while spinning.
  const auto work_or_shutdown = [](const void* p) {
    const auto* t = static_cast<const thread_pool*>(p);
    return __atomic_load_n(&t->cur_queue_size, __ATOMIC_ACQUIRE) != 0 ||
           __atomic_load_n(&t->shutdown, __ATOMIC_ACQUIRE) != 0;
  };
  for (;;) {
    tavo::spin_until_ready(work_or_shutdown, tp);
    pthread_mutex_lock(&tp->queue_lock);
    while (tp->cur_queue_size == 0) {
      if (tp->shutdown) {
        pthread_mutex_unlock(&tp->queue_lock);
        return nullptr;
      }
      pthread_cond_wait(&tp->queue_ready, &tp->queue_lock);
    }
    if (tp->shutdown) {
      pthread_mutex_unlock(&tp->queue_lock);
      return nullptr;
    }
    pool_job* job = tp->queue_head;
    __atomic_store_n(&tp->cur_queue_size, tp->cur_queue_size - 1, __ATOMIC_RELEASE);
    tp->queue_head = job->next;
    pthread_mutex_unlock(&tp->queue_lock);

    // The record goes back before the job runs: once a band reports done, the
    // batch holds no memory any more.
    const pool_job taken = *job;
    mem_free(job);
    taken.routine(taken.arg);
  }
}

extern "C" TAVO_HDR_EXPORT int32_t pool_add_worker(void* (*routine)(void*),
                                                                          void* arg) {
  const tavo::LibraryLock hold;  // the pool cannot go away while a job is queued
  thread_pool* tp = pool;
  if (tp != nullptr && g_workers_lost) {
    // The first job of a forked child: its parent's workers did not come
    // along, so it starts its own.
    g_workers_lost = false;
    if (start_workers(tp) == 0) HDR_LOG("no worker could be started after fork\n");
  }
  const bool workers =
      tp != nullptr && std::count(tp->thread_creatflag, tp->thread_creatflag + tp->max_thread_num, 1) > 0;
  auto* job = workers ? static_cast<pool_job*>(mem_alloc(sizeof(pool_job))) : nullptr;
  if (!workers || job == nullptr) {
    // No queue to wait on: run the job here so that whoever waits for it is
    // not left waiting.
    if (tp == nullptr) {
      HDR_LOG("no thread pool, job runs on the calling thread\n");
    } else if (!workers) {
      HDR_LOG("no worker thread, job runs on the calling thread\n");
    } else {
      HDR_LOG("can't malloc job, job runs on the calling thread\n");
    }
    mem_free(job);
    routine(arg);
    return 0;
  }
  *job = pool_job{routine, arg, nullptr};

  pthread_mutex_lock(&tp->queue_lock);
  pool_job** tail = &tp->queue_head;
  while (*tail != nullptr) tail = &(*tail)->next;
  *tail = job;
  __atomic_store_n(&tp->cur_queue_size, tp->cur_queue_size + 1, __ATOMIC_RELEASE);
  pthread_mutex_unlock(&tp->queue_lock);
  pthread_cond_signal(&tp->queue_ready);
  return 0;
}

// A destroy that arrives while a capture or a batch runs waits for it to end:
// both hold the library lock, so no queued job is ever left behind a waiter.
extern "C" TAVO_HDR_EXPORT int32_t pool_destroy() {
  const tavo::LibraryLock hold;
  thread_pool* tp = pool;
  if (tp == nullptr) {
    HDR_LOG("no thread pool to destroy\n");
    return -1;
  }
  if (__atomic_load_n(&tp->shutdown, __ATOMIC_ACQUIRE)) return -1;

  pthread_mutex_lock(&tp->queue_lock);
  __atomic_store_n(&tp->shutdown, 1, __ATOMIC_RELEASE);
  pthread_mutex_unlock(&tp->queue_lock);
  pthread_cond_broadcast(&tp->queue_ready);

  int32_t result = 0;
  for (int32_t i = 0; i < tp->max_thread_num; ++i) {
    if (tp->thread_creatflag[i] != 1) continue;
    if (int err = pthread_join(tp->threadid[i], nullptr); err != 0) {
      HDR_LOG("pthread_join fail: %s , i:%d , threadid:%d\n", strerror(err), i,
              static_cast<int>(tp->threadid[i]));
      result = -1;
    }
  }

  mem_free(tp->threadid);
  mem_free(tp->thread_creatflag);
  while (pool_job* job = tp->queue_head) {
    tp->queue_head = job->next;
    mem_free(job);
  }
  pthread_mutex_destroy(&tp->queue_lock);
  pthread_cond_destroy(&tp->queue_ready);
  pthread_mutex_destroy(&tp->pro_lock);
  pthread_cond_destroy(&tp->pro_ready);
  pthread_mutex_destroy(&tp->t_lock);
  mem_free(tp);
  pool = nullptr;
  return result;
}

// In a forked child (the library lock was held across the fork, so no batch
// was running): the queue and its locks are made anew and the workers marked
// as not running; the next job starts them again.
void tavo::forget_workers_after_fork() {
  thread_pool* tp = pool;
  if (tp == nullptr) return;
  for (const SyncInit& sync : kSync) sync.init(tp);
  while (pool_job* job = tp->queue_head) {
    tp->queue_head = job->next;
    mem_free(job);
  }
  tp->cur_queue_size = 0;
  for (int32_t i = 0; i < tp->max_thread_num; ++i) {
    if (tp->thread_creatflag[i] == 1) g_workers_lost = true;
    tp->thread_creatflag[i] = 0;
  }
}
