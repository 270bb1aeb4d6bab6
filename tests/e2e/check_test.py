"""The remarks of hoplar-check on feature files agree with what the module does with them."""

import os
import re
import subprocess
import unittest
from pathlib import Path

from hoplar import EXAMPLE, PLUGIN, HoplarTest

# Saved real machines, which may not be there.
MACHINES = Path(os.environ.get("MACHINES") or "none")
P6T6, PLX, ARI = (MACHINES / f"tree-{name}.lspci" for name in
                  ("asus-p6t6", "arm-n1sdp-plx-mps-256b", "intel-z890-arl-sriov-ari"))
LSPCI = "is lspci's form of an address, the line is dropped: write"
# Options; a file; for each remark the line, the first letter of its kind, and how its text begins;
# whether the module sets anything on the example machine with this file.
ROWS = (
    ((), "\ufeff# all\n\nMPS=all:max # x\necrc = all:+:=\r\nASPM=1", ["5n the keyword has no effect"], True),
    ((), "MPS:all:max\nECRC all:=:+\nMPS=*:max\nECRC=\nMPS=all:0256\nMPS=1.*:max\n" + 99999 * "M" + "\nMPS " + 99999 * "1", [
        '1e the line is passed over silently, it has no "=": write MPS=all:max', '2w "all:" behind the '
        "keyword is not read: write ECRC=all:=:+", '2e ":+" lacks', '3e "*:max" is no value, the line '
        'is dropped: write ENDPOINT', '4e no value stands behind "=", the line is dropped: write FUNC',
        '5e size "0256" begins with 0, so it is octal and refused, the line is dropped: write 256',
        '6w "*:max" behind the value is not read: a line names one', "6e", "7e", "8e"], False),
    (("-F", P6T6), "MPS=4.0.0:256\nMPS=0.3.0:256\nMPS=0.1.0:max\nECRC=0:+:+", [
        "1w 256 bytes are dropped for 04:00.0, below root port 00:03.0 the limit is 128 (of 02:00.0, "
        "03:00.0 and 03:02.0)", "2w 00:03.0 is a bridge, the line sets nothing: write an endpoint below "
        "it, the nearest is 04:00.0, written 4.0.0", "3w 00:01.0 is a bridge, the line sets nothing: "
        "no endpoint is below it, the nearest", "4w the line selects 26 functions, 0 of them"], False),
    (("-F", PLX), "MPS=all:256", ["1w 256 bytes are dropped for 01:00.1, below"], False),
    (("-F", ARI), "MPS=1.0.0:max\nMPS=83.0.0:max", ["1w the line sets nothing, 01:00.0 is an ARI "
        "function, which has two numbers: write 1.0 or 0x01.0", "2w there is no 53:00.0, the line sets "
        "nothing: numbers are decimal, lspci's 83:00.0 is written 131.0.0"], False),
    ((), "\nMPS=01:00.0:256\nECRC=3a:00.0:+:+\nMPS all max\n=1\nMSP=all:max\nMPS=\nMPS=1.0.0:300\n"
     "MPS=-1.0.0:256\nMPS=1.32.0:max\nMPS=1:max\nMPS=all\nECRC=1.g:+:+\nECRC=*:+:+\nECRC=all:on:+\n"
     "ECRC=all:=:=\nMPS=1.0.0:384\nMPS=3a.0.0:256\nMRRS=all:max", [
         f'2e "01:00.0" {LSPCI} 1.0.0 or 0x01.0.0', f'3e "3a:00.0" {LSPCI} 58.0.0 or 0x3a.0.0',
         '4e the line is passed over silently, it has no "=": write MPS=all:max',
         "5e the line is passed over silently, no keyword", '6e "MSP" is no keyword, the line is '
         "dropped: did you mean MPS?", "7e no value stands behind", '8e size "300" is refused',
         '9e bus "-1" is out of range', '10e device "32" is out of range', "11e the line is dropped "
         'silently, "1" is no endpoint', '12e "all" lacks a field', '13e "1.g" is no address',
         '14e "*" is no address', '15e generation "on" is no setting', "16w the line leaves both",
         "17e size 384 is accepted, but cannot be set, and the path falls back to 128 bytes: write 256",
         '18w bus "3a" reads as 3, "a" behind it is ignored: write 0x3a or 58',
         '19e "MRRS" is no keyword, the line is dropped: write MPS or ECRC'], False),
    ((), "ECRC=1-2:+:+\nMPS=010.0.0:256\nMPS=+1.0.0:256b:x y\nMPS=04z.0.0:max", [
        '1w bus "1-2" reads as 1, "-2" behind it is ignored', '2w bus "010" begins with 0, so it is '
        "octal and reads as 8", '3w "y" behind the value is not', '3w bus "+1" has a sign',
        '3w size "256b" reads as 256', '3w "x" behind the size',
        '4w bus "04z" reads as 4, "z" behind it is ignored'], True),
    ((), "MPS=1.0.0:256\nMPS=1.0.1:512\nECRC=1:+:+\nECRC=all:-:=\nECRC=1.0.*:=:+\nECRC=1:=:-", [
        f"{line}w the line has no effect, because all that it sets is set again by {later}:"
        for line, later in ((1, "line 2"), (3, "lines 4 and 6"), (5, "line 6"))], True),
    (("-F", EXAMPLE), "MPS=99.0.0:256\nECRC=99:+:+\nMPS=10.0.0:256\nMPS=1.0:256\nMPS=16.0.0:256\n"
     "MPS=0.1.0:max\nMPS=0.8.0:max\nMPS=66.0.0:256\nECRC=0.31.4:+:+\nECRC=17:+:+\nECRC=8:=:-", [
         "1w there is no 63:00.0, the line sets nothing: the nearest is 42:00.1, written 66.0.1",
         "2w there is no such function, the line sets nothing: the nearest is 42:00.0, written", "3w there is no 0a:00.0, the line sets nothing: numbers are "
         "decimal, lspci's 10:00.0 is written 16.0", "4w the line sets nothing, 01:00.0 is no ARI",
         "5w the line sets nothing, 10:00.0 is an ARI function", "6w 00:01.0 is a bridge",
         "7w 00:08.0 is integrated", "8w 256 bytes are dropped for 42:00.0, below root port 40:02.0 "
         "the limit is 128 (of 42:00.0 and 42:00.1): write max or 128", "9w 00:1f.4 has no ECRC",
         "10w the line selects 1 function, 0 of", "11w the line selects 1 function, 0 of"], False),
    (("-F", EXAMPLE, "-v"), "MPS=all:max\nMPS=4.0.0:128\nMPS=7.0.0:256\nECRC=0:=:+", [
        "1n asks for: every endpoint, the largest", "1n 08:00.0 gets 128 bytes, because 04:00.0 (line 2)",
        "2n asks", "3n asks for: the device of 07:00.0, payloads of 256", "3w 07:00.0 gets 128 bytes",
        "4n asks for: every function on bus 00, generation left alone, checking on",
        "4n selects 12 functions, 4 of them with an ECRC control"], True))


