// SPDX-License-Identifier: Apache-2.0

// One bridge of an ID on this machine: a second one would take the first one's place at the broker.
//
// Who has the place holds the name of an abstract socket, which goes with the program. Anybody may
// take such a name, so a second one looks at who holds it.
#pragma once

#include <string>

namespace mdxbridge {

class place_t {
 public:
  /// Tries to take the place. The name may be of any length.
  explicit place_t(const std::string& name);
  ~place_t();
  place_t(const place_t&) = delete;
  place_t& operator=(const place_t&) = delete;

  /// Another bridge has it: somebody whom the server serves holds the name, so root, this user, or
  /// a member of group mdxgate. Anybody else who holds it is told of in the journal, and passed
  /// over.
  bool is_anothers() const { return anothers_; }

  /// Lets go of those who looked. To be called now and then.
  void let_go_of_callers() const;

 private:
  int fd_;
  bool anothers_ = false;
};

}  // namespace mdxbridge
