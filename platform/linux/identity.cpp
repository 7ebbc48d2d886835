// SPDX-License-Identifier: Apache-2.0

// Looks up user and group once, in the two files themselves: the C library's name service would map
// modules for it and keep them, and a statically linked program could not use it.
//
// A line may have any length, such as that of a group with many members.

#include "platform/linux/identity.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "wire/border.h"

namespace {

constexpr char kLineEnd = '\n';
constexpr size_t kLongestName = 32;

class account_file {
 public:
  explicit account_file(const char* path) : fd_(open(path, O_RDONLY | O_CLOEXEC)) {}
  ~account_file() {
    if (fd_ >= 0) close(fd_);
  }
  account_file(const account_file&) = delete;
  account_file& operator=(const account_file&) = delete;

  /// Begins the next line. @return false when there is none
  bool next_line() {
    while (end_ != kLineEnd) read_field(':');
    end_ = ':';
    return !is_over();
  }

  /// Reads up to `separator` or the line's end; nothing behind that. What does not fit is cut, and
  /// still longer than a name of ours.
  const char* read_field(char separator) {
    size_t size = 0;
    const bool has_more = line_has_more();
    end_ = kLineEnd;
    while (has_more && !is_over()) {
      const char byte = bytes_[used_++];
      if (byte == kLineEnd || byte == separator) {
        end_ = byte;
        break;
      }
      if (size < sizeof(field_) - 1) field_[size++] = byte;
    }
    field_[size] = '\0';
    return field_;
  }
  bool line_has_more() const { return end_ != kLineEnd; }

  /// @return false when the field is no number
  bool read_id(uint32_t* id) {
    char* end = nullptr;
    const char* text = read_field(':');
    const unsigned long number = strtoul(text, &end, 10);
    *id = static_cast<uint32_t>(number);
    return text[0] >= '0' && text[0] <= '9' && *end == '\0' && number < UINT32_MAX;
  }

 private:
  bool is_over() {
    if (used_ < size_) return false;
    used_ = size_ = 0;
    const ssize_t size = fd_ >= 0 ? read(fd_, bytes_, sizeof(bytes_)) : 0;
    if (size > 0) size_ = static_cast<size_t>(size);
    return size_ == 0;
  }

  int fd_;
  char end_ = kLineEnd;
  char field_[kLongestName + 2];
  char bytes_[512];
  size_t used_ = 0;
  size_t size_ = 0;
};

/// NAME:PASSWORD:USER:GROUP:...
void read_user(const char* path, mdx_identity_t* identity) {
  account_file users(path);
  while (!identity->has_user && users.next_line()) {
    if (strcmp(users.read_field(':'), kMdxUser) != 0) continue;
    users.read_field(':');
    identity->has_user = users.read_id(&identity->user) && users.read_id(&identity->user_group);
  }
}

/// NAME:PASSWORD:GROUP:MEMBER,MEMBER,...
void read_groups(const char* path, mdx_identity_t* identity) {
  account_file groups(path);
  while (groups.next_line()) {
    const bool is_clients = strcmp(groups.read_field(':'), kMdxGroup) == 0;
    groups.read_field(':');
    gid_t group = 0;
    if (!groups.read_id(&group)) continue;
    if (is_clients && !identity->has_group) {
      identity->has_group = true;
      identity->group = group;
    }
    while (groups.line_has_more()) {
      if (strcmp(groups.read_field(','), kMdxUser) != 0) continue;
      if (identity->count < kMdxMoreGroups) identity->groups[identity->count++] = group;
    }
  }
}

}  // namespace

mdx_identity_t identity_in(const char* users, const char* groups) {
  mdx_identity_t identity{};
  read_user(users, &identity);
  if (identity.has_user) identity.groups[identity.count++] = identity.user_group;
  read_groups(groups, &identity);
  if (identity.has_user && !identity.has_group) {
    identity.has_group = true;
    identity.group = identity.user_group;
  }
  return identity;
}

const mdx_identity_t& mdx_identity() {
  static bool known = false;
  static mdx_identity_t identity;
  if (!known) identity = identity_in("/etc/passwd", "/etc/group");
  known = true;
  return identity;
}

void identity_give_to_group(const char* path) {
  const mdx_identity_t& identity = mdx_identity();
  if (!identity.has_group) return;
  // A user of its own who is not in the group keeps what he makes for his own group.
  const bool given = lchown(path, static_cast<uid_t>(-1), identity.group) == 0;
  static_cast<void>(given);
}