class CheckTest(HoplarTest):
    def check(self, *arguments):
        return subprocess.run([os.environ["CHECK"], *arguments], cwd=self.folder.name, check=False,
                              capture_output=True, encoding="utf-8", stdin=subprocess.DEVNULL)

    def test_remarks_agree_with_the_module(self):
        for options, content, expected, sets in ROWS:
            machine = options[1] if options else EXAMPLE
            if not os.path.exists(machine):
                continue
            self.file("input", content)
            self.file("c", f"[runtime]\nHOPLAR_MODULE_LIST = x,--config=y {PLUGIN},--config=input")
            done = self.check(*options, "-c", "c")
            found = re.findall(r"(?m)^.*/input:(\d+): (.)(?:rror|arning|ote): (.*)$", done.stdout)
            texts = [f"{line}{kind} {text}" for line, kind, text in found]
            self.assertEqual([text[:len(start)] for text, start in zip(texts, expected)], expected)
            self.assertEqual(len(done.stdout.splitlines()), len(expected))
            self.assertLess(max(map(len, done.stdout.splitlines())), 800)
            self.assertEqual(re.sub("warning: .* of domain .* left out.*\n", "", done.stderr), "")
            self.assertEqual(done.returncode, int(any(kind != "n" for _, kind, _ in found)))
            self.hoplar("-F", machine, "--check", "-m", f"{PLUGIN},--config=input", status=3 * sets)

    def test_arguments_that_name_no_feature_file(self):
        self.file("a", "MPS=all:max")
        self.file("c", f"[runtime]\nHOPLAR_MODULE_LIST = {PLUGIN},--config,a,-v,b {PLUGIN} --config=a")
        done = self.check("-c", "c")
        self.assertEqual(re.findall(r"(?m)^c:2: (.).*: write (.*)$", done.stdout), [
            ("w", "--config=b"), ("w", f"{PLUGIN},--config=FILE"), ("e", "MODULE,ARGUMENT without blanks")])
        self.assertEqual((done.returncode, done.stderr), (1, ""))

    def test_a_machine_tells_nothing_of_files_for_other_domains(self):
        self.file("a", "MPS=99.0.0:256\nMPS=1")
        listed = "HOPLAR_MODULE_LIST = {},--config=a"
        self.file("c", "\n".join(("[domain 1]", listed, "[runtime]", listed)).format(PLUGIN, PLUGIN))
        done = self.check("-F", EXAMPLE, "-c", "c")
        self.assertEqual(re.findall(r"/a:(\d)", done.stdout), ["1", "2", "2"])

    def test_unusable_input(self):
        self.file("a", "MPS=all:max")
        for arguments, error in ((["none", "a"], "none: cannot be read: "), ([], "no feature file"), ([""], "FEATURE"),
                                 (["."], ".: is a directory"), (["/dev/null"], "/dev/null: is no reg"),
                                 (["-x", "a"], "The following"),
                                 (["-F", "a", "--live", "a"], "--dump and --live: one of them"), (["-F", "a", "a"], "a: no lspci")):
            done = self.check(*arguments)
            self.assertEqual((done.returncode, done.stdout), (2, ""))
            self.assertTrue(done.stderr.startswith(f"error: {error}"), done.stderr)


unittest.main()
