#!/usr/bin/env bash
# Format, mistakes, scripts and words: what can be checked without running the code.
#
#   scripts/lint.sh BUILD_DIRECTORY      a configured one, for the compile commands
#
# clang-tidy's good word on a file holds until a file that it includes changes, or the rules do: build/lint keeps it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=$1
cache=build/lint
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

# A line for each source file: its name, and the digests of all project files that it reads. Includes are written
# from the root, so the text of the files tells who reads whom.
fingerprints() {
  local rules
  rules=$({ cat .clang-tidy cmake/*.cmake; "$clang_tidy" --version; } | sha256sum | cut -c 1-16)
  { tracked '*.cpp' '*.h' '*.inc' | xargs sha256sum
    tracked '*.cpp' '*.h' '*.inc' | xargs grep -o '^#include "[^"]*"' || true
  } | awk -v rules="$rules" '
    function visit(file,    i, list, n) {
      if (seen[file]++) return
      line = line " " substr(digest[file], 1, 16)
      n = split(includes[file], list, " ")
      for (i = 1; i <= n; i++) visit(list[i])
    }
    /:#include/ { split($0, part, /:#include "|"/); includes[part[1]] = includes[part[1]] " " part[2]; next }
    { digest[$2] = $1; if ($2 ~ /\.cpp$/) sources[++count] = $2 }
    END { for (s = 1; s <= count; s++) { split("", seen); line = rules; visit(sources[s]); print sources[s], line } }'
}

# Tests and benchmarks are left out: what is wrong in them shows when they run.
check_mistakes() {
  local file fingerprint due=()
  while read -r file fingerprint; do
    [[ $file != @(tests|bench|fuzz)/* ]] || continue
    grep -qF "/$file\"" "$build/compile_commands.json" || continue
    [ "$(cat "$cache/$file.clean" 2>/dev/null)" = "$fingerprint" ] || due+=("$file" "$fingerprint")
  done < <(fingerprints)
  [ ${#due[@]} -gt 0 ] || return 0
  echo "lint: clang-tidy over $((${#due[@]} / 2)) files"
  printf '%s\0' "${due[@]}" | xargs -0 -n 2 -P "$(nproc)" scripts/tidy.sh "$build" "$cache" ||
    report "see clang-tidy's words above"
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
check_mistakes
[ "$failures" = 0 ] || exit 1
echo "lint: clean"
