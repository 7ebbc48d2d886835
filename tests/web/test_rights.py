# SPDX-License-Identifier: Apache-2.0
"""What the page shows to users who may not do everything; in a world with more users than root.

A bridge of another user than root would need a system bus here, so it is mdxctl that gives root up.
"""

import os
import pathlib
import shutil
import unittest

from browser import PageTest

NOBODY = "65534"
GROUP = "64242"


def run_mdxctl_with(groups):
    real = shutil.copy(shutil.which("mdxctl"), "/tmp/mdxctl.real")
    place = pathlib.Path("/tmp/bin/mdxctl")
    place.parent.mkdir()
    place.write_text(f'#!/bin/sh\nexec setpriv --reuid {NOBODY} --regid {NOBODY} {groups} {real} "$@"\n')
    place.chmod(0o755)
    os.environ["PATH"] = f"{place.parent}:{os.environ['PATH']}"


class Outsider(PageTest):
    def test_outsider_is_told_the_group(self):
        self.start_device()
        run_mdxctl_with("--clear-groups")
        self.open_page()
        self.wait_text("#banner", "may not use the modem: the user is not in group mdxgate")
        self.wait_text("#banner", "usermod -aG mdxgate root")
        self.assertEqual(self.card("operator"), "–")

    def test_member_sees_all_but_the_counters(self):
        self.start_device()
        run_mdxctl_with(f"--groups {GROUP}")
        self.open_page()
        self.wait_card("sim", "ready")
        self.show("health")
        self.wait_text("#health-note", "Counters are for administrators")
        self.assertFalse(self.find("#banner").is_displayed())


if __name__ == "__main__":
    unittest.main()
