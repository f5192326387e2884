#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the demo need,
# asking apt only when something is missing.
set -euo pipefail
pkgs=(cmake ninja-build g++ pkg-config python3
      zlib1g-dev libicu-dev libxml2-dev libjpeg62-turbo-dev libtiff-dev
      libgtest-dev libgmock-dev libbenchmark-dev libssl-dev libjbig2dec0-dev
      qpdf mupdf-tools jbig2dec openssl ghostscript python3-pikepdf icc-profiles-free
      python3-reportlab poppler-utils)
if [ "${1:-}" = "--fuzz" ]; then pkgs+=(clang libclang-rt-14-dev); fi
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
