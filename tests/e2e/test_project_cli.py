#!/usr/bin/python3
"""`zeftlayer project` on a copy of the sample drawing: a building with two
levels and a draft view, entities put in them by layer, by window and by
handle, an image reference and a mould list; read back with `show --json`
and by ezdxf as an independent reader, and bad input that must fail without
touching the drawing."""
import json
import os
import unittest

import common
from common import ezdxf

WINDOW = (0.0, 0.0, 12000.0, 250.0)  # window sills, a column and survey points, nothing else


def inside(points):
    x1, y1, x2, y2 = WINDOW
    return all(x1 <= p[0] <= x2 and y1 <= p[1] <= y2 for p in points)


class ProjectCli(common.Case):
    def setUp(self):
        super().setUp()
        self.plan = self.copy(common.SAMPLE, "plan.dxf")
        self.msp = list(ezdxf.readfile(self.plan).modelspace())

    def ok(self, *args):
        return super().ok("project", *args).stdout

    def show(self, drawing):
        return json.loads(self.ok(drawing, "show", "--json"))

    def handles(self, *types, layer=None):
        return [e.dxf.handle for e in self.msp if e.dxftype() in types and (layer is None or e.dxf.layer == layer)]

    def test_build_a_project_and_read_it_back(self):
        p = self.plan
        self.assertIsNone(self.show(p)["project"])
        self.ok(p, "set", "--project", "Résidence les Tilleuls", "--building", "Bâtiment A", "--mode", "level")
        self.ok(p, "level", "add", "Niveau 0", "--plan", "RDC")
        self.ok(p, "level", "add", "Niveau 1")
        self.ok(p, "view", "add", "Coupe A", "--type", "Coupe", "--plan", "Plan 2")
        out = self.ok(p, "level", "assign", "Niveau 0", "--layer", "walls", "--layer", "Façade")
        walls = self.handles("LINE", "ARC", "LWPOLYLINE", layer="WALLS") + self.handles("TEXT", layer="Façade")
        self.assertIn(f"Put {len(walls)} entities", out)
        in_window = [e.dxf.handle for e in self.msp
                     if (e.dxftype() == "LINE" and inside([e.dxf.start, e.dxf.end]))
                     or (e.dxftype() == "CIRCLE" and inside([e.dxf.center]))
                     or (e.dxftype() == "POINT" and inside([e.dxf.location]))]
        self.assertGreater(len(in_window), 2)
        self.ok(p, "level", "assign", "niveau 1", "--window", ",".join(map(str, WINDOW)))
        doors = self.handles("INSERT")
        self.ok(p, "view", "assign", "Coupe A", "--handle", doors[0], "--handle", doors[1].lower())
        self.ok(p, "set", "--active", "Niveau 1", "--model-rules", "off", "--mode", "doc", "--drawing-set", "yes")
        self.assertIn("Working mode:   doc (2)", self.ok(p, "show"))
        self.ok(p, "set", "--mode", "level")
        columns = self.handles("CIRCLE")
        self.ok(p, "mould", "MouleList", "add", *columns)
        self.ok(p, "mould", "MouleList", "remove", columns[2])

        shown = self.show(p)
        level1 = next(x["handle"] for x in shown["levels"] if x["name"] == "Niveau 1")
        view = shown["views"][0]["handle"]
        self.ok(p, "image", self.handles("MTEXT")[0], "--shows", view)
        shown = self.show(p)
        self.assertEqual(shown["project"], {
            "name": "Résidence les Tilleuls", "building": "Bâtiment A", "mode": 0, "modelRules": False,
            "activeView": {"kind": "level", "name": "Niveau 1", "handle": level1}, "selectedView": None,
            "drawingSet": True})
        levels = {x["name"]: x for x in shown["levels"]}
        self.assertEqual(sorted(levels["Niveau 0"]["entities"]), sorted(walls))
        self.assertEqual(levels["Niveau 0"]["plan"], "RDC")
        self.assertEqual(sorted(levels["Niveau 1"]["entities"]), sorted(in_window))
        self.assertEqual(levels["Niveau 1"]["count"], len(in_window))
        self.assertEqual([(v["name"], v["type"], v["plan"], v["entities"]) for v in shown["views"]],
                         [("Coupe A", "Coupe", "Plan 2", doors[:2])])
        self.assertEqual(shown["images"], [{"image": self.handles("MTEXT")[0], "shows": view}])
        self.assertEqual(shown["mouldLists"], {"MouleList": columns[:2]})
        self.assertIn("Building:       Bâtiment A", self.ok(p, "show"))

        # ezdxf reads it all, and its audit finds nothing.
        doc = ezdxf.readfile(p)
        self.assertEqual(common.audit_errors(doc), [])
        project = doc.rootdict["ZEFT_PROJECT"]
        self.assertEqual(list(project.keys()), ["PROJECT", "LEVEL:Niveau 0", "LEVEL:Niveau 1", "VIEW:Coupe A"])
        record = [(t.code, t.value) for t in project["PROJECT"].tags]
        self.assertEqual(record, [(70, 0), (300, "Résidence les Tilleuls"), (301, "Bâtiment A"), (90, 0), (290, 0), (291, 1),
                                  (340, level1)])
        self.assertEqual(project["LEVEL:Niveau 1"].dxf.handle, level1)
        self.assertTrue(doc.appids.has_entry("ZEFT_PROJECT"))
        wall = doc.entitydb[walls[0]]
        self.assertEqual(list(wall.get_xdata("ZEFT_PROJECT")),
                         [(1000, "HELD_BY"), (1005, project["LEVEL:Niveau 0"].dxf.handle)])
        moulds = doc.rootdict["ZEFT_MOULD_LISTS"]["MouleList"]
        self.assertEqual([t.value for t in moulds.tags], columns[:2])

        # Renaming, removing, and writing elsewhere.
        out = self.path("out.dxf")
        before = common.read_bytes(p)
        self.ok(p, "level", "rename", "Niveau 0", "Rez-de-chaussée", "-o", out)
        self.ok(out, "level", "remove", "niveau 1")
        self.assertEqual(common.read_bytes(p), before)
        shown = self.show(out)
        self.assertEqual([(x["name"], x["count"]) for x in shown["levels"]], [("Rez-de-chaussée", len(walls))])
        self.assertIsNone(shown["project"]["activeView"])
        self.assertEqual(common.audit_errors(ezdxf.readfile(out)), [])

    def test_bad_input_fails_cleanly_and_leaves_the_drawing(self):
        self.ok(self.plan, "level", "add", "Niveau 0")
        foreign = self.path("foreign.dxf")
        doc = ezdxf.readfile(common.SAMPLE)
        doc.rootdict.add_new_dict("ZEFT_PROJECT").add_xrecord("NOTES").reset([(1, "not a project")])
        doc.saveas(foreign)
        p = self.plan
        cases = [
            ((p, "level", "assign", "Niveau 0", "--handle", "FFFFF"), 1, "FFFFF"),
            ((p, "level", "assign", "Niveau 0", "--handle", "G1"), 1, "G1"),
            ((p, "level", "assign", "Niveau 9", "--layer", "WALLS"), 1, "Niveau 9"),
            ((p, "level", "assign", "Niveau 0", "--layer", "NOPE"), 1, "NOPE"),
            ((p, "level", "add", "NIVEAU 0"), 1, "already exists"),
            ((p, "set", "--active", "Coupe Z"), 1, "Coupe Z"),
            ((p, "image", self.handles("LINE")[0], "--shows", "FFFFF"), 1, "FFFFF"),
            ((p, "mould", "MouleList", "remove", self.handles("LINE")[0]), 1, "MouleList"),
            ((foreign, "set", "--project", "X"), 1, "ZEFT_PROJECT"),
            ((self.path("missing.dxf"), "show"), 1, "missing.dxf"),
            ((p, "level", "assign", "Niveau 0", "--window", "1,2,3"), 2, "--window"),
            ((p, "level", "assign", "Niveau 0"), 2, "--handle"),
            ((p, "set", "--mode", "floor"), 2, "floor"),
            ((p, "set", "--frobnicate", "1"), 2, "--frobnicate"),
            ((p, "mould", "Nowhere", "list"), 2, "Nowhere"),
            ((p, "show", "-o", self.path("x.dxf")), 2, "-o"),
            ((p,), 2, "subcommand"),
        ]
        for args, code, named in cases:
            with self.subTest(args=args[1:]):
                proc = self.refused_untouched(["project", *args], code, named, args[0])
                self.assertIn(named, proc.stderr.splitlines()[0])
                self.assertEqual(len(proc.stderr.splitlines()), 1 if code == 1 else 2, proc.stderr)
                self.assertEqual(sorted(os.listdir(self.dir)), ["foreign.dxf", "plan.dxf"], "nothing else is written")
        self.assertIn("holds no project", self.ok(foreign, "show"))


if __name__ == "__main__":
    unittest.main()
