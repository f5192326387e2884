#!/bin/sh
# Runs the jbig2 benchmark: every corpus file decoded in-process by the
# library and by libjbig2dec, a table of both times per file, heaviest first,
# and the summed ratio.
#   Benchmarks/run_jbig2.sh [BUILD_DIR] [--rounds N] [--filter TEXT]
build=${1:-/work/main/build}
[ $# -gt 0 ] && shift
ninja -C "$build" bench_jbig2 && "$build"/Benchmarks/bench_jbig2 "$@"
