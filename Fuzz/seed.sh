#!/usr/bin/env bash
# Makes a seed directory for a fuzz target from the shared corpus, outside
# the repository:  Fuzz/seed.sh open|filters|jbig2 DIR
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
corpus="$here/../shared/corpus"
kind=$1; out=$2
mkdir -p "$out"
case "$kind" in
  open)
    # Small PDFs only: libFuzzer's default input limit is 4 KiB unless -max_len is given.
    find "$corpus/qpdf" -name '*.pdf' -size -64k | while read -r f; do
      cp "$f" "$out/$(printf '%s' "$f" | md5sum | cut -c1-16).pdf"; done ;;
  jbig2)
    find "$corpus/jbig2" -name '*.jbig2' | while read -r f; do
      cp "$f" "$out/$(basename "$f")"; done ;;
  *) echo "unknown seed kind $kind" >&2; exit 2 ;;
esac
echo "seeded $(ls "$out" | wc -l) files into $out"
