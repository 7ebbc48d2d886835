# SPDX-License-Identifier: Apache-2.0
"""What an integrator gets: the packages install, serve, explain themselves, and leave nothing behind.

Runs in the box with the programs of the packages on PATH. MDXGATE_ROOT is where they are unpacked.
"""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

from device import READY_FLAG, DeviceTest

ROOT = pathlib.Path(os.environ["MDXGATE_ROOT"])
PACKAGES = sorted(pathlib.Path(os.environ["MDXGATE_PACKAGES"]).glob("*.deb"))
SOURCES = pathlib.Path(__file__).parent.parent.parent
os.environ["PATH"] = f"{ROOT}/usr/sbin:{ROOT}/usr/bin:{os.environ['PATH']}"
PAGES = sorted((SOURCES / "docs" / "man").glob("*.scd"))

C_PROGRAM = """
#include <mdxclient.h>
#include <stdio.h>
int main(void) {
  mdx_client_t *client;
  mdx_result_t result = MDX_RESULT_INIT;
  int error = mdx_open(&client);
  if (error == MDX_OK) error = mdx_send(client, "AT+CSQ", NULL, &result);
  printf("%s %s\\n", mdx_strerror(error), result.text);
  mdx_close(client);
  return result.ret_val == MDX_RESULT_OK ? 0 : 1;
}
"""

# What procd does with a script, as far as it is used.
PROCD = """
procd_open_instance() { :; }
procd_set_param() { [ "$1" != command ] || command=$2; }
procd_close_instance() { $command >/dev/null 2>&1 & }
"""

CMAKE_PROJECT = """
cmake_minimum_required(VERSION 3.16)
project(use LANGUAGES C)
find_package(mdxclient 0.1 REQUIRED)
add_executable(shared use.c)
target_link_libraries(shared mdxclient::mdxclient)
add_executable(static use.c)
target_link_libraries(static mdxclient::mdxclient_static)
"""


def run(*command, **options):
    """Runs a command that must succeed and returns what it printed."""
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          timeout=60, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.returncode}\n{done.stdout}")
    return done.stdout


def library_environment():
    libraries = next(ROOT.glob("usr/lib/*/libmdxclient.so")).parent
    return os.environ | {"PKG_CONFIG_PATH": str(libraries / "pkgconfig"),
                         "LD_LIBRARY_PATH": str(libraries),
                         "PYTHONPATH": str(ROOT / "usr/lib/python3/dist-packages")}


