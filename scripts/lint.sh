#!/usr/bin/env bash
# Format, mistakes, scripts and words: what can be checked without running the code.
#
#   scripts/lint.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# Of the lines of code, at most so many percent are tests.
most_tests=34
clang_format=$(command -v clang-format-14 || command -v clang-format)
clang_tidy=$(command -v clang-tidy-14 || command -v clang-tidy)

failures=0
report() {
  echo "lint: $*"
  failures=$((failures + 1))
}

# Names of the files that are in git or about to be.
tracked() { git ls-files --cached --others --exclude-standard --deduplicate -- "$@" | while read -r file; do [ ! -f "$file" ] || echo "$file"; done; }

check_format() {
  tracked '*.cpp' '*.h' '*.c' | xargs "$clang_format" --dry-run -Werror || report "clang-format would change this"
}

# clang-tidy, by CMake's hook: it looks at a file when Ninja builds it, so again only when the file or a header that it
# reads has changed. Tests and benchmarks are left out: what is wrong in them shows when they run.
check_mistakes() {
  local build=build/lint launcher=()
  ! command -v ccache >/dev/null || launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  cmake --preset release -B $build "${launcher[@]}" -DCMAKE_CXX_CLANG_TIDY="$clang_tidy;--quiet" \
    -DVELMOOR_BUILD_TESTS=OFF -DVELMOOR_BUILD_BENCH=OFF >/dev/null || { report "configuring $build failed"; return; }
  # Ninja does not know the rules.
  cmp --silent .clang-tidy $build/rules || cmake --build $build --target clean >/dev/null
  cp .clang-tidy $build/rules
  cmake --build $build --parallel "$(nproc)" -- -k 0 >$build/log 2>&1 || {
    grep -vE '^(\[[0-9]+/|FAILED: |/.*__run_co_compile|ninja: )' $build/log
    report "clang-tidy finds fault with the code"
  }
}

check_share() {
  tracked '*.cpp' '*.h' '*.c' '*.inc' '*.js' '*.mjs' '*.sh' '*.py' run .ci/run | xargs awk -v most="$most_tests" '
    FNR == 1 { in_comment = 0; is_script = FILENAME !~ /\.(cpp|h|c|inc|js|mjs)$/ }
    in_comment { in_comment = !/\*\//; next }
    /^[ \t]*\/\*/ { in_comment = !/\*\//; next }
    /^[ \t]*$/ || (is_script ? /^[ \t]*#/ : /^[ \t]*\/\//) { next }
    { ++all; tests += FILENAME ~ /^tests\// }
    END {
      printf "lint: tests are %.1f %% of the code: %d of %d lines\n", 100 * tests / all, tests, all
      exit 100 * tests > most * all
    }' || report "that is more than $most_tests %"
}

check_scripts() {
  local file scripts=(run .ci/run)
  mapfile -t -O 2 scripts < <(tracked '*.sh')
  for file in "${scripts[@]}"; do bash -n "$file" || report "$file does not parse"; done
  ! command -v shellcheck >/dev/null || shellcheck --shell bash --severity warning --external-sources "${scripts[@]}" ||
    report "shellcheck objects"
}

check_manual() {
  ! command -v mandoc >/dev/null || mandoc -Tlint -W warning docs/*.1 || report "mandoc objects"
}

# Each row: what it is, and how it looks. The brackets keep the rows from finding themselves.
check_words() {
  local what pattern
  while IFS='|' read -r what pattern; do
    ! git grep --untracked -nIE "$pattern" -- . || report "$what"
  done <<'ROWS'
a pointer to a document that readers do not have|[s]pec\.md|\<[P]arts? [0-9]+\.[0-9]
a path of one machine|/[w]ork/|/[r]oot/
the host of a package registry|[d]eb\.debian|[r]egistry\.npmjs
something left open|\<(TOD[O]|FIXM[E])\>
ROWS
}

check_format
check_words
check_scripts
check_manual
check_share
check_mistakes
[ "$failures" = 0 ] || exit 1
echo "lint: clean"
