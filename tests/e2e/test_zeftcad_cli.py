#!/usr/bin/python3
"""`zeftcad DRAWING --run SCRIPT --screenshot OUT.png` offscreen: the script
runs in the window, the picture is a PNG of the window's size, QSAVE writes a
drawing ezdxf reads back; bad input gives one message and exit code 1, bad
usage exit code 2, and no picture."""
import os
import struct
import unittest

import common
from common import ezdxf

ZEFTCAD = common.program("zeftcad")
OFFSCREEN = {"QT_QPA_PLATFORM": "offscreen"}


def png_size(path):
    """(width, height) of a PNG file, from its header."""
    with open(path, "rb") as f:
        head = f.read(24)
    if head[:8] != b"\x89PNG\r\n\x1a\n" or head[12:16] != b"IHDR":
        return None
    return struct.unpack(">II", head[16:24])


class ZeftcadCli(common.Case):
    def setUp(self):
        super().setUp()
        self.plan = self.copy(common.SAMPLE, "plan.dxf")
        self.png = self.path("out.png")

    def zeftcad(self, *args):
        return common.run([ZEFTCAD, "--data-dir", self.path("data"), *args], timeout=120, env=OFFSCREEN)

    def test_script_runs_in_the_window_and_the_window_is_pictured(self):
        script = self.write("job.scr", "LAYER make Étage\nLINE 0,0 10,0\n; saved\nQSAVE\n")
        proc = self.zeftcad(self.plan, "--run", script, "--screenshot", self.png)
        self.assertEqual(proc.returncode, 0, proc.stderr)
        width, height = png_size(self.png)
        self.assertTrue(800 <= width <= 4000 and 500 <= height <= 3000, (width, height))
        doc = ezdxf.readfile(self.plan)
        self.assertEqual(common.audit_errors(doc), [])
        self.assertIn("Étage", [layer.dxf.name for layer in doc.layers])
        lines = [e for e in doc.modelspace().query("LINE") if e.dxf.end == (10, 0, 0) and e.dxf.start == (0, 0, 0)]
        self.assertEqual(len(lines), 1)

        # Twice the scale, twice the pixels; without a script the drawing stays as it is.
        before = common.digest(self.plan)
        big = self.path("big.png")
        proc = common.run([ZEFTCAD, self.plan, "--screenshot", big], timeout=120,
                          env=dict(OFFSCREEN, QT_SCALE_FACTOR="2"))
        self.assertEqual(proc.returncode, 0, proc.stderr)
        self.assertEqual(png_size(big), (2 * width, 2 * height))
        self.assertEqual(common.digest(self.plan), before)

    def test_bad_input(self):
        garbage = self.write("garbage.dxf", "0\nSECTION\n2\nNOTHING\n")
        good = self.write("good.scr", "LINE 0,0 1,1\n")
        failing = self.write("failing.scr", "LINE 0,0 1,1\nLINE 0,0 oops\nCIRCLE 1,1 1\n")
        cases = [  # arguments, exit code, what the message says
            ([self.path("missing.dxf"), "--screenshot", self.png], 1, "missing.dxf"),
            ([garbage, "--screenshot", self.png], 1, "garbage.dxf"),
            ([self.plan, "--run", self.path("missing.scr"), "--screenshot", self.png], 1,
             "missing.scr: cannot read the script"),
            ([self.plan, "--bogus"], 2, "unknown option '--bogus'"),
            ([self.plan, self.plan], 2, "at most one DRAWING"),
            ([self.plan, "--run"], 2, "--run needs a value"),
            ([self.plan, "--run", good, "--screenshot", self.path("no/such/dir/x.png")], 1, "cannot write the picture"),
        ]
        for args, code, message in cases:
            with self.subTest(args=args):
                proc = self.zeftcad(*args)
                self.assertEqual(proc.returncode, code, proc.stderr)
                self.assertEqual(len(proc.stderr.strip().splitlines()), 1 if code == 1 else 2, proc.stderr)
                self.assertIn(message, proc.stderr)
                self.assertFalse(os.path.exists(self.png))

        # A failing line is reported with its place; the others run and the picture is taken.
        proc = self.zeftcad(self.plan, "--run", failing, "--screenshot", self.png)
        self.assertEqual(proc.returncode, 1)
        self.assertIn("failing.scr:2: LINE: ", proc.stderr)
        self.assertIsNotNone(png_size(self.png))

    def test_help_and_version(self):
        proc = common.run([ZEFTCAD, "--help"])
        self.assertEqual(proc.returncode, 0)
        self.assertIn("--screenshot FILE.png", proc.stdout)
        proc = common.run([ZEFTCAD, "--version"])
        self.assertEqual((proc.returncode, proc.stdout.split()[0]), (0, "zeftcad"))


if __name__ == "__main__":
    unittest.main()
