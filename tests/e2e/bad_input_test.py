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
TITLE = "00:00.0 Host bridge: x\n"

STARTED = ["info: Fast back-to-back Transfers initialization failed, Not supported",
           "info: ASPM initialization failed, Not supported",
           "info: Max Payload Size initialization, Nothing to do",
           "info: ECRC Generation and Checking initialization, Nothing to do",
           "info: Enable Features module init, Success"]
BEGIN, END = (f"info: ++ Feature Config file 'input' parse {what} ++" for what in ("start", "end"))

# The module's arguments, the content of the file "input", and the messages about them.
NOTHING_TO_DO = (
    ("", "", []),
    (",--config=", "", ["error: No config file parameter provided"]),
    (",--config=none", "", ["error: Unable to access file 'none' for parsing, "
                            "No such file or directory"]),
    (",--config=input", "# MPS=all:max\n\n \t# ECRC=all:+:+", [BEGIN, END]),
    (",--config=input", "FOO=1\r\nMPS_=all:max\nMPS=\necrc = !\n", [
        BEGIN, "warning: Unknown feature parameter 'FOO', ignoring",
        "warning: Unknown feature parameter 'MPS_', ignoring",
        "warning: No feature parameter for 'MPS', ignoring",
        "warning: No feature parameter for 'ecrc', ignoring", END]),
)

