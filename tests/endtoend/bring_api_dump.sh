#!/usr/bin/env bash
# Unpacks the distribution's API layer "api_dump" below the build directory; nothing is installed.
#
#   bring_api_dump.sh BUILD_DIRECTORY
#
# Ends with 77, which stands for "skipped", where the package can't be had.
set -euo pipefail
target=$1/api_dump
[ ! -d "$target" ] || exit 0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
if ! apt-get -qq -o APT::Sandbox::User=root download openxr-layer-apidump >/dev/null 2>&1 ||
  ! dpkg-deb --extract openxr-layer-apidump_*.deb layer; then
  echo "skipped: the package openxr-layer-apidump can't be had"
  exit 77
fi
mkdir unpacked
find layer -name 'libXrApiLayer_*.so' -exec cp {} unpacked \;
# The manifest names the place where the package would have been installed.
find layer -name 'XrApiLayer_*.json' -exec sed 's|\(library_path": "\).*/|\1./|' {} \; >unpacked/api_dump.json
mv unpacked "$target"
