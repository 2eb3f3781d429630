#!/usr/bin/python3
"""`zeftlayer apply` and `check` on real drawings: the prepared sample and a
corpus floor plan, read back with ezdxf. What `names` predicts is what apply
does; locked layers stay locked; inputs that must not change do not, even
when the program is killed while writing."""
import csv
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import common
from common import ezdxf

ZEFT = common.program("zeftlayer")
PREPARE = os.path.join(common.SOURCE_DIR, "examples", "prepare_sample.sh")
GENERATOR = os.path.join(common.SOURCE_DIR, "..", "shared", "bench", "gen_drawing.py")
FLOORPLAN = common.corpus_file("dxf/sample-files/dxf/dxf-parser/floorplan.dxf")


class Apply(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.mkdtemp(prefix="zeft-apply-")
        cls.data = os.path.join(cls.tmp, "data")
        cls.sample = os.path.join(cls.tmp, "sample.dxf")
        proc = common.run([PREPARE, ZEFT, cls.data, cls.sample], timeout=120)
        assert proc.returncode == 0, proc.stderr

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.tmp, ignore_errors=True)

    def zeft(self, *args, timeout=120):
        return common.run([ZEFT, "--data-dir", self.data, *args], timeout=timeout)

    def copy(self, source, name):
        path = os.path.join(self.tmp, name)
        shutil.copyfile(source, path)
        os.chmod(path, 0o644)
        return path

    def targets(self, drawing):
        """What `names` says the layering does with each entity."""
        proc = self.zeft("names", drawing, "--json")
        self.assertEqual(proc.returncode, 0, proc.stderr)
        return {e["handle"]: e for e in json.loads(proc.stdout)["entities"]}

    def assert_applied(self, before, after, rows):
        """Every entity sits where `names` said, per ezdxf; the rest is intact."""
        doc = ezdxf.readfile(after)
        self.assertEqual(common.audit_errors(doc), [])
        layers = {e.dxf.handle: common.layer_of(e) for layout in (doc.modelspace(), doc.layouts.active_layout())
                  for e in layout}
        self.assertEqual(set(layers), set(rows))
        for handle, row in rows.items():
            self.assertEqual(layers[handle], row["target"] or row["layer"], row)
        old = common.contents(ezdxf.readfile(before))
        new = common.contents(doc)
        # New layers, the project's record of them, and the application
        # of the rules suite entities now carry.
        for counts in (old, new):
            del counts["layers"], counts["objects"], counts["appids"]
        self.assertEqual(old, new)
        return doc

    def test_sample_moves_onto_level_layers_and_keeps_locks(self):
        rows = self.targets(self.sample)
        out = os.path.join(self.tmp, "sample-out.dxf")
        report = os.path.join(self.tmp, "sample.json")
        proc = self.zeft("apply", self.sample, "-o", out, "--report", report)
        self.assertEqual(proc.returncode, 0, proc.stderr)
        doc = self.assert_applied(self.sample, out, rows)
        self.assertTrue(doc.layers.get("WALLS").is_locked())
        walls = [h for h, r in rows.items() if r["layer"] == "WALLS"]
        self.assertTrue(walls)
        self.assertEqual({rows[h]["target"] for h in walls}, {"Bâtiment A. Niveau 1"})
        new_layer = doc.layers.get("Bâtiment A. Niveau 0")
        self.assertEqual((new_layer.is_on(), new_layer.is_locked(), new_layer.color), (True, False, 7))
        # The suite's entities (proxies) too; the grid goes where the exception list says.
        suite = {r["class"]: r["target"] for r in rows.values() if r["class"].startswith("ZEFT")}
        self.assertEqual(suite, {"ZEFTGridRectangularE": "Trame", "ZEFTMeshCut": "Bâtiment A. Niveau 1",
                                 "ZEFTMeshCutSymbol": "Bâtiment A. Niveau 1"})

        self.assertIn("moved", proc.stdout)
        self.assertIn("Bâtiment A. Niveau 0", proc.stdout)
        self.assertIn("overall paper-space viewport", proc.stdout)
        with open(report, encoding="utf-8") as f:
            files = json.load(f)["files"]
        self.assertEqual(len(files[0]["rows"]), len(rows))
        moved = [r for r in files[0]["rows"] if r["reason"] is None]
        self.assertEqual(len(moved), files[0]["moved"])

        # check: the input is off, the result is right.
        written = common.digest(out)
        proc = self.zeft("check", self.sample, out)
        self.assertEqual(proc.returncode, 1)
        self.assertIn("not on their layer", proc.stdout)
        for args, code in ((["check", out], 0), (["check", out, "--json"], 0), (["check", self.sample, "--json"], 1)):
            proc = self.zeft(*args)
            self.assertEqual(proc.returncode, code, (args, proc.stderr))
        misplaced = json.loads(proc.stdout)["drawings"][0]["misplaced"]
        self.assertEqual(len(misplaced), files[0]["moved"])
        self.assertEqual(common.digest(out), written, "check writes nothing")

    @unittest.skipUnless(FLOORPLAN, "the corpus is not there")
    def test_corpus_floor_plan_with_a_standard_and_a_project(self):
        drawing = self.copy(FLOORPLAN, "floorplan.dxf")
        original = os.path.join(self.tmp, "floorplan-original.dxf")
        steps = [["install", drawing, "Beltrix"],
                 ["project", drawing, "set", "--building", "Bâtiment B", "--mode", "level"],
                 ["project", drawing, "level", "add", "R+1"],
                 ["project", drawing, "set", "--active", "R+1"]]
        for args in steps:
            proc = self.zeft(*args)
            self.assertEqual(proc.returncode, 0, (args, proc.stderr))
        shutil.copyfile(drawing, original)
        rows = self.targets(drawing)
        self.assertIn("Bâtiment B. R+1", {r["target"] for r in rows.values()})
        proc = self.zeft("apply", drawing, "--in-place")
        self.assertEqual(proc.returncode, 0, proc.stderr)
        self.assert_applied(original, drawing, rows)
        self.assertEqual(self.zeft("check", drawing).returncode, 0)

    def test_dry_run_and_read_only_input_change_nothing(self):
        drawing = self.copy(self.sample, "readonly.dxf")
        before = common.digest(drawing)
        listing = sorted(os.listdir(self.tmp))
        proc = self.zeft("apply", drawing, "--dry-run")
        self.assertEqual(proc.returncode, 0, proc.stderr)
        self.assertIn("from WALLS", proc.stdout)
        self.assertIn("would move", proc.stdout)
        os.chmod(drawing, 0o444)
        proc = self.zeft("apply", drawing, "--in-place")
        self.assertEqual(proc.returncode, 1)
        self.assertIn("read-only", proc.stderr)
        self.assertEqual(common.digest(drawing), before)
        self.assertEqual(sorted(os.listdir(self.tmp)), listing)

    def test_several_drawings_in_workers_one_broken(self):
        good = self.copy(self.sample, "good.dxf")
        broken = os.path.join(self.tmp, "broken.dxf")
        with open(self.sample, encoding="utf-8") as f:
            text = f.read()
        with open(broken, "w", encoding="utf-8") as f:
            f.write(text[:len(text) // 2] + "\n  0\nLINE\n  8\n")
        outdir = os.path.join(self.tmp, "out")
        report = os.path.join(self.tmp, "batch.csv")
        proc = self.zeft("apply", broken, good, "--jobs", "2", "--out-dir", outdir, "--report", report)
        self.assertEqual(proc.returncode, 1, proc.stderr)
        self.assertEqual(os.listdir(outdir), ["good.dxf"])
        self.assertEqual(common.audit_errors(ezdxf.readfile(os.path.join(outdir, "good.dxf"))), [])
        table = proc.stdout[proc.stdout.index("FILE"):]
        self.assertRegex(table, r"broken\.dxf\s+failed\s+\S")
        self.assertRegex(table, r"good\.dxf\s+ok\s+\d+")
        self.assertIn("[2/2]", proc.stderr, "plain progress lines when stderr is not a terminal")
        with open(report, newline="", encoding="utf-8") as f:
            lines = list(csv.DictReader(f))
        self.assertEqual({r["status"] for r in lines if r["file"] == broken}, {"failed"})
        self.assertTrue(any(r["file"] == good and r["new_layer"] for r in lines))

    def test_usage_and_input_errors(self):
        cases = [(["apply", self.sample], 2, "say where to write"),
                 (["apply", self.sample, self.sample, "-o", "x.dxf"], 2, "-o takes one drawing"),
                 (["apply", self.sample, "--dry-run", "--in-place"], 2, "--dry-run writes nothing"),
                 (["apply", self.sample, "--jobs", "0", "--in-place"], 2, "--jobs"),
                 (["apply", self.sample, "--report", "r.txt", "--in-place"], 2, ".json or .csv"),
                 (["check", self.sample, "--bogus"], 2, "unknown option '--bogus'"),
                 (["check", os.path.join(self.tmp, "missing.dxf")], 1, "missing.dxf"),
                 (["apply", common.SAMPLE, "--dry-run"], 1, "holds no layer standard"),
                 (["check", self.sample, "--standard", "nope"], 1, "no layer standard 'nope'")]
        for args, code, message in cases:
            proc = self.zeft(*args)
            self.assertEqual(proc.returncode, code, args)
            self.assertIn(message, proc.stderr, args)

    @unittest.skipUnless(os.path.isfile(GENERATOR), "the shared generator is not there")
    def test_killed_while_writing_leaves_the_input_whole(self):
        big = os.path.join(self.tmp, "big.dxf")
        subprocess.run([sys.executable, GENERATOR, "20000", big, "--seed", "3"], check=True, timeout=300)
        for args in (["install", big, "Beltrix"], ["project", big, "set", "--building", "B", "--mode", "level"],
                     ["project", big, "level", "add", "L"], ["project", big, "set", "--active", "L"]):
            self.assertEqual(self.zeft(*args).returncode, 0)
        before = common.digest(big)
        start = time.monotonic()
        proc = subprocess.run([ZEFT, "--data-dir", self.data, "apply", big, "-o", os.path.join(self.tmp, "t.dxf")],
                              capture_output=True, timeout=300)
        self.assertEqual(proc.returncode, 0, proc.stderr)
        whole = time.monotonic() - start
        for fraction in (0.3, 0.6, 0.8, 0.9, 0.95):
            child = subprocess.Popen([ZEFT, "--data-dir", self.data, "apply", big, "--in-place"],
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            time.sleep(whole * fraction)
            child.send_signal(signal.SIGKILL)
            child.wait()
            if common.digest(big) != before:  # it finished: the whole result, not a part
                self.assertEqual(self.zeft("check", big).returncode, 0)
                break


if __name__ == "__main__":
    unittest.main()
