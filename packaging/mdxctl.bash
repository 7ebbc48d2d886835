# SPDX-License-Identifier: Apache-2.0

# Completion of mdxctl. Subcommands and options are read from its own --help, so they are always
# those of the installed version.

# Words of a section ("Subcommands:") of the help for the words so far.
_mdxctl_section() {
  "${@:2}" --help 2>/dev/null |
    sed -n "/^$1:/,/^\$/s/^  \([a-z][a-z-]*\).*/\1/p"
}

_mdxctl_options() {
  "$@" --help 2>/dev/null | grep -oE -- '^  (-[a-z],)?--[a-z-]+' | grep -oE -- '--[a-z-]+'
}

# What the last positional of a subcommand allows: "name TEXT:{rssi,…}".
_mdxctl_values() {
  "$@" --help 2>/dev/null | sed -n 's/^  [a-z]* TEXT:{\([^}]*\)}.*/\1/p' | tr ',' '\n'
}

# What --only takes stands in the message about what it does not take.
_mdxctl_packets() {
  "$@" --only '?' 2>&1 | sed -n 's/.*; there are \(.*\); see: .*/\1/p' | tr -d ','
}

# Numbers of the messages, from a modem that lists them; asking marks none of them as read.
_mdxctl_messages() {
  "$1" at --timeout 2 'AT+CMGD=?' 2>/dev/null |
    sed -n 's/^+CMGD: *(\([0-9,]*\)).*/\1/p' | tr ',' '\n'
}

_mdxctl() {
  local current=${COMP_WORDS[COMP_CWORD]} words=("${COMP_WORDS[0]}") word
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if _mdxctl_section Subcommands "${words[@]}" | grep -qxF -- "$word"; then
      words+=("$word")
    fi
  done
  local candidates
  if [ "${COMP_WORDS[COMP_CWORD-1]}" = --only ]; then
    mapfile -t COMPREPLY < <(compgen -W "$(_mdxctl_packets "${words[@]}")" -- "$current")
    return
  fi
  case $current in
    -*) candidates=$(_mdxctl_options "${words[@]}") ;;
    *) candidates=$(_mdxctl_section Subcommands "${words[@]}"; _mdxctl_values "${words[@]}") ;;
  esac
  case "${words[*]:1}" in
    'sms read' | 'sms delete') [[ $current == -* ]] || candidates+=" $(_mdxctl_messages "${words[0]}")" ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$current")
}

complete -o default -F _mdxctl mdxctl
