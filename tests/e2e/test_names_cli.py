#!/usr/bin/python3
"""`zeftlayer names` on the prepared sample (the default standard and a
project): the names a person expects, the reasons for entities left alone,
a preview through another standard, and bad input. The drawing is never
written. The data folder comes from $BELTRIX_DATA here."""
import json
import os
import unittest

import common
from common import ZEFT, ezdxf


class Names(common.PreparedCase):
    def zeft(self, *args, timeout=60):
        return common.run([ZEFT, *args], timeout=timeout, env={"BELTRIX_DATA": self.data})

    def names(self, drawing, *extra):
        before = common.digest(drawing)
        proc = self.ok("names", drawing, "--json", *extra)
        self.assertEqual(common.digest(drawing), before, "names must not write the drawing")
        return {e["handle"]: e for e in json.loads(proc.stdout)["entities"]}

    def test_names_from_the_default_standard_and_the_project(self):
        rows = self.names(self.sample)
        doc = ezdxf.readfile(self.sample)
        walls = [e.dxf.handle for e in doc.modelspace() if common.layer_of(e) == "WALLS"]
        self.assertTrue(walls)
        self.assertEqual({rows[h]["target"] for h in walls}, {"Bâtiment A. Niveau 1"})
        # Entities in no level go to the level being worked on.
        window = next(e.dxf.handle for e in doc.modelspace() if common.layer_of(e) == "WINDOWS")
        self.assertEqual(rows[window]["target"], "Bâtiment A. Niveau 0")
        viewports = sorted((e.dxf.id, e.dxf.handle) for e in doc.layouts.active_layout() if e.dxftype() == "VIEWPORT")
        self.assertEqual((rows[viewports[0][1]]["target"], rows[viewports[0][1]]["note"]),
                         (None, "overall paper-space viewport"))
        self.assertEqual((rows[viewports[1][1]]["target"], rows[viewports[1][1]]["note"]), ("Frames", "exception"))
        # Every entity of model space and of the current layout, none of the blocks.
        self.assertEqual(len(rows), len(doc.modelspace()) + len(doc.layouts.active_layout()))

        text = self.ok("names", self.sample).stdout
        self.assertIn("Standard: Beltrix", text)
        self.assertIn('building "Bâtiment A", working mode 0', text)

    def test_another_standard_installed_in_memory(self):
        """--standard gives what that standard gives once installed, even
        where its user functions share names with the drawing's own."""
        folder = os.path.join(self.data, "Support", "Layer Standards")
        for file_name, name, kind in (("mine.std", "Mine", "Drawing"), ("plans.std", "Plans", "Plan")):
            with open(os.path.join(folder, file_name), "w", encoding="cp1252", newline="\r\n") as f:
                f.write(f"[Layer_Standard]\nName={name}\n[Model_Rules]\nName_1=Plan\nField_1=P\n"
                        "Name_2=Kind\nField_2==KIND()\nName_3=Level\nField_3==LEVEL()\n"
                        f"[Separator]\nValue=-\nWhiteSpaceAfter=0\n[Function_1]\nName=KIND\nDefault={kind}\n"
                        "Key_1=NoSuchClass\nValue_1=x\n")
        mine = self.path("mine.dxf")
        self.ok("install", self.sample, "Mine", "-o", mine)
        targets = {r["target"] for r in self.names(mine, "--standard", "Plans").values() if r["target"]}
        self.assertEqual(targets, {"P-Plan-Niveau 0", "P-Plan-Niveau 1"})
        self.assertIn("P-Drawing-Niveau 0", {r["target"] for r in self.names(mine).values()})

    def test_no_project_goes_to_layer_zero(self):
        plain = self.path("plain.dxf")
        self.ok("install", common.SAMPLE, "Beltrix", "-o", plain)
        notes = {(r["target"], r["note"]) for r in self.names(plain).values()}
        self.assertEqual({n for n in notes if n[1] not in ("exception", "overall paper-space viewport")},
                         {("0", "no project, so no rule")})

    def test_bad_input(self):
        self.refusals([(["names", common.SAMPLE], 1, "holds no layer standard"),
                       (["names", self.sample, "--standard", "nope"], 1, "no layer standard 'nope'"),
                       (["names", self.sample, "--bogus"], 2, "unknown option '--bogus'"),
                       (["names"], 2, "expected one DRAWING"),
                       (["names", self.path("missing.dxf")], 1, "missing.dxf")])


if __name__ == "__main__":
    unittest.main()
