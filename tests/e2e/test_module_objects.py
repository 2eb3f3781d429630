#!/usr/bin/python3
"""The layer manager's five persistent objects in a drawing file: written
through the module's classes (tests/e2e/standard_drawing.cpp), accepted and
rewritten by ezdxf as an independent reader, read back with every value, kept
tag for tag by `zeftlayer convert` while the module is not loaded, and a
damaged record kept as it was. Also `zeftlayer modules`, which loads the
built module and lists what it registers."""
import json
import os
import re
import tempfile
import unittest

import common
from common import ezdxf

TOOL = common.program("standard_drawing")
ZEFT = common.program("zeftlayer")

# What `standard_drawing write` puts into the drawing, as `dump` prints it.
EXPECTED = {
    "standard": {"name": "Modèle test", "fileName": "Beltrix.std", "separator": "_ "},
    "rules": {
        "model": [{"name": "Building Name", "value": "=BUILDING()", "isFunction": True},
                  {"name": "User defined", "value": "Vues calculées", "isFunction": False},
                  {"name": "Level / View name", "value": "=LEVEL/VIEW()", "isFunction": True}],
        "draft": [{"name": "User defined", "value": "Vues calculées", "isFunction": False},
                  {"name": "Element Type", "value": "=GENERAL TYPE()", "isFunction": True}],
        "doc": [{"name": "User defined", "value": "Documents", "isFunction": False}],
    },
    "functions": [{"name": "MATERIAL", "default": "Autre", "pairs": [["AcDbLine", "Béton"], ["AcDbCircle", "Acier"]]},
                  {"name": "ZONE", "default": "Z0", "pairs": [["AcDbText", "Étiquettes"]]}],
    "enums": [{"name": "Niveaux", "values": ["RDC", "R+1", "R+2"]}, {"name": "Bâtiments", "values": ["A", "B"]}],
    "exceptions": [["AcDbViewport", "Frames"], ["AcDbText", "Auto..."]],
    "kept": [],
}

# (C++ class, DXF name) in the order the module registers them.
CLASSES = [("ZEFTLayerStandard", "ZEFTLAYERSTANDARD"), ("ZEFTLayerRule", "ZEFTLAYERRULE"),
           ("ZEFTRuleFunction", "ZEFTRULEFUNCTION"), ("ZEFTRuleEnum", "ZEFTRULEENUM"),
           ("ZEFTRuleException", "ZEFTRULEEXCEPTION")]


def read_tags(path):
    """The drawing's tags as [code, value] pairs, values exactly as written."""
    with open(path, "rb") as f:
        lines = f.read().decode("utf-8").split("\n")
    if lines and lines[-1] == "":
        lines.pop()
    lines = [line[:-1] if line.endswith("\r") else line for line in lines]
    assert len(lines) % 2 == 0, f"{path}: odd number of lines"
    return [[int(lines[i]), lines[i + 1]] for i in range(0, len(lines), 2)]


def write_tags(path, tags):
    with open(path, "wb") as f:
        f.write("".join(f"{code:>3}\n{value}\n" for code, value in tags).encode("utf-8"))


def record_at(tags, start):
    """The tags of the record that starts at index `start`."""
    end = start + 1
    while end < len(tags) and tags[end][0] != 0:
        end += 1
    return tags[start:end]


