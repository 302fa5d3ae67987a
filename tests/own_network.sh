#!/usr/bin/env bash
# Runs a test in a network of its own where the system lets us: there port 8720 is free, and no connection of an
# earlier test lingers on it. Where it can, the test has processes of its own as well: `velmoor` looks for applications
# on the whole machine, and would find those of a test beside it.
#
#   own_network.sh COMMAND [ARGUMENT...]
set -euo pipefail
own=(unshare --net)
[ "$(id -u)" = 0 ] || own+=(--map-root-user)
"${own[@]}" ip link set lo up 2>/dev/null || exec "$@"
own_processes=(--pid --fork --kill-child --mount-proc)
if "${own[@]}" "${own_processes[@]}" true 2>/dev/null; then own+=("${own_processes[@]}"); fi
# The shell stays, for as the first process it has to reap those whose parents end before them.
exec "${own[@]}" bash -c 'ip link set lo up; "$@"; exit' bash "$@"
