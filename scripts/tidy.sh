#!/usr/bin/env bash
# Runs clang-tidy over one file and keeps its good word. Quiet when the file is clean.
#
#   scripts/tidy.sh BUILD_DIRECTORY CACHE_DIRECTORY FILE FINGERPRINT
set -euo pipefail
build=$1 file=$3 fingerprint=$4 kept=$2/$3.clean

"$(command -v clang-tidy-14 || command -v clang-tidy)" --quiet -p "$build" "$file" 2>/dev/null || {
  echo "lint: clang-tidy finds fault with $file"
  exit 1
}
mkdir -p "$(dirname "$kept")"
echo "$fingerprint" >"$kept"