class ModuleObjects(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.TemporaryDirectory()
        cls.written = os.path.join(cls.tmp.name, "standard.dxf")
        p = common.run([TOOL, "write", cls.written])
        if p.returncode != 0:
            raise RuntimeError(f"standard_drawing write: exit {p.returncode}: {p.stderr}")

    @classmethod
    def tearDownClass(cls):
        cls.tmp.cleanup()

    def path(self, name):
        return os.path.join(self.tmp.name, name)

    def dump(self, path):
        p = common.run([TOOL, "dump", path])
        self.assertEqual(p.returncode, 0, p.stderr)
        return json.loads(p.stdout), p.stderr

    def test_written_values_read_back(self):
        values, warnings = self.dump(self.written)
        self.assertEqual(warnings, "")
        self.assertEqual(values, EXPECTED)

    def test_ezdxf_accepts_and_rewrites_the_objects(self):
        doc = ezdxf.readfile(self.written)
        self.assertEqual(common.audit_errors(doc), [])
        for name, dxf_name in CLASSES:
            cls = doc.classes.get(dxf_name)
            self.assertEqual((cls.dxf.cpp_class_name, cls.dxf.app_name), (name, "ZEFTLayerManager"))

        # The tree: the standard under its key, the others under generated keys.
        manager = ezdxf.readfile(self.written).rootdict["ZEFT_LAYER_MANAGER"]
        entries = dict(manager.items())
        self.assertEqual(entries["ZEFT_LAYER_MANAGER"].dxftype(), "ZEFTLAYERSTANDARD")
        kinds = sorted(e.dxftype() for key, e in entries.items() if key != "ZEFT_LAYER_MANAGER")
        self.assertEqual(kinds, ["ZEFTLAYERRULE"] * 3 + ["ZEFTRULEENUM"] * 2 + ["ZEFTRULEEXCEPTION"]
                         + ["ZEFTRULEFUNCTION"] * 2)
        for e in entries.values():
            self.assertEqual(e.dxf.owner, manager.dxf.handle)

        # Rewritten by ezdxf, the drawing still holds every value.
        again = self.path("ezdxf-saved.dxf")
        doc.saveas(again)
        values, warnings = self.dump(again)
        self.assertEqual(warnings, "")
        self.assertEqual(values, EXPECTED)

    def test_convert_without_the_module_keeps_every_tag(self):
        out = self.path("converted.dxf")
        p = common.run([ZEFT, "convert", self.written, out])
        self.assertEqual(p.returncode, 0, p.stderr)
        self.assertEqual(read_tags(out), read_tags(self.written))

    def test_modules_lists_what_the_module_registers(self):
        p = common.run([ZEFT, "modules"])
        self.assertEqual(p.returncode, 0, p.stderr)
        listed = re.findall(r"^    (\w+) +parent (\w+), DXF (\w+), application (\w+), version (\d+)\.(\d+), "
                            r"proxy flags (\d+)$", p.stdout, re.M)
        self.assertEqual(listed, [(name, "AcDbObject", dxf, "ZEFTLayerManager", "29", "6", "0")
                                  for name, dxf in CLASSES])
        self.assertRegex(p.stdout, r"command groups:\n    ZEFTLAYERMANAGER\n"
                                   r"      zeftlayerstandard \(local name zeftstandardcalque, flags 2\)\n")
        self.assertTrue(p.stdout.endswith("  unloaded\n"), p.stdout)

    def test_modules_refuses_a_missing_module(self):
        p = common.run([ZEFT, "modules", "--module", "/nonexistent.so"])
        self.assertEqual(p.returncode, 1)
        self.assertIn("/nonexistent.so", p.stderr)
        self.assertIn("no such module file", p.stderr)
        self.assertEqual(p.stdout, "")

    def test_record_with_a_wrong_code_is_kept_as_it_was(self):
        tags = read_tags(self.written)
        # The Model rule: the standard's first rule pointer.
        standard = next(i for i, t in enumerate(tags) if t == [100, "ZEFTLayerStandard"])
        handle = next(v for c, v in tags[standard:] if c == 340)
        start = next(i for i, t in enumerate(tags) if t == [0, "ZEFTLAYERRULE"] and [5, handle] in record_at(tags, i))
        marker = tags.index([100, "ZEFTLayerRule"], start)
        # After the marker: version 70, count 90, the first field's value 1, then its flag 70.
        self.assertEqual([c for c, v in tags[marker + 1:marker + 5]], [70, 90, 1, 70])
        tags[marker + 4][0] = 71
        broken = self.path("broken.dxf")
        write_tags(broken, tags)

        values, warnings = self.dump(broken)
        self.assertRegex(warnings, rf"ZEFTLAYERRULE {handle} kept as read .*expected group code 70")
        self.assertEqual(len(warnings.splitlines()), 1, warnings)
        # Not read half: no fields at all; the rest of the standard is whole.
        self.assertIsNone(values["rules"]["model"])
        self.assertEqual(values["kept"], [{"handle": handle, "class": "ZEFTLayerRule"}])
        expected = json.loads(json.dumps(EXPECTED))
        expected["rules"]["model"] = None
        expected["kept"] = values["kept"]
        self.assertEqual(values, expected)

        # Written again with the classes loaded, the record is as it was.
        copy = self.path("broken-copy.dxf")
        p = common.run([TOOL, "copy", broken, copy])
        self.assertEqual(p.returncode, 0, p.stderr)
        self.assertEqual(read_tags(copy), tags)


if __name__ == "__main__":
    unittest.main()
