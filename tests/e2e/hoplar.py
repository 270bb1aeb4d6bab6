"""Runs hoplar with the plug-in, and reads what comes out of it."""

import json
import os
import re
import subprocess
import tempfile
import unittest
from xml.etree import ElementTree

from expectation import Machine, read_dump

HOPLAR, OPS, PLUGIN = (os.environ[name] for name in ("HOPLAR", "OPS", "PLUGIN"))
EXAMPLE = os.path.abspath(os.path.join(os.path.dirname(__file__), "../../examples/server.lspci"))
SHOWN_SETTINGS = re.compile(r"(?<=MaxPayload )\d+(?= bytes, MaxReadReq)"
                            r"|(?<=ECRCGenEn)[+-]|(?<=ECRCChkEn)[+-]")


def lspci(dump):
    """{"domain:bus:device.function": text}"""
    text = subprocess.run(["lspci", "-F", dump, "-D", "-vv"], capture_output=True, check=True,
                          encoding="utf-8", errors="replace").stdout
    return {part.split()[0]: part for part in text.strip().split("\n\n")}


class HoplarTest(unittest.TestCase):
    """Each test has a folder of its own, which is the working directory of what it runs."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.output = self.file("output.lspci")

    def file(self, name, content=None):
        path = os.path.join(self.folder.name, name)
        if content is not None:
            with open(path, "wb") as file:
                file.write(content if isinstance(content, bytes) else content.encode())
        return path

    def hoplar(self, *arguments, status=0):
        """What it writes to standard output, and the lines on standard error."""
        done = subprocess.run([HOPLAR, *arguments], cwd=self.folder.name, capture_output=True,
                              encoding="utf-8", stdin=subprocess.DEVNULL)
        self.assertEqual(done.returncode, status, done.stderr[-2000:])
        if "-o" in arguments and status == 0:
            self.check_ports(*(self.file(arguments[arguments.index(option) + 1])
                               for option in ("-F", "-o")))
        return done.stdout, done.stderr.splitlines()

    def check_ports(self, before, after):
        """No function is left with a larger payload size than the port above it."""
        old = read_dump(before)
        for domain, functions in read_dump(after).items():
            machine = Machine(old[domain])
            self.assertEqual([*machine.above_their_ports(old[domain], functions)], [])

    def compare_output(self, wanted):
        """With {domain: {(bus, device, function): bytes}}."""
        found = read_dump(self.output)
        self.assertEqual([(domain, list(found[domain])) for domain in found],
                         [(domain, list(wanted[domain])) for domain in wanted])
        for domain, functions in wanted.items():
            for address, space in functions.items():
                self.assertEqual(found[domain][address].hex("\n", 16), space.hex("\n", 16), address)

    def start(self, dump, lines, *options, events=()):
        """The JSON report after start-up with this feature file, and after the events."""
        self.file("features.cfg", "\n".join(lines))
        self.file("events", "\n".join(events))
        text, messages = self.hoplar(
            "-F", dump, "-m", f"{PLUGIN},--config=features.cfg", "-e", "events",
            "--report", "json", "-v", "-v", "-v", "-v", *options)
        report = json.loads(text)
        self.assertEqual(report["modules"], [{"domain": report["functions"][0]["domain"], "file": PLUGIN,
                                              "version": "3.0", "result": 0}])
        self.check_messages(report["messages"], messages)
        return report

    def check_messages(self, reported, lines):
        """All that were shown are listed as they were, and all that came are counted."""
        listed = [(each["severity"], each["text"]) for each in reported["list"]]
        self.assertEqual([f"{severity}: {text}" for (severity, text), each
                          in zip(listed, reported["list"]) if each["shown"]], lines)
        self.assertEqual({name: value for name, value in reported.items() if name != "list"}, {
            **{level: [severity for severity, _ in listed].count(level)
               for level in ("error", "warning", "info", "debug")}, "left_out": 0})

    def graph(self, *options):
        """The graph, and the pieces of text in what dot draws of it."""
        graph, _ = self.hoplar("--report", "dot", "-q", *options)
        drawn = subprocess.check_output(["dot", "-Tsvg"], input=graph.encode())
        return graph, [text.text for text in ElementTree.fromstring(drawn).iterfind(".//{*}text")]
