#!/usr/bin/env bash
# Runs a test in a network of its own where the system lets us: there port 8720 is free, and no connection of an
# earlier test lingers on it.
#
#   own_network.sh COMMAND [ARGUMENT...]
set -euo pipefail
own_network=(unshare --net)
[ "$(id -u)" = 0 ] || own_network+=(--map-root-user)
"${own_network[@]}" ip link set lo up 2>/dev/null || exec "$@"
exec "${own_network[@]}" bash -c 'ip link set lo up; exec "$@"' bash "$@"
