#!/usr/bin/env python3
"""Places each fault of faults.txt in the library by hand-made one-line edits,
rebuilds the library incrementally, runs the suites of the fault's area and
records which suite failed. A fault that no suite of its area catches is run
against the whole ctest once. The file is always restored.

usage: run_faults.py BUILD_DIR [--only ID,...] [--out REPORT]"""
import argparse, pathlib, re, subprocess, sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
SUITES = {
    'reader': ['test_reader', 'test_writer', 'test_facade', 'test_corpus_xref'],
    'copier': ['test_writer', 'test_facade', 'test_corpus_digests'],
    'renumber': ['test_facade', 'test_corpus_closure', 'test_corpus_digests', 'test_corpus_compose_encrypted'],
    'crypt': ['test_crypt', 'test_facade'],
    'jbig2': ['test_jbig2', 'test_jbig2dec'],
}


def faults():
    for n, line in enumerate((ROOT / 'Tests/faults/faults.txt').read_text().splitlines(), 1):
        if line.strip() and not line.startswith('#'):
            ident, area, path, original, faulty = line.split('\t')
            yield ident, area, path, original.strip(), faulty.strip()


def sh(cmd, timeout=3600):
    return subprocess.run(cmd, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, timeout=timeout)


def failed_names(build, names):
    regex = '^(' + '|'.join(names) + ')$' if names else '.'
    r = sh(['ctest', '--test-dir', str(build), '-R', regex, '--timeout', '600'])
    if r.returncode == 0:
        return []
    return re.findall(r'^\s*\d+ - (\S+) \(', r.stdout, re.M) or ['?']


def run_one(build, ident, area, path, original, faulty):
    f = ROOT / path
    saved = f.read_bytes()
    lines = saved.decode('latin-1').split('\n')
    hits = [i for i, l in enumerate(lines) if l.strip() == original]
    if len(hits) != 1:
        return 'table error: %d lines match' % len(hits)
    i = hits[0]
    indent = lines[i][:len(lines[i]) - len(lines[i].lstrip())]
    lines[i] = indent + faulty
    try:
        f.write_bytes('\n'.join(lines).encode('latin-1'))
        b = sh(['cmake', '--build', str(build), '--target', 'PDFKilnPage', 'pdfkiln', 'corpus_digests'])
        if b.returncode:
            return 'does not build'
        for suite in SUITES[area]:
            if failed_names(build, [suite]):
                return suite
        caught = failed_names(build, [])
        return 'whole ctest: ' + ','.join(caught) if caught else 'NOT CAUGHT'
    finally:
        f.write_bytes(saved)
        if sh(['git', 'diff', '--quiet', '--', path]).returncode:
            sys.exit('%s left changed after %s' % (path, ident))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument('build')
    ap.add_argument('--only')
    ap.add_argument('--out')
    a = ap.parse_args()
    build = pathlib.Path(a.build).resolve()
    only = set(a.only.split(',')) if a.only else None
    rows = []
    try:
        for ident, area, path, original, faulty in faults():
            if only and ident not in only:
                continue
            result = run_one(build, ident, area, path, original, faulty)
            rows.append('%s\t%s\t%s' % (ident, path, result))
            print(rows[-1], flush=True)
    finally:
        sh(['cmake', '--build', str(build), '--target', 'PDFKilnPage', 'pdfkiln', 'corpus_digests'])
        if a.out:
            pathlib.Path(a.out).write_text('\n'.join(rows) + '\n')
    return 1 if any('NOT CAUGHT' in r or 'error' in r or 'build' in r for r in rows) else 0


if __name__ == '__main__':
    sys.exit(main())
