"""Input that cannot be used, as a user meets it: messages, exit status, and nothing changed."""

import itertools
import json
import os
import re
import resource
import shutil
import stat
import subprocess
import unittest

from expectation import Machine, read_dump
from hoplar import EXAMPLE, HOPLAR, OPS, PLUGIN, HoplarTest

with open(EXAMPLE, encoding="ascii") as file:
    DUMP = file.read()

STARTED = ["info: Fast back-to-back Transfers initialization failed, Not supported",
           "info: ASPM initialization failed, Not supported",
           "info: Max Payload Size initialization, Nothing to do",
           "info: ECRC Generation and Checking initialization, Nothing to do",
           "info: Enable Features module init, Success"]

# Names of an output, and what is said of them before anything runs.
NO_OUTPUT = (("none/x", "No such file or directory"), ("older/x", "Not a directory"),
             (".", "is a directory"), ("new/", "No such file or directory"),
             ("loop", "Too many levels of symbolic links"))

# A bare module name is looked for in these places.
PLACES = [os.path.abspath(os.path.join(os.path.dirname(HOPLAR), place, "text.so"))
          for place in ("../lib/hoplar", "../../module")]

# Names, and how they are shown. The graph breaks them after 46 characters.
NAMES = ((br"""x"'\N\\G<b>&lt;%--></TABLE>> \\E""", r"""x"'\N\\G<b>&lt;%--></TABLE>> \\E"""),
         (b"\0\t\x7f\xc3\xa4\xff\xed\xa0\x80\xef\xbf\xbf", r"\x00\x09\x7fä\xff\xed\xa0\x80\xef\xbf\xbf"),
         (b"\xc2\x9b\x9b\xe2\x80\xae\xe2\x81\xa6\xc0\x80", r"\xc2\x9b\x9b\xe2\x80\xae\xe2\x81\xa6\xc0\x80"),
         (b"\xf4\x90\x80\x80\xf0\x9f\x96\xa7", r"\xf4\x90\x80\x80🖧"),
         ("€".encode() * 50, "€" * 50))


