#!/usr/bin/python3
"""`zeftlayer run` on real drawings: a script that draws and edits with every
kind of host command, read back by ezdxf (entities present, audit clean);
failing lines that must stop the run and write nothing, or with
--keep-going write the rest; and usage errors."""
import os
import unittest

import common
from common import ezdxf

# A small job with every kind of host command. Sample handles: A0 a wall
# LINE, C0 a DOOR reference with two attributes, BA another one.
SCRIPT = common.data_file("e2e-job.scr")

# Drawings written by other programs: an R12 drawing and one of LibreCAD.
CORPUS = ["dxf/ixmilia-dxf/c6b8957/src/Compat/i.r12.dxf",
          "dxf/LibreCAD/librecad/support/library/power_station/ed85.dxf"]


class RunCli(common.Case):
    def setUp(self):
        super().setUp()
        self.plan = self.copy(common.SAMPLE, "plan.dxf")
        self.out = self.path("out.dxf")
        # Model space only: ezdxf gives handles of its own to objects it adds when it loads.
        self.sample_handles = {e.dxf.handle for e in ezdxf.readfile(self.plan).modelspace()}

    def run_zeft(self, *args):
        return self.zeft("run", *args)

    def read_clean(self, path):
        doc = ezdxf.readfile(path)
        self.assertEqual(common.audit_errors(doc), [], path)
        return doc

    def test_script_draws_and_edits_the_sample(self):
        before = common.read_bytes(self.plan)
        proc = self.run_zeft(self.plan, SCRIPT, "-o", self.out)
        self.assertEqual(proc.returncode, 0, proc.stderr)
        self.assertEqual(proc.stderr, "")
        self.assertIn("20 commands run, 0 failed, 17 entities appended; written to " + self.out, proc.stdout)
        self.assertEqual(common.read_bytes(self.plan), before, "the input must not change")

        doc = self.read_clean(self.out)
        layer = doc.layers.get("Étage")
        self.assertEqual((layer.dxf.color, layer.dxf.linetype.upper(), layer.dxf.lineweight, layer.dxf.plot),
                         (7, "CONTINUOUS", -3, 1))
        self.assertEqual(doc.header["$CLAYER"], "Étage")
        msp = doc.modelspace()
        # New entities by handle: the layering may have moved them to other layers.
        new = [e for e in msp if e.dxf.handle not in self.sample_handles]
        self.assertEqual([e.dxftype() for e in new],
                         ["LINE", "LINE", "CIRCLE", "ARC", "TEXT", "LWPOLYLINE", "INSERT",  # drawn
                          "LINE", "INSERT",  # copied
                          "LINE", "LINE", "ARC", "ATTDEF", "ATTDEF",  # exploded
                          "LINE", "LINE"])  # by the suite's stand-in, and before the cancel
        self.assertEqual(new[4].dxf.text, 'Étage  du "haut"')
        self.assertTrue(new[5].closed)
        self.assertEqual(sorted(a.dxf.tag for a in new[6].attribs), ["NUM", "WIDTH"])
        self.assertEqual(new[6].dxf.xscale, 2)
        self.assertEqual(len(new[8].attribs), 2)
        self.assertNotIn("BA", [e.dxf.handle for e in msp], "the exploded reference is gone")
        self.assertEqual(len(msp.query("INSERT[name=='DOOR']")), 5 - 1 + 1 + 1)  # one exploded, one copied, one inserted
        self.assertEqual(len(msp.query("*[layer=='COLUMNS']")), 0, "the selection was erased")
        wall = doc.entitydb["A0"]
        self.assertTrue(new[7].dxf.start.isclose(wall.dxf.start + (100, 0)) and
                        new[7].dxf.end.isclose(wall.dxf.end + (100, 0)))
        paper = doc.layouts.get("Plan RDC")
        self.assertEqual(list(paper.query("LINE"))[-1].dxf.end, (50, 50, 0))
        self.assertEqual(doc.header["$TILEMODE"], 1)

    def test_corpus_drawings(self):
        for relpath in CORPUS:
            source = common.corpus_file(relpath)
            if not source:
                self.skipTest("the corpus is not there")
            with self.subTest(relpath):
                before = ezdxf.readfile(source)
                first = next(iter(before.modelspace())).dxf.handle
                script = self.write("job.scr", "LAYER make Étage\nLINE 0,0 10,0 10,5\nCIRCLE 5,5 2\n"
                                    f"ARC 20,20 3 0 90\nTEXT 1,1 2.5 Étage\nCOPY {first} 5,5\nERASE {first}\n")
                proc = self.run_zeft(source, script, "-o", self.out)
                self.assertEqual(proc.returncode, 0, proc.stderr)
                doc = self.read_clean(self.out)
                self.assertIn("Étage", doc.layers)
                old = {e.dxf.handle for e in before.modelspace()}
                types = [e.dxftype() for e in doc.modelspace() if e.dxf.handle not in old]
                self.assertEqual(types, ["LINE", "LINE", "CIRCLE", "ARC", "TEXT", before.entitydb[first].dxftype()])
                self.assertNotIn(first, [e.dxf.handle for e in doc.modelspace()])

    def test_a_failing_line_stops_the_run_and_writes_nothing(self):
        cases = [("BOGUS 1", "unknown command 'BOGUS'"),
                 ("ERASE FFFFF", "ERASE: no entity with handle FFFFF"),
                 ("CIRCLE 5;5 2", "CIRCLE: centre: '5;5' is not a point"),
                 ("LAYER set NOPE", "LAYER: no layer 'NOPE'")]
        for line, reason in cases:
            with self.subTest(line):
                script = self.write("job.scr", f"LINE 0,0 1,1\n\n{line}\nCIRCLE 0,0 1\n")
                proc = self.run_zeft(self.plan, script, "-o", self.out)
                self.assertEqual(proc.returncode, 1)
                self.assertTrue(proc.stderr.startswith(f"{script}:3: {reason}"), proc.stderr)
                self.assertIn("nothing written", proc.stderr)
                self.assertFalse(os.path.exists(self.out))

                proc = self.run_zeft(self.plan, script, "-o", self.out, "--keep-going")
                self.assertEqual(proc.returncode, 1)
                self.assertIn(f"{script}:3: {reason}", proc.stderr)
                self.assertIn("3 commands run, 1 failed, 2 entities appended", proc.stdout)
                self.read_clean(self.out)
                os.remove(self.out)

    def test_in_place_and_usage(self):
        script = self.write("job.scr", "CIRCLE 5,5 2\n")
        before = common.read_bytes(self.plan)
        both = "give exactly one of -o OUT and --in-place"
        self.refusals([(["run", self.plan, script, "-o", self.out, "--in-place"], 2, both),
                       (["run", self.plan, script], 2, both),
                       (["run", self.plan, "-o", self.out], 2, "expected DRAWING and SCRIPT"),
                       (["run", self.plan, script, "-o", self.out, "--bogus"], 2, "unknown option '--bogus'"),
                       (["run", self.path("none.dxf"), script, "-o", self.out], 1, "none.dxf: No such file"),
                       (["run", self.plan, self.path("none.scr"), "-o", self.out], 1, "none.scr: cannot read")])
        self.assertEqual(common.read_bytes(self.plan), before)
        self.assertFalse(os.path.exists(self.out))

        self.assertEqual(self.run_zeft(self.plan, script, "--in-place").returncode, 0)
        self.assertEqual(len(self.read_clean(self.plan).modelspace().query("CIRCLE")),
                         len(ezdxf.readfile(common.SAMPLE).modelspace().query("CIRCLE")) + 1)


if __name__ == "__main__":
    unittest.main()
