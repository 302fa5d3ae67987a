# shellcheck shell=bash
# Sourced by ./run after setup.sh: puts what was built in its place, and takes it away again.

# A line for each installed file. CMake's own list remembers only the last installation, wherever it went.
installed_files=build/installed.txt

# The switches of the implicit layer, told by those who source this.
# shellcheck disable=SC2034
enable_variable=ENABLE_XR_APILAYER_KESTX_velmoor
# shellcheck disable=SC2034
disable_variable=DISABLE_XR_APILAYER_KESTX_velmoor

# install_prefix BUILD_DIRECTORY PREFIX
install_prefix() {
  local build=$1 prefix
  prefix=$(realpath --canonicalize-missing "$2")
  local install=(cmake --install "$build" --prefix "$prefix")
  if mkdir -p "$prefix" 2>/dev/null && [ -w "$prefix" ]; then
    "${install[@]}"
  else
    as_root "${install[@]}"
  fi
  { cat "$build/install_manifest.txt"; echo; } >>"$installed_files"
}

# search_path_for PREFIX: the variable by which the loader finds the explicit layer there, where it needs one.
search_path_for() {
  case $1 in
    /usr | /usr/local | "${HOME:-}/.local") ;;
    *) echo " XR_API_LAYER_PATH=$(realpath --canonicalize-missing "$1")/share/openxr/1/api_layers/explicit.d" ;;
  esac
}

# install_implicit BUILD_DIRECTORY [always]: the manifest of the layer that was installed last, for this user. Without
# "always" the layer is off in an application until its variable is set.
install_implicit() {
  local build=$1 when=${2:-} library manifest
  local directory=${XDG_DATA_HOME:-$HOME/.local/share}/openxr/1/api_layers/implicit.d
  library=$(grep '/libXrApiLayer_KESTX_velmoor\.so$' "$build/install_manifest.txt")
  manifest=$(<"$build/manifest/implicit.json.in")
  [ -z "$when" ] || manifest=$(grep -v '"enable_environment"' <<<"$manifest")
  mkdir -p "$directory"
  echo "${manifest//@LIBRARY@/"$library"}" >"$directory/XrApiLayer_KESTX_velmoor.json"
  echo "$directory/XrApiLayer_KESTX_velmoor.json" >>"$installed_files"
}

# remove_installed FILE: and the directories of our own that are empty without it.
remove_installed() {
  local directory
  directory=$(dirname "$1")
  local with=()
  [ -w "$directory" ] || with=(as_root)
  "${with[@]}" rm -f "$1"
  echo "removed $1"
  while [[ $directory == */velmoor || $directory == */openxr || $directory == */openxr/1* ||
    $directory == */velmoor-*.dist-info ]]; do
    "${with[@]}" rmdir "$directory" 2>/dev/null || break
    directory=$(dirname "$directory")
  done
}

uninstall() {
  local file files
  [ -f "$installed_files" ] || fail "nothing was installed from here"
  mapfile -t files <"$installed_files"
  for file in "${files[@]}"; do
    [ ! -f "$file" ] && [ ! -L "$file" ] || remove_installed "$file"
  done
  rm -f "$installed_files"
}

# package_deb BUILD_DIRECTORY TARGET_DIRECTORY: which holds that one package afterwards.
package_deb() {
  rm -f "$2"/velmoor_*.deb
  cpack --config "$1/CPackConfig.cmake" -B "$2" >&2 || fail "packing failed"
  rm -rf "$2/_CPack_Packages"
}
