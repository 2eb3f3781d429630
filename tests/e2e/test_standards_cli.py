#!/usr/bin/python3
"""`zeftlayer standards`, `install`, `show` and `export` on a temporary data
folder: the default standard, installing by file, by name and by path in
each encoding a standard file comes in, the module's objects as ezdxf reads
and rewrites them, replacing a standard, exporting and reinstalling, and
bad input that must fail cleanly and leave the drawing alone."""
import collections
import json
import os
import re
import unittest

import common
from common import ezdxf

R12 = common.corpus_file("dxf/ezdxf/integration_tests/data/cc_dxflib.dxf")
# Blanks around keys and values are the reader's to drop.
with open(common.data_file("e2e-accented.std"), encoding="utf-8") as f:
    ACCENTED_TEXT = f.read()
with open(common.data_file("e2e-accented.json"), encoding="utf-8") as f:
    ACCENTED = json.load(f)
with open(common.data_file("e2e-default.json"), encoding="utf-8") as f:
    DEFAULT = json.load(f)


class StandardsCli(common.Case):
    def setUp(self):
        super().setUp()
        self.folder = os.path.join(self.data, "Support", "Layer Standards")
        self.plan = self.copy(common.SAMPLE, "plan.dxf")

    def show(self, drawing):
        return json.loads(self.ok("show", "--json", drawing).stdout)

    def put(self, path, text, encoding, newline="\r\n"):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as f:
            f.write(text.replace("\n", newline).encode(encoding))
        return path

    def assert_one_standard(self, drawing, functions, enums):
        """One standard and its objects in the drawing, as ezdxf reads them:
        the standard under its key, the rest under generated keys, all owned
        by the layer manager's dictionary, and their classes declared."""
        doc = ezdxf.readfile(drawing)
        self.assertEqual(common.audit_errors(doc), [], drawing)
        expected = (["ZEFTLAYERRULE"] * 3 + ["ZEFTRULEFUNCTION"] * functions + ["ZEFTRULEENUM"] * enums
                    + ["ZEFTRULEEXCEPTION"])
        for name, dxf_name in common.MODULE_CLASSES:
            if dxf_name in expected + ["ZEFTLAYERSTANDARD"]:
                cls = doc.classes.get(dxf_name)
                self.assertEqual((cls.dxf.cpp_class_name, cls.dxf.app_name), (name, "ZEFTLayerManager"))
        manager = doc.rootdict["ZEFT_LAYER_MANAGER"]
        entries = list(manager.items())
        self.assertEqual((entries[0][0], entries[0][1].dxftype()), ("ZEFT_LAYER_MANAGER", "ZEFTLAYERSTANDARD"))
        self.assertTrue(all(key.startswith("*") for key, _ in entries[1:]), entries)
        self.assertEqual({e.dxf.owner for _, e in entries}, {manager.dxf.handle})
        self.assertEqual([e.dxftype() for _, e in entries[1:]], expected)
        objects = collections.Counter(o.dxftype() for o in doc.objects if o.dxftype().startswith("ZEFT"))
        self.assertEqual(objects, collections.Counter(expected + ["ZEFTLAYERSTANDARD"]))
        # Counted in the file's text as well: ezdxf may hide a duplicate.
        lines = [line.strip() for line in common.read_bytes(drawing).splitlines()]
        self.assertEqual(list(zip(lines[::2], lines[1::2])).count((b"0", b"ZEFTLAYERRULE")), 3)
        return doc

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
        # Rewritten by ezdxf, the drawing still holds every value.
        again = self.path("ezdxf-saved.dxf")
        self.assert_one_standard(out, 2, 2).saveas(again)
        self.assertEqual(self.show(again), dict(ACCENTED, file="mine.std"))

        for name, encoding, newline in (("cp1252.std", "cp1252", "\r\n"), ("bom.std", "utf-8-sig", "\r\n"),
                                        ("utf8.std", "utf-8", "\n")):
            with self.subTest(encoding=encoding):
                std = self.put(self.path(name), ACCENTED_TEXT, encoding, newline)
                self.ok("install", self.plan, std, "-o", out)
                self.assertEqual(self.show(out), dict(ACCENTED, file=std))

    def test_installing_in_place_replaces_the_standard(self):
        std = self.put(self.path("accented.std"), ACCENTED_TEXT, "cp1252")
        for standard, expected, objects in ((std, dict(ACCENTED, file=std), 2), ("Beltrix", DEFAULT, 0),
                                            (std, dict(ACCENTED, file=std), 2)):
            before = common.read_bytes(self.plan)
            self.ok("install", self.plan, standard)
            self.assertNotEqual(common.read_bytes(self.plan), before)
            self.assertEqual(self.show(self.plan), expected)
            self.assert_one_standard(self.plan, objects, objects)

    def test_export_writes_windows_1252_with_crlf_and_reinstalls_the_same(self):
        mine = self.put(os.path.join(self.folder, "mine.std"), ACCENTED_TEXT, "utf-8-sig")
        self.ok("install", self.plan, "mine.std")
        shown = self.show(self.plan)
        self.ok("export", self.plan, mine)
        data = common.read_bytes(mine)
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
        self.refused(["export", self.plan, self.path("Support")], 1, "Support: cannot write: Is a directory")
        self.assertEqual(os.listdir(self.path("Support")), [])
        self.assertEqual([n for n in os.listdir(self.dir) if n.startswith(".")], [])

    def test_bad_input_fails_cleanly_and_leaves_the_drawing(self):
        os.makedirs(self.path("folder.std"))
        self.put(self.path("empty.std"), "", "ascii")
        with open(self.path("binary.std"), "wb") as f:
            f.write(b"[Layer_Standard]\r\nName=Bin\r\n" + bytes(range(256)) * 16)
        self.put(self.path("noname.std"), "[Layer_Standard]\nTitle=None\n[Doc_Rules]\nName_1=a\nField_1=b\n", "ascii")
        self.ok("standards")
        cases = [(self.plan, self.path(name), name)
                 for name in ("missing.std", "folder.std", "empty.std", "binary.std", "noname.std")]
        cases += [(self.plan, "Nowhere", "Nowhere"), (self.path("missing.dxf"), "Beltrix", "missing.dxf")]
        if R12:
            cases.append((self.copy(R12, "old.dxf"), "Beltrix", "R12"))
        cases = [(drawing, standard, out, named) for drawing, standard, named in cases
                 for out in (self.path("out.dxf"), None)]
        # Outputs that cannot be written.
        cases += [(self.plan, "Beltrix", self.path("nowhere/out.dxf"), "nowhere/out.dxf: cannot write"),
                  (self.plan, "Beltrix", self.path("folder.std"), "folder.std")]
        for drawing, standard, out, named in cases:
            with self.subTest(standard=standard, drawing=os.path.basename(drawing), out=out):
                proc = self.refused_untouched(["install", drawing, standard, *(["-o", out] if out else [])], 1, named,
                                              drawing)
                self.assertEqual(len(proc.stderr.splitlines()), 1, proc.stderr)
                self.assertFalse(os.path.exists(self.path("out.dxf")))
                self.assertEqual([n for n in os.listdir(self.dir) if n.startswith(".")], [], "a temporary file")

    def test_usage_errors_and_a_drawing_without_standard(self):
        self.refusals([(["install", self.plan, "Beltrix", "--frobnicate"], 2, "unknown option '--frobnicate'"),
                       (["install", self.plan], 2, "expected DRAWING and STANDARD"),
                       (["install"], 2, "expected DRAWING and STANDARD"),
                       (["install", self.plan, "Beltrix", "-o"], 2, "-o needs a file"),
                       (["show"], 2, "expected one DRAWING"),
                       (["show", self.plan, "--xml"], 2, "unknown option '--xml'"),
                       (["export", self.plan], 2, "expected DRAWING and OUT.std"),
                       (["standards", "extra"], 2, "unexpected argument 'extra'"),
                       (["show", self.plan], 1, "holds no layer standard"),
                       (["show", "--json", self.plan], 1, "holds no layer standard"),
                       (["export", self.plan, self.path("x.std")], 1, "holds no layer standard")])


if __name__ == "__main__":
    unittest.main()
