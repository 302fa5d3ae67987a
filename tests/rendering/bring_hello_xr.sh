#!/usr/bin/env bash
# Unpacks the distribution's hello_xr as BUILD_DIRECTORY/hello_xr where it is not installed; nothing is installed.
#
#   bring_hello_xr.sh BUILD_DIRECTORY
#
# Ends with 77, which stands for "skipped", where the package can't be had.
set -euo pipefail
if command -v hello_xr >/dev/null || [ -x "$1/hello_xr" ]; then exit 0; fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
if ! apt-get -qq -o APT::Sandbox::User=root download libopenxr-utils >/dev/null 2>&1 ||
  ! dpkg-deb --extract libopenxr-utils_*.deb unpacked; then
  echo "skipped: the package libopenxr-utils can't be had"
  exit 77
fi
mv unpacked/usr/bin/hello_xr "$1/hello_xr"