class BadInputTest(HoplarTest):
    def check_start(self, arguments, messages, status=0):
        found = self.hoplar("-v", "-F", EXAMPLE, *arguments, "-o", self.output, status=status)[1]
        self.assertEqual(found, messages)
        self.compare_output(read_dump(EXAMPLE))

    def test_only_the_journal_is_told_priorities(self):
        for other, numbers in ((0, {"info": "<6>"}), (1, {})):
            with open(self.file("messages"), "w+", encoding="utf-8") as file:
                place = os.fstat(file.fileno())
                journal = f"{place.st_dev}:{place.st_ino + other}"
                subprocess.run([HOPLAR, "-v", "-F", EXAMPLE, "-m", PLUGIN], check=True, stderr=file,
                               stdout=subprocess.DEVNULL, env={"JOURNAL_STREAM": journal})
                file.seek(0)
                self.assertEqual(file.read().splitlines()[1:], [
                    numbers.get(line.split(":")[0], "") + line for line in STARTED])

    def test_output_file_keeps_what_it_is_besides(self):
        with open(self.file("whole", "before\n"), "a", encoding="ascii") as whole:
            subprocess.run([HOPLAR, "-F", EXAMPLE, "-o", "/dev/stdout"], stdout=whole, check=True)
        with open(self.file("whole"), encoding="utf-8") as whole:
            self.assertRegex(whole.read(), f"(?s)^before\n{re.escape(DUMP[:99])}.*, 0 changed\n$")
        os.symlink("output.lspci", self.file("link"))
        self.addCleanup(os.umask, os.umask(0o027))
        for permissions in 0o640, 0o606:
            self.hoplar("-F", EXAMPLE, "-o", "link")
            self.compare_output(read_dump(EXAMPLE))
            self.assertEqual(os.stat(self.output).st_mode & 0o777, permissions)
            os.chmod(self.output, 0o606)

    def test_output_that_cannot_be_written_is_found_before_anything_runs(self):
        self.file("older", "older")
        os.symlink("loop", self.file("loop"))
        for name, reason in NO_OUTPUT:
            _, messages = self.hoplar("-F", EXAMPLE, "-m", PLUGIN, "-o", name, status=2)
            self.assertEqual(messages, [f"error: {name}: {reason}"])

    def test_output_that_does_not_fit_leaves_nothing_behind(self):
        for names in [], ["older"]:
            for name in names:
                self.file(name, "older")
            done = subprocess.run([HOPLAR, "-F", EXAMPLE, "-o", self.file("older"), "--report", "none"],
                                  stderr=subprocess.PIPE, preexec_fn=lambda: resource.setrlimit(
                                      resource.RLIMIT_FSIZE, (4096, 4096)))
            self.assertEqual((done.returncode, os.listdir(self.folder.name)), (2, names))
            self.assertIn(b"older: File too large", done.stderr)

    def test_closed_descriptors_are_not_taken_for_the_output(self):
        for program, *words in [HOPLAR, "-m", PLUGIN], [OPS, "aspm", "enable", "all"]:
            done = subprocess.run([program, "-F", EXAMPLE, "-o", words[0], *words],
                                  cwd=self.folder.name, preexec_fn=lambda: os.closerange(0, 3))
            self.assertEqual(done.returncode, 2)
            read_dump(self.file(words[0]))

    def as_user(self, user, *command, **options):
        if os.getuid() != 0:
            print("SKIPPED, needs root:", self.id())
            self.skipTest("needs root")
        return subprocess.run(command, **{"check": True, **options}, user=user, group=user,
                              stderr=subprocess.PIPE, encoding="utf-8", cwd=self.folder.name)

    def as_nobody(self, command):
        """Runs a command of another user, who may write to the test's folder, as in /tmp."""
        os.chmod(self.folder.name, 0o1777)
        self.as_user(65534, "sh", "-c", command)

    def test_nothing_that_others_planted_is_written_to(self):
        self.file("older", "older")
        self.as_nobody("ln -s older link; ln -s . folder; mkfifo fifo; >file")
        for name in "link", "file", "fifo", "folder/older":
            _, messages = self.hoplar("-F", EXAMPLE, "-o", name, status=2)
            self.assertEqual(messages, [f"error: {name}: {name.split('/')[0]} belongs to another user, "
                                        "in a folder that others write to"])
        with open(self.file("older"), encoding="ascii") as older:
            self.assertEqual(older.read(), "older")

    def test_output_keeps_its_owner(self):
        self.as_nobody("mkdir -m 755 theirs; umask 027; >theirs/file; ln -s file theirs/link")
        self.hoplar("-F", EXAMPLE, "-o", "theirs/link")
        status = os.stat(self.file("theirs/file"))
        self.assertEqual((status.st_uid, stat.filemode(status.st_mode)), (65534, "-rw-r-----"))

    def test_root_takes_only_what_root_alone_can_change(self):
        os.chmod(self.folder.name, 0o755)
        plugin = shutil.copy(PLUGIN, self.file("plugin.so"))
        self.file("x.cfg", "")
        below = "{0} can be written to by others than root, and root does not use it"
        others_run = [(0, {"SUDO_UID": "65534"}), (65534, {})]
        if self.as_user(65534, "test", "-r", EXAMPLE, "-a", "-x", HOPLAR, check=False).returncode:
            print("SKIPPED, the programs are where only root comes to:", self.id(), others_run.pop())
        others = "{0} belongs to user 65534, and root does not use it"
        for change, restore, what, reason in (
                ("chmod 777 .", "chmod 755 .", ".", below),
                ("chmod 1777 .", "chmod 755 .", ".", below),
                ("chgrp 65534 . && chmod 775 .", "chgrp 0 .; chmod 755 .", ".", below),
                ("chown 65534 .", "chown 0 .", ".", others),
                ("chmod o+w {0}", "chmod o-w {0}", "{0}", below),
                ("chown 65534 {0}", "chown 0 {0}", "{0}", others),
                ("mv {0} real && ln -s real {0} && chown -h 65534 {0}", "mv real {0}", "{0}", others)):
            for name, option in (("x.cfg", "-c"), ("plugin.so", "-m")):
                self.as_user(0, "sh", "-c", change.format(name))
                culprit = os.path.normpath(self.file(what.format(name)))
                arguments = [HOPLAR, "-F", EXAMPLE, "--report", "none", "-q", option, f"./{name}"]
                done = self.as_user(0, *arguments, check=False)
                self.assertEqual((done.returncode, done.stderr), (
                    2, f"error: {'module ' * (option == '-m')}./{name}: {reason.format(culprit)}\n"))
                for user, environment in others_run:
                    done = self.as_user(user, *arguments, check=False, env=environment)
                    self.assertEqual(done.returncode, 2 * (user == 0 and reason is below), done.stderr)
                self.as_user(0, "sh", "-c", restore.format(name))
        self.hoplar("-F", EXAMPLE, "-m", plugin, "-c", "x.cfg")

    def test_dump_without_capabilities_is_taken_with_a_warning(self):
        example = Machine(read_dump(EXAMPLE)[0])
        for lines, functions, lack in (
                ("[4-9a-f]0|[0-9a-f]{3}", [f for f in example if f.data[6] & 0x10],
                 "capability data, nothing can be set"),
                ("[0-9a-f]{3}", [f for f in example if f.express],
                 "extended configuration space, ECRC cannot be set")):
            self.file("input", re.sub(rf"(?m)^(?:{lines}): .*\n", "", DUMP))
            _, messages = self.hoplar("-F", "input", "-o", self.output)
            self.assertEqual(messages, [f"warning: input: {len(functions)} functions without {lack} "
                                        "there; a full dump: sudo lspci -xxxx > FILE"])
            self.compare_output(read_dump(self.file("input")))

    def test_any_name_is_shown_and_no_terminal_obeys_it(self):
        for name, shown in NAMES:
            self.file("input", re.sub(rb"(?m)(?<=^07:00.0 ).*", lambda _: name, DUMP.encode()))
            table, _ = self.hoplar("-F", "input")
            self.assertIn(f"  {shown}\n", table)
            _, texts = self.graph("-F", "input")
            texts = [text.replace("\u200b", "").strip() for text in texts]
            self.assertLessEqual({*filter(None, (shown[:46], shown[46:]))}, {*texts})

    def test_the_graph_tells_functions_of_one_device_apart(self):
        names = (f"A: {'long name ' * 6}1", f"A: {'long name ' * 6}2", "A: X (rev 01)", "A: X (rev 02)", "B: X")
        for first, second in itertools.pairwise(names):
            dump = re.sub("(?m)(?<=^01:00.0 ).*", first, DUMP)
            self.file("input", re.sub("(?m)(?<=^01:00.1 ).*", second, dump))
            boxes = re.findall(r"<B>01:00\.[01]</B>(.*?)WIDTH", self.graph("-F", "input")[0], re.DOTALL)
            self.assertEqual(len({*boxes}), 2, (first, second))
            self.assertIn("BALIGN", boxes[1])

    def test_json_is_text_whatever_names_hold(self):
        for name in b"./\xc2\x9b\xe2\x80\xae\xc3\xa9\x7f", b"./\x9b\xff":
            done = subprocess.run([HOPLAR, "-F", EXAMPLE, "-m", name, "--report", "json"],
                                  capture_output=True)
            self.assertTrue(done.stdout.replace(b"\n", b"").decode("ascii").isprintable())
            self.assertEqual(json.loads(done.stdout)["modules"][0]["file"],
                             name.decode("utf-8", "replace"))

    def test_messages_are_listed_whether_or_not_they_are_shown(self):
        counts = []
        for level in "-q", "-v":
            text, lines = self.hoplar("-F", EXAMPLE, "-m", PLUGIN, "--report", "json", level)
            counts.append(json.loads(text)["messages"])
            self.check_messages(counts[-1], lines)
            for message in counts[-1]["list"]:
                del message["shown"]
        self.assertEqual(*counts)

    def test_a_bare_name_is_no_file_of_the_working_directory(self):
        self.file("x.cfg", f"[runtime]\nHOPLAR_MODULE_LIST = {os.path.basename(PLUGIN)}\n")
        self.file(os.path.basename(PLUGIN), "planted")
        self.check_start(["-c", "x.cfg"], [f"info: module {PLUGIN}, version 3.0", *STARTED])
        self.file("text.so", "no module")
        self.check_start(["-m", "text.so"], [f"error: module text.so: not found, tried {', '.join(PLACES)} "
                                             "(that of the working directory is ./text.so)"], status=1)


if __name__ == "__main__":
    unittest.main()
