#!/usr/bin/env bash
# Runs one of the interop tests; ends with 77, which stands for "skipped", where it can't be run.
#
#   run_interop.sh interop|browser|watch|bridge|inspector|conformance SERVER [VELMOOR]    with CLIENTS_WANTED set, a failure
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

skip() {
  echo "skipped: $1"
  [ -n "${CLIENTS_WANTED:-}" ] || exit 77
  exit 1
}

command -v node >/dev/null || skip "Node.js is not there; 20 or newer is needed"
[ "$(node -p 'parseInt(process.versions.node)')" -ge 20 ] || skip "Node.js is $(node --version); 20 or newer is needed"
case $1 in
  interop | bridge | inspector)
    [ -d node_modules/@modelcontextprotocol ] || skip "the clients are not there; './run test' or 'npm ci' brings them"
    ;;
  browser | watch)
    CHROMIUM=$(command -v chromium || command -v chromium-browser) || skip "no Chromium; './run test clients' brings it"
    export CHROMIUM
    ;;
  conformance)
    # Its suites need a newer Node.js than Debian has, which npm brings with them.
    cd conformance
    [ -x node_modules/.bin/node ] || skip "the conformance suite is not there; './run test clients' brings it"
    PATH=$PWD/node_modules/.bin:$PATH
    ;;
esac

# What a shell gives its programs on most machines: fewer descriptors than a busy client may want connections.
ulimit -Sn 1024
INTEROP_SERVER=$2 VELMOOR=${3:-} exec node --test "$1.test.mjs"
