#!/usr/bin/python3
"""Regenerate examples/sample.dxf, the bundled sample drawing.

usage: /usr/bin/python3 examples/make_sample.py [OUT.dxf]

A ground-floor plan of a small house (millimetres, DXF R2013 / AC1027):
walls, windows, columns, doors from a DOOR block (one with attributes), room
names and notes with accented French words, dimensions, an A3 paper-space
layout with a viewport at 1:50, XDATA of the application "SURVEY" on survey
points, a locked layer (WALLS), and three entities of the suite's structural
modules (a rectangular grid, a mesh cut and its symbol) that only the CLASSES
section describes, as a drawing saved without those modules holds them.
Needs Debian's python3-ezdxf. The output is reproducible: metadata (dates,
GUIDs) is written with fixed values.
"""
import io
import os
import sys

import ezdxf
from ezdxf import bbox
from ezdxf.enums import TextEntityAlignment

HERE = os.path.dirname(os.path.abspath(__file__))

LAYERS = [
    # name, colour, linetype, lineweight (1/100 mm)
    ("WALLS", 7, "Continuous", 50),
    ("WINDOWS", 4, "Continuous", 25),
    ("DOORS", 3, "Continuous", 25),
    ("COLUMNS", 1, "Continuous", 35),
    ("TEXT", 2, "Continuous", 18),
    ("Façade", 6, "Continuous", 18),
    ("DIMENSIONS", 5, "Continuous", 13),
    ("SURVEY-POINTS", 30, "Continuous", 13),
    ("AXES", 8, "DASHDOT", 13),
    ("VIEWPORTS", 9, "Continuous", 13),
]

# Outer shell 12 m x 8 m; walls 300 mm thick outside, 100 mm inside.
OUTER = [(0, 0), (12000, 0), (12000, 8000), (0, 8000)]
INNER = [(300, 300), (11700, 300), (11700, 7700), (300, 7700)]
DIMS = {"layer": "DIMENSIONS"}
DIMSTYLE = "COTES-50"    # 2.5 mm text and arrows on a 1:50 sheet


def add_door_block(doc) -> None:
    blk = doc.blocks.new("DOOR", base_point=(0, 0))
    blk.add_line((0, 0), (900, 0))                   # leaf, closed position
    blk.add_line((0, 0), (0, 900))                   # leaf, open
    blk.add_arc((0, 0), 900, 0, 90)                  # swing
    blk.add_attdef("NUM", (100, 350), dxfattribs={"height": 120, "prompt": "Numéro de porte"})
    blk.add_attdef("WIDTH", (100, 150), dxfattribs={"height": 80, "prompt": "Largeur (cm)"})


def survey(entity, point_id: str, z: float, code: int) -> None:
    where = entity.dxf.center if entity.dxftype() == "CIRCLE" else entity.dxf.location
    entity.set_xdata("SURVEY", [(1000, point_id), (1040, z), (1070, code), (1010, where)])