class Packages(DeviceTest):
    def test_unit(self):
        """systemd finds nothing to say about the unit, and its rights are as narrow as they look."""
        for name, program, here in (("mdxgate.service", "/usr/sbin/mdxgate\n", "mdxgate.service"),
                                    ("mdxgate-init@.service", "/usr/bin/mdxctl init --follow ", "mdxgate-init@a.service"),
                                    ("mdxgate-metrics.service", "/usr/bin/mdxctl stats ", "mdxgate-metrics.service"),
                                    ("mdxtap@.service", "/usr/bin/mdxtap /dev/%I ", "mdxtap@ttyUSB2.service")):
            text = (ROOT / "lib/systemd/system" / name).read_text()
            self.assertIn("ExecStart=" + program, text)
            here = pathlib.Path("/tmp", here)
            here.write_text(text.replace("/usr/sbin/", f"{ROOT}/usr/sbin/").replace("/usr/bin/", f"{ROOT}/usr/bin/"))
            self.assertEqual(run("systemd-analyze", "verify", "--man=no", here), "")
            run("systemd-analyze", "security", "--offline=yes", "--threshold=35", here)

    def test_start_scripts(self):
        """Without systemd: init runs one script, procd the other; the flag of an earlier life goes, and theirs with them."""
        self.start_modem("--quiet")
        init = SOURCES / "packaging/buildroot/S60mdxgate"
        procd = f"procd_start() {{ {PROCD} }}; . {SOURCES}/packaging/openwrt/files/mdxgate.init"
        for start, stop in ((f"sh {init} start", f"sh {init} restart && sh {init} stop"),
                            (f"{procd}; procd_start; start_service", "kill $! && wait; service_stopped")):
            READY_FLAG.touch()
            script = f"{start} && mdxctl wait modem --timeout 60 && mdxctl at AT+CSQ && test -e {READY_FLAG} || exit 1; {stop}"
            self.assertIn("+CSQ:", run("sh", "-c", script))
            self.assertFalse(READY_FLAG.exists(), start)

    def test_serves_and_is_gone(self):
        """Installed by dpkg into a root of its own, started, used and removed."""
        root = pathlib.Path("/tmp/root")
        for folder in ("var/lib/dpkg/info", "var/lib/dpkg/updates", "etc"):
            (root / folder).mkdir(parents=True)
        (root / "var/lib/dpkg/status").touch()
        before = self.files_of(root)

        dpkg = ("dpkg", f"--root={root}", "--force-script-chrootless", "--force-depends",
                "--force-not-root")
        # Python's modules are compiled when they are installed, and that knows no root but the machine's own.
        packages = [path for path in PACKAGES if not path.name.startswith("python3-")]
        run(*dpkg, "--install", *packages)
        for path in ("usr/sbin/mdxgate", "usr/share/man/man8/mdxgate.8.gz", "usr/lib/sysusers.d/mdxgate.conf",
                     "etc/systemd/system/multi-user.target.wants/mdxgate.service"):
            self.assertTrue(os.path.lexists(root / path), path)
        self.assertRegex((root / "etc/passwd").read_text(), "(?m)^mdxgate:")

        os.environ["PATH"] = f"{root}/usr/sbin:{root}/usr/bin:{os.environ['PATH']}"
        self.start_device()
        self.assertEqual(os.readlink(f"/proc/{self.server.pid}/exe"), f"{root}/usr/sbin/mdxgate")
        self.assert_serves()
        for program in ("mdxctl", "mdxsim", "mdxtap"):
            self.assertIn(self.version(), run(program, "--version"))
        self.stop(self.server)
        self.server = None
        self.stop(self.modem)

        # Once more as on the machine itself: what the server left there goes, too.
        run("sh", root / "var/lib/dpkg/info/mdxgate.postrm", "remove")
        self.assertFalse(READY_FLAG.exists())
        self.assertEqual(list(pathlib.Path("/run").glob("*")), [])
        self.assertEqual([self.queues.identifier(number) for number in (1, 2)], [-1, -1])

        run(*dpkg, "--purge", *(path.name.split("_")[0] for path in packages))
        users = {"etc/passwd", "etc/group", "etc/shadow", "etc/gshadow"}
        left = {path for path in self.files_of(root) - before if not path.startswith("var/lib/dpkg/")}
        self.assertLessEqual({path.rstrip("-") for path in left}, users | {"etc/.pwd.lock"})

    @staticmethod
    def files_of(root):
        return {str(path.relative_to(root)) for path in root.rglob("*") if not path.is_dir()}

    @staticmethod
    def version():
        """The project's own, without what the packages add."""
        return run("dpkg-deb", "--field", PACKAGES[0], "Version").split("+")[0].strip()

    def test_library(self):
        """A program of somebody else's finds the library by pkg-config and by CMake, and runs."""
        self.start_device()
        environment = library_environment()
        with tempfile.TemporaryDirectory() as folder:
            folder = pathlib.Path(folder)
            (folder / "use.c").write_text(C_PROGRAM)
            (folder / "CMakeLists.txt").write_text(CMAKE_PROJECT)
            flags = run("pkg-config", "--cflags", "--libs", "mdxclient", env=environment).split()
            run("cc", "-o", folder / "plain", folder / "use.c", *flags)
            run("cmake", "-S", folder, "-B", folder, f"-DCMAKE_PREFIX_PATH={ROOT}/usr",
                "-DCMAKE_C_COMPILER_LAUNCHER=")
            run("cmake", "--build", folder)
            for program in ("plain", "shared", "static"):
                self.assertIn("+CSQ:", run(folder / program, env=environment), program)
            self.assertNotIn("mdxclient", run("ldd", folder / "static"))

    def test_completion(self):
        """Completion offers what the installed mdxctl knows."""
        script = ROOT / "usr/share/bash-completion/completions/mdxctl"
        for line, offered in (("mdxctl sms", "sms-pdu"), ("mdxctl at --time", "--timeout"),
                              ("mdxctl wait reg", "registered"), ("mdxctl sim un", "unlock"),
                              ("mdxctl watch --only EVT_AT_HC", "EVT_AT_HCSQ"), ("mdxctl --ver", "--version"), ("mdxctl report rs", "rssi")):
            words = line.split()
            printed = run("bash", "-c", f"source '{script}'; COMP_WORDS=({line}); "
                          f"COMP_CWORD={len(words) - 1}; _mdxctl; echo ${{COMPREPLY[@]}}")
            self.assertIn(offered, printed.split(), line)


