#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints text messages as they come: wait_for_sms.py [COUNT]

The modem is told to report new messages (AT+CNMI); the server tells everybody who subscribed.
"""

import sys

import mdxclient


def main(count: int) -> None:
    with mdxclient.reports() as reports, mdxclient.Modem() as modem:
        modem.send("AT+CNMI=2,1").check()
        for report in reports:
            message = modem.sms.of_report(report)
            if message is None:
                continue
            print(f"{message.time} {message.number}: {message.text}", flush=True)
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
