#!/usr/bin/python3
"""Mutation check of the core: the layer-name evaluator, the resolution of
entity layers and the DXF writer.

Each mutation below changes one place (an operator flipped, a condition
negated, a constant changed, a line dropped). For each, the script applies
it, rebuilds build/mutation incrementally (Debug -O1, no sanitizers), runs
the ctest suite until its first failure, and puts the file back. A mutation
is killed when a test fails, survives when all pass, and is stillborn when
it does not build (not counted). It edits the sources in place while it
runs (each file is put back, even when interrupted): do not edit or commit
in the same checkout meanwhile; a clone of it is the safe place.

    scripts/mutation.py            # all of them; exits 1 below 85 % killed
    scripts/mutation.py --list     # what they are
    scripts/mutation.py 3 7        # only these (numbers from --list)
"""
import os
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BUILD = os.path.join(ROOT, "build", "mutation")
THRESHOLD = 0.85

# (file, what it breaks, text, mutated text); each text occurs once in its file.
MUTATIONS = [
    ('zeftlayermanager/zeftruleevaluator.cpp', 'isFunction: shortest call', "if (n < 3 || value[0] != L'='", "if (n < 4 || value[0] != L'='"),
    ('zeftlayermanager/zeftruleevaluator.cpp', 'isFunction: closing parenthesis', "value[n - 2] != L'(' || value[n - 1] != L')'", "value[n - 2] != L'('"),
    ('zeftlayermanager/zeftruleevaluator.cpp', 'isFunction: name length', 'if (name) *name = value.substr(1, n - 3);', 'if (name) *name = value.substr(1, n - 2);'),
    ('zeftlayermanager/zeftruleevaluator.cpp', 'separator before empty field', 'if (i + 1 < fields.size() && !fields[i + 1].value.empty()) name += separator;', 'if (i + 1 < fields.size()) name += separator;'),
    ('zeftlayermanager/zeftruleevaluator.cpp', '255-character cut', 'if (name.size() > kMaxLayerName) name.resize(kMaxLayerName);', 'if (name.size() > kMaxLayerName + 1) name.resize(kMaxLayerName);'),
    ('zeftlayermanager/zeftruleevaluator.cpp', 'the quote is not allowed in names', 'L"<>/\\\\\\":?*|,=\'#~!@$%^&;`"', 'L"<>/\\\\\\":?*|,=#~!@$%^&;`"'),
    ('zeftlayermanager/zeftruleevaluator.cpp', 'leading blanks trimmed', "const std::size_t first = name.find_first_not_of(L' ');", 'const std::size_t first = 0;'),
    ('zeftlayermanager/zeftruleevaluator.cpp', 'LEVEL answer', 'if (name == L"LEVEL") return project->getLevelName(ctx.viewId, out);', 'if (name == L"LEVEL") return project->getPlanName(ctx.viewId, out);'),
    ('zeftlayermanager/zeftruleevaluator.cpp', 'BUILDING answer', 'if (name == L"BUILDING") return project->getBuildingName(out);', 'if (name == L"BUILDING") return project->getProjectName(out);'),
    ('zeftlayermanager/zeftruleevaluator.cpp', 'LEVEL/VIEW by working mode', 'if (ctx.workingMode == 0) return project->getLevelName(none, out);', 'if (ctx.workingMode == 1) return project->getLevelName(none, out);'),
    ('zeftlayermanager/zeftruleevaluator.cpp', 'LEVEL/VIEW in a draft', 'return ctx.draftContext ? project->getViewName(none, ctx.viewId, out) : project->getLevelName(ctx.viewId, out);', 'return !ctx.draftContext ? project->getViewName(none, ctx.viewId, out) : project->getLevelName(ctx.viewId, out);'),
    ('zeftlayermanager/zeftruleevaluator.cpp', 'unknown function shows its name', '    return name;\n}\n\nbool ZEFTRuleEvaluator::evaluatePredefinedFunction(', '    return std::wstring();\n}\n\nbool ZEFTRuleEvaluator::evaluatePredefinedFunction('),
    ('zeftlayermanager/zeftruleevaluator.cpp', 'per-entity answers', 'return (name == L"VIEW NAME" && !ctx.draftContext) ||', 'return (name == L"VIEW NAME" && ctx.draftContext) ||'),
    ('zeftlayermanager/zeftruleevaluator.cpp', 'mesh cut symbol', 'if (!m_objectId.isValid() || !classIs(m_objectId, L"ZEFTMESHCUTSYMBOL")) return;', 'if (!m_objectId.isValid() || !classIs(m_objectId, L"ZEFTMESHCUT")) return;'),
    ('zeftlayermanager/zeftlayermanagerutil.cpp', 'paper space layered', '    return owner == ctx.database->modelSpaceId() || owner == ctx.database->paperSpaceId();', '    return owner == ctx.database->modelSpaceId();'),
    ('zeftlayermanager/zeftlayermanagerutil.cpp', 'QRV classes left alone', 'traits.unlayered = acdbToUpper(cls->dxfName()).rfind(L"QRV", 0) == 0;', 'traits.unlayered = false;'),
    ('zeftlayermanager/zeftlayermanagerutil.cpp', 'overall viewport', 'viewport && entity->ownerId() == ctx.database->paperSpaceId() && viewport->number() == 1)', 'viewport && entity->ownerId() == ctx.database->paperSpaceId() && viewport->number() == 2)'),
    ('zeftlayermanager/zeftlayermanagerutil.cpp', 'model rules switch', 'if (!ctx.draftContext && !ctx.modelRulesActive) return AcDbObjectId();', 'if (!ctx.draftContext && ctx.modelRulesActive) return AcDbObjectId();'),
    ('zeftlayermanager/zeftlayermanagerutil.cpp', 'suite entities carry their rules', '            sameForClass = !traitsOf(cls, batch).suite && !ZEFTRuleEvaluator::dependsOnEntity(fields, ctx);', '            sameForClass = !ZEFTRuleEvaluator::dependsOnEntity(fields, ctx);'),
    ('zeftlayermanager/zeftlayermanagerutil.cpp', 'draft entity type', '        if (ctx.draftContext) writeXDataEntityType(entityId, 1);', '        if (!ctx.draftContext) writeXDataEntityType(entityId, 1);'),
    ('zeftlayermanager/zeftlayermanagerutil.cpp', 'layer turned on outside views', 'const AcDbObjectId layerId = createLayer(name, ctx, !ctx.viewId.isValid());', 'const AcDbObjectId layerId = createLayer(name, ctx, ctx.viewId.isValid());'),
    ('zeftlayermanager/zeftlayermanagerutil.cpp', 'host entities follow the standard', '        if (className.find(L"ZEFT") == std::wstring::npos) return getRuleFromDictionary(ctx.database, ctx, fields);', '        if (className.find(L"ZEFT") != std::wstring::npos) return getRuleFromDictionary(ctx.database, ctx, fields);'),
    ('zeftlayermanager/zeftlayermanagerutil.cpp', 'forced calculation', '        if (command == L"zeftforcecalc") ctx.modelRulesActive = true;', '        if (command == L"zeftforcecalc") ctx.modelRulesActive = false;'),
    ('zeftlayermanager/zeftlayermanagerutil.cpp', 'draft commands', '        ctx.draftContext = kDraftCommands.count(command) > 0;', '        ctx.draftContext = false;'),
    ('host/dxf/dxftext.cpp', 'group codes padded to 3', "    if (len < 3) out.append(3 - len, ' ');", "    if (len < 2) out.append(2 - len, ' ');"),
    ('host/dxf/dxftext.cpp', 'reals keep a decimal point', '    if (std::all_of(buf, r.ptr, [](char c) { return c == \'-\' || (c >= \'0\' && c <= \'9\'); })) out += ".0";', ''),
    ('host/database.cpp', 'raw records whole', '        if (r.isRaw()) {\n            out.append(r.raw());\n            return;\n        }', '        if (r.isRaw()) {\n            out.append(r.raw().substr(0, r.raw().size() ? r.raw().size() - 1 : 0));\n            return;\n        }'),
    ('host/database.cpp', 'bytes after a replaced value', '            out.append(before).append(value).append(after);', '            out.append(before).append(value).append(after.substr(1));'),
    ('host/database.cpp', 'ENDTAB', '                    tag(0, "ENDTAB");', '                    tag(0, "ENDTABLE");'),
    ('host/database.cpp', 'detached objects not written', '                    if (!gone(o.object())) object(o);', '                    object(o);'),
    ('host/database.cpp', 'owned by an erased object', '        if (o->isErased() && depth > 0) return true;', '        if (o->isErased() && depth > 1) return true;'),
    ('host/database.cpp', 'no empty CLASSES section', '                if (out.size() == mark) out.resize(before);', '                if (out.size() == mark + 1) out.resize(before);'),
    ('host/database.cpp', 'handle seed', '                        if (h[i].code == 9 && h[i].value == "$HANDSEED") h[i + 1].value = AcDbHandle(impl.nextHandle).str();', '                        if (h[i].code == 9 && h[i].value == "$HANDSEED") h[i + 1].value = AcDbHandle(impl.nextHandle - 1).str();'),
    ('host/database.cpp', 'paper-space entities written once', '                    const bool space = bid == db.modelSpaceId() || bid == db.paperSpaceId();', '                    const bool space = bid == db.modelSpaceId();'),
    ('host/database.cpp', 'EOF marker', '        tag(0, "EOF");', '        tag(0, "EOF ");'),
    ('host/acad.cpp', 'handles in capitals', '        *--p = "0123456789ABCDEF"[v & 15];', '        *--p = "0123456789abcdef"[v & 15];'),
    ('host/dbobject.cpp', 'CR LF kept after a replaced value', "    if (end > at && raw_[end - 1] == '\\r') --end;", ''),
]


