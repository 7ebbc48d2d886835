# SPDX-License-Identifier: Apache-2.0
"""What a Python programmer gets: a wheel that any interpreter takes, in an environment of its own."""

import pathlib
import shutil
import subprocess
import sys
import unittest
import zipfile

from device import DeviceTest

ROOT = pathlib.Path(__file__).parent.parent.parent
BUILD = "import setuptools.build_meta as backend, sys; getattr(backend, 'build_' + sys.argv[1])(sys.argv[2])"
PROGRAM = """
import mdxclient
with mdxclient.Modem() as modem:
    print(modem.send("AT+CSQ").check().text, mdxclient.__version__, mdxclient.library_version(), mdxclient.__file__)
"""


def run(*command, **options):
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.returncode}\n{done.stdout}")
    return done.stdout


class Wheel(DeviceTest):
    def test_wheel(self):
        sources, made, place = (pathlib.Path("/tmp", name) for name in ("sources", "made", "environment"))
        shutil.copytree(ROOT / "python", sources, ignore=shutil.ignore_patterns("__pycache__", ".mypy_cache"))
        for kind in ("sdist", "wheel"):
            run(sys.executable, "-c", BUILD, kind, made, cwd=sources)
        [wheel], [_] = made.glob("*-py3-none-any.whl"), made.glob("*.tar.gz")
        names = zipfile.ZipFile(wheel).namelist()
        for wanted in ("mdxclient/py.typed", "mdxclient/sms.py"):
            self.assertIn(wanted, names)
        self.assertTrue(any(name.endswith("LICENSE") for name in names), names)
        self.assertEqual([name for name in names if not name.startswith("mdxclient")], [])

        run(sys.executable, "-m", "venv", place)
        run(place / "bin/pip", "install", "--no-index", "--disable-pip-version-check", wheel)
        self.start_device()
        alone = {"PATH": "/usr/bin"}
        environment = alone | {"LD_LIBRARY_PATH": str(self.library_folder())}
        text, version, library, file = run(place / "bin/python", "-c", PROGRAM, env=environment).rsplit(" ", 3)
        self.assertRegex(text, r"^\+CSQ: \d+,99$")
        self.assertEqual(version, library, "one project, one version")
        self.assertTrue(file.startswith(str(place)), file)
        with self.assertRaisesRegex(AssertionError, "NoLibrary: libmdxclient.so.0 cannot be loaded .* LD_LIBRARY_PATH"):
            run(place / "bin/python", "-c", PROGRAM, env=alone)

    @staticmethod
    def library_folder():
        maps = run(sys.executable, "-c", "import mdxclient; mdxclient.library_version(); print(open('/proc/self/maps').read())")
        return pathlib.Path(next(line for line in maps.splitlines() if "libmdxclient" in line).split(maxsplit=5)[-1]).parent


if __name__ == "__main__":
    unittest.main()
