#!/usr/bin/env python3
"""The ezdxf peer's layer resolution, timed alone.

usage: peer_relayer_timed.py DRAWING.dxf [BUILDING] [SEPARATOR]

Imports ../shared/bench/peer_ezdxf.py (beside the repository), reads the
drawing untimed, then times only relayer(doc, BUILDING, SEPARATOR) (defaults
"Bâtiment A" and ". "). Prints "key: value" lines (entities, moved, seconds,
ns_per_entity) that bench/resolve.sh reads. Needs Debian's python3-ezdxf.
"""
import importlib.util
import pathlib
import sys
import time

PEER = pathlib.Path(__file__).resolve().parent.parent.parent / "shared" / "bench" / "peer_ezdxf.py"


def load_peer():
    spec = importlib.util.spec_from_file_location("peer_ezdxf", PEER)
    if spec is None or spec.loader is None:
        sys.exit(f"peer_relayer_timed: cannot load {PEER}")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def main() -> None:
    if len(sys.argv) < 2:
        sys.exit(__doc__.strip())
    path = sys.argv[1]
    building = sys.argv[2] if len(sys.argv) > 2 else "Bâtiment A"
    sep = sys.argv[3] if len(sys.argv) > 3 else ". "
    peer = load_peer()
    doc = peer.ezdxf.readfile(path)
    entities = len(doc.modelspace())
    start = time.perf_counter()
    moved = peer.relayer(doc, building, sep)
    seconds = time.perf_counter() - start
    print(f"drawing: {path}")
    print(f"entities: {entities}")
    print(f"moved: {moved}")
    print(f"seconds: {seconds:.6f}")
    print(f"ns_per_entity: {seconds * 1e9 / entities if entities else 0:.1f}")
    if moved != entities:
        sys.exit(f"peer_relayer_timed: moved {moved} of {entities} entities")


if __name__ == "__main__":
    main()
