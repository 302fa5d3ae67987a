# shellcheck shell=bash
# Sourced by ./run: the demo application on the simulator, with the layer between them.

readonly port=8720
readonly film_size=320x320

application_targets=(orvanic_xr_layer velmoor_automation_layer velmoor_simulator velmoor_demo velmoor_agent)

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

# start_application NAME [OPTION...]: builds it and runs it in the background. What it and the layer print goes to `log`,
# which is NAME below build/release/demo. It ends with this script, if not before.
start_application() {
  local directory=build/release
  log=$directory/demo/$1
  build release "${application_targets[@]}"
  need_free_port
  mkdir -p "$directory/demo"
  : >"$log"
  shift
  (run_application "$directory" --seconds 120 "$@") >"$log" 2>&1 </dev/null &
  application=$!
  trap 'end_application "$application"' EXIT
}

# await_application: ends it and fails if it did not end well.
await_application() {
  trap - EXIT
  end_application "$application" || fail "the application ended with $?; see $log"
}

run_demo() {
  local pictures=build/release/demo film=() outcome=0
  if [ $# -gt 0 ]; then
    [ "$*" = --film ] || fail "usage: ./run demo [--film]"
    need_tools apngasm:apngasm
    # Small pictures are quick to take and to load.
    export VELMOOR_SIM_EYE_SIZE=$film_size
    pictures=build/release/demo/film
    rm -rf "$pictures"
    film=(--film "$pictures")
  fi
  mkdir -p "$pictures"
  need_gl_drivers
  start_application application.log
  say "the application runs; all that it and the layer print is in $log"
  build/release/bin/velmoor_agent --exit --pictures "$pictures" --watch "$log" "${film[@]}" || outcome=$?
  await_application
  [ "$outcome" = 0 ] || fail "the demo failed; see $log"
  if [ ${#film[@]} -gt 0 ]; then
    make_film "$pictures"
  else
    say "what the agent saw before and after each act: $pictures/*.png"
  fi
  say "the demo went well"
}

# make_film DIRECTORY: the pictures that the agent took become one that moves.
make_film() {
  local result=docs/pictures/tour.png pictures=("$1"/frame_*.png)
  [ ${#pictures[@]} -ge 24 ] || fail "there are only ${#pictures[@]} pictures in $1: too few for a film"
  # Each stands for 4/25 of a second, as they were taken.
  apngasm "$result" "${pictures[@]}" 4 25 >/dev/null || fail "apngasm failed"
  say "$result shows the tour in ${#pictures[@]} pictures"
}

# Has the running server tell what its tools are.
run_docs() {
  need_tools python3:python3
  build release velmoor
  start_application docs.log --headless
  python3 scripts/tools_page.py build/release/bin/velmoor >build/release/demo/tools.md || fail "docs/tools.md can't be made; see $log"
  await_application
  mv build/release/demo/tools.md docs/tools.md
  say "docs/tools.md tells what the server told"
}

run_serve() {
  build release "${application_targets[@]}"
  need_gl_drivers
  need_free_port
  mkdir -p build/release/demo
  say "an MCP client connects to http://127.0.0.1:$port/sse; Ctrl-C ends the application"
  run_application build/release
}
