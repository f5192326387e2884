#!/usr/bin/env bash
# Installs what is missing, builds the library and the pdfkiln tool, and
# shows what the library reads from a PDF: the bundled sample, or the files
# given as arguments.
set -euo pipefail
cd "$(dirname "$0")"
bash .ci/deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target pdfkiln >/dev/null
if [ $# -eq 0 ]; then set -- samples/sample.pdf; fi
for f in "$@"; do
  ./build/Tools/pdfkiln/pdfkiln info "$f"
  echo
done
