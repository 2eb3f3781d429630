#!/usr/bin/python3
"""zeftlayer's command line, `zeftlayer modules` and `zeftlayer convert`,
driven as a user would: exit codes and messages, drawings an independent
reader accepts after the conversion, and bad inputs that fail cleanly
without leaving files behind."""
import os
import re
import signal
import subprocess
import tempfile
import time
import unittest

import common
from common import ZEFT, ezdxf

BINARY_DRAWING = common.corpus_file("dxf/ezdxf/integration_tests/data/bin_dxf_r2000.dxf")


class Drawing:
    """The sample as a list of [code line, value line] pairs, for surgery."""

    def __init__(self):
        data = common.read_bytes(common.SAMPLE)
        self.eol = b"\r\n" if b"\r\n" in data[:200] else b"\n"
        lines = data.split(self.eol)
        self.tags = [lines[i:i + 2] for i in range(0, len(lines) - 1, 2)]

    def find(self, code, value, start=0):
        return next(i for i in range(start, len(self.tags))
                    if self.tags[i][0].strip() == str(code).encode() and self.tags[i][1].strip() == value.encode())

    def handle(self, n):
        """The index of the handle tag of the n-th LINE (from 0) of ENTITIES."""
        i = self.find(2, "ENTITIES")
        for _ in range(n + 1):
            i = self.find(0, "LINE", i + 1)
        return i + 1

    def bytes(self, end=None):
        return b"".join(c + self.eol + v + self.eol for c, v in self.tags[:end])


def line(index):
    """The line number of the code line of a tag."""
    return f"line {2 * index + 1}"


class Cli(common.Case):
    def test_help_and_version_succeed(self):
        for args, expect in [(["--help"], "Usage: zeftlayer COMMAND"), (["-h"], "Usage: zeftlayer COMMAND"),
                             (["help"], "Commands:"), (["help", "convert"], "Usage: zeftlayer convert"),
                             (["convert", "--help"], "Usage: zeftlayer convert"),
                             (["--version"], "zeftlayer "), (["-V"], "zeftlayer ")]:
            with self.subTest(args=args):
                p = common.run([ZEFT] + args)
                self.assertEqual((p.returncode, p.stderr), (0, ""))
                self.assertIn(expect, p.stdout)
        self.assertRegex(common.run([ZEFT, "--version"]).stdout, r"^zeftlayer \d+\.\d+\.\d+\n$")
        p = common.run([ZEFT])
        self.assertEqual(p.returncode, 2)
        self.assertIn("Usage: zeftlayer COMMAND", p.stdout)

    def test_usage_errors_exit_2_with_a_message(self):
        out = self.path("out.dxf")
        self.refusals([(["frobnicate"], 2, "unknown command 'frobnicate'"),
                       (["--frobnicate"], 2, "unknown command '--frobnicate'"),
                       (["help", "frobnicate"], 2, "unknown command 'frobnicate'"),
                       (["convert"], 2, "expected IN and OUT"),
                       (["convert", common.SAMPLE], 2, "expected IN and OUT"),
                       (["convert", common.SAMPLE, out, "extra.dxf"], 2, "expected IN and OUT"),
                       (["convert", "--frobnicate", common.SAMPLE, out], 2, "unknown option '--frobnicate'"),
                       (["convert", common.SAMPLE, common.SAMPLE], 2, "OUT must not be the input"),
                       (["modules", "--module", "/nonexistent.so"], 1, "/nonexistent.so: no such module file")])
        self.assertEqual(os.listdir(self.dir), [])

    def test_modules_lists_what_the_module_registers(self):
        p = self.ok("modules")
        listed = re.findall(r"^    (\w+) +parent (\w+), DXF (\w+), application (\w+), version (\d+)\.(\d+), "
                            r"proxy flags (\d+)$", p.stdout, re.M)
        self.assertEqual(listed, [(name, "AcDbObject", dxf, "ZEFTLayerManager", "29", "6", "0")
                                  for name, dxf in common.MODULE_CLASSES])
        self.assertRegex(p.stdout, r"command groups:\n    ZEFTLAYERMANAGER\n"
                                   r"      zeftlayerstandard \(local name zeftstandardcalque, flags 2\)\n")
        self.assertTrue(p.stdout.endswith("  unloaded\n"), p.stdout)


