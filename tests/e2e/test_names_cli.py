#!/usr/bin/python3
"""`zeftlayer names` on the sample drawing given the default standard and a
project: the names a person expects, the reasons for entities left alone,
a preview through another standard, and bad input. The drawing is never
written."""
import json
import os
import shutil
import tempfile
import unittest

import common
from common import ezdxf

ZEFT = common.program("zeftlayer")


class Names(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.mkdtemp(prefix="zeft-names-")
        cls.env = {"BELTRIX_DATA": os.path.join(cls.tmp, "data")}
        cls.drawing = os.path.join(cls.tmp, "sample.dxf")
        steps = [["install", common.SAMPLE, "Beltrix", "-o", cls.drawing],
                 ["project", cls.drawing, "set", "--project", "Maison", "--building", "Bâtiment A", "--mode", "level"],
                 ["project", cls.drawing, "level", "add", "Niveau 0"],
                 ["project", cls.drawing, "level", "add", "Niveau 1"],
                 ["project", cls.drawing, "level", "assign", "Niveau 1", "--layer", "WALLS"],
                 ["project", cls.drawing, "set", "--active", "Niveau 0"]]
        for args in steps:
            proc = cls.zeft(args)
            assert proc.returncode == 0, f"{args}: {proc.stderr}"

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.tmp, ignore_errors=True)

    @classmethod
    def zeft(cls, args):
        return common.run([ZEFT] + args, env=cls.env)

    def names(self, *extra):
        before = common.digest(self.drawing)
        proc = self.zeft(["names", self.drawing, "--json", *extra])
        self.assertEqual(proc.returncode, 0, proc.stderr)
        self.assertEqual(common.digest(self.drawing), before, "names must not write the drawing")
        return {e["handle"]: e for e in json.loads(proc.stdout)["entities"]}

    def test_names_from_the_default_standard_and_the_project(self):
        rows = self.names()
        doc = ezdxf.readfile(self.drawing)
        walls = [e.dxf.handle for e in doc.modelspace() if common.layer_of(e) == "WALLS"]
        self.assertTrue(walls)
        for handle in walls:
            self.assertEqual(rows[handle]["target"], "Bâtiment A. Niveau 1")
        # Entities in no level go to the level being worked on.
        window = next(e.dxf.handle for e in doc.modelspace() if common.layer_of(e) == "WINDOWS")
        self.assertEqual(rows[window]["target"], "Bâtiment A. Niveau 0")
        viewports = sorted((e.dxf.id, e.dxf.handle) for e in doc.layouts.active_layout() if e.dxftype() == "VIEWPORT")
        self.assertIsNone(rows[viewports[0][1]]["target"])
        self.assertEqual(rows[viewports[0][1]]["note"], "overall paper-space viewport")
        self.assertEqual((rows[viewports[1][1]]["target"], rows[viewports[1][1]]["note"]), ("Frames", "exception"))
        # Every entity of model space and of the current layout, none of the blocks.
        expected = len(doc.modelspace()) + len(doc.layouts.active_layout())
        self.assertEqual(len(rows), expected)

        text = self.zeft(["names", self.drawing]).stdout
        self.assertIn("Standard: Beltrix", text)
        self.assertIn('building "Bâtiment A", working mode 0', text)

    def test_another_standard_installed_in_memory(self):
        """--standard gives what that standard gives once installed, even
        where its user functions share names with the drawing's own."""
        folder = os.path.join(self.env["BELTRIX_DATA"], "Support", "Layer Standards")

        def standard(file_name, name, kind):
            with open(os.path.join(folder, file_name), "w", encoding="cp1252", newline="\r\n") as f:
                f.write(f"[Layer_Standard]\nName={name}\n[Model_Rules]\nName_1=Plan\nField_1=P\n"
                        "Name_2=Kind\nField_2==KIND()\nName_3=Level\nField_3==LEVEL()\n"
                        f"[Separator]\nValue=-\nWhiteSpaceAfter=0\n[Function_1]\nName=KIND\nDefault={kind}\n"
                        "Key_1=NoSuchClass\nValue_1=x\n")
        standard("mine.std", "Mine", "Drawing")
        standard("plans.std", "Plans", "Plan")
        mine = os.path.join(self.tmp, "mine.dxf")
        self.assertEqual(self.zeft(["install", self.drawing, "Mine", "-o", mine]).returncode, 0)
        before = common.digest(mine)
        proc = self.zeft(["names", mine, "--json", "--standard", "Plans"])
        self.assertEqual(proc.returncode, 0, proc.stderr)
        self.assertEqual(common.digest(mine), before, "names must not write the drawing")
        rows = json.loads(proc.stdout)["entities"]
        self.assertEqual({r["target"] for r in rows if r["target"]}, {"P-Plan-Niveau 0", "P-Plan-Niveau 1"})
        proc = self.zeft(["names", mine, "--json"])
        self.assertIn("P-Drawing-Niveau 0", {r["target"] for r in json.loads(proc.stdout)["entities"]})

    def test_no_project_goes_to_layer_zero(self):
        plain = os.path.join(self.tmp, "plain.dxf")
        self.assertEqual(self.zeft(["install", common.SAMPLE, "Beltrix", "-o", plain]).returncode, 0)
        proc = self.zeft(["names", plain, "--json"])
        rows = [r for r in json.loads(proc.stdout)["entities"] if r["note"] != "overall paper-space viewport"]
        self.assertEqual({(r["target"], r["note"]) for r in rows if r["note"] != "exception"},
                         {("0", "no project, so no rule")})

    def test_bad_input(self):
        cases = [(["names", common.SAMPLE], 1, "holds no layer standard"),
                 (["names", self.drawing, "--standard", "nope"], 1, "no layer standard 'nope'"),
                 (["names", self.drawing, "--bogus"], 2, "unknown option '--bogus'"),
                 (["names"], 2, "expected one DRAWING"),
                 (["names", os.path.join(self.tmp, "missing.dxf")], 1, "missing.dxf")]
        for args, code, message in cases:
            proc = self.zeft(args)
            self.assertEqual(proc.returncode, code, args)
            self.assertIn(message, proc.stderr, args)


if __name__ == "__main__":
    unittest.main()
