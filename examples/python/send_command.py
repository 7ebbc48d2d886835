#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Sends one AT command and prints the answer: send_command.py AT+CSQ"""

import sys

import mdxclient


def main(command: str) -> None:
    try:
        with mdxclient.Modem() as modem:
            answer = modem.send(command).check()
    except mdxclient.Error as error:
        sys.exit(f"{command}: {error}")
    for line in answer.lines:
        print(line)
    print(f"{answer.result.name} after {answer.seconds:.3f} s", file=sys.stderr)


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "AT+CSQ")
