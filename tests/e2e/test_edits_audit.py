#!/usr/bin/python3
"""Drawings edited through the host's object API (tests/e2e/edit_drawing.cpp)
stay sound for independent readers: ezdxf's audit finds no error, every edit
is there with its values and nothing else changed, the written drawing reads
and writes back identically, and LibreCAD draws it."""
import os
import shutil
import tempfile
import unittest

import common
from common import ezdxf

EDIT = common.program("edit_drawing")
ZEFT = common.program("zeftlayer")

LAYER = "Bâtiment A. Niveau 1"
APP = "ZEFT_TEST"
XDATA = [(1000, "Étage supérieur, façade nord"), (1070, -42), (1071, 1234567), (1040, 3.25),
         (1010, (1.5, -2.5, 7.0))]
NEW_LINE = ((12.5, -7.25, 0.0), (4012.5, 3007.75, 0.0))

# (what the drawing exercises, path in the corpus)
CORPUS_DRAWINGS = [
    ("AC1015 with extended data of other applications", "dxf/sample-files/dxf/ezdxf/Spline_R2000.dxf"),
    ("AC1015 binary", "dxf/ezdxf/integration_tests/data/bin_dxf_r2000.dxf"),
    ("AC1015 polyface meshes: polylines with vertices", "dxf/skymakerolof-dxf/test/resources/polyfacemesh.dxf"),
    ("AC1018 with block references", "dxf/skymakerolof-dxf/test/resources/issue52.dxf"),
    ("AC1024 with extended data", "dxf/qcad/support/data/tests/xdata/xdata000.dxf"),
    ("AC1032 with uncommon entities", "dxf/ezdxf/examples_dxf/uncommon.dxf"),
]


def sub_entities(entity):
    if entity.dxftype() == "INSERT":
        return list(entity.attribs)
    if entity.dxftype() == "POLYLINE":
        return list(entity.vertices)
    return []


def xdata_of(entity, app):
    return [(t.code, tuple(t.value) if t.code == 1010 else t.value) for t in entity.get_xdata(app)]


