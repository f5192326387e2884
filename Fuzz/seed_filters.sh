#!/bin/sh
# Builds a seed directory for fuzz_filters from the PDF corpus: the raw
# (still encoded) bytes of filtered streams, each prefixed with the 8-byte
# parameter header the fuzz target reads (kind, predictor, depth, colours,
# columns, early change, level).
#
#   Fuzz/seed_filters.sh [corpus-dir] [out-dir] [max-per-kind]
#   ./fuzz_filters -max_total_time=120 -rss_limit_mb=2560 OUT-DIR
#
# The output directory must be outside the repository (default /tmp).
set -eu
corpus=${1:-$(dirname "$0")/../../shared/corpus/qpdf}
out=${2:-/tmp/fuzz_filters_seeds}
max=${3:-40}
mkdir -p "$out"

# Header byte values that select each kind with plain parameters:
# kind index (kind-1), predictor table index 0 (none), depth index 3 (8),
# colours index 0 (1), columns 0, early change 1, level index 7 (6).
header() {
    printf "\\$(printf '%03o' "$1")\\000\\003\\000\\000\\000\\001\\007"
}

for pair in FlateDecode:0 LZWDecode:1 ASCIIHexDecode:2 ASCII85Decode:3 RunLengthDecode:4 CCITTFaxDecode:5 DCTDecode:6; do
    name=${pair%%:*}
    kind=${pair##*:}
    count=0
    for pdf in $(grep -rl --include='*.pdf' -a "/$name" "$corpus" 2>/dev/null | sort); do
        [ "$count" -ge "$max" ] && break
        # Object numbers of streams naming the filter (text scan; good enough for seeds).
        for obj in $(grep -a -B3 "/$name" "$pdf" | grep -ao '^[0-9][0-9]* 0 obj' | cut -d' ' -f1 | sort -u | head -5); do
            [ "$count" -ge "$max" ] && break
            f="$out/${name}_$(basename "$pdf" .pdf)_$obj"
            { header "$kind"; qpdf --show-object="$obj" --raw-stream-data "$pdf" 2>/dev/null; } > "$f" || true
            if [ "$(wc -c < "$f")" -le 8 ]; then rm -f "$f"; else count=$((count + 1)); fi
        done
    done
    echo "$name: $count seeds"
done
