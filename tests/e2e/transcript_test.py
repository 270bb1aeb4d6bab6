"""The commands of the file $TRANSCRIPT, each behind "$ ", print what stands below them, and say with
which status they end where it is not 0. With HOPLAR_WRITE_TRANSCRIPTS the file is written anew."""

import os
import re
import shlex
import subprocess
import unittest

from hoplar import EXAMPLE, HOPLAR, OPS, PLUGIN, HoplarTest

PROGRAMS = [HOPLAR, OPS, os.environ["CHECK"], os.environ["FLEET"]]
FILES = {os.path.basename(PLUGIN): PLUGIN, "faulty.so": os.environ["FAULTY"],
         "calling.so": os.environ["CALLING"], "server.lspci": EXAMPLE}
COMMAND = "echo {0}\n{1}\nstatus=$?; ((status == 0)) || echo \"status $status\"\n"
# For commands: `machine REGEX` makes m.lspci of these functions of the example, and `poke BDF OFFSET
# BYTE...` changes bytes of it.
PRELUDE = rf"exec 2>&1; set -o pipefail; MODULE=./{os.path.basename(PLUGIN)},--config=features.cfg" + r"""
machine() { awk -v RS= -v ORS='\n\n' "/^($1)/" server.lspci >m.lspci; }
poke() {
    local at=$((0x$2)) row byte
    for byte in "${@:3}"; do
        printf -v row %02x $((at & ~15))
        sed -i -E "/^$1 /,/^\$/s/^($row: (.. ){$((at++ & 15))})../\1$byte/" m.lspci
    done
}
"""


class TranscriptTest(HoplarTest):
    def test_commands_print_what_they_did(self):
        with open(os.environ["TRANSCRIPT"], encoding="utf-8") as file:
            wanted = file.read()
        for name, target in FILES.items():
            os.symlink(target, self.file(name))
        commands = re.findall(r"(?m)^\$ (.*)$", wanted)
        script = PRELUDE + "".join(COMMAND.format(shlex.quote(f"$ {each}"), each) for each in commands)
        path = ":".join([*map(os.path.dirname, PROGRAMS), os.environ["PATH"]])
        done = subprocess.run(["bash", "-c", script], cwd=self.folder.name, check=True, encoding="utf-8",
                              env={**os.environ, "PATH": path, "LC_ALL": "C"}, stdout=subprocess.PIPE,
                              stdin=subprocess.DEVNULL)
        found = done.stdout.replace(self.folder.name, "/here")
        if os.environ.get("HOPLAR_WRITE_TRANSCRIPTS"):
            with open(os.environ["TRANSCRIPT"], "w", encoding="utf-8") as file:
                file.write(found)
        self.maxDiff = None
        self.assertTrue(commands)
        self.assertMultiLineEqual(wanted, found)


unittest.main()
