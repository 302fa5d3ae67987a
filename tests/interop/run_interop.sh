#!/usr/bin/env bash
# Runs the interop test; ends with 77, which stands for "skipped", where it can't be run.
#
#   run_interop.sh SERVER_PROGRAM
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

skip() {
  echo "skipped: $1"
  exit 77
}

command -v node >/dev/null || skip "Node.js is not there; 20 or newer is needed"
[ "$(node -p 'parseInt(process.versions.node)')" -ge 20 ] || skip "Node.js is $(node --version); 20 or newer is needed"
[ -d node_modules/@modelcontextprotocol ] || skip "the clients are not there; './run test' or 'npm ci' brings them"

# What a shell gives its programs on most machines: fewer descriptors than a busy client may want connections.
ulimit -Sn 1024
INTEROP_SERVER=$1 exec node --test interop.test.mjs
