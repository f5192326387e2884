"""Shared by the corpus scripts: subprocesses and the lists of explained differences."""
import os
import subprocess

HERE = os.path.dirname(os.path.abspath(__file__))

# Sanitizer reports get exit codes of their own, told apart from the tool's.
SANITIZER_ENV = dict(os.environ, ASAN_OPTIONS="exitcode=86:detect_leaks=1",
                     UBSAN_OPTIONS="halt_on_error=1:exitcode=87")


def load_explained(name):
    """The checked-in list NAME beside the scripts: "path<TAB>rule" per line, '#' comments."""
    table = {}
    with open(os.path.join(HERE, name), encoding="utf-8") as f:
        for line in f:
            line = line.rstrip("\n")
            if line and not line.startswith("#"):
                key, _, rule = line.partition("\t")
                table[key] = rule
    return table


def run_full(args, timeout=60, env=None):
    """Exit status, standard output and standard error; 124 on a time-out."""
    try:
        p = subprocess.run(args, capture_output=True, timeout=timeout, env=env)
        return p.returncode, p.stdout, p.stderr
    except subprocess.TimeoutExpired:
        return 124, b"", b""


def run(args, timeout=60, env=None):
    """Exit status and standard output; 124 on a time-out."""
    return run_full(args, timeout, env)[:2]