def help_texts(*command):
    """The help of a command and of all below it: {"mdxctl sms send": text}."""
    text = run(*command, "--help")
    texts = {" ".join(command): text}
    below = re.search(r"\nSubcommands:\n((?:  .*\n)+)", text)
    for name in re.findall(r"(?m)^  (\S+)  ", below[1]) if below else ():
        texts |= help_texts(*command, name)
    return texts


def blocks_of(page):
    """The literal blocks of a page, as they are shown."""
    return [block.replace("\\\\", "\\") for block in re.findall(r"(?s)```\n(.*?)```", page.read_text())]


def numbers_aside(text):
    return re.sub(r"\d+", "0", text)


class Manual(DeviceTest):
    def test_options(self):
        """Each subcommand and option that --help shows is in the page, and no other."""
        programs = ("mdxbridge", "mdxctl", "mdxsim", "mdxtap")
        for program in programs:
            page = (SOURCES / "docs/man" / f"{program}.1.scd").read_text()
            texts = help_texts(program)
            for command, text in texts.items():
                if command != program and "\nSubcommands:" not in text:
                    self.assertRegex(page, rf"(?m)^## {command}\b")
            shown = set(re.findall(r"(?m)^  (?:-\w,)?(--[\w-]+)", "".join(texts.values())))
            others = "|".join({*programs} - {program})
            told = set(re.findall(r"(--[a-z][\w-]+)", re.sub(rf"(?m)\b({others}) [^*\n]*", "", page)))
            self.assertEqual(shown, told, program)

    def test_keys(self):
        """Each key of the configuration is an option of the bridge, and the other way round."""
        page = (SOURCES / "docs/man/mdxgate-bridge.conf.5.scd").read_text()
        heads = re.findall(r"(?m)^((?:\*[a-z-]+\*(?:, )?)+)$", page)
        shown = re.findall(r"(?m)^  (?:-\w,)?--([\w-]+)", run("mdxbridge", "--help"))
        keys = set(shown) - {"help", "version", "config", "check", "once"}
        self.assertEqual(sorted(re.findall(r"[a-z-]+", " ".join(heads))), sorted(keys))

    def test_masks(self):
        """The table of the page is the one of the program."""
        self.assertIn(run("mdxtap", "--masks"), blocks_of(SOURCES / "docs/man/mdxtap.1.scd"))

    def test_functions(self):
        """Each function and error of the installed headers is in the page."""
        headers = (ROOT / "usr/include").glob("mdx*.h")
        header = "".join(path.read_text() for path in headers)
        page = (SOURCES / "docs/man/mdxclient.3.scd").read_text()
        names = re.findall(r"(?m)^MDX_API .*?(mdx_\w+)\(|^  (MDX_ERR_\w+)", header)
        missing = {function or error for function, error in names
                   if f"*{function or error}*" not in page}
        self.assertEqual(missing, set())

    def test_examples(self):
        """Typed as they stand: each shows what the page says, whatever the numbers."""
        for page in PAGES:
            with self.subTest(page.name):
                self.try_page(page)

    def try_page(self, page):
        blocks = blocks_of(page)
        sessions = [block for block in blocks if block.startswith("$ ")]
        self.assertTrue(sessions)
        needs_device = not any(re.search(r"(?m)^\$ mdxsim ", block) for block in sessions)
        with tempfile.TemporaryDirectory() as folder:
            for name, block in zip(re.findall(r"The file _(\S+)_", page.read_text()),
                                   (block for block in blocks if not block.startswith("$ "))):
                pathlib.Path(folder, name).write_text(block)
            if needs_device:
                self.start_device("--reports", "200")
            for session in sessions:
                self.try_session(session, folder)
        for process in self.processes:
            self.stop(process)
        self.server = None
        READY_FLAG.unlink(missing_ok=True)

    def try_session(self, session, folder):
        steps = [(command, told) for command, told in re.findall(r"(?m)^\$ (.*)\n((?:(?!\$ ).*\n)*)", session)]
        mark = "::mark"
        script = "".join(f"{command}\necho {mark}\n" for command, _ in steps)
        ending = "exec 2>/dev/null; kill $(jobs -p); wait\n"
        shown = run("bash", input=script + ending, cwd=folder, env=library_environment())
        *outputs, _ = shown.split(mark + "\n")
        for (command, told), output in zip(steps, outputs, strict=True):
            for line in told.splitlines():
                self.assertIn(numbers_aside(line), numbers_aside(output), f"{command}\n{shown}")


if __name__ == "__main__":
    unittest.main()
