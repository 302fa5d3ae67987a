#!/usr/bin/env bash
# What is installed works from where it lies, under the real loader, and goes away without a trace.
#
#   install.sh CASE BUILD_DIRECTORY      CASE is the name of a function below; 77 says that it can't be tried here
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

source "$root/scripts/setup.sh"
source "$root/scripts/install.sh"
installed_files=$scratch/installed.txt

# Nothing of this user's or of this machine's layers and runtimes is to be seen.
unset XR_API_LAYER_PATH XR_ENABLE_API_LAYERS XR_RUNTIME_JSON XDG_DATA_HOME
export VELMOOR_SIM_STRICT=1 HOME=$scratch/home XDG_CONFIG_DIRS=$scratch/none XDG_DATA_DIRS=$scratch/none XDG_STATE_HOME=$scratch/state
named=XR_ENABLE_API_LAYERS=XR_APILAYER_KESTX_velmoor
mkdir -p "$HOME"

flunk() {
  echo "FAILED: $1"
  tail -n 50 "$scratch"/*.txt
  exit 1
}

# runs PREFIX VARIABLE=VALUE...: the installed demo runs on the installed simulator.
runs() {
  local prefix=$1
  shift
  rm -rf "$XDG_STATE_HOME"
  env XR_RUNTIME_JSON="$prefix/share/velmoor/velmoor_simulator.json" "$@" \
    timeout 60 "$prefix/bin/velmoor_demo" --headless --seconds 1 >"$scratch/demo.txt" 2>&1 || flunk "the demo ended with $?"
}

runs_with_layer() {
  runs "$@"
  grep -q 'MCP Server started successfully' "$XDG_STATE_HOME"/velmoor/logs/*/api_layer.log ||
    flunk "the layer did not come up: $*"
}

runs_without_layer() {
  runs "$@"
  [ ! -e "$XDG_STATE_HOME" ] || flunk "the layer was there: $*"
}

# doctor_says CODE PREFIX VARIABLE=VALUE...
doctor_says() {
  local expected=$1 prefix=$2 code=0
  shift 2
  env XR_RUNTIME_JSON="$prefix/share/velmoor/velmoor_simulator.json" "$@" "$prefix/bin/velmoor-doctor" \
    >"$scratch/doctor.txt" 2>&1 || code=$?
  [ "$code" = "$expected" ] || flunk "the doctor ended with $code: $*"
}

# no_files_below DIRECTORY [EXCEPT]
no_files_below() {
  local left
  left=$(find "$1" -not -type d ${2:+-not -path "$1/$2/*"})
  [ -z "$left" ] || flunk "left behind: $left"
}

moved_prefix() {
  install_prefix "$build" "$scratch/first" >"$scratch/install.txt" 2>&1
  mv "$scratch/first" "$scratch/second"
  runs_with_layer "$scratch/second" "$named" XDG_DATA_DIRS="$scratch/second/share"
  doctor_says 0 "$scratch/second" "$named" XDG_DATA_DIRS="$scratch/second/share"
  [ -f "$scratch/second/share/man/man1/velmoor-doctor.1" ] || flunk "no man page"
  "$scratch/second/bin/velmoor" mcp </dev/null >"$scratch/bridge.txt" || flunk "the bridge does not start"
}

implicit() {
  install_prefix "$build" "$HOME/.local" >"$scratch/install.txt" 2>&1
  install_implicit "$build"
  runs_without_layer "$HOME/.local"
  doctor_says 1 "$HOME/.local"
  runs_with_layer "$HOME/.local" "$enable_variable=1"
  doctor_says 0 "$HOME/.local" "$enable_variable=1"
  runs_with_layer "$HOME/.local" "$enable_variable=1" "$named"
  runs_without_layer "$HOME/.local" "$enable_variable=1" "$disable_variable=1"
  uninstall >"$scratch/uninstall.txt"
  no_files_below "$HOME"
  [ ! -e "$HOME/.local/share/openxr" ] || flunk "the loader's directories are left behind"
}

implicit_always() {
  export XDG_DATA_HOME=$scratch/data
  install_prefix "$build" "$scratch/prefix" >"$scratch/install.txt" 2>&1
  install_implicit "$build" always
  # Somebody else's manifest beside ours stays.
  touch "$XDG_DATA_HOME/openxr/1/api_layers/implicit.d/other.txt"
  runs_with_layer "$scratch/prefix"
  doctor_says 0 "$scratch/prefix"
  runs_without_layer "$scratch/prefix" "$disable_variable="
  no_files_below "$HOME"
  uninstall >"$scratch/uninstall.txt"
  no_files_below "$scratch/prefix"
  [ "$(find "$XDG_DATA_HOME" -type f -printf '%f')" = other.txt ] || flunk "not ours alone was removed"
}

# scratch_dpkg OPTION...: a root directory of its own, with this machine's list of installed packages, so that
# dependencies are checked. The package's scripts run, but find an ldconfig that only says that it was called.
scratch_dpkg() {
  PATH=$scratch/bin:$PATH dpkg --root="$scratch/target" --force-script-chrootless "$@" 2>&1 |
    sed '/files list file for package .* missing/d' >"$scratch/dpkg.txt" || flunk "dpkg $*"
}

deb() {
  local tool prefix=$scratch/target/usr file
  for tool in cpack dpkg dpkg-shlibdeps; do
    command -v "$tool" >/dev/null || { echo "skipped: there is no $tool"; exit 77; }
  done
  [ "$(id -u)" = 0 ] || { echo "skipped: dpkg installs as root only"; exit 77; }
  ! dpkg-query --show velmoor >/dev/null 2>&1 || { echo "skipped: this machine has the package"; exit 77; }
  (package_deb "$build" "$scratch/package") >"$scratch/pack.txt" 2>&1 || flunk "packing"
  mkdir -p "$scratch/bin" "$scratch/target/var/lib/dpkg/info" "$scratch/target/var/lib/dpkg/updates"
  cp /var/lib/dpkg/status "$scratch/target/var/lib/dpkg/"
  printf '#!/bin/sh\ntouch "%s/ldconfig-was-called"\n' "$scratch" >"$scratch/bin/ldconfig"
  chmod +x "$scratch/bin/ldconfig"

  scratch_dpkg --install "$scratch"/package/velmoor_*.deb
  [ -f "$scratch/ldconfig-was-called" ] || flunk "the dynamic linker does not learn of the libraries"
  dpkg --root="$scratch/target" --status velmoor 2>&1 | grep -q '^Depends:.*libopenxr-loader1' ||
    flunk "no dependency on the loader"
  for file in include/velmoor/external_tool.h lib/cmake/velmoor/velmoor-config.cmake lib/pkgconfig/velmoor.pc \
    share/man/man1/velmoor-doctor.1 bin/velmoor share/man/man1/velmoor.1 \
    share/bash-completion/completions/velmoor share/zsh/site-functions/_velmoor share/doc/velmoor/copyright \
    lib/python3/dist-packages/velmoor/pytest_plugin.py lib/python3/dist-packages/velmoor-1.0.0.dist-info/entry_points.txt \
    share/openxr/1/api_layers/explicit.d/XrApiLayer_KESTX_velmoor.json; do
    [ -f "$prefix/$file" ] || flunk "the package lacks $file"
  done
  runs_with_layer "$prefix" "$named" XDG_DATA_DIRS="$prefix/share"
  doctor_says 0 "$prefix" "$named" XDG_DATA_DIRS="$prefix/share"
  scratch_dpkg --purge velmoor
  no_files_below "$scratch/target" var
}

"$1"
