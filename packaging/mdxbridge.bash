# SPDX-License-Identifier: Apache-2.0

# Completion of mdxbridge: its options are read from its own --help.
_mdxbridge() {
  local options
  options=$("$1" --help 2>/dev/null | grep -oE -- '^  (-[a-z],)?--[a-z-]+' | grep -oE -- '--[a-z-]+')
  mapfile -t COMPREPLY < <(compgen -W "$options" -- "${COMP_WORDS[COMP_CWORD]}")
}

complete -o default -F _mdxbridge mdxbridge
