#!/usr/bin/python3
"""The layer manager's five persistent objects in a drawing file: written
through the module's classes (tests/e2e/standard_drawing.cpp), accepted and
rewritten by ezdxf as an independent reader, and read back with every value.
Also `zeftlayer modules`, which loads the built module and lists what it
registers. Proxies kept tag for tag without the module, and a damaged record
kept as read, are checked by the module loading and module tests."""
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
}

# (C++ class, DXF name) in the order the module registers them.
CLASSES = [("ZEFTLayerStandard", "ZEFTLAYERSTANDARD"), ("ZEFTLayerRule", "ZEFTLAYERRULE"),
           ("ZEFTRuleFunction", "ZEFTRULEFUNCTION"), ("ZEFTRuleEnum", "ZEFTRULEENUM"),
           ("ZEFTRuleException", "ZEFTRULEEXCEPTION")]


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

    def test_values_read_back_and_ezdxf_accepts_and_rewrites_them(self):
        self.assertEqual(self.dump(self.written), (EXPECTED, ""))
        doc = ezdxf.readfile(self.written)
        self.assertEqual(common.audit_errors(doc), [])
        for name, dxf_name in CLASSES:
            cls = doc.classes.get(dxf_name)
            self.assertEqual((cls.dxf.cpp_class_name, cls.dxf.app_name), (name, "ZEFTLayerManager"))

        # The tree: the standard under its key, the others under generated keys.
        manager = doc.rootdict["ZEFT_LAYER_MANAGER"]
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
        self.assertEqual(self.dump(again), (EXPECTED, ""))

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


if __name__ == "__main__":
    unittest.main()
