#!/usr/bin/python3
"""`zeftlayer standards`, `install`, `show` and `export` on a temporary data
folder: the default standard, installing by file, by name and by path in
each encoding a standard file comes in, the drawing's dictionary tree as
ezdxf reads it, replacing a standard, exporting and reinstalling, and bad
input that must fail cleanly and leave the drawing alone."""
import collections
import json
import os
import re
import shutil
import tempfile
import time
import unittest

import common
from common import ezdxf

ZEFT = common.program("zeftlayer")
R12 = common.corpus_file("dxf/ezdxf/integration_tests/data/cc_dxflib.dxf")

BUILDING = {"name": "Building Name", "value": "=BUILDING()", "isFunction": True}
LEVEL = {"name": "Level / View name", "value": "=LEVEL/VIEW()", "isFunction": True}
DEFAULT = {"name": "Beltrix", "file": "Beltrix.std", "separator": ". ",
           "rules": {"model": [BUILDING, LEVEL],
                     "draft": [BUILDING, LEVEL, {"name": "Element Type", "value": "=GENERAL TYPE()",
                                                 "isFunction": True}],
                     "doc": [{"name": "User defined", "value": "CalquePlans", "isFunction": False}]},
           "functions": [], "enums": [],
           "exceptions": [["ZEFTGridRectangularE", "Trame"], ["AcDbViewport", "Frames"]]}

# Blanks around keys and values are the reader's to drop.
ACCENTED_TEXT = ("[Layer_Standard]\nName=Modèle béton\n[Model_Rules]\nName_1=Vues calculées\nField_1=Modèle\n"
                 "Name_2 = Bâtiment \nField_2 = =BUILDING() \n[Draft_Rules]\nName_1=Element Type\n"
                 "Field_1==GENERAL TYPE()\n[Doc_Rules]\nName_1=User defined\nField_1=Vues calculées\n"
                 "[Function_1]\nName=MATÉRIAU\nDefault=Autre\nKey_1=AcDbLine\nValue_1=Béton\n"
                 "[Enum_1]\nName=Niveaux\nValue_1=RDC\nValue_2=R+1\n"
                 "[Exceptions]\nKey_1=AcDbViewport\nValue_1=Fenêtres\n[Separator]\nValue=-\nWhiteSpaceAfter=1\n")
ACCENTED = {"name": "Modèle béton", "separator": "- ",
            "rules": {"model": [{"name": "Vues calculées", "value": "Modèle", "isFunction": False},
                                {"name": "Bâtiment", "value": "=BUILDING()", "isFunction": True}],
                      "draft": [{"name": "Element Type", "value": "=GENERAL TYPE()", "isFunction": True}],
                      "doc": [{"name": "User defined", "value": "Vues calculées", "isFunction": False}]},
            "functions": [{"name": "MATÉRIAU", "default": "Autre", "pairs": [["AcDbLine", "Béton"]]}],
            "enums": [{"name": "Niveaux", "values": ["RDC", "R+1"]}],
            "exceptions": [["AcDbViewport", "Fenêtres"]]}


def read_bytes(path):
    with open(path, "rb") as f:
        return f.read()


def raw_objects(path, name):
    """How many objects of a DXF name the file holds, counted in its text."""
    with open(path, encoding="utf-8", errors="replace") as f:
        lines = [line.strip() for line in f]
    return sum(1 for i in range(0, len(lines) - 1, 2) if lines[i] == "0" and lines[i + 1] == name)


