#!/bin/sh
# Seeds the jbig2 fuzzer from the shared corpus, into a directory outside the
# repository (the corpus is not copied into the repo).
#   Fuzz/seed_jbig2.sh /tmp/jbig2-seeds
#   /work/build-jbig2-fuzz/Fuzz/fuzz_jbig2 -max_len=65536 -max_total_time=1800 /tmp/jbig2-seeds
set -e
out=${1:?usage: seed_jbig2.sh OUTDIR}
corpus=${PDFKILN_CORPUS_DIR:-$(dirname "$0")/../../shared/corpus}/jbig2
mkdir -p "$out"
find "$corpus" -name '*.jbig2' -exec cp {} "$out"/ \;
echo "$(ls "$out" | wc -l) seeds in $out"
