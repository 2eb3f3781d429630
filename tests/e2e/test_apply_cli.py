#!/usr/bin/python3
"""`zeftlayer apply` and `check` on real drawings: the prepared sample and
corpus drawings of every version, read back with ezdxf. What `names`
predicts is what apply does; locked layers stay locked; everything else in
the drawing is kept, and the result audits clean, reads and writes back the
same, and draws in LibreCAD; inputs that must not change do not."""
import csv
import json
import os
import tempfile
import unittest

import common
from common import ezdxf

# (what the drawing exercises, path in the corpus, whether LibreCAD draws anything of it)
CORPUS = [
    ("AC1015 with extended data of other applications", "dxf/sample-files/dxf/ezdxf/Spline_R2000.dxf", True),
    ("AC1015 binary", "dxf/ezdxf/integration_tests/data/bin_dxf_r2000.dxf", True),
    ("AC1015 polyface meshes: polylines with vertices", "dxf/skymakerolof-dxf/test/resources/polyfacemesh.dxf",
     False),
    ("AC1018 with block references", "dxf/skymakerolof-dxf/test/resources/issue52.dxf", True),
    ("AC1018 floor plan", "dxf/sample-files/dxf/dxf-parser/floorplan.dxf", True),
    ("AC1024 with extended data", "dxf/qcad/support/data/tests/xdata/xdata000.dxf", True),
    ("AC1032 with uncommon entities", "dxf/ezdxf/examples_dxf/uncommon.dxf", True),
]


def sub_entities(entity):
    """Attributes and vertices, which move with their entity."""
    if entity.dxftype() == "INSERT":
        return list(entity.attribs)
    return list(entity.vertices) if entity.dxftype() == "POLYLINE" else []


def highest_handle(data):
    """The highest handle of a record (group 5 or 105 right after its group 0)."""
    lines = data.splitlines()
    codes, values = [c.strip() for c in lines[0::2]], [v.strip() for v in lines[1::2]]
    return max(int(values[i], 16) for i in range(1, len(values))
               if codes[i] in (b"5", b"105") and codes[i - 1] == b"0")


