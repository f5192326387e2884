#!/usr/bin/env bash
# Installs what is missing, builds the library and the pdfkiln tool, and
# shows what the library reads from a PDF: the bundled samples, or the files
# given as arguments. With no arguments it also composes the bundled samples
# into out/demo.pdf (two source pages per sheet) and renders its first page
# to out/demo.png.
set -euo pipefail
cd "$(dirname "$0")"
bash .ci/deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target pdfkiln >/dev/null
tool=./build/Tools/pdfkiln/pdfkiln
if [ $# -eq 0 ]; then
  set -- samples/sample.pdf samples/classic.pdf
  for f in "$@"; do
    "$tool" info "$f"
    echo
  done
  mkdir -p out
  "$tool" compose -o out/demo.pdf --nup 2x1 --sheet 842x595 "$@"
  if command -v qpdf >/dev/null; then qpdf --check out/demo.pdf | tail -n 2; fi
  if command -v mutool >/dev/null; then
    mutool draw -q -r 72 -o out/demo.png out/demo.pdf 1
    echo "rendered out/demo.png"
  fi
  exit 0
fi
for f in "$@"; do
  "$tool" info "$f"
  echo
done