class StandardsCli(unittest.TestCase):
    def setUp(self):
        self._tmp = tempfile.TemporaryDirectory(prefix="zeftstd-")
        self.dir = self._tmp.name
        self.data = os.path.join(self.dir, "data")
        self.folder = os.path.join(self.data, "Support", "Layer Standards")
        self.plan = self.path("plan.dxf")
        shutil.copy(common.SAMPLE, self.plan)

    def tearDown(self):
        self._tmp.cleanup()

    def path(self, name):
        return os.path.join(self.dir, name)

    def zeft(self, *args, timeout=60):
        return common.run([ZEFT, "--data-dir", self.data, *args], timeout=timeout)

    def ok(self, *args):
        proc = self.zeft(*args)
        self.assertEqual(proc.returncode, 0, f"{args}: {proc.stderr}")
        return proc

    def show(self, drawing):
        return json.loads(self.ok("show", "--json", drawing).stdout)

    def put(self, path, text, encoding, newline="\r\n"):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as f:
            f.write(text.replace("\n", newline).encode(encoding))
        return path

    def tree(self, drawing):
        """The layer manager's entries (key, DXF name) and ZEFT objects, as ezdxf reads them."""
        doc = ezdxf.readfile(drawing)
        self.assertEqual(common.audit_errors(doc), [], drawing)
        manager = doc.rootdict["ZEFT_LAYER_MANAGER"]
        self.assertEqual(manager.dxftype(), "DICTIONARY")
        self.assertEqual(manager["ZEFT_LAYER_MANAGER"].dxftype(), "ZEFTLAYERSTANDARD")
        entries = [(key, manager[key].dxftype()) for key in manager.keys()]
        objects = collections.Counter(o.dxftype() for o in doc.objects if o.dxftype().startswith("ZEFT"))
        return entries, objects

    def assert_one_standard(self, drawing, functions, enums):
        entries, objects = self.tree(drawing)
        expected = {"ZEFTLAYERSTANDARD": 1, "ZEFTLAYERRULE": 3, "ZEFTRULEEXCEPTION": 1,
                    "ZEFTRULEFUNCTION": functions, "ZEFTRULEENUM": enums}
        self.assertEqual(collections.Counter(name for _, name in entries), +collections.Counter(expected))
        self.assertEqual(objects, +collections.Counter(expected))
        self.assertEqual(raw_objects(drawing, "ZEFTLAYERRULE"), 3)

    # -----------------------------------------------------------------
    def test_an_empty_folder_receives_and_lists_the_default(self):
        for message in (True, False):
            out = self.ok("standards").stdout
            self.assertEqual("No standard was in the folder" in out, message, out)
            self.assertRegex(out, r"(?m)^Beltrix\.std +Beltrix$")
            self.assertNotIn("backup", out)
        # Its exact bytes are checked by the module's tests of the folder.

    def test_install_by_file_name_by_standard_name_and_by_path(self):
        out = self.path("default.dxf")
        self.ok("install", self.plan, "Beltrix.std", "-o", out)
        self.assertEqual(self.show(out), DEFAULT)
        self.assertIn('Separator:  ". "', self.ok("show", out).stdout)
        self.assert_one_standard(out, 0, 0)

        self.put(os.path.join(self.folder, "mine.std"), ACCENTED_TEXT, "cp1252")
        self.ok("install", self.plan, "Modèle béton", "-o", out)
        self.assertEqual(self.show(out), dict(ACCENTED, file="mine.std"))

        text = self.ok("show", out).stdout
        for value in ('"- "', "Modèle béton", "Vues calculées", "MATÉRIAU", "Béton", "Fenêtres"):
            self.assertIn(value, text)
        entries, _ = self.tree(out)
        self.assertEqual(entries[0], ("ZEFT_LAYER_MANAGER", "ZEFTLAYERSTANDARD"))
        self.assertEqual([n for _, n in entries[1:]],
                         ["ZEFTLAYERRULE"] * 3 + ["ZEFTRULEFUNCTION", "ZEFTRULEENUM", "ZEFTRULEEXCEPTION"])

        for name, encoding, newline in (("cp1252.std", "cp1252", "\r\n"), ("bom.std", "utf-8-sig", "\r\n"),
                                        ("utf8.std", "utf-8", "\n")):
            with self.subTest(encoding=encoding):
                std = self.put(self.path(name), ACCENTED_TEXT, encoding, newline)
                self.ok("install", self.plan, std, "-o", out)
                self.assertEqual(self.show(out), dict(ACCENTED, file=std))

    def test_installing_in_place_replaces_the_standard(self):
        std = self.put(self.path("accented.std"), ACCENTED_TEXT, "cp1252")
        for standard, expected, functions in ((std, dict(ACCENTED, file=std), 1), ("Beltrix", DEFAULT, 0),
                                              (std, dict(ACCENTED, file=std), 1)):
            before = read_bytes(self.plan)
            self.ok("install", self.plan, standard)
            self.assertNotEqual(read_bytes(self.plan), before)
            self.assertEqual(self.show(self.plan), expected)
            self.assert_one_standard(self.plan, functions, functions)

    def test_export_writes_windows_1252_with_crlf_and_reinstalls_the_same(self):
        mine = self.put(os.path.join(self.folder, "mine.std"), ACCENTED_TEXT, "utf-8-sig")
        self.ok("install", self.plan, "mine.std")
        shown = self.show(self.plan)
        self.ok("export", self.plan, mine)
        data = read_bytes(mine)
        self.assertIn("Name=Modèle béton".encode("cp1252"), data)
        self.assertNotIn(b"\xef\xbb\xbf", data)
        # CR LF throughout; a value's own line feed shows as the blank line after it.
        self.assertTrue(data.endswith(b"\r\n"))
        self.assertNotRegex(re.sub(rb"\n\r\n", b"\r\n", data), rb"[^\r]\n|\r[^\n]")
        out = self.path("again.dxf")
        self.ok("install", self.plan, "mine.std", "-o", out)
        self.assertEqual(self.show(out), shown)
        # A folder in the way is reported as such, and nothing is left beside it.
        os.makedirs(self.path("Support"))
        proc = self.zeft("export", self.plan, self.path("Support"))
        self.assertEqual(proc.returncode, 1)
        self.assertIn("Support: cannot write: Is a directory", proc.stderr)
        self.assertEqual(os.listdir(self.path("Support")), [])
        self.assertEqual([n for n in os.listdir(self.dir) if n.startswith(".")], [])

    def test_bad_input_fails_cleanly_and_leaves_the_drawing(self):
        os.makedirs(self.path("folder.std"))
        self.put(self.path("empty.std"), "", "ascii")
        with open(self.path("binary.std"), "wb") as f:
            f.write(b"[Layer_Standard]\r\nName=Bin\r\n" + bytes(range(256)) * 16)
        self.put(self.path("noname.std"), "[Layer_Standard]\nTitle=None\n[Doc_Rules]\nName_1=a\nField_1=b\n", "ascii")
        self.ok("standards")
        r12 = self.path("old.dxf")
        cases = [(self.plan, self.path("missing.std"), "missing.std"),
                 (self.plan, self.path("folder.std"), "folder.std"),
                 (self.plan, self.path("empty.std"), "empty.std"),
                 (self.plan, self.path("binary.std"), "binary.std"),
                 (self.plan, self.path("noname.std"), "noname.std"),
                 (self.plan, "Nowhere", "Nowhere"),
                 (self.path("missing.dxf"), "Beltrix", "missing.dxf")]
        if R12:
            shutil.copy(R12, r12)
            cases.append((r12, "Beltrix", "R12"))
        for drawing, standard, named in cases:
            for out in (self.path("out.dxf"), None):
                with self.subTest(standard=standard, drawing=os.path.basename(drawing), out=out):
                    self.assert_refused(drawing, standard, out, named)
        # An output that cannot be written.
        self.assert_refused(self.plan, "Beltrix", self.path("nowhere/out.dxf"), "nowhere/out.dxf")
        self.assert_refused(self.plan, "Beltrix", self.path("folder.std"), "folder.std")

    def assert_refused(self, drawing, standard, out, named):
        stamp = os.stat(drawing).st_mtime_ns if os.path.exists(drawing) else None
        before = read_bytes(drawing) if stamp else None
        proc = self.zeft("install", drawing, standard, *(["-o", out] if out else []))
        self.assertEqual(proc.returncode, 1, proc.stdout + proc.stderr)
        lines = proc.stderr.splitlines()
        self.assertEqual(len(lines), 1, proc.stderr)
        self.assertTrue(lines[0].startswith("zeftlayer: ") and named in lines[0], lines[0])
        if stamp:
            self.assertEqual(os.stat(drawing).st_mtime_ns, stamp)
            self.assertEqual(read_bytes(drawing), before)
        self.assertFalse(os.path.exists(self.path("out.dxf")))
        self.assertEqual([n for n in os.listdir(self.dir) if n.startswith(".")], [], "no temporary file is left")

    def test_absurd_standards_end_quickly(self):
        long_line = self.path("long.std")
        with open(long_line, "wb") as f:
            f.write(b"[Layer_Standard]\r\nName=Long\r\n[Model_Rules]\r\nName_1=" + b"x" * 5_000_000 + b"\r\n")
        many = self.put(self.path("many.std"), "[Layer_Standard]\nName=Many\n" +
                        "".join(f"[Function_{i}]\nName=F{i}\nKey_1=AcDbLine\nValue_1=L{i}\n" for i in range(1, 20001)),
                        "ascii")
        for std in (long_line, many):
            with self.subTest(std=os.path.basename(std)):
                out = self.path("out.dxf")
                start = time.monotonic()
                proc = self.zeft("install", self.plan, std, "-o", out, timeout=60)
                self.assertLess(time.monotonic() - start, 20)
                self.assertIn(proc.returncode, (0, 1), proc.stderr)
                if proc.returncode == 0:
                    shown = self.show(out)
                    self.assertTrue(all(len(f["name"]) <= 99 for f in shown["rules"]["model"]))
                    self.tree(out)
                    os.remove(out)
                else:
                    self.assertFalse(os.path.exists(out))

    def test_usage_errors_and_a_drawing_without_standard(self):
        for args in (["install", self.plan, "Beltrix", "--frobnicate"], ["install", self.plan], ["install"],
                     ["install", self.plan, "Beltrix", "-o"], ["show"], ["show", self.plan, "--xml"],
                     ["export", self.plan], ["standards", "extra"]):
            with self.subTest(args=args):
                proc = self.zeft(*args)
                self.assertEqual(proc.returncode, 2, proc.stderr)
                self.assertTrue(proc.stderr.startswith("zeftlayer: "), proc.stderr)
        for command in (["show"], ["show", "--json"], ["export"]):
            proc = self.zeft(*command, self.plan, *([self.path("x.std")] if command == ["export"] else []))
            self.assertEqual(proc.returncode, 1)
            self.assertEqual(proc.stdout, "")
            self.assertIn("holds no layer standard", proc.stderr)


if __name__ == "__main__":
    unittest.main()