def run(cmd, log):
    with open(log, "w") as out:
        return subprocess.run(cmd, cwd=ROOT, stdout=out, stderr=subprocess.STDOUT).returncode


def build(log):
    return run(["cmake", "--build", BUILD, "-j", "2"], log) == 0


def main(argv):
    if argv and argv[0] in ("-h", "--help"):
        print(__doc__.strip())
        return 0
    if argv and argv[0] == "--list":
        for i, (path, what, _, _) in enumerate(MUTATIONS, 1):
            print(f"{i:3}  {path}: {what}")
        return 0
    try:
        chosen = [int(a) for a in argv] or list(range(1, len(MUTATIONS) + 1))
    except ValueError:
        print("usage: scripts/mutation.py [--list | N...]", file=sys.stderr)
        return 2
    if any(n < 1 or n > len(MUTATIONS) for n in chosen):
        print(f"mutation: numbers go from 1 to {len(MUTATIONS)}", file=sys.stderr)
        return 2
    for path, what, text, _ in MUTATIONS:
        with open(os.path.join(ROOT, path), encoding="utf-8") as f:
            if f.read().count(text) != 1:
                print(f"mutation: the text of '{what}' is no longer once in {path}; update the list", file=sys.stderr)
                return 2

    os.makedirs(BUILD, exist_ok=True)
    log = os.path.join(BUILD, "last.log")
    print(f"mutation: building {BUILD}", file=sys.stderr)
    if run(["cmake", "-S", ROOT, "-B", BUILD, "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-g -O1",
            "-DZEFT_SANITIZE=OFF", "-DZEFT_TESTS=ON"], log) != 0 or not build(log):
        print(f"mutation: the unmutated build fails (log: {log})", file=sys.stderr)
        return 1
    env_ok = run(["ctest", "--test-dir", BUILD, "-j", "2"], log) == 0
    if not env_ok:
        print(f"mutation: the suite fails without any mutation (log: {log})", file=sys.stderr)
        return 1

    killed, survivors, stillborn = [], [], []
    for n in chosen:
        path, what, text, mutated = MUTATIONS[n - 1]
        full = os.path.join(ROOT, path)
        with open(full, encoding="utf-8") as f:
            original = f.read()
        try:
            with open(full, "w", encoding="utf-8") as f:
                f.write(original.replace(text, mutated, 1))
            if not build(log):
                stillborn.append(n)
                verdict = "does not build"
            elif run(["ctest", "--test-dir", BUILD, "-j", "2", "--stop-on-failure", "--timeout", "300"], log) != 0:
                killed.append(n)
                verdict = "killed"
            else:
                survivors.append(n)
                verdict = "SURVIVED"
        finally:
            with open(full, "w", encoding="utf-8") as f:
                f.write(original)
        print(f"{n:3}  {verdict:15} {path}: {what}", flush=True)
    build(log)  # leave the build as the sources are

    counted = len(killed) + len(survivors)
    score = len(killed) / counted if counted else 1.0
    print(f"\nmutation: {len(killed)} of {counted} killed ({score:.0%}); "
          f"{len(stillborn)} did not build; survivors: {survivors or 'none'}")
    return 0 if score >= THRESHOLD else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