def build(doc) -> None:
    doc.header["$MEASUREMENT"] = 1       # metric
    doc.header["$LUNITS"] = 2            # decimal
    doc.header["$LUPREC"] = 0
    doc.header["$LTSCALE"] = 50.0
    doc.appids.new("SURVEY")
    for name, colour, linetype, lineweight in LAYERS:
        layer = doc.layers.add(name, color=colour, linetype=linetype)
        layer.dxf.lineweight = lineweight
    doc.layers.get("VIEWPORTS").dxf.plot = 0
    doc.layers.get("WALLS").lock()
    cotes = doc.dimstyles.duplicate_entry("EZDXF", DIMSTYLE)
    cotes.dxf.dimscale = 50
    cotes.dxf.dimdec = 0
    cotes.dxf.dimlfac = 1.0
    add_door_block(doc)
    msp = doc.modelspace()

    # Walls: outer and inner faces of the shell, then the partitions.
    msp.add_lwpolyline(OUTER, close=True, dxfattribs={"layer": "WALLS"})
    msp.add_lwpolyline(INNER, close=True, dxfattribs={"layer": "WALLS"})
    for start, end in [
        ((5000, 300), (5000, 7700)), ((5100, 300), (5100, 7700)),      # living room | rest
        ((5100, 4000), (11700, 4000)), ((5100, 4100), (11700, 4100)),  # kitchen | bedrooms
        ((8500, 4100), (8500, 7700)), ((8600, 4100), (8600, 7700)),    # bedroom | bathroom
    ]:
        msp.add_line(start, end, dxfattribs={"layer": "WALLS"})
    # A rounded bay window on the east front.
    msp.add_arc((12000, 2000), 1000, 270, 90, dxfattribs={"layer": "WALLS"})
    msp.add_arc((12000, 2000), 700, 270, 90, dxfattribs={"layer": "WALLS"})

    # Windows: two glazing lines in the outer wall for each opening.
    for x in (1500, 3200, 7000, 9800):
        for y in (100, 200):
            msp.add_line((x, y), (x + 1200, y), dxfattribs={"layer": "WINDOWS"})
    msp.add_lwpolyline([(100, 5500), (100, 6900), (200, 6900), (200, 5500)],
                       dxfattribs={"layer": "WINDOWS"})

    # Columns, each with its survey point.
    for i, (x, y) in enumerate([(5050, 150), (5050, 7850), (11850, 4050)]):
        c = msp.add_circle((x, y), 150, dxfattribs={"layer": "COLUMNS"})
        survey(c, f"P{i + 1:03d}", 100.25 + 0.01 * i, 2)

    # Survey points at the outer corners.
    for i, (x, y) in enumerate(OUTER):
        p = msp.add_point((x, y, 0), dxfattribs={"layer": "SURVEY-POINTS"})
        survey(p, f"S{i + 1:03d}", 100.00 + 0.02 * i, 1)

    # Doors: plain inserts, one rotated, one mirrored, one scaled, and the
    # front door with attributes.
    msp.add_blockref("DOOR", (5000, 2000), dxfattribs={"layer": "DOORS", "rotation": 90})
    msp.add_blockref("DOOR", (6000, 4000), dxfattribs={"layer": "DOORS"})
    msp.add_blockref("DOOR", (9500, 4100), dxfattribs={"layer": "DOORS", "xscale": -1})
    msp.add_blockref("DOOR", (8500, 5000), dxfattribs={"layer": "DOORS", "rotation": 270,
                                                       "xscale": 0.8, "yscale": 0.8})
    front = msp.add_blockref("DOOR", (2000, 8000), dxfattribs={"layer": "DOORS", "rotation": 180})
    front.add_auto_attribs({"NUM": "P-01", "WIDTH": "90"})

    # Structural axes.
    for x in (150, 5050, 11850):
        msp.add_line((x, -1500), (x, 9500), dxfattribs={"layer": "AXES"})

    # Room names and notes.
    for text, (x, y) in [
        ("Séjour", (2500, 4000)), ("Entrée", (1500, 7000)), ("Cuisine", (7500, 2000)),
        ("Chambre 1", (6800, 6000)), ("Salle de bain", (10150, 6000)),
    ]:
        msp.add_text(text, height=250, dxfattribs={"layer": "TEXT", "style": "OpenSans"}) \
            .set_placement((x, y), align=TextEntityAlignment.MIDDLE_CENTER)
    msp.add_text("Surface habitable : 86,4 m²", height=150,
                 dxfattribs={"layer": "TEXT", "insert": (500, -2500)})
    msp.add_text("Façade sud", height=300,
                 dxfattribs={"layer": "Façade", "insert": (4500, -3200)})
    msp.add_text("Élévation nord — voir planche 2", height=200,
                 dxfattribs={"layer": "Façade", "insert": (4000, 10200)})
    msp.add_mtext("Niveau 0 — Rez-de-chaussée\\PÉchelle 1:50\\PCotes en millimètres",
                  dxfattribs={"layer": "TEXT", "char_height": 200, "insert": (13500, 8000),
                              "width": 4000})

    # Dimensions.
    msp.add_linear_dim(base=(0, -1000), p1=(0, 0), p2=(12000, 0), dimstyle=DIMSTYLE,
                       dxfattribs=DIMS).render()
    msp.add_linear_dim(base=(-1000, 0), p1=(0, 0), p2=(0, 8000), angle=90, dimstyle=DIMSTYLE,
                       dxfattribs=DIMS).render()
    msp.add_linear_dim(base=(0, 8800), p1=(300, 7700), p2=(5000, 7700), dimstyle=DIMSTYLE,
                       dxfattribs=DIMS).render()
    msp.add_aligned_dim(p1=(12000, 1000), p2=(12000, 3000), distance=-1500, dimstyle=DIMSTYLE,
                        dxfattribs=DIMS).render()

    # Drawing extents, as a CAD program would store them.
    extents = bbox.extents(msp)
    msp.dxf.extmin = extents.extmin
    msp.dxf.extmax = extents.extmax
    msp.dxf.limmin = (extents.extmin.x, extents.extmin.y)
    msp.dxf.limmax = (extents.extmax.x, extents.extmax.y)

    # Paper space: one A3 layout showing the plan at 1:50 through a viewport.
    doc.layouts.rename("Layout1", "Plan RDC")
    sheet = doc.layouts.get("Plan RDC")
    sheet.page_setup(size=(420, 297), margins=(10, 10, 10, 10), units="mm")
    sheet.add_viewport(center=(200, 160), size=(370, 240), view_center_point=extents.center,
                       view_height=240 * 50, dxfattribs={"layer": "VIEWPORTS"})
    sheet.add_lwpolyline([(0, 0), (400, 0), (400, 277), (0, 277)], close=True)
    sheet.add_lwpolyline([(280, 0), (400, 0), (400, 30), (280, 30)], close=True)
    sheet.add_text("Maison individuelle — Plan du RDC", height=3.5, dxfattribs={"insert": (283, 21)})
    sheet.add_text("Élévation et façades : planche 2", height=2.5, dxfattribs={"insert": (283, 13)})
    sheet.add_text("Échelle 1:50 — format A3", height=2.5, dxfattribs={"insert": (283, 5)})


