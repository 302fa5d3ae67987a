# shellcheck shell=bash
# Sourced by ./run: brings what a job needs, and says what it does. Quick when everything is there.

build_tools=(cmake:cmake ninja:ninja-build c++:g++ pkg-config:pkg-config xz:xz-utils)
build_packages=(nlohmann-json3-dev libfmt-dev libstb-dev libdeflate-dev libopenxr-loader1 libgtest-dev libgmock-dev libbenchmark-dev
  libpng-dev libvulkan-dev libgl-dev libegl-dev libx11-dev libcli11-dev libyaml-cpp-dev)

say() { echo "run: $*" >&2; }
fail() { say "$@"; exit 1; }

as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    fail "this needs root: $*"
  fi
}

update_package_lists() {
  say "apt-get update"
  as_root apt-get update -qq >/dev/null || fail "apt-get update failed"
}

try_install() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -qq -y --no-install-recommends "$@" >/dev/null </dev/null
}

install_packages() {
  [ $# -gt 0 ] || return 0
  command -v apt-get >/dev/null || fail "missing, and there is no apt-get to bring it: $*"
  say "apt-get install $*"
  # Old or absent package lists are the usual reason for a first failure.
  try_install "$@" 2>/dev/null || { update_package_lists; try_install "$@"; } || fail "apt-get install $* failed"
}

# need_tools COMMAND:PACKAGE...: installs the package of each command that is not there.
need_tools() {
  local pair wanted=()
  for pair in "$@"; do
    command -v "${pair%%:*}" >/dev/null || wanted+=("${pair#*:}")
  done
  install_packages "${wanted[@]}"
}

need_packages() {
  if ! command -v dpkg-query >/dev/null; then
    say "this is no Debian; CMake looks for the counterparts of $*"
    return
  fi
  local package installed wanted=()
  installed=$(dpkg-query --show --showformat '${db:Status-Status} ${Package}\n' "$@" 2>/dev/null || true)
  for package in "$@"; do
    grep -qx "installed $package" <<<"$installed" || wanted+=("$package")
  done
  install_packages "${wanted[@]}"
}

# need_build_set: all that configuring and building takes.
need_build_set() {
  need_tools "${build_tools[@]}"
  need_packages "${build_packages[@]}"
}

# cmake/fetch-dependencies.sh, which configuring runs, asks apt for its mirror; apt knows it once it has lists.
need_package_lists() {
  command -v apt-get >/dev/null || return 0
  [ -n "$(apt-get indextargets 'Created-By: Packages')" ] || update_package_lists
}

# configure PRESET [CMAKE_OPTION...]
configure() {
  local directory=build/$1
  need_build_set
  [ ! -f "$directory/build.ninja" ] || [ CMakePresets.json -nt "$directory/build.ninja" ] || return 0
  need_package_lists
  say "configure $directory"
  command -v ccache >/dev/null && set -- "$@" -DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache
  cmake --preset "$@" >/dev/null || fail "configuring $directory failed"
}

# build PRESET [TARGET...]
build() {
  local directory=build/$1
  configure "$1"
  shift
  say "build $directory"
  cmake --build "$directory" --parallel "$(nproc)" ${1:+--target "$@"} >&2 || fail "building $directory failed"
}

# With which the demo draws. Without them it runs headless.
need_gl_drivers() {
  local packages=(libegl1 libgl1-mesa-dri)
  command -v apt-get >/dev/null || return 0
  (need_packages "${packages[@]}") || say "no ${packages[*]}: the demo draws nothing"
}

# Drivers in software, what checks their use, and an application of others with its X server. Without them the tests that
# render are skipped.
need_rendering_drivers() {
  local packages=(mesa-vulkan-drivers vulkan-validationlayers libegl1 libgl1 libgl1-mesa-dri xvfb
    libopenxr-utils xserver-xorg-core xserver-xorg-video-dummy)
  command -v apt-get >/dev/null || return 0
  (need_packages "${packages[@]}") || say "no ${packages[*]}: tests that render may be skipped"
}

# need_interop_clients [DIRECTORY]: the clients from npm. Where they can't be had the tests with them are skipped; CI
# insists where it has Node.js.
need_interop_clients() {
  local directory=${1:-tests/interop}
  if ! command -v node >/dev/null && command -v apt-cache >/dev/null; then
    local offered
    offered=$(apt-cache policy nodejs 2>/dev/null | awk '$1 == "Candidate:" { print int($2) }')
    [ "${offered:-0}" -lt 20 ] || install_packages nodejs npm
  fi
  if ! command -v npm >/dev/null || [ "$(node -p 'parseInt(process.versions.node)')" -lt 20 ]; then
    say "no Node.js 20 or newer: the tests with clients from npm will be skipped"
    return
  fi
  [ "$directory/package-lock.json" -nt "$directory/node_modules/.package-lock.json" ] || return 0
  say "npm ci in $directory"
  (cd "$directory" && npm ci --ignore-scripts --no-audit --no-fund >/dev/null </dev/null) && return
  [ "${CI:-}" != true ] || fail "npm ci failed"
  say "npm ci failed: the tests with clients from npm will be skipped"
}
