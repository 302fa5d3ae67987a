# shellcheck shell=bash
# Sourced by ./run: the demo application on the simulator, with the layer between them.

readonly port=8720

application_targets=(orvanic_xr_layer velmoor_simulator velmoor_demo velmoor_agent)

need_free_port() {
  local host
  for host in 127.0.0.1 ::1; do
    if (exec 3<>"/dev/tcp/$host/$port") 2>/dev/null; then
      fail "port $port is in use on $host: another application runs with the layer; end it first"
    fi
  done
}

# run_application BUILD_DIRECTORY [OPTION...]: becomes the application. The layer's log stays below that directory.
run_application() {
  local directory=$PWD/$1
  shift
  exec env XR_RUNTIME_JSON="$directory/lib/velmoor_simulator.json" \
    XR_API_LAYER_PATH="$directory/layers" XR_ENABLE_API_LAYERS=XR_APILAYER_KESTX_velmoor \
    XDG_STATE_HOME="$directory/demo" \
    "$directory/bin/velmoor_demo" "$@"
}

# Ends the application as Ctrl-C would, and gives its exit code.
end_application() {
  local pid=$1
  kill -INT "$pid" 2>/dev/null || true
  for _ in $(seq 100); do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  kill -KILL "$pid" 2>/dev/null && say "the application did not end by itself"
  wait "$pid"
}

run_demo() {
  local directory=build/release log=build/release/demo/application.log pid outcome=0
  build release "${application_targets[@]}"
  need_free_port
  mkdir -p "$directory/demo"
  : >"$log"

  say "the application runs; all that it and the layer print is in $log"
  # The layer's lines bear its name; what is left is the application's own voice.
  (run_application "$directory" --seconds 120) > >(tee "$log" | sed -un '/\[Velmoor\]/!s/^/app | /p') 2>&1 </dev/null &
  pid=$!
  trap 'end_application "$pid"' EXIT

  "$directory/bin/velmoor_agent" --exit --pictures "$directory/demo" || outcome=$?
  trap - EXIT
  end_application "$pid" || { outcome=$?; say "the application ended with $outcome"; }
  [ "$outcome" = 0 ] || fail "the demo failed; see $log"
  say "the demo went well"
}

run_serve() {
  build release "${application_targets[@]}"
  need_free_port
  mkdir -p build/release/demo
  say "an MCP client connects to http://127.0.0.1:$port/sse; Ctrl-C ends the application"
  run_application build/release
}