# Arguments, the content of the file "input", and how the messages begin.
REFUSED = (
    (["-F", "input"], "", ["input: the file is empty"]),
    (["-F", "input"], bytes(range(256)), ["input: no lspci dump"]),
    (["-F", "input"], DUMP[:DUMP.index("20: ") + 24], [
        "input:4: the line is cut off after 7 of 16 bytes: "]),
    (["-F", "input"], DUMP.replace("a1 e5", "a1 x5", 1), ['input:2: "x5" is not a byte: ']),
    (["-F", "input"], DUMP.replace("\n30: ", "\n40: ", 1), ["input:5: the next line of this "]),
    (["-F", "input"], f"{TITLE}00:{' 00' * 16}\n", ["input:1: the function has 16 bytes"]),
    (["-F", "input"], DUMP + TITLE, [f"input:{DUMP.count(chr(10)) + 1}: a second function "]),
    (["-F", "/dev/zero"], "", [r'/dev/zero:1: a line of more than 4096 bytes: "\x00']),
    (["-F", "none"], "", ["none: No such file or directory"]),
    ([], "", ["no configuration space is given: use -F FILE"]),
    (["-F", ""], "", ["--dump: no file is named"]),
    (["-F", "-", "-e", "-"], "", ["--dump - and --events -: standard input can be one of them only"]),
    (["-F", "-"], "", ["standard input: the file is empty"]),
    (["-F", EXAMPLE, "--report", "xml"], "", ['--report: "xml" is none of table, json, html, dot, metrics, none']),
    (["-F", EXAMPLE, "--report", "metrics", "-s", "1:"], "", ["--report metrics: without --only and -s"]),
    (["-F", EXAMPLE, "--report", "none", "--report-file", "x"], "", ["--report-file: not with --report none"]),
    (["-F", EXAMPLE, "--report-file", "./output.lspci"], "", ["--output and --report-file: both are "]),
    (["-F", EXAMPLE, "--report-file", "-"], "", ["--report-file: write /dev/stdout for standard output"]),
    (["-F", EXAMPLE, "--report-file", "none/x"], "", ["none/x: No such file or directory"]),
    (["-F", EXAMPLE, "--only", "pcie,"], "", ['--only: "" is none of changed, pcie, problems']),
    (["-F", EXAMPLE, "-s", "1:20.0"], "", ['-s: "1:20.0": Invalid slot number (as lspci: ']),
    (["--live", "--write", "--check"], "", ["--check: not with --write"]),
    (["-F", EXAMPLE, "--busy", "skip"], "", ["--busy: only with --live --write"]),
    (["-F", EXAMPLE, "--domain", "5"], "", [f"{EXAMPLE}: no function of domain 0005 "]),
    (["-F", EXAMPLE, "--manage", "0-100"], "", ['--manage: "0-100": ']),
    (["-F", EXAMPLE, "-c", "/dev/zero"], "", ["/dev/zero: is larger than 16 MiB"]),
    (["-F", EXAMPLE, "-e", "/proc/self/mem"], "", [
        "/proc/self/mem: cannot be read: Input/output error"]),
    (["-F", "a\n\u009b©"], "", ["a\\x0a\\xc2\\x9b©: No such file"]),
    (["-F", EXAMPLE, "-e", "a\n\u009b©"], "", ["a\\x0a\\xc2\\x9b©: cannot be read"]),
    (["-F", EXAMPLE, "-e", "none"], "", ["none: cannot be read: No such file or directory"]),
    (["-F", EXAMPLE, "-c", "input", "-m", PLUGIN],
     "# one\n[runtime]\nHOPLAR_MODULE_LIST\n= a.so\n[runtime\nHOPLAR_MODULE_LIST = a.so ,b\n[runtime]\n"
     "HOPLAR_MODULE_LIST = a.so,\033[31m b.so\n", [
         "input:3: neither KEY = VALUE nor [section]: ", 'input:4: no key in front of "=": ',
         "input:5: a section is written as [name]: ", "input:6: no module file is named: ",
         "input:8: an argument holds control characters or is not UTF-8: "]),
    (["-F", EXAMPLE, "-m", b"a.so,--x\x9b"], "", [r'"a.so,--x\x9b": an argument holds ']),
    (["-F", EXAMPLE, "-e", "input", "-m", f"{PLUGIN},--config=input"],
     "\ufeffexplode 00:01.0\nflr 01:00.0 # good\nflr\nflr 1:0.0.0\nflr 7f:00.0\n"
     "flr 0001:00:01.0\nflr 00:01.0 1 2\nremove 01:00.0\ninsert 00:01.0 x\n"
     "remove 00:01.0 0x1 22\nflr 01:00.0\ninsert 00:01.0\nflr 01:00.0 -1\nbus-reset 00:1f.0\n"
     "flr 01:00.0 0x80000000\nflr 00:02.0 # port\n", [
         "input:1: unknown event (insert, remove, flr, bus-reset): explode",
         "input:3: no function is named: ",
         "input:4: not a function's address ", "input:5: no such function: ",
         "input:6: not in the domain that is served: ", "input:7: too many words: ",
         "input:8: not a bridge: ", "input:9: VALUE is no number: ",
         "input:11: the function has been removed by an earlier line: ",
         "input:13: STATUS is no number: ", "input:14: neither a bridge nor below one: ",
         "input:15: STATUS is too large: ",
         "input:16: a bridge or port has no function-level reset: "]),
)


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

    def check_started(self, arguments, messages):
        self.check_start(["-m", PLUGIN + arguments],
                         [f"info: module {PLUGIN}, version 3.0", *messages, *STARTED])

    def test_nothing_changes_without_a_usable_feature_line(self):
        for arguments, content, messages in NOTHING_TO_DO:
            with self.subTest(arguments=arguments, content=content):
                self.file("input", content)
                self.check_started(arguments, messages)

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

    def test_unusable_input_is_refused_before_anything_runs(self):
        for arguments, content, beginnings in REFUSED:
            with self.subTest(arguments=arguments, content=content):
                self.file("input", content)
                self.file("output.lspci", "older")
                report, messages = self.hoplar(*arguments, "-o", self.output, status=2)
                self.assertEqual(report, "")
                self.assertEqual([message[:len(beginning) + 7] for message, beginning
                                  in zip(messages, beginnings)],
                                 [f"error: {beginning}" for beginning in beginnings])
                self.assertEqual(len(messages), len(beginnings), messages)
                with open(self.output, encoding="ascii") as output:
                    self.assertEqual(output.read(), "older")

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

    def test_dump_comes_from_standard_input(self):
        self.file("-", "# an events file")
        for program in [HOPLAR, "-e", "./-"], [OPS, "fb2b", "test", "all"]:
            subprocess.run([*program, "-F", "-", "-o", self.output], input=DUMP, check=True,
                           cwd=self.folder.name, capture_output=True, encoding="utf-8")
            self.compare_output(read_dump(EXAMPLE))

    def test_titles_are_kept_in_any_letter_case(self):
        text = re.sub(r"(?m)^(?=..:..\.)", "0001:", DUMP).replace(":0a.0 ", ":0A.0 ")
        self.hoplar("-F", self.file("input", text), "--domain", "1", "-o", self.output)
        with open(self.output, encoding="ascii") as output:
            self.assertEqual(output.read(), text)

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

    def test_errors_of_single_operations_name_what_is_wrong_safely(self):
        for arguments, message in (
                (["-F", "a\033[m\n\u202e"], r"a\x1b[m\x0a\xe2\x80\xae: No such file or directory"),
                (["-F", EXAMPLE, "rc\033ec", "00:00.0"], r'"rc\x1bec" is no operation '
                 "(hoplar-ops --help lists them)")):
            done = subprocess.run([OPS, *arguments], capture_output=True, encoding="utf-8")
            self.assertEqual((done.returncode, done.stderr), (2, f"error: {message}\n"))

    def test_module_that_is_listed_more_than_once_is_started_once(self):
        os.symlink(PLUGIN, self.file("same.so"))
        self.file("input", "HOPLAR_MODULE_LIST = none.so\n[other]\nanything\n[runtime]\n"
                           f"HOPLAR_MODULE_LIST = {PLUGIN} same.so\n")
        self.check_start(["-c", "input", "-m", PLUGIN], [
            "warning: input:1: only read in sections [runtime] and [domain N], passed over: "
            "HOPLAR_MODULE_LIST = none.so",
            "warning: input:2: unknown section, passed over: [other]",
            f"info: module {PLUGIN}, version 3.0", *STARTED, *(
                f"error: module {again}: listed more than once, started only once"
                for again in ("./same.so", PLUGIN))], status=1)

    def test_files_that_a_start_reads_are_listed_and_nothing_is_loaded(self):
        self.file("x.cfg", f"[runtime]\nHOPLAR_MODULE_LIST = {PLUGIN},v,--config,none,--config=/a/../b\n")
        listed, messages = self.hoplar("--list-files", "-c", "x.cfg", "-m", "./none.so,--config=a")
        self.assertEqual(listed.splitlines(), [self.file("x.cfg"), PLUGIN, self.file("none"), "/b",
                                               self.file("a")])
        self.assertEqual(messages, [])

    def test_module_that_misbehaves_is_named_and_the_rest_is_done(self):
        faulty, start = os.environ["FAULTY"], "has thrown an exception"
        for argument, message in (
                ("throw", rf"its start {start}: from start\x1b[m"),
                ("throw-number", f"its start {start}"),
                ("refuse", "refuses to start: Not supported")):
            with self.subTest(argument):
                self.check_start(["-m", f"{faulty},{argument}", "-m", PLUGIN], [
                    f"info: module {faulty}, version 1.0", f"error: module {faulty}: {message}",
                    f"info: module {PLUGIN}, version 3.0", *STARTED], status=1)
        self.file("events", "flr 01:00.0\nflr 04:00.0")
        _, messages = self.hoplar("-F", EXAMPLE, "-m", f"{faulty},hook", "-e", "events", status=1)
        self.assertEqual(messages, [f"error: module {faulty}: a hook {start}: from a hook"] * 2)
        _, messages = self.hoplar("-F", EXAMPLE, "-m", f"{faulty},exit", status=2)
        self.assertEqual(messages, [f"error: module {faulty}: has ended the server with exit(0): "
                                    "there is no report, and no output is written"])

    def test_module_that_cannot_be_loaded(self):
        self.file("x.cfg", f"[runtime]\nHOPLAR_MODULE_LIST = {os.path.basename(PLUGIN)}\n")
        self.file(os.path.basename(PLUGIN), "planted")
        self.check_start(["-c", "x.cfg"], [f"info: module {PLUGIN}, version 3.0", *STARTED])
        text = self.file("text.so", "no module")
        for module, message in (
                ("./none.so", "error: module ./none.so: not found, tried ./none.so"),
                ("text.so", f"error: module text.so: not found, tried {', '.join(PLACES)} "
                            "(that of the working directory is ./text.so)"),
                (text, f"error: module {text}: file too short")):
            with self.subTest(module):
                self.check_start(["-m", module], [message], status=1)


if __name__ == "__main__":
    unittest.main()
