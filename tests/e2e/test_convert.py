#!/usr/bin/python3
"""zeftlayer's command line and `zeftlayer convert`, driven as a user would:
exit codes and messages, drawings an independent reader accepts after the
conversion, and bad inputs that fail cleanly without leaving files behind."""
import os
import re
import signal
import subprocess
import tempfile
import time
import unittest

import common
from common import ezdxf

ZEFT = common.program("zeftlayer")
BINARY_DRAWING = "dxf/ezdxf/integration_tests/data/bin_dxf_r2000.dxf"
VERSION_NAMES = {"AC1015": "R2000", "AC1027": "R2013"}


class Drawing:
    """An ASCII drawing as a list of [code line, value line] pairs, for surgery."""

    def __init__(self, path):
        with open(path, "rb") as f:
            data = f.read()
        self.eol = b"\r\n" if b"\r\n" in data[:200] else b"\n"
        lines = data.split(self.eol)
        if lines and lines[-1] == b"":
            lines.pop()
        self.tags = [[lines[i], lines[i + 1]] for i in range(0, len(lines) - 1, 2)]

    def find(self, code, value, start=0):
        for i in range(start, len(self.tags)):
            c, v = self.tags[i]
            if c.strip() == str(code).encode() and v.strip() == value.encode():
                return i
        raise LookupError(f"no tag {code}/{value} after tag {start}")

    def line_of(self, index):
        """1-based line number of the code line of tag `index`."""
        return 2 * index + 1

    def bytes(self):
        return b"".join(c + self.eol + v + self.eol for c, v in self.tags)

    def entity_handles(self, kind, count):
        """Indexes of the handle tags of the first `count` entities of `kind` in ENTITIES."""
        i = self.find(2, "ENTITIES")
        found = []
        while len(found) < count:
            i = self.find(0, kind, i + 1)
            found.append(self.find(5, self.tags[i + 1][1].decode().strip(), i + 1))
        return found


class Cli(unittest.TestCase):
    def test_help_and_version_succeed(self):
        for args, expect in [(["--help"], "Usage: zeftlayer COMMAND"), (["-h"], "Usage: zeftlayer COMMAND"),
                             (["help"], "Commands:"), (["help", "convert"], "Usage: zeftlayer convert"),
                             (["convert", "--help"], "Usage: zeftlayer convert"),
                             (["--version"], "zeftlayer "), (["-V"], "zeftlayer ")]:
            with self.subTest(args=args):
                p = common.run([ZEFT] + args)
                self.assertEqual(p.returncode, 0, p.stderr)
                self.assertIn(expect, p.stdout)
                self.assertEqual(p.stderr, "")
        self.assertRegex(common.run([ZEFT, "--version"]).stdout, r"^zeftlayer \d+\.\d+\.\d+\n$")

    def test_usage_errors_exit_2_with_a_message(self):
        with tempfile.TemporaryDirectory() as tmp:
            out = os.path.join(tmp, "out.dxf")
            cases = [
                ([], "Usage: zeftlayer"),
                (["frobnicate"], "unknown command 'frobnicate'"),
                (["--frobnicate"], "unknown command '--frobnicate'"),
                (["help", "frobnicate"], "unknown command 'frobnicate'"),
                (["convert"], "expected IN and OUT"),
                (["convert", common.SAMPLE], "expected IN and OUT"),
                (["convert", common.SAMPLE, out, "extra.dxf"], "expected IN and OUT"),
                (["convert", "--frobnicate", common.SAMPLE, out], "unknown option '--frobnicate'"),
                (["convert", common.SAMPLE, common.SAMPLE], "OUT must not be the input"),
            ]
            for args, message in cases:
                with self.subTest(args=args):
                    p = common.run([ZEFT] + args)
                    self.assertEqual(p.returncode, 2, p.stdout + p.stderr)
                    self.assertIn(message, p.stdout + p.stderr)
                    self.assertEqual(os.listdir(tmp), [])


