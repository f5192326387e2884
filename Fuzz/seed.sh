#!/usr/bin/env bash
# Makes a seed directory for a fuzz target from the shared corpus, outside
# the repository:  Fuzz/seed.sh open|jbig2|xmp DIR
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
  xmp)
    # The XMP packets that stand uncompressed in the corpus, and three made here.
    grep -rla --include='*.pdf' '<?xpacket begin' "$corpus/qpdf" | while read -r f; do
      awk '/<\?xpacket begin/,/<\?xpacket end/' "$f" > "$out/$(printf '%s' "$f" | md5sum | cut -c1-16).xmp"; done
    ns="xmlns:pdfaid='http://www.aiim.org/pdfa/ns/id/'"
    printf "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description rdf:about='' %s><pdfaid:part>2</pdfaid:part><pdfaid:conformance>B</pdfaid:conformance></rdf:Description></rdf:RDF></x:xmpmeta>" "$ns" > "$out/element.xmp"
    printf "<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description %s pdfaid:part='3' pdfaid:conformance='U'/></rdf:RDF>" "$ns" > "$out/attribute.xmp"
    printf "<!DOCTYPE x [<!ENTITY a 'aaaa'><!ENTITY b '&a;&a;&a;&a;'>]><x>&b;</x>" > "$out/entity.xmp" ;;
  *) echo "unknown seed kind $kind" >&2; exit 2 ;;
esac
echo "seeded $(ls "$out" | wc -l) files into $out"
