#!/bin/sh
# SPDX-License-Identifier: Apache-2.0

# Prints one line for a monitoring script: signal in dBm, operator, and whether the modem is registered.
# Ends with mdxctl's exit code when the modem or the server cannot be asked.
set -eu

command -v jq >/dev/null || { echo "signal.sh: jq is missing; install it: apt install jq" >&2; exit 2; }

# ask COMMAND: the answer's text. mdxctl says on standard error what to do when it fails.
ask() {
  answer=$(mdxctl at --json "$1") || {
    code=$?
    echo "$answer" | jq -r '.error // .result.name' >&2
    exit "$code"
  }
  echo "$answer" | jq -r .text
}

signal=$(ask AT+CSQ)
operator=$(ask 'AT+COPS?')
registration=$(ask 'AT+CREG?')

jq -n -c --arg signal "$signal" --arg operator "$operator" --arg registration "$registration" '
  ($signal | capture("CSQ: ?(?<level>[0-9]+)").level | tonumber) as $level
  | {
      dbm: (if $level > 31 then null else $level * 2 - 113 end),
      operator: ($operator | capture("\"(?<name>[^\"]*)\"") // {name: null} | .name),
      registered: ($registration | test("CREG: ?[0-9],[15]"))
    }'
