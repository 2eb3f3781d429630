"""Shared helpers of the end-to-end checks: where things are, running the
programs, and reading drawings with ezdxf as an independent reader."""
import collections
import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

try:
    import ezdxf
except ImportError:  # the checks are meaningless without the independent reader
    sys.exit("these checks need ezdxf: run them with /usr/bin/python3 (Debian's python3-ezdxf)")

SOURCE_DIR = os.environ.get("ZEFT_SOURCE_DIR") or os.path.dirname(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__))))
BIN_DIR = os.environ.get("ZEFT_BIN") or os.path.join(SOURCE_DIR, "build", "dev", "bin")
CORPUS_DIR = os.environ.get("ZEFT_CORPUS_DIR") or os.path.normpath(os.path.join(SOURCE_DIR, "..", "shared", "corpus"))
SAMPLE = os.path.join(SOURCE_DIR, "examples", "sample.dxf")

# (C++ class, DXF name) of the module's persistent objects, in the order it registers them.
MODULE_CLASSES = [("ZEFTLayerStandard", "ZEFTLAYERSTANDARD"), ("ZEFTLayerRule", "ZEFTLAYERRULE"),
                  ("ZEFTRuleFunction", "ZEFTRULEFUNCTION"), ("ZEFTRuleEnum", "ZEFTRULEENUM"),
                  ("ZEFTRuleException", "ZEFTRULEEXCEPTION")]


def program(name):
    path = os.path.join(BIN_DIR, name)
    if not os.access(path, os.X_OK):
        sys.exit(f"{path} is not built (set ZEFT_BIN to the build's bin directory)")
    return path


ZEFT = program("zeftlayer")


def run(args, timeout=60, env=None):
    """Runs a program; returns the CompletedProcess with text output."""
    return subprocess.run(args, capture_output=True, text=True, errors="replace", timeout=timeout,
                          env=dict(os.environ, **(env or {})))


def read_bytes(path):
    with open(path, "rb") as f:
        return f.read()


def digest(path):
    """The SHA-256 of a file's bytes: equal digests, an unchanged file."""
    return hashlib.sha256(read_bytes(path)).hexdigest()


def data_file(name):
    return os.path.join(SOURCE_DIR, "tests", "data", name)


def corpus_file(relpath):
    """The corpus drawing's path, or None when the corpus is not there."""
    path = os.path.join(CORPUS_DIR, relpath)
    return path if os.path.isfile(path) else None


def layer_of(entity):
    """An entity's layer, also for entities of classes ezdxf does not know
    (the suite's, which it keeps as tags)."""
    if entity.dxf.is_supported("layer"):
        return entity.dxf.layer
    return entity.xtags.get_subclass("AcDbEntity").get_first_value(8, "0")


def audit_errors(doc):
    """ezdxf's audit errors of a drawing, as readable lines."""
    return [f"{e.code}: {e.message}" for e in doc.audit().errors]


def contents(doc):
    """What a drawing holds, counted: entities by layout and type, entities
    per block, tables and objects. Two readings of the same drawing agree."""
    c = collections.Counter()
    for layout in doc.layouts:
        for e in layout:
            c[("layout", layout.name, e.dxftype())] += 1
    for block in doc.blocks:
        c[("block", block.name)] += len(block)
    for table in ("layers", "linetypes", "styles", "appids", "objects"):
        c[table] = len(getattr(doc, table))
    return c