# Suite entities: DXF name, class name, subclass markers, layer, point.
SUITE_ENTITIES = [
    ("ZEFTGRIDRECTE", "ZEFTGridRectangularE", ["ZEFTGridBase", "ZEFTGridRectangularE"], "AXES", (150, -1500)),
    ("ZEFTMESHCUT", "ZEFTMeshCut", ["ZEFTMeshCut"], "COLUMNS", (5050, 7850)),
    ("ZEFTMESHCUTSYMBOL", "ZEFTMeshCutSymbol", ["ZEFTMeshCutSymbol"], "COLUMNS", (5400, 8200)),
]


def tags(pairs) -> str:
    return "".join(f"{code:>3}\n{value}\n" for code, value in pairs)


def add_suite_entities(doc, text: str) -> str:
    """Adds the suite entities to the written drawing: ezdxf cannot make
    objects of classes it does not know. Their handles are taken from the
    drawing's handle seed before it is written."""
    owner = doc.modelspace().block_record_handle
    classes = entities = ""
    for (dxfname, cls, markers, layer, (x, y)), handle in zip(SUITE_ENTITIES, doc.suite_handles):
        classes += tags([(0, "CLASS"), (1, dxfname), (2, cls), (3, "Beltrix"), (90, 1151), (91, 1),
                         (280, 0), (281, 1)])
        entities += tags([(0, dxfname), (5, handle), (330, owner), (100, "AcDbEntity"), (8, layer)] +
                         [(100, m) for m in markers] + [(10, f"{x:.1f}"), (20, f"{y:.1f}"), (30, "0.0")])
    head = "  0\nSECTION\n  2\nCLASSES\n"
    text = text.replace(head, head + classes, 1)
    end = text.index("  0\nENDSEC\n", text.index("  2\nENTITIES\n"))
    return text[:end] + entities + text[end:]


def main() -> None:
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(HERE, "sample.dxf")
    ezdxf.options.write_fixed_meta_data_for_testing = True
    doc = ezdxf.new("R2013", setup=True, units=4)    # millimetres
    build(doc)
    auditor = doc.audit()
    if auditor.has_errors:
        auditor.print_error_report()
        sys.exit(1)
    doc.suite_handles = [doc.entitydb.next_handle() for _ in SUITE_ENTITIES]
    stream = io.StringIO()
    doc.write(stream)
    with open(out, "w", encoding="utf-8", newline="") as f:
        f.write(add_suite_entities(doc, stream.getvalue()))
    print(f"wrote {out}: {len(doc.modelspace()) + len(SUITE_ENTITIES)} model-space entities, "
          f"{len(doc.layouts.get('Plan RDC'))} paper-space entities")


if __name__ == "__main__":
    main()