class EditedDrawings(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.TemporaryDirectory()

    @classmethod
    def tearDownClass(cls):
        cls.tmp.cleanup()

    def edit(self, source):
        name = os.path.splitext(os.path.basename(source))[0]
        out = os.path.join(self.tmp.name, name + ".edited.dxf")
        p = common.run([EDIT, source, out])
        self.assertEqual((p.returncode, p.stderr), (0, ""), f"edit_drawing {source}")
        return out

    def check_edits(self, source):
        before = ezdxf.readfile(source)
        self.assertEqual(common.audit_errors(ezdxf.readfile(source)), [], "the input must audit clean to begin with")
        out = self.edit(source)
        after = ezdxf.readfile(out)
        self.assertEqual(after.dxfversion, before.dxfversion)
        self.assertEqual(common.audit_errors(ezdxf.readfile(out)), [])

        # The layer, with layer "0"'s settings.
        self.assertIn(LAYER, after.layers)
        layer, zero = after.layers.get(LAYER), after.layers.get("0")
        self.assertEqual(layer.dxf.name, LAYER)
        self.assertEqual((layer.color, layer.dxf.linetype), (zero.color, zero.dxf.linetype))
        self.assertTrue(layer.is_on() and not layer.is_frozen() and not layer.is_locked())

        # Every entity of model space moved onto it, attributes and vertices too.
        old = list(before.modelspace())
        self.assertGreater(len(old), 0)
        for e in old:
            moved = after.entitydb.get(e.dxf.handle)
            self.assertIsNotNone(moved, f"entity {e.dxf.handle} lost")
            self.assertEqual(moved.dxftype(), e.dxftype())
            for part in [moved] + sub_entities(moved):
                self.assertEqual(common.layer_of(part), LAYER, f"{part.dxftype()} {part.dxf.handle}")
        # The new line, on layer "0", with a handle below the seed.
        old_handles = {e.dxf.handle for e in old}
        added = [e for e in after.modelspace() if e.dxf.handle not in old_handles]
        self.assertEqual([e.dxftype() for e in added], ["LINE"])
        line = added[0]
        self.assertEqual((tuple(line.dxf.start), tuple(line.dxf.end)), NEW_LINE)
        self.assertEqual(line.dxf.layer, "0")
        self.assertEqual(line.dxf.owner, after.modelspace().block_record_handle)
        # ezdxf's own database holds objects it made on loading: look at the file.
        self.assertGreater(int(after.header["$HANDSEED"], 16), max(handles_in_file(out)))

        # The dictionary and its child under a generated key.
        self.assertIn(APP, after.rootdict)
        d = after.rootdict[APP]
        self.assertEqual(d.dxftype(), "DICTIONARY")
        self.assertEqual(d.dxf.owner, after.rootdict.dxf.handle)
        self.assertEqual(len(d), 1)
        key, child = next(iter(d.items()))
        self.assertTrue(key.startswith("*"), key)
        self.assertEqual(child.dxftype(), "DICTIONARY")
        self.assertEqual((len(child), child.dxf.owner), (0, d.dxf.handle))

        # Extended data on the first entity, next to what other applications had.
        self.assertIn(APP, after.appids)
        first = after.entitydb.get(old[0].dxf.handle)
        self.assertEqual(xdata_of(first, APP), XDATA)
        if old[0].xdata:
            for app in old[0].xdata.data:
                self.assertEqual(xdata_of(first, app), xdata_of(old[0], app), app)

        # Nothing else changed.
        expect = common.contents(before)
        expect[("layout", after.modelspace().name, "LINE")] += 1
        expect[("block", after.modelspace().block_record.dxf.name)] += 1
        expect["layers"] += 1
        expect["appids"] += 0 if APP in before.appids else 1
        expect["objects"] += 2
        self.assertEqual(common.contents(after), expect)

        # The edited drawing reads and writes back the same.
        again = out + ".again.dxf"
        p = common.run([ZEFT, "convert", "-q", out, again])
        self.assertEqual((p.returncode, p.stderr), (0, ""))
        with open(out, "rb") as a, open(again, "rb") as b:
            self.assertTrue(a.read() == b.read(), "a second write differs")

        self.check_librecad(out)

    def check_librecad(self, path):
        if not common.librecad():
            print(f"\nskipped drawing {os.path.basename(path)} with LibreCAD: librecad is not installed", flush=True)
            return
        outdir = tempfile.mkdtemp(dir=self.tmp.name)
        pdf, output = common.librecad_pdf(path, outdir)
        self.assertIsNotNone(pdf, f"LibreCAD made no PDF of {path}: {output}")
        if shutil.which("pdftoppm"):
            self.assertTrue(has_ink(pdf, outdir), f"LibreCAD drew nothing for {path}")

    def test_sample_drawing(self):
        self.check_edits(common.SAMPLE)

    def test_corpus_drawings(self):
        for what, relpath in CORPUS_DRAWINGS:
            with self.subTest(what, drawing=relpath):
                source = common.corpus_file(relpath)
                if not source:
                    self.skipTest(f"corpus not found at {common.CORPUS_DIR}")
                self.check_edits(source)

    def test_layer_name_is_written_in_the_drawings_code_page(self):
        source = common.corpus_file(CORPUS_DRAWINGS[0][1])
        if not source:
            self.skipTest(f"corpus not found at {common.CORPUS_DIR}")
        with open(self.edit(source), "rb") as f:
            data = f.read()
        self.assertTrue(LAYER.encode("cp1252") in data, "AC1015 drawing, ANSI_1252")
        with open(self.edit(common.SAMPLE), "rb") as f:
            data = f.read()
        self.assertTrue(LAYER.encode("utf-8") in data, "AC1027 drawing: UTF-8")


def handles_in_file(path):
    """The handles (groups 5 and 105) of every record after the HEADER section."""
    with open(path, "rb") as f:
        lines = f.read().splitlines()
    handles, in_header = [], True
    for code, value in zip(lines[0::2], lines[1::2]):
        code, value = code.strip(), value.strip()
        if in_header:
            in_header = not (code == b"0" and value == b"ENDSEC")
        elif code in (b"5", b"105"):
            handles.append(int(value, 16))
    return handles


def has_ink(pdf, outdir):
    """True when the PDF's first page, rendered in grey, has dark pixels."""
    base = os.path.join(outdir, "page")
    # Scaled to a size, not a resolution: some drawings give LibreCAD huge pages.
    common.run(["pdftoppm", "-gray", "-scale-to", "400", "-f", "1", "-l", "1", pdf, base])
    pages = [f for f in os.listdir(outdir) if f.startswith("page") and f.endswith(".pgm")]
    if not pages:
        return False
    with open(os.path.join(outdir, pages[0]), "rb") as f:
        data = f.read()
    # Binary PGM: "P5", width, height, maxval, one whitespace, then the pixels.
    fields, pos = [], 0
    while len(fields) < 4:
        while data[pos:pos + 1].isspace():
            pos += 1
        end = pos
        while not data[end:end + 1].isspace():
            end += 1
        fields.append(data[pos:end])
        pos = end
    width, height = int(fields[1]), int(fields[2])
    pixels = data[pos + 1:pos + 1 + width * height]
    return any(p < 200 for p in pixels)


if __name__ == "__main__":
    unittest.main()
