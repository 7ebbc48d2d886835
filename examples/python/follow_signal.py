#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints the signal as the modem reports it, the last report first: follow_signal.py [COUNT]

The modem is never asked. When it goes away, that is told, too.
"""

import sys

import mdxclient


def main(count: int) -> None:
    with mdxclient.reports(last=True) as reports:
        for report in reports:
            if report.lost:
                print(f"{report.lost} reports were missed")
            if report.link is not None:
                print("the modem is there" if report.link else "the modem is gone", flush=True)
            if report.name != "EVT_AT_HCSQ":
                continue
            when = "now" if report.age is None else f"{report.age} s ago"
            print(f"{when}: " + " ".join(f"{name}={value!r}" for name, value in report.fields.items()), flush=True)
            count -= 1
            if count == 0:
                return


if __name__ == "__main__":
    try:
        main(int(sys.argv[1]) if len(sys.argv) > 1 else 0)
    except mdxclient.Error as error:
        sys.exit(str(error))
    except KeyboardInterrupt:
        pass
