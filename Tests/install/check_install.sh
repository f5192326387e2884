#!/usr/bin/env bash
# Install into a fresh prefix, then build and run the consumer both ways.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"
cmake --install "$PDFKILN_BUILD_DIR" --prefix "$prefix" >/dev/null

lib="$prefix/lib/libPDFKilnPage.so.7"
[ -e "$lib" ] || { echo "missing $lib"; exit 1; }
soname=$(objdump -p "$lib" | awk '/SONAME/ {print $2}')
[ "$soname" = "libPDFKilnPage.so.7" ] || { echo "SONAME is '$soname'"; exit 1; }
[ -f "$prefix/include/PDFKilnPage/PDFKilnPage.h" ] || { echo "umbrella header not installed"; exit 1; }

# The umbrella header compiles alone in a C++17 translation unit.
echo '#include <PDFKilnPage/PDFKilnPage.h>' > "$work/alone.cpp"
c++ -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include" "$work/alone.cpp"

# find_package
cmake -S "$PDFKILN_CONSUMER_DIR" -B "$work/b1" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/b1" >/dev/null
LD_LIBRARY_PATH="$prefix/lib" "$work/b1/consumer" "$PDFKILN_SAMPLE"

# pkg-config
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
c++ -std=c++17 "$PDFKILN_CONSUMER_DIR/consumer.cpp" -o "$work/consumer-pc" $(pkg-config --cflags --libs PDFKilnPage)
LD_LIBRARY_PATH="$prefix/lib" "$work/consumer-pc" "$PDFKILN_SAMPLE"


# The README's API tour compiles as written and runs on the sample.
tour="$work/tour.cpp"
awk '/^## API tour/ {on=1} on && /^```cpp/ {take=1; next} take && /^```/ {exit} take {print}' \
  "$PDFKILN_CONSUMER_DIR/../../../README.md" > "$tour"
[ -s "$tour" ] || { echo "no API tour in README.md"; exit 1; }
c++ -std=c++17 -Wall -Wextra -Werror "$tour" -o "$work/tour" $(pkg-config --cflags --libs PDFKilnPage)
LD_LIBRARY_PATH="$prefix/lib" "$work/tour" "$PDFKILN_SAMPLE" | grep -q "% page 1: form" || { echo "API tour output"; exit 1; }
# The installed tool starts without LD_LIBRARY_PATH.
env -u LD_LIBRARY_PATH "$prefix/bin/pdfkiln" --version >/dev/null || { echo "installed pdfkiln does not start"; exit 1; }
echo "API tour and installed tool passed"
echo "install check passed"