def librecad_failure(dxf_path, outdir, ink=True):
    """Why LibreCAD cannot draw the drawing (no PDF, or a blank first page
    when there should be ink), or None when it draws it or LibreCAD is not
    installed."""
    if not shutil.which("librecad"):
        print(f"\nnot drawn with LibreCAD, which is not installed: {dxf_path}", file=sys.stderr)
        return None
    pdf = os.path.join(outdir, os.path.splitext(os.path.basename(dxf_path))[0] + ".pdf")
    proc = run(["timeout", "60", "librecad", "dxf2pdf", "-a", "-f", "10,10,10,10", "-t", outdir, dxf_path],
               timeout=90, env={"QT_QPA_PLATFORM": "offscreen"})
    if not os.path.isfile(pdf) or os.path.getsize(pdf) == 0:
        return f"no PDF: exit {proc.returncode}: {proc.stdout}{proc.stderr}"
    if not ink or not shutil.which("pdftoppm"):
        return None
    # Scaled to a size, not a resolution: some drawings give LibreCAD huge pages.
    run(["pdftoppm", "-gray", "-scale-to", "400", "-f", "1", "-l", "1", pdf, os.path.join(outdir, "page")])
    pages = [f for f in os.listdir(outdir) if f.startswith("page") and f.endswith(".pgm")]
    data = read_bytes(os.path.join(outdir, pages[0])) if pages else b""
    header = re.match(rb"P5\s+\d+\s+\d+\s+\d+\s", data)  # binary PGM, grey bytes after the header
    return None if header and min(data[header.end():], default=255) < 200 else "a blank page"


class Case(unittest.TestCase):
    """A temporary folder per test, and zeftlayer run with a data folder."""
    data = None  # a class may share one data folder among its tests

    def setUp(self):
        tmp = tempfile.TemporaryDirectory(prefix="zeft-")
        self.addCleanup(tmp.cleanup)
        self.dir = tmp.name
        self.data = self.data or os.path.join(self.dir, "data")

    def path(self, name):
        return os.path.join(self.dir, name)

    def write(self, name, data):
        """A file of the test's folder holding data (text is written as UTF-8)."""
        path = self.path(name)
        with open(path, "wb") as f:
            f.write(data.encode("utf-8") if isinstance(data, str) else data)
        return path

    def copy(self, source, name):
        """A writable copy of a drawing in the test's folder."""
        path = self.path(name)
        shutil.copyfile(source, path)
        os.chmod(path, 0o644)
        return path

    def zeft(self, *args, timeout=120):
        return run([ZEFT, "--data-dir", self.data, *args], timeout=timeout)

    def ok(self, *args):
        proc = self.zeft(*args)
        self.assertEqual(proc.returncode, 0, f"{args}: {proc.stderr}")
        return proc

    def refused(self, args, code, message):
        """zeftlayer ARGS exits with CODE and says MESSAGE on stderr, nothing on stdout."""
        proc = self.zeft(*args)
        self.assertEqual(proc.returncode, code, f"{args}: {proc.stdout}{proc.stderr}")
        self.assertTrue(proc.stderr.startswith("zeftlayer: "), proc.stderr)
        self.assertIn(message, proc.stderr)
        self.assertEqual(proc.stdout, "")
        return proc

    def refused_untouched(self, args, code, message, drawing):
        """refused(), and DRAWING (when it exists) keeps its bytes and its time."""
        def state():
            return (read_bytes(drawing), os.stat(drawing).st_mtime_ns) if os.path.exists(drawing) else None
        before = state()
        proc = self.refused(args, code, message)
        self.assertEqual(state(), before, "the drawing was changed")
        return proc

    def refusals(self, rows):
        """A table of (args, exit code, message) rows, one subtest each."""
        for args, code, message in rows:
            with self.subTest(args=args):
                self.refused(args, code, message)


class PreparedCase(Case):
    """Tests that share the prepared sample, made once per class by
    examples/prepare_sample.sh: the default standard, a project, levels."""

    @classmethod
    def setUpClass(cls):
        cls.shared = tempfile.mkdtemp(prefix="zeft-prepared-")
        cls.addClassCleanup(shutil.rmtree, cls.shared, ignore_errors=True)
        cls.data = os.path.join(cls.shared, "data")
        cls.sample = os.path.join(cls.shared, "sample.dxf")
        prepare = os.path.join(SOURCE_DIR, "examples", "prepare_sample.sh")
        proc = run([prepare, ZEFT, cls.data, cls.sample], timeout=120)
        assert proc.returncode == 0, proc.stderr
