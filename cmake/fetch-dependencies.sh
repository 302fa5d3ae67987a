#!/usr/bin/env bash
# Brings the dependencies that Debian's packages can't serve: the OpenXR headers (1.1.59 or newer) and
# cpp-httplib as one header, which Debian 12 ships too old, and the source of re2, whose packaged archive can't
# go into a shared library. They are unpacked below .deps/ from the mirror that apt is already configured for;
# nothing is installed and apt's own lists stay as they are.
#
#   cmake/fetch-dependencies.sh [TARGET_DIRECTORY [openxr|httplib|re2]...]
#
# Without arguments it brings all three, into .deps beside this folder. CMake checks their versions.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
target=${1:-$root/.deps}
wanted=("${@:2}")
[ ${#wanted[@]} -gt 0 ] || wanted=(openxr httplib re2)
declare -A file_of=([openxr]=openxr/usr/include/openxr/openxr.h [httplib]=httplib/httplib.h [re2]=re2/re2/re2.cc)

missing() {
  local name
  for name in "${wanted[@]}"; do [ -f "$target/${file_of[$name]}" ] || echo "$name"; done
}
[ -n "$(missing)" ] || exit 0

give_up() {
  echo "fetch-dependencies: $1" >&2
  echo "  Point CMake to your own copies instead: -DVELMOOR_OPENXR_INCLUDE_DIR=<dir holding openxr/openxr.h, 1.1.59 or newer>" >&2
  echo "  -DVELMOOR_HTTPLIB_INCLUDE_DIR=<dir holding the one-header httplib.h, 0.41 or newer>" >&2
  echo "  -DVELMOOR_RE2_SOURCE_DIR=<dir holding re2/re2.cc of 2022-06-01, the last line that needs no abseil>" >&2
  exit 1
}

command -v apt-get >/dev/null 2>&1 || give_up "apt-get is not there"
# Debian calls the main archive by several suite names over its life; updates and security are other archives.
mirror=$(apt-get indextargets --format '$(REPO_URI) $(SUITE) $(ORIGIN)' 'Created-By: Packages' 2>/dev/null |
         awk '$3 == "Debian" && $2 !~ /-/ { print $1; exit }')
[ -n "$mirror" ] || give_up "apt knows no Debian mirror (run 'apt-get update' once)"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/lists/partial" "$work/archives/partial" "$work/state" "$target"
keyring=$(ls /usr/share/keyrings/debian-archive-keyring.* 2>/dev/null | head -n 1)
[ -n "$keyring" ] || give_up "Debian's archive keyring is not there (package debian-archive-keyring)"
cat > "$work/sources.list" <<SOURCES
deb [signed-by=$keyring] $mirror testing main
deb-src [signed-by=$keyring] $mirror testing main
deb-src [signed-by=$keyring] $mirror trixie-backports main
deb-src [signed-by=$keyring] $mirror bookworm main
SOURCES
: > "$work/state/status"

own_apt() {
  apt-get -qq -o Dir::Etc::sourcelist="$work/sources.list" -o Dir::Etc::sourceparts=- \
    -o Dir::State::lists="$work/lists" -o Dir::State::status="$work/state/status" \
    -o Dir::Cache="$work" -o Dir::Cache::archives="$work/archives" -o APT::Sandbox::User=root \
    -o Acquire::Languages=none -o APT::Get::List-Cleanup=0 "$@"
}

fetch_openxr() {
  own_apt download libopenxr-dev >/dev/null || give_up "the mirror has no newer libopenxr-dev"
  rm -rf "$target/openxr"
  dpkg-deb --extract "$work"/libopenxr-dev_*.deb "$target/openxr"
  # The loader's link library and CMake files of another suite must not be found by accident.
  find "$target/openxr" -mindepth 1 -not -path '*/include*' \( -type f -o -type l \) -delete
}

# Tried: 0.41.0, oldest and newest alike, since no suite of the mirror has a newer one. The server uses it to read the
# heads of requests (mcp/request_head.cpp); 0.18.7 of Debian 13 neither bounds how many headers one has, nor refuses
# two lengths that differ.
fetch_httplib() {
  own_apt source --download-only cpp-httplib/trixie-backports >/dev/null 2>&1 ||
    own_apt source --download-only cpp-httplib >/dev/null || give_up "the mirror has no newer cpp-httplib"
  mkdir -p "$target/httplib"
  tar -xf "$work"/cpp-httplib_*.orig.tar.* --directory "$target/httplib" --strip-components=1 --wildcards '*/httplib.h'
}

fetch_re2() {
  own_apt source --download-only re2/bookworm >/dev/null || give_up "the mirror has no source of re2"
  mkdir -p "$target/re2"
  tar -xf "$work"/re2_*.orig.tar.* --directory "$target/re2" --strip-components=1 --exclude '*ing/*' \
    --wildcards '*/re2/*' '*/util/*' '*/LICENSE'
}

echo "fetch-dependencies: $(missing | xargs) into ${target#"$PWD"/}" >&2
own_apt update >/dev/null || give_up "the mirror does not serve the suites that are needed"
cd "$work"
for name in $(missing); do "fetch_$name"; done
[ -z "$(missing)" ] || give_up "the packages do not hold the files where they are expected"