class ConvertGoodDrawings(unittest.TestCase):
    def convert_and_compare(self, source, version):
        with tempfile.TemporaryDirectory() as tmp:
            out = os.path.join(tmp, "out.dxf")
            p = common.run([ZEFT, "convert", source, out])
            self.assertEqual(p.returncode, 0, p.stderr)
            self.assertEqual(p.stdout, f"{source} -> {out} ({VERSION_NAMES[version]})\n")
            self.assertEqual(os.listdir(tmp), ["out.dxf"])
            with open(out, "rb") as f:
                head = f.read(64)
            self.assertFalse(head.startswith(b"AutoCAD Binary DXF"), "output must be ASCII DXF")
            before, after = ezdxf.readfile(source), ezdxf.readfile(out)
            self.assertEqual(after.dxfversion, version)
            self.assertEqual(common.audit_errors(after), [])
            self.assertEqual(common.contents(after), common.contents(before))
            self.assertGreater(len(after.modelspace()), 0)
            # The drawing reads again and converts to the same text.
            again = os.path.join(tmp, "again.dxf")
            p = common.run([ZEFT, "convert", "-q", out, again])
            self.assertEqual((p.returncode, p.stdout, p.stderr), (0, "", ""))
            with open(out, "rb") as a, open(again, "rb") as b:
                self.assertEqual(a.read(), b.read())

    def test_sample_drawing(self):
        self.convert_and_compare(common.SAMPLE, "AC1027")

    def test_binary_drawing(self):
        source = common.corpus_file(BINARY_DRAWING)
        if not source:
            self.skipTest(f"corpus not found at {common.CORPUS_DIR}")
        self.convert_and_compare(source, "AC1015")