class Apply(common.PreparedCase):
    def targets(self, drawing):
        """What `names` says the layering does with each entity."""
        return {e["handle"]: e for e in json.loads(self.ok("names", drawing, "--json").stdout)["entities"]}

    def assert_applied(self, before, after, rows, ink=True):
        """Every entity sits where `names` said, with its attributes and
        vertices; the rest is intact, other applications' extended data
        too; the result is a sound drawing for independent readers."""
        old, doc = ezdxf.readfile(before), ezdxf.readfile(after)
        self.assertEqual(doc.dxfversion, old.dxfversion)
        self.assertEqual(common.audit_errors(doc), [])
        entities = [e for layout in (doc.modelspace(), doc.layouts.active_layout()) for e in layout]
        self.assertEqual({e.dxf.handle for e in entities}, set(rows))
        for e in entities:
            row = rows[e.dxf.handle]
            for part in [e] + (sub_entities(e) if row["target"] else []):
                self.assertEqual(common.layer_of(part), row["target"] or row["layer"], row)
            was = old.entitydb[e.dxf.handle]
            for app in was.xdata.data if was.xdata else ():
                self.assertEqual(list(e.get_xdata(app)), list(was.get_xdata(app)), app)
        # New layers, the project's record of them, and the application
        # of the rules suite entities now carry.
        counts = [common.contents(old), common.contents(doc)]
        for c in counts:
            del c["layers"], c["objects"], c["appids"]
        self.assertEqual(counts[0], counts[1])
        # New layer names in the drawing's code page; handles below the seed
        # (in the file: ezdxf makes objects of its own on loading).
        data = common.read_bytes(after)
        encoding = "utf-8" if doc.dxfversion >= "AC1021" else doc.encoding
        for name in {r["target"] for r in rows.values() if r["target"]} - {la.dxf.name for la in old.layers}:
            self.assertIn(name.encode(encoding), data)
        self.assertGreater(int(doc.header["$HANDSEED"], 16), highest_handle(data))
        again = self.path("again.dxf")
        self.ok("convert", "-q", after, again)
        self.assertTrue(common.read_bytes(again) == data, "a second write differs")
        failure = common.librecad_failure(after, tempfile.mkdtemp(dir=self.dir), ink)
        self.assertIsNone(failure, f"LibreCAD does not draw {after}")
        return doc

    def test_sample_moves_onto_level_layers_and_keeps_locks(self):
        rows = self.targets(self.sample)
        out, report = self.path("sample-out.dxf"), self.path("sample.json")
        proc = self.ok("apply", self.sample, "-o", out, "--report", report)
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
        for text in ("moved", "Bâtiment A. Niveau 0", "overall paper-space viewport"):
            self.assertIn(text, proc.stdout)
        with open(report, encoding="utf-8") as f:
            files = json.load(f)["files"]
        self.assertEqual(len(files[0]["rows"]), len(rows))
        self.assertEqual(len([r for r in files[0]["rows"] if r["reason"] is None]), files[0]["moved"])

        # check: the input is off, the result is right, and nothing is written.
        written = common.digest(out)
        proc = self.zeft("check", self.sample, out)
        self.assertEqual(proc.returncode, 1)
        self.assertIn("not on their layer", proc.stdout)
        for args, code in ((["check", out], 0), (["check", out, "--json"], 0), (["check", self.sample, "--json"], 1)):
            proc = self.zeft(*args)
            self.assertEqual(proc.returncode, code, (args, proc.stderr))
        self.assertEqual(len(json.loads(proc.stdout)["drawings"][0]["misplaced"]), files[0]["moved"])
        self.assertEqual(common.digest(out), written)

    def test_corpus_drawings_with_a_standard_and_a_project(self):
        for what, relpath, ink in CORPUS:
            source = common.corpus_file(relpath)
            if not source:
                self.skipTest(f"corpus not found at {common.CORPUS_DIR}")
            with self.subTest(what, drawing=relpath):
                drawing = self.copy(source, "drawing.dxf")
                first = next(iter(ezdxf.readfile(source).modelspace())).dxf.handle
                for args in (["install", drawing, "Beltrix"],
                             ["project", drawing, "set", "--building", "Bâtiment A", "--mode", "level"],
                             ["project", drawing, "level", "add", "Niveau 1"],
                             ["project", drawing, "level", "assign", "Niveau 1", "--handle", first],
                             ["project", drawing, "set", "--active", "Niveau 1"]):
                    self.ok(*args)
                rows = self.targets(drawing)
                self.assertIn("Bâtiment A. Niveau 1", {r["target"] for r in rows.values()})
                self.ok("apply", drawing, "--in-place")
                doc = self.assert_applied(source, drawing, rows, ink)
                # Our extended data beside what other applications had.
                self.assertEqual(list(doc.entitydb[first].get_xdata("ZEFT_PROJECT"))[0], (1000, "HELD_BY"))
                self.assertEqual(self.zeft("check", drawing).returncode, 0)

    def test_dry_run_and_read_only_input_change_nothing(self):
        drawing = self.copy(self.sample, "readonly.dxf")
        before = common.digest(drawing)
        proc = self.ok("apply", drawing, "--dry-run")
        self.assertIn("from WALLS", proc.stdout)
        self.assertIn("would move", proc.stdout)
        os.chmod(drawing, 0o444)
        self.refused(["apply", drawing, "--in-place"], 1, "read-only")
        self.assertEqual(common.digest(drawing), before)
        self.assertEqual(os.listdir(self.dir), ["readonly.dxf"])

    def test_several_drawings_in_workers_one_broken(self):
        good = self.copy(self.sample, "good.dxf")
        text = common.read_bytes(self.sample)
        broken = self.path("broken.dxf")
        with open(broken, "wb") as f:
            f.write(text[:len(text) // 2] + b"\n  0\nLINE\n  8\n")
        outdir, report = self.path("out"), self.path("batch.csv")
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
        self.refusals([(["apply", self.sample], 2, "say where to write"),
                       (["apply", self.sample, self.sample, "-o", "x.dxf"], 2, "-o takes one drawing"),
                       (["apply", self.sample, "--dry-run", "--in-place"], 2, "--dry-run writes nothing"),
                       (["apply", self.sample, "--jobs", "0", "--in-place"], 2, "--jobs"),
                       (["apply", self.sample, "--report", "r.txt", "--in-place"], 2, ".json or .csv"),
                       (["check", self.sample, "--bogus"], 2, "unknown option '--bogus'"),
                       (["check", self.path("missing.dxf")], 1, "missing.dxf"),
                       (["apply", common.SAMPLE, "--dry-run"], 1, "holds no layer standard"),
                       (["check", self.sample, "--standard", "nope"], 1, "no layer standard 'nope'")])
        self.assertEqual(os.listdir(self.dir), [])


if __name__ == "__main__":
    unittest.main()
