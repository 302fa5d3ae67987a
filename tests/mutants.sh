#!/usr/bin/env bash
# Plants the faults of tests/mutants.txt in a copy of the tree, one at a time, and runs the tests that should notice.
# No part of ./run test: it takes more than half an hour on two cores.
#
#   tests/mutants.sh [CHOICE...]    only the faults chosen: a row's number, a range of them (20-35), or a part of a path
#
# A row of the list has four lines: the file, "-" with a text that it holds exactly once, "+" with what stands there
# instead, and "?" with the test program. "? TARGET... @ REGEX" builds the targets and runs what ctest -R finds.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
list=$PWD/tests/mutants.txt
tree=build/mutants
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1

# Only what differs is copied, with the time of now: Ninja then builds again what the last run left behind.
mkdir -p $tree
git ls-files -z --cached --others --exclude-standard | while IFS= read -rd '' file; do
  [ ! -f "$file" ] || cmp --silent "$file" "$tree/$file" || install -D "$file" "$tree/$file"
done
[ ! -d .deps ] || ln -sfn "$(realpath .deps)" $tree/.deps
cd $tree
launcher=()
! command -v ccache >/dev/null || launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake --preset release "${launcher[@]}" >/dev/null

# run_tests TEST_LINE: builds and runs; 0 if all pass, 1 if one fails, 2 if it does not build. The log tells more.
run_tests() {
  local targets=${1%%@*} regex=''
  [[ $1 != *@* ]] || regex=${1#*@ }
  # shellcheck disable=SC2086
  cmake --build build/release --parallel 2 --target $targets >log 2>&1 || return 2
  if [ -n "$regex" ]; then
    ctest --test-dir build/release --tests-regex "$regex" --stop-on-failure --no-tests=error >log 2>&1 || return 1
  else
    # shellcheck disable=SC2086
    timeout 240 build/release/bin/$targets --gtest_fail_fast --gtest_brief >log 2>&1 || return 1
  fi
}

files=() old=() new=() tests=() refused=0
while IFS= read -r line; do
  case $line in
    '#'* | '') ;;
    '- '*) old+=("${line:2}") ;;
    '+'*) line=${line:1} new+=("${line# }") ;;
    '? '*) tests+=("${line:2}") ;;
    *) files+=("$line") ;;
  esac
done <"$list"

# is_chosen NUMBER FILE CHOICE...: all are if nothing is chosen.
is_chosen() {
  local number=$1 file=$2 choice
  shift 2
  [ $# != 0 ] || return 0
  for choice; do
    case $choice in
      *[!0-9-]*) [[ $file != *"$choice"* ]] || return 0 ;;
      *) ((number < ${choice%-*} || number > ${choice#*-})) || return 0 ;;
    esac
  done
  return 1
}

chosen=()
for i in "${!files[@]}"; do
  is_chosen $((i + 1)) "${files[i]}" "$@" || continue
  if [ "$(grep -oF -- "${old[i]}" "${files[i]}" | wc -l)" != 1 ]; then
    echo "refused ${files[i]}: not found exactly once: ${old[i]}"
    refused=$((refused + 1))
  else
    chosen+=("$i")
  fi
done

# Without a fault everything passes, or nothing is proven. On a busy machine a test may fail once.
while IFS= read -r line; do
  run_tests "$line" </dev/null || run_tests "$line" </dev/null || { echo "these fail without a fault: $line"; tail -n 20 log; exit 1; }
done < <(for i in "${chosen[@]}"; do echo "${tests[i]}"; done | sort -u)

caught=0 missed=0
for i in "${chosen[@]}"; do
  cp "${files[i]}" original
  text=$(<original)
  printf '%s\n' "${text/"${old[i]}"/"${new[i]}"}" >"${files[i]}"
  outcome=0
  run_tests "${tests[i]}" </dev/null || outcome=$?
  cat original >"${files[i]}"
  case $outcome in
    0) missed=$((missed + 1)) && echo "MISSED  ${files[i]}: ${old[i]}" ;;
    1) caught=$((caught + 1)) && echo "caught  ${files[i]}: ${old[i]}  [$(grep -oE -m1 'FAILED  \] [A-Za-z_0-9./]+|\*\*\*[A-Za-z]+' log || echo 'ended')]" ;;
    *) refused=$((refused + 1)) && echo "refused ${files[i]}: does not build: ${new[i]}" ;;
  esac
done
echo "mutants: $caught caught, $missed missed, $refused refused"
[ $((missed + refused)) = 0 ]