class ConvertKilled(unittest.TestCase):
    def test_a_killed_save_leaves_the_old_file_and_no_temporary_file(self):
        with open(common.SAMPLE, "rb") as f:
            sample = f.read()
        eol = b"\r\n" if b"\r\n" in sample else b"\n"
        line = eol.join(b"  0|LINE|  8|0|100|AcDbEntity|100|AcDbLine| 10|1.0| 20|2.0| 30|0.0| 11|3.0| 21|4.0| 31|0.0".split(b"|")) + eol
        at = sample.index(b"ENDSEC", sample.index(b"ENTITIES")) - 4
        while sample[at - 1:at] not in (b"\n",):
            at -= 1
        with tempfile.TemporaryDirectory() as tmp:
            big = os.path.join(tmp, "big.dxf")
            with open(big, "wb") as f:
                f.write(sample[:at] + line * 300000 + sample[at:])
            outdir = os.path.join(tmp, "out")
            os.mkdir(outdir)
            out = os.path.join(outdir, "out.dxf")
            for delay in (0.05, 0.3, 0.8, 1.5, 3.0):
                with self.subTest(delay=delay):
                    with open(out, "wb") as f:
                        f.write(b"precious\n")
                    p = subprocess.Popen([ZEFT, "convert", "-q", big, out],
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                    time.sleep(delay)
                    p.send_signal(signal.SIGKILL)
                    p.wait()
                    self.assertEqual(os.listdir(outdir), ["out.dxf"])
                    with open(out, "rb") as f:
                        head = f.read(9)
                    self.assertIn(head, (b"precious\n", sample[:9]), "the old file or the whole new one")
            # A temporary file of our naming left by a killed save goes with the next save.
            stale = os.path.join(outdir, ".out.dxf.Ab12Cd")
            with open(stale, "wb") as f:
                f.write(b"half a drawing")
            p = common.run([ZEFT, "convert", "-q", common.SAMPLE, out])
            self.assertEqual(p.returncode, 0, p.stderr)
            self.assertEqual(os.listdir(outdir), ["out.dxf"])


class ConvertBadInputs(unittest.TestCase):
    """Every failure: exit 1, one line on stderr naming the file (and the line
    or byte), nothing on stdout, no output or temporary file, an existing OUT
    left as it was."""

    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.TemporaryDirectory()
        cls.indir = os.path.join(cls.tmp.name, "in")
        os.mkdir(cls.indir)
        with open(common.SAMPLE, "rb") as f:
            cls.sample = f.read()

    @classmethod
    def tearDownClass(cls):
        cls.tmp.cleanup()

    def write(self, name, data):
        path = os.path.join(self.indir, name)
        with open(path, "wb") as f:
            f.write(data)
        return path

    def assert_fails_cleanly(self, source, where=None, mentions=()):
        """`where`: a regex for the place ("line 12", r"line \\d+", r"byte \\d+")."""
        outdir = tempfile.mkdtemp(dir=self.tmp.name)
        out = os.path.join(outdir, "out.dxf")
        p = common.run([ZEFT, "convert", source, out])
        self.assertEqual(p.returncode, 1, p.stdout + p.stderr)
        self.assertEqual(p.stdout, "")
        lines = p.stderr.splitlines()
        self.assertEqual(len(lines), 1, p.stderr)
        message = lines[0]
        self.assertTrue(message.startswith(f"zeftlayer: {source}: "), message)
        if where:
            self.assertRegex(message, rf"^zeftlayer: {re.escape(source)}: {where}: \S", message)
        for text in mentions:
            self.assertIn(text, message)
        self.assertEqual(os.listdir(outdir), [], "nothing may be left in the output directory")

        # An existing OUT stays as it was, and no temporary file is left beside it.
        with open(out, "wb") as f:
            f.write(b"precious\n")
        stamp = os.stat(out).st_mtime_ns
        p = common.run([ZEFT, "convert", source, out])
        self.assertEqual(p.returncode, 1, p.stdout + p.stderr)
        with open(out, "rb") as f:
            self.assertEqual(f.read(), b"precious\n")
        self.assertEqual(os.stat(out).st_mtime_ns, stamp)
        self.assertEqual(os.listdir(outdir), ["out.dxf"])
        return message

    def test_truncated_in_a_value_or_after_a_group_code(self):
        d = Drawing(common.SAMPLE)
        i = len(d.tags) // 2
        while len(d.tags[i][1]) < 4:
            i += 1
        code_end = len(b"".join(c + d.eol + v + d.eol for c, v in d.tags[:i])) + len(d.tags[i][0] + d.eol)
        for name, cut in (("cut_value.dxf", code_end + 2), ("cut_code.dxf", code_end)):
            with self.subTest(name=name):
                self.assert_fails_cleanly(self.write(name, self.sample[:cut]), r"line \d+")

    def test_truncated_binary_drawing(self):
        source = common.corpus_file(BINARY_DRAWING)
        if not source:
            self.skipTest(f"corpus not found at {common.CORPUS_DIR}")
        with open(source, "rb") as f:
            data = f.read()
        self.assert_fails_cleanly(self.write("cut_binary.dxf", data[: len(data) // 2 + 3]), r"byte \d+")

    def test_not_a_drawing(self):
        for name, data in [("image.dxf", b"\x89PNG\r\n\x1a\n\x00\x00\x00\rIHDR\x00\x00\x01\x00"),
                           ("notes.dxf", b"Shopping list\nbread\nmilk\n"),
                           ("empty.dxf", b"")]:
            with self.subTest(name=name):
                self.assert_fails_cleanly(self.write(name, data))

    def test_missing_endsec(self):
        # The message points at the record found where ENDSEC should be.
        for section in ["HEADER", "CLASSES", "TABLES", "BLOCKS", "ENTITIES", "OBJECTS"]:
            with self.subTest(section=section):
                d = Drawing(common.SAMPLE)
                i = d.find(0, "ENDSEC", d.find(2, section))
                del d.tags[i]
                self.assert_fails_cleanly(self.write(f"no_endsec_{section}.dxf", d.bytes()), f"line {d.line_of(i)}",
                                          [f"section {section}"])

    def test_missing_eof(self):
        d = Drawing(common.SAMPLE)
        self.assertEqual(d.tags[-1][1].strip(), b"EOF")
        del d.tags[-1]
        self.assert_fails_cleanly(self.write("no_eof.dxf", d.bytes()), r"line \d+", ["EOF"])

    def test_malformed_group_code(self):
        d = Drawing(common.SAMPLE)
        i = d.find(0, "LINE", d.find(2, "ENTITIES")) + 3
        d.tags[i][0] = b"abc"
        self.assert_fails_cleanly(self.write("bad_code.dxf", d.bytes()), f"line {d.line_of(i)}", ["abc"])

    def test_duplicate_handle(self):
        d = Drawing(common.SAMPLE)
        first, second = d.entity_handles("LINE", 2)
        handle = d.tags[first][1].decode().strip()
        d.tags[second][1] = d.tags[first][1]
        message = self.assert_fails_cleanly(self.write("dup_handle.dxf", d.bytes()), f"line {d.line_of(second)}",
                                            [handle])
        self.assertIn(f"line {d.line_of(first)}", message, "the message names the first use too")

    def test_invalid_handle(self):
        d = Drawing(common.SAMPLE)
        (i,) = d.entity_handles("LINE", 1)
        d.tags[i][1] = b"XYZ!"
        self.assert_fails_cleanly(self.write("bad_handle.dxf", d.bytes()), f"line {d.line_of(i)}", ["XYZ!"])

    def test_unknown_code_page(self):
        d = Drawing(common.SAMPLE)
        d.tags[d.find(9, "$ACADVER") + 1][1] = b"AC1015"
        i = d.find(9, "$DWGCODEPAGE") + 1
        d.tags[i][1] = b"FOO_999"
        self.assert_fails_cleanly(self.write("codepage.dxf", d.bytes()), f"line {d.line_of(i)}", ["FOO_999"])

    def test_endless_or_unbounded_input(self):
        """Fails at once, in bounded memory, naming the place and the reason."""
        long_value = self.sample.replace(b"\nAC1027", b"\nAC" + b"9" * 70000, 1)
        for name, source, where, reason in [
            ("device", "/dev/zero", None, "not a regular file"),
            ("fifo", None, None, "not a regular file"),
            ("no_line_breaks.dxf", b"  0" + b" " * 200000, r"line 1", "no line break"),
            ("long_line.dxf", long_value, r"line \d+", "line longer than"),
        ]:
            with self.subTest(name=name):
                if source is None:
                    source = os.path.join(self.indir, name)
                    if not os.path.exists(source):
                        os.mkfifo(source)
                elif isinstance(source, bytes):
                    source = self.write(name, source)
                started = time.monotonic()
                message = self.assert_fails_cleanly(source, where, [reason])
                self.assertLess(time.monotonic() - started, 10, "two failed converts")
                self.assertLess(len(message), 300, message)

    def test_values_quoted_in_messages_are_short_and_escaped(self):
        d = Drawing(common.SAMPLE)
        (i,) = d.entity_handles("LINE", 1)
        d.tags[i][1] = b"\x1b[31m" + b"Z" * 5000
        message = self.assert_fails_cleanly(self.write("loud_handle.dxf", d.bytes()), f"line {d.line_of(i)}",
                                            ["\\x1B[31mZZZ", "..."])
        self.assertLess(len(message), 300, message)

    def test_missing_input(self):
        self.assert_fails_cleanly(os.path.join(self.indir, "does_not_exist.dxf"))

    def test_unwritable_output(self):
        targets = [os.path.join(self.tmp.name, "no_such_dir", "out.dxf")]
        if os.geteuid() != 0:  # root writes into read-only directories
            readonly = tempfile.mkdtemp(dir=self.tmp.name)
            os.chmod(readonly, 0o555)
            targets.append(os.path.join(readonly, "out.dxf"))
        for out in targets:
            with self.subTest(out=out):
                p = common.run([ZEFT, "convert", common.SAMPLE, out])
                self.assertEqual(p.returncode, 1, p.stdout + p.stderr)
                self.assertEqual(p.stdout, "")
                self.assertEqual(len(p.stderr.splitlines()), 1, p.stderr)
                self.assertTrue(p.stderr.startswith(f"zeftlayer: {out}: "), p.stderr)
                self.assertFalse(os.path.exists(out))
                if os.path.isdir(os.path.dirname(out)):
                    self.assertEqual(os.listdir(os.path.dirname(out)), [])


if __name__ == "__main__":
    unittest.main()
