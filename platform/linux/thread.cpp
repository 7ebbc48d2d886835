// SPDX-License-Identifier: Apache-2.0

// Threads that take no signals and have no rights beyond the user's.

#include <signal.h>

#include <cstring>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "platform/linux/privileges.h"
#include "platform/mdx_platform.h"

namespace {

using entry_t = void (*)();

void* run(void* entry) {
  privileges_enter_thread();
  reinterpret_cast<entry_t>(entry)();
  return nullptr;
}

/// No thread allocates often, and each would get a heap of its own.
void share_heap() {
#ifdef __GLIBC__
  mallopt(M_ARENA_MAX, 1);
#endif
}

}  // namespace

pthread_t MDX_pthread_create(int, int, int, void (*entry)(), int) {
  if (entry == nullptr) return 0;
  share_heap();
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread{};
  const int error = pthread_create(&thread, nullptr, run, reinterpret_cast<void*>(entry));
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (error == 0) return thread;
  MDX_TRACE(MDX_FROM_PLATFORM, MDX_TRACE_ERROR, "no thread: %s\n", strerror(error));
  return 0;
}
