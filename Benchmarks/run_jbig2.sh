#!/bin/sh
# Runs the jbig2 benchmark: every corpus file decoded 100 times by the library
# and by jbig2dec; the ratio is the counter ratio_ours_over_jbig2dec.
#   Benchmarks/run_jbig2.sh [BUILD_DIR]
build=${1:-/work/build-jbig2}
ninja -C "$build" bench_jbig2 && "$build"/Benchmarks/bench_jbig2 --benchmark_counters_tabular=true
