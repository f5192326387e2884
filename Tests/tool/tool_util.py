"""What the script tests of the tool share: a small PDF writer, a run under a time limit with its peak memory, qpdf's
check of an output and the report of the failures."""
import os
import shutil
import signal
import subprocess
import tempfile
import time

HEADER = b"%PDF-1.5\n%\xe2\xe3\xcf\xd3\n"


def body(objects, header=HEADER):
    """The text of `objects` (number -> body bytes) after `header`, and the offset of each."""
    out, offsets = bytearray(header), {}
    for num in sorted(objects):
        offsets[num] = len(out)
        out += b"%d 0 obj\n" % num + objects[num] + b"\nendobj\n"
    return out, offsets


def pdf(objects, trailer=b"", header=HEADER, startxref=None):
    """A file of `objects` (number -> body, or a list from 1) with a classic table, free entries in the gaps."""
    if isinstance(objects, list):
        objects = dict(enumerate(objects, 1))
    out, offsets = body(objects, header)
    size, xref = max(objects) + 1, len(out)
    out += b"xref\n0 %d\n0000000000 65535 f \n" % size
    for n in range(1, size):
        out += b"%010d 00000 n \n" % offsets[n] if n in offsets else b"0000000000 00000 f \n"
    out += b"trailer\n<< /Size %d /Root 1 0 R%s >>\n" % (size, trailer)
    return bytes(out + b"startxref\n%d\n%%%%EOF\n" % (xref if startxref is None else startxref))


def run(args, timeout=10, env=None, stdout=True):
    """(status, seconds, peak resident KiB, output) of a run: status -N after signal N, None past `timeout` (the run's
    process group is killed then); the output is standard error, with standard output when `stdout` is set."""
    start = time.monotonic()
    with tempfile.TemporaryFile() as out:
        p = subprocess.Popen(args, stdout=out if stdout else subprocess.DEVNULL, stderr=out, env=env,
                             start_new_session=True)
        while True:
            pid, status, usage = os.wait4(p.pid, os.WNOHANG)
            if pid:
                break
            if time.monotonic() - start > timeout:
                os.killpg(p.pid, signal.SIGKILL)
                status, usage = None, os.wait4(p.pid, 0)[2]
                break
            time.sleep(0.01)
        p.returncode = 0  # reaped here, not by Popen
        out.seek(0)
        text = out.read().decode("utf-8", "replace")
    if status is not None:
        status = -os.WTERMSIG(status) if os.WIFSIGNALED(status) else os.WEXITSTATUS(status)
    return status, time.monotonic() - start, usage.ru_maxrss, text


def qpdf_refuses(path, accept=(0,)):
    """What qpdf --check says of `path` when its exit status is not in `accept`; None if it accepts or is missing."""
    if not shutil.which("qpdf"):
        return None
    r = subprocess.run(["qpdf", "--check", path], capture_output=True)
    return None if r.returncode in accept else "qpdf --check exits %d\n%s" % (r.returncode, r.stdout.decode()[-1000:])


def report(failures, summary):
    """Prints the summary and each failure; the exit status of the test."""
    print(summary)
    for f in failures:
        print("FAIL " + f)
    return 1 if failures else 0
