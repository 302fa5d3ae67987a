#!/usr/bin/env bash
# The command as its user has it: with the demo on the simulator, each case from an empty home.
#
#   command.sh CASE BUILD_DIRECTORY      CASE is the name of a function below
set -euo pipefail
build=$2
here=$(cd "$(dirname "$0")" && pwd)
velmoor=$build/bin/velmoor
scratch=$(mktemp -d)
export HOME=$scratch VELMOOR_SIM_STRICT=1 VELMOOR_SIM_EYE_SIZE=64x64
unset XDG_CACHE_HOME XDG_STATE_HOME XDG_CONFIG_HOME XR_RUNTIME_JSON XR_API_LAYER_PATH XR_ENABLE_API_LAYERS
pids=()
clean_up() {
  for pid in "${pids[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
  rm -rf "$scratch"
}
trap clean_up EXIT

flunk() {
  echo "FAILED: $1"
  tail -n 40 "$scratch"/*.txt
  exit 1
}

# expect CODE PATTERN WORD...: what the command prints, and how it ends.
expect() {
  local expected=$1 pattern=$2 code=0
  shift 2
  timeout 60 "$velmoor" "$@" >"$scratch/said.txt" 2>&1 </dev/null || code=$?
  [ "$code" = "$expected" ] || flunk "'$*' ended with $code, not $expected"
  grep -qE -e "$pattern" "$scratch/said.txt" || flunk "'$*' does not say: $pattern"
}

# gone PATTERN: no process with such a command line, soon.
gone() {
  for _ in $(seq 100); do pgrep -f "$1" >/dev/null || return 0; sleep 0.05; done
  flunk "still there: $(pgrep -af "$1")"
}

shell_commands() {
  expect 2 'A subcommand is required'
  expect 2 'the application is missing' run
  expect 2 'this machine alone' serve --watch --token t --host 192.0.2.1
  expect 2 'no JSON' call math_add '{'
  expect 2 'nan is no number' call --wait nan math_add
  expect 2 'not in range' call --wait -1 math_add
  expect 3 'no application' apps
  expect 3 'nothing serves port 8720' call --wait 0.3 math_add '{"a": 1, "b": 2}'
  expect 0 '^openxr_get_head_pose  [A-Z]' tools
  expect 127 "nothing_there can't be started" run -- ./nothing_there
  expect 5 fine run -- sh -c 'echo fine; exit 5'

  # A script that leaves a child behind starts the application. It and the command's own socket lie in two networks.
  "$velmoor" run -- sh -c "sleep 7654.$$ & exec \"\$0\"" "$build/bin/velmoor_demo" >"$scratch/run.txt" 2>&1 </dev/null &
  pids+=($!)
  local run=$!
  expect 0 '"result": 3.0' call math_add '{"a": 1, "b": 2}'
  expect 0 '^[0-9]+ velmoor_demo .*on Velmoor Simulator' apps
  expect 0 XR_SESSION_STATE_FOCUSED call openxr_get_session_info
  expect 1 'Parameter .a. is required' call math_add
  expect 1 'Tool not found: nonsense' call nonsense
  expect 0 "^$scratch/pictures/openxr_capture_.*png$" call --pictures "$scratch/pictures" openxr_capture_composited_image
  [ "$(head -c 4 "$scratch"/pictures/*.png | tail -c 3)" = PNG ] || flunk "that is no picture"
  expect 0 '^play_sequence ' tools
  kill -KILL "$run"
  gone "sleep 7654.$$"
  gone "$build/bin/velmoor_demo"
}

# ask METHOD PARAMS: the answer is in $answer.
ask() {
  id=$((${id:-0} + 1))
  echo "{\"jsonrpc\":\"2.0\",\"id\":$id,\"method\":\"$1\",\"params\":$2}" >&"${bridge[1]}"
  until [[ ${answer:-} == *"\"id\":$id,"* ]]; do
    IFS= read -r -t 60 -u "${bridge[0]}" answer || flunk "$1 $2 was not answered"
  done
  echo "$answer" >>"$scratch/answers.txt"
}

# called PATTERN TOOL [ARGUMENTS]
called() {
  ask tools/call "{\"name\":\"$2\",\"arguments\":${3:-{\}}}"
  [[ $answer =~ $1 ]] || flunk "$2 does not answer: $1"
}

agents_loop() {
  coproc bridge { exec "$velmoor" mcp --wait 1 --watch 8731 --pictures "$scratch/kept" -- "$build/bin/velmoor_demo" 2>"$scratch/bridge.txt"; }
  local bridge_pid=$!
  pids+=("$bridge_pid")
  ask initialize '{"protocolVersion":"2025-11-25","capabilities":{},"clientInfo":{"name":"t","version":"1"}}'
  gone "^$build/bin/velmoor_demo" # starting the bridge starts nothing else
  grep -q 'watch at http://127.0.0.1:8731/watch' "$scratch/bridge.txt" || flunk 'there is no page'
  expect 0 'port 8731 is taken; there is no page' mcp --watch 8731
  called 'The tool app_start starts the application.*"isError":true' openxr_get_session_info
  called 'session is in focus and frames flow' app_start
  called 'runs already.*"isError":true' app_start
  called XR_SESSION_STATE_FOCUSED openxr_get_session_info
  called 'session is in focus and frames flow' app_restart
  called 'It holds, after [0-9]{3,} ms' xr_wait '{"session_state":"FOCUSED","frames":30}'
  called 'It holds' xr_wait '{"tool":"math_add","arguments":{"a":1,"b":2},"path":"/result","above":2.9,"below":3.1}'
  called 'did not come about in time.*session.*FOCUSED.*isError":true' xr_wait \
    '{"session_state":"xr_session_state_idle","timeout_seconds":0.2}'
  called 'session_state must be one of: IDLE.*isError":true' xr_wait '{"session_state":"ASLEEP"}'
  called 'Error: above needs tool' xr_wait '{"frames":1,"above":2}'
  called 'Error: path must be like' xr_wait '{"tool":"math_add","path":"x"}'
  called 'level must be one of' app_output '{"level":5}'
  called 'timeout_seconds must be a number.*isError":true' xr_wait '{"frames":1,"timeout_seconds":"1"}'
  called success openxr_set_controller_pose \
    '{"hand":"left","position":[0.2,1.2,0.3],"base_space":"stage","orientation":[0,0,0,1]}'
  called 'It holds.*left.*pronto_controller_plus.*left.*0.2' xr_wait \
    '{"profile":"pronto_controller_plus","near":[0.2,1.2,0.3],"device":"left","base_space":"stage"}'
  called 'not come about in time.*left.*isError":true' xr_wait \
    '{"near":[0.2,1.2,0.4],"device":"left","base_space":"stage","timeout_seconds":0.1}'
  called 'read-only tools alone.*isError":true' xr_wait '{"tool":"openxr_exit_session"}'
  called XR_SESSION_STATE_FOCUSED openxr_get_session_info
  called "image/jpeg.*width.{3}16,.*\\\"x.{3}32,.*is also in $scratch/kept/xr_picture_[0-9_]+.jpg\"" xr_picture \
    '{"crop":[0.5,0,1,1],"largest_edge":32,"format":"jpeg"}'
  [ "$(head -c 3 "$scratch"/kept/* | od -An -tx1)" = ' ff d8 ff' ] || flunk "not one JPEG is kept: $(ls "$scratch/kept")"
  called 'crop must be \[left, top' xr_picture '{"crop":[1,0,0,1]}'
  called success openxr_set_controller_input '{"hand":"left","component":"Thumbstick","sub_component":"X","value":0.5}'
  called 'Released in velmoor_demo \(pid [0-9]+\): left Thumbstick X' xr_release_all
  called 'Nothing is held' xr_release_all
  called success openxr_set_controller_input '{"hand":"right","component":"A","value":1}'
  called It.holds xr_wait '{"frames":3}'
  called 'a/click.*active.{3}true,.{2}values.{3}\[1\.0\],.*values.{3}\[1\.0\],.{2}ms_ago.{3}[0-9]+\}\]' \
    xr_inputs '{"path":"/right/input/a/"}'
  called '"isError":false' xr_look_at '{"entity":"TABLE 2"}'
  called 'no picture of that eye' xr_look_at '{"pixel":[1,1],"eye":"right"}'
  called image/png xr_picture
  called 'at.{5}TABLE 2' xr_point_at '{"pixel":[31,31]}'
  called 'no entity is called .{2}x.*TABLE 2.*isError":true' xr_look_at '{"entity":"x"}'
  called '"isError":false' xr_move '{"ahead":0.5,"turn_left":90,"duration_seconds":0.1}'
  called 'step.{3}1,.*frame.{3}[0-9]+\}.*step.{3}3,.{2}tool.{3}.{2}openxr_set_controller_input.*isError":false' xr_act \
    '{"steps":[{"frames":2},{"tool":"xr_move","arguments":{"up":0.1}},'\
'{"at":0.2,"tool":"openxr_set_controller_input","arguments":{"hand":"left","component":"X","value":1}}]}'
  called 'step 1 was not begun.*not both' xr_act '{"steps":[{"frames":2,"tool":"xr_move"}]}'
  called 'entity must not be empty' xr_look_at '{"entity":""}'
  called 'step 2 was not begun, nor any other.*isError":true' xr_act '{"steps":[{"frames":2},{"tool":"app_stop"}]}'
  called 'step 1 failed and those behind.*isError":true' xr_act '{"steps":[{"tool":"xr_look_at"},{"frames":1}]}'
  called 'left X' xr_release_all
  printf '%s\n' '{"jsonrpc":"2.0","id":"long","method":"tools/call","params":{"name":"sim_step","arguments":{"frames":1000000}}}' \
    '{"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":"long"}}' >&"${bridge[1]}"
  called '\\"held\\": true' sim_pause # the steps that nobody waits for have ended
  called '\\"paused\\": false' sim_run
  called '\[DEBUG\]' app_output '{"lines":400,"level":"debug"}'
  called 'ended with exit code 0' app_stop
  called 'was not running' app_stop
  called 'session is in focus' app_start
  called 'exit requested.*SESSION_STATE.*The process has ended after [0-9]+ ms with exit code 0' openxr_exit_session
  called 'session is in focus' app_start
  for waits in '"xr_wait","arguments":{"frames":100000,"timeout_seconds":60}' \
    '"xr_act","arguments":{"steps":[{"frames":1},{"at":50,"frames":1}]}'; do
    (sleep 0.5 && pkill -KILL -f "^$build/bin/velmoor_demo") &
    ask tools/call "{\"name\":$waits}"
    [[ $answer =~ 'is gone: it has ended' ]] || flunk "$waits does not notice that the application is gone"
    called 'session is in focus' app_restart
  done
  kill -KILL "$bridge_pid"
  gone "^$build/bin/velmoor_demo"
}

# One agent's work on an application that waits for it. What was answered is in $1, but for times of the machine's.
work_with_held_frames() {
  id=0
  coproc bridge { VELMOOR_SIM_CLOCK=stepped VELMOOR_SIM_SEED=3 exec "$velmoor" mcp -- "$build/bin/velmoor_demo" 2>"$scratch/bridge.txt"; }
  local bridge_pid=$!
  pids+=("$bridge_pid")
  ask initialize '{"protocolVersion":"2025-11-25","capabilities":{},"clientInfo":{"name":"t","version":"1"}}'
  called 'no application runs on the simulator.*"isError":true' sim_step
  called 'session is in focus and frames flow' app_start
  called 'process has ended after [0-9]+ ms with exit code 0' openxr_exit_session
  called 'session is in focus and frames flow' app_start
  : >"$scratch/answers.txt"
  called '\\"held\\": true' sim_step '{"frames":10}'
  called 'frames must be.*"isError":true' sim_step '{"frames":0}'
  called position openxr_get_head_pose '{"base_space":"stage"}'
  called success openxr_set_head_pose '{"position":[0,1.6,1],"orientation":[0,0,0,1],"base_space":"stage"}'
  called 'frame\\": ([0-9]+)' sim_pause
  local before=${BASH_REMATCH[1]}
  called success openxr_set_head_pose '{"position":[0,1.6,0],"base_space":"stage","duration_seconds":2}'
  called 'weather' set_weather '{"weather":"rain"}'
  called 'It holds' xr_wait '{"frames":7}'
  sed -i '$d' "$scratch/answers.txt" # it tells how long it took
  called "frame..: $((before + 144 + 1 + 7))," sim_pause
  called 'image/png' openxr_capture_composited_image
  called paused sim_event '{"event":"focus_lost"}'
  called 'event must be one of.*"isError":true' sim_event '{"event":"rain"}'
  called "frame..: $((before + 144 + 1 + 7 + 2))," sim_step '{"frames":2}'
  called 'the weather is rain' app_output '{"lines":1000}'
  sed -i '$d' "$scratch/answers.txt"
  grep -oE '  \* [^\\]*' <<<"$answer" >>"$scratch/answers.txt"
  called '\\"paused\\": false' sim_run
  called 'ended with exit code 0' app_stop
  kill "$bridge_pid"
  wait "$bridge_pid" || true
  sed '/paused..: false/d' "$scratch/answers.txt" >"$1"
}

held_frames_are_the_same_twice() {
  work_with_held_frames "$scratch/idle.log"
  # And on a machine that has other work.
  for _ in 1 2 3 4; do
    sh -c "while :; do :; done" &
    pids+=($!)
  done
  work_with_held_frames "$scratch/busy.log"
  cmp "$scratch/idle.log" "$scratch/busy.log" || flunk "two runs differ"
}

tests_of_an_application() {
  cd "$scratch"
  cat >good.yaml <<'END'
steps:
  - {call: spawn_cube, arguments: {position: [0, 1.5, -1], color: red}, values: {/cube: 1}}
  - {call: openxr_set_head_pose, arguments: {base_space: stage, position: [0, 1.6, 0.5], orientation: [0, 0, 0, 1]}}
  - {wait: {frames: 5}}
  - {expect: openxr_get_session_info, values: {/state/name: {contains: FOCUSED}}}
  - {picture: cube}
END
  sed 's/red/blue/; s/1.5/1.6/' good.yaml >other.yaml
  python3 -c 'import jsonschema, yaml' 2>/dev/null && python3 - "$here/../../docs/test.schema.json" good.yaml <<'END' >"$scratch/schema.txt" 2>&1
import json, sys, yaml, jsonschema
checker = jsonschema.Draft7Validator(json.load(open(sys.argv[1])))
good = yaml.safe_load(open(sys.argv[2]))
checker.check_schema(checker.schema)
checker.validate(good)
good["steps"][0]["eye"] = "left"
print("the schema takes an eye of a call" if checker.is_valid(good) else "fine")
END
  [ "$(cat "$scratch/schema.txt" 2>/dev/null || echo fine)" = fine ] || flunk 'the schema is wrong'
  expect 1 'no baseline baselines/good/cube.*--update' test good.yaml -- "$build/bin/velmoor_demo"
  expect 0 '1 of 1 passed' test --update good.yaml -- "$build/bin/velmoor_demo"
  expect 0 '4 of 4 passed' test -j 2 --repeat 4 good.yaml -- "$build/bin/velmoor_demo"
  ls baselines/good/cube.Velmoor-Simulator.*-*.left.png
  cp -r baselines/good baselines/other
  expect 1 'other.yaml:6: picture cube, left eye: [0-9.]+ % of the pixels differ' test other.yaml good.yaml -- \
    "$build/bin/velmoor_demo"
  ls velmoor-test/other-1/{expected,actual,difference,last}.png velmoor-test/other-1/output.txt
  grep -q 'tests="2" failures="1" errors="0"' velmoor-test/junit.xml || flunk 'one of two should have failed'
  [ "$(grep -o '"difference":"iVBOR' velmoor-test/report.html | wc -l)" = 1 ] || flunk 'no difference is shown'
  expect 0 '^\[1/1\] passed good' test --shard 2/2 other.yaml good.yaml -- "$build/bin/velmoor_demo"
  expect 2 'good.yaml:1: start sh .* ended with exit code 3 before' test good.yaml -- sh -c 'exit 3'
  echo 'steps: [{call: openxr_exit_session}, {wait: {frames: 999}}]' >exits.yaml
  expect 2 'exits.yaml:1: wait .* died with exit code 0' test exits.yaml -- "$build/bin/velmoor_demo"
  cat >held.yaml <<'END'
application: {environment: {VELMOOR_SIM_CLOCK: stepped}}
steps:
  - {call: sim_event, arguments: {event: focus_lost}}
  - {call: sim_step, arguments: {frames: 3}, values: {/held: true}}
  - {expect: openxr_get_session_info, values: {/state/name: {contains: VISIBLE}}}
END
  local begin=$SECONDS
  expect 0 '2 of 2 passed' test -j 2 --repeat 2 held.yaml -- "$build/bin/velmoor_demo" --headless
  [ $((SECONDS - begin)) -lt 5 ] || flunk 'a held application was not let end by itself'
  echo 'steps: [{call: set_weather, arguments: {weather: rain}}, {wait: {frames: 9999}}]' >long.yaml
  "$velmoor" test --output ended long.yaml -- "$build/bin/velmoor_demo" --headless >"$scratch/ended.txt" 2>&1 &
  local ended=$! code=0
  until pgrep -f "^$build/bin/velmoor_demo --headless" >/dev/null; do sleep 0.05; done
  kill -TERM "$ended"
  wait "$ended" || code=$?
  [ "$code" = 143 ] && grep -q 'with 0 of 1 done' "$scratch/ended.txt" && [ -s ended/junit.xml ] || flunk 'it ends badly'
  gone "^$build/bin/velmoor_demo --headless"
  expect 2 'no reports can be written to good.yaml' test --output good.yaml held.yaml -- "$build/bin/velmoor_demo"
  expect 2 'bad.yaml:1: the file can.t be read' test bad.yaml -- "$build/bin/velmoor_demo"
}

agents_loop_over_a_failure() {
  coproc bridge { exec "$velmoor" mcp -- sh -c 'echo it broke; exit 3' 2>"$scratch/bridge.txt"; }
  pids+=($!)
  ask initialize '{"protocolVersion":"2025-11-25"}'
  called 'ended with exit code 3 before.*it broke.*"isError":true' app_start
}

"$1"