class Convert(common.Case):
    def test_good_drawings_convert_to_the_same_contents_and_back(self):
        for source, version in ((common.SAMPLE, "R2013"), (BINARY_DRAWING, "R2000")):
            if not source:
                self.skipTest(f"corpus not found at {common.CORPUS_DIR}")
            with self.subTest(source=source):
                out, again = self.path("out.dxf"), self.path("again.dxf")
                p = self.ok("convert", source, out)
                self.assertEqual(p.stdout, f"{source} -> {out} ({version})\n")
                self.assertFalse(common.read_bytes(out).startswith(b"AutoCAD Binary DXF"), "output must be ASCII")
                before, after = ezdxf.readfile(source), ezdxf.readfile(out)
                self.assertEqual(after.dxfversion, before.dxfversion)
                self.assertEqual(common.audit_errors(after), [])
                self.assertEqual(common.contents(after), common.contents(before))
                self.assertGreater(len(after.modelspace()), 0)
                # The drawing reads again and converts to the same text.
                self.assertEqual(self.ok("convert", "-q", out, again).stdout, "")
                self.assertEqual(common.read_bytes(again), common.read_bytes(out))
                self.assertEqual(sorted(os.listdir(self.dir)), ["again.dxf", "out.dxf"])

    def test_a_killed_save_leaves_the_old_file_and_no_temporary_file(self):
        sample = common.read_bytes(common.SAMPLE)
        d = Drawing()
        lines = d.eol.join(b"  0|LINE|  8|0|100|AcDbEntity|100|AcDbLine| 10|1.0| 20|2.0| 30|0.0| 11|3.0| 21|4.0| "
                           b"31|0.0".split(b"|")) + d.eol
        at = len(d.bytes(d.find(0, "ENDSEC", d.find(2, "ENTITIES"))))
        big = self.path("big.dxf")
        with open(big, "wb") as f:
            f.write(sample[:at] + lines * 300000 + sample[at:])
        outdir = self.path("out")
        os.mkdir(outdir)
        out = os.path.join(outdir, "out.dxf")
        for delay in (0.05, 0.3, 0.8, 1.5, 3.0):
            with self.subTest(delay=delay):
                with open(out, "wb") as f:
                    f.write(b"precious\n")
                p = subprocess.Popen([ZEFT, "convert", "-q", big, out], stdout=subprocess.DEVNULL,
                                     stderr=subprocess.DEVNULL)
                time.sleep(delay)
                p.send_signal(signal.SIGKILL)
                p.wait()
                self.assertEqual(os.listdir(outdir), ["out.dxf"])
                self.assertIn(common.read_bytes(out)[:9], (b"precious\n", sample[:9]), "the old file or the new one")
        # A temporary file of our naming left by a killed save goes with the next save.
        with open(os.path.join(outdir, ".out.dxf.Ab12Cd"), "wb") as f:
            f.write(b"half a drawing")
        self.ok("convert", "-q", common.SAMPLE, out)
        self.assertEqual(os.listdir(outdir), ["out.dxf"])

    def assert_fails_cleanly(self, source, where=None, mentions=()):
        """Exit 1, one line on stderr naming the file (and the line or byte:
        `where` is a regex), nothing on stdout, no output or temporary file,
        an existing OUT left as it was."""
        outdir = tempfile.mkdtemp(dir=self.dir)
        out = os.path.join(outdir, "out.dxf")
        p = self.refused(["convert", source, out], 1, f"zeftlayer: {source}: ")
        self.assertEqual(len(p.stderr.splitlines()), 1, p.stderr)
        message = p.stderr.rstrip("\n")
        if where:
            self.assertRegex(message, rf"^zeftlayer: {re.escape(source)}: {where}: \S")
        for text in mentions:
            self.assertIn(text, message)
        self.assertLess(len(message), 300, "values quoted in messages are cut")
        self.assertEqual(os.listdir(outdir), [])
        with open(out, "wb") as f:
            f.write(b"precious\n")
        stamp = os.stat(out).st_mtime_ns
        self.refused(["convert", source, out], 1, source)
        self.assertEqual((common.read_bytes(out), os.stat(out).st_mtime_ns), (b"precious\n", stamp))
        self.assertEqual(os.listdir(outdir), ["out.dxf"])
        return message

    def test_bad_inputs(self):
        sample = common.read_bytes(common.SAMPLE)
        d = Drawing()
        mid = next(i for i in range(len(d.tags) // 2, len(d.tags)) if len(d.tags[i][1]) >= 4)
        cut = d.bytes(mid) + d.tags[mid][0] + d.eol
        rows = [("image.dxf", b"\x89PNG\r\n\x1a\n\x00\x00\x00\rIHDR\x00\x00\x01\x00", None, []),
                ("notes.dxf", b"Shopping list\nbread\nmilk\n", None, []),
                ("empty.dxf", b"", None, []),
                ("cut_code.dxf", cut, r"line \d+", []),
                ("cut_value.dxf", cut + d.tags[mid][1][:2], r"line \d+", []),
                ("no_eof.dxf", d.bytes(-1), r"line \d+", ["EOF"]),
                ("/dev/zero", None, None, ["not a regular file"]),
                ("fifo", None, None, ["not a regular file"]),
                ("no_line_breaks.dxf", b"  0" + b" " * 200000, "line 1", ["no line break"]),
                ("long_line.dxf", sample.replace(b"\nAC1027", b"\nAC" + b"9" * 70000, 1), r"line \d+",
                 ["line longer than"]),
                ("missing.dxf", None, None, [])]
        # The message points at the record found where ENDSEC should be.
        for section in ["HEADER", "CLASSES", "TABLES", "BLOCKS", "ENTITIES", "OBJECTS"]:
            d = Drawing()
            i = d.find(0, "ENDSEC", d.find(2, section))
            del d.tags[i]
            rows.append((f"no_endsec_{section}.dxf", d.bytes(), line(i), [f"section {section}"]))
        d = Drawing()
        i = d.find(0, "LINE", d.find(2, "ENTITIES")) + 3
        d.tags[i][0] = b"abc"
        rows.append(("bad_code.dxf", d.bytes(), line(i), ["abc"]))
        for name, value, mentions in (("bad_handle.dxf", b"XYZ!", ["XYZ!"]),
                                      ("loud_handle.dxf", b"\x1b[31m" + b"Z" * 5000, ["\\x1B[31mZZZ", "..."])):
            d = Drawing()
            d.tags[d.handle(0)][1] = value
            rows.append((name, d.bytes(), line(d.handle(0)), mentions))
        d = Drawing()
        first, second = d.handle(0), d.handle(1)
        d.tags[second][1] = d.tags[first][1]
        # The message names the first use too.
        rows.append(("dup_handle.dxf", d.bytes(), line(second), [d.tags[first][1].decode().strip(), line(first)]))
        d = Drawing()
        d.tags[d.find(9, "$ACADVER") + 1][1] = b"AC1015"
        i = d.find(9, "$DWGCODEPAGE") + 1
        d.tags[i][1] = b"FOO_999"
        rows.append(("codepage.dxf", d.bytes(), line(i), ["FOO_999"]))
        if BINARY_DRAWING:
            data = common.read_bytes(BINARY_DRAWING)
            rows.append(("cut_binary.dxf", data[:len(data) // 2 + 3], r"byte \d+", []))

        for name, data, where, mentions in rows:
            with self.subTest(name=name):
                source = self.write(name, data) if data is not None else self.path(name)
                if name == "fifo":
                    os.mkfifo(source)
                self.assert_fails_cleanly(source, where, mentions)

    def test_unwritable_output(self):
        targets = [self.path("no_such_dir/out.dxf")]
        if os.geteuid() != 0:  # root writes into read-only directories
            os.mkdir(self.path("readonly"), 0o555)
            targets.append(self.path("readonly/out.dxf"))
        for out in targets:
            with self.subTest(out=out):
                p = self.refused(["convert", common.SAMPLE, out], 1, f"zeftlayer: {out}: ")
                self.assertEqual(len(p.stderr.splitlines()), 1, p.stderr)
                self.assertFalse(os.path.exists(out))
                if os.path.isdir(os.path.dirname(out)):
                    self.assertEqual(os.listdir(os.path.dirname(out)), [])


if __name__ == "__main__":
    unittest.main()
