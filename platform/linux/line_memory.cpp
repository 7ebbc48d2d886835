// SPDX-License-Identifier: Apache-2.0

// One page, shared with the file. It begins with the number of its format, so that a server of
// another build does not misread it.

#include "platform/linux/line_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <utility>

namespace {

constexpr uint32_t kFormat = 0x4D444C34;  // "MDL4"
/// More than this cannot have been owed: the file holds something else.
constexpr uint32_t kBelievable = 1000;
constexpr uint32_t kBelievableHalf = 4096;

struct kept_t {
  uint32_t format;
  line_account_t account;
};
static_assert(sizeof(kept_t) == 24);

constinit std::atomic<kept_t*> kept{nullptr};
constinit line_account_t left{};

kept_t* map(int fd) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return nullptr;
  const auto size = static_cast<off_t>(sizeof(kept_t));
  // Not a hole: what a full file system cannot give would be missed at the first write to it.
  if (status.st_size < size && posix_fallocate(fd, 0, size) != 0) return nullptr;
  void* page = mmap(nullptr, sizeof(kept_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  return page == MAP_FAILED ? nullptr : static_cast<kept_t*>(page);
}

/// Word by word: while the task that reads the modem writes here, another thread may read. The
/// compiler's own atomics, since not every C++ library has std::atomic_ref yet.
void copy(line_account_t from, line_account_t* to) {
  uint32_t words[sizeof(line_account_t) / sizeof(uint32_t)];
  memcpy(words, &from, sizeof(words));
  auto* place = reinterpret_cast<uint32_t*>(to);
  for (const uint32_t word : words) __atomic_store_n(place++, word, __ATOMIC_RELAXED);
}

line_account_t account_in(kept_t* place) {
  uint32_t words[sizeof(line_account_t) / sizeof(uint32_t)];
  auto* from = reinterpret_cast<uint32_t*>(&place->account);
  for (uint32_t& word : words) word = __atomic_load_n(from++, __ATOMIC_RELAXED);
  line_account_t account;
  memcpy(&account, words, sizeof(account));
  return account;
}

bool is_believable(const kept_t& found) {
  const line_balance_t& balance = found.account.balance;
  return found.format == kFormat && balance.results <= kBelievable && balance.prompt <= 3 &&
         balance.echo <= 1 && found.account.half <= kBelievableHalf;
}

}  // namespace

void line_memory_attach(int lock_fd) {
  kept_t* place = map(lock_fd);
  if (place == nullptr) return;
  kept_t* before = kept.load();
  if (before == nullptr && is_believable(*place)) left = place->account;
  *place = {kFormat, before != nullptr ? account_in(before) : left};
  kept.store(place);  // who still writes to the one before does no harm: it stays mapped
}

line_account_t line_memory_left() { return std::exchange(left, {}); }

void line_memory_keep(const line_account_t& account) {
  if (kept_t* place = kept.load(std::memory_order_relaxed)) copy(account, &place->account);
}
