// SPDX-License-Identifier: Apache-2.0

// How often does the daemon ask for heap? The C library's own entry points are taken over, so its
// inner calls count too; the console's `bench allocations` tells the number.

#include <atomic>
#include <cinttypes>
#include <cstddef>

#include "platform/mdx_platform.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace {

constinit std::atomic<uint64_t> allocations{0};

int32_t print_allocations() {
  KRP_Debug_Print("%" PRIu64 "\n", allocations.load());
  return 0;
}

constexpr mdx_debug_command_t commands[] = {{"allocations", print_allocations}};

__attribute__((constructor)) void add_to_console() { KRP_Debug_RegModCmds("bench", commands, 1); }

}  // namespace

extern "C" {

void* malloc(size_t size) {
  ++allocations;
  return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  ++allocations;
  return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
  ++allocations;
  return __libc_realloc(block, size);
}
}
