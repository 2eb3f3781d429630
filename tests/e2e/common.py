"""Shared helpers of the end-to-end checks: where things are, running the
programs, and reading drawings with ezdxf as an independent reader."""
import collections
import hashlib
import os
import shutil
import subprocess
import sys

try:
    import ezdxf
except ImportError:  # the checks are meaningless without the independent reader
    sys.exit("these checks need ezdxf: run them with /usr/bin/python3 (Debian's python3-ezdxf)")

SOURCE_DIR = os.environ.get("ZEFT_SOURCE_DIR") or os.path.dirname(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__))))
BIN_DIR = os.environ.get("ZEFT_BIN") or os.path.join(SOURCE_DIR, "build", "dev", "bin")
CORPUS_DIR = os.environ.get("ZEFT_CORPUS_DIR") or os.path.normpath(os.path.join(SOURCE_DIR, "..", "shared", "corpus"))
SAMPLE = os.path.join(SOURCE_DIR, "examples", "sample.dxf")


def program(name):
    path = os.path.join(BIN_DIR, name)
    if not os.access(path, os.X_OK):
        sys.exit(f"{path} is not built (set ZEFT_BIN to the build's bin directory)")
    return path


def run(args, timeout=60, env=None):
    """Runs a program; returns the CompletedProcess with text output."""
    full_env = dict(os.environ)
    if env:
        full_env.update(env)
    return subprocess.run(args, capture_output=True, text=True, errors="replace", timeout=timeout, env=full_env)


def digest(path):
    """The SHA-256 of a file's bytes: equal digests, an unchanged file."""
    with open(path, "rb") as f:
        return hashlib.sha256(f.read()).hexdigest()


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
    auditor = doc.audit()
    return [f"{e.code}: {e.message}" for e in auditor.errors]


def contents(doc):
    """What a drawing holds, counted: entities by layout and type, entities
    per block, tables and objects. Two readings of the same drawing agree."""
    c = collections.Counter()
    for layout in doc.layouts:
        for e in layout:
            c[("layout", layout.name, e.dxftype())] += 1
    for block in doc.blocks:
        c[("block", block.name)] += len(block)
    c["layers"] = len(doc.layers)
    c["linetypes"] = len(doc.linetypes)
    c["styles"] = len(doc.styles)
    c["appids"] = len(doc.appids)
    c["objects"] = len(doc.objects)
    return c


def librecad():
    return shutil.which("librecad")


def librecad_pdf(dxf_path, outdir):
    """Renders a drawing to PDF with LibreCAD; returns (pdf path or None, output)."""
    base = os.path.splitext(os.path.basename(dxf_path))[0]
    pdf = os.path.join(outdir, base + ".pdf")
    proc = run(["timeout", "60", librecad(), "dxf2pdf", "-a", "-f", "10,10,10,10", "-t", outdir, dxf_path],
               timeout=90, env={"QT_QPA_PLATFORM": "offscreen"})
    ok = os.path.isfile(pdf) and os.path.getsize(pdf) > 0
    return (pdf if ok else None), f"exit {proc.returncode}: {proc.stdout}{proc.stderr}"
