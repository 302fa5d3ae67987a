# Completion of velmoor for bash.
_velmoor() {
  local word=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]:-} i words
  if [ "$COMP_CWORD" = 1 ]; then
    mapfile -t COMPREPLY < <(compgen -W "mcp serve run apps tools call test record doctor --help --version" -- "$word")
    return
  fi
  # Behind "--" stands an application.
  for ((i = 2; i < COMP_CWORD; ++i)); do
    [ "${COMP_WORDS[i]}" != -- ] || { mapfile -t COMPREPLY < <(compgen -c -f -- "$word"); return; }
  done
  if [ "${COMP_WORDS[COMP_CWORD - 1]}" = --pictures ]; then
    mapfile -t COMPREPLY < <(compgen -d -- "$word")
    return
  fi
  case $command in
    mcp) words="--wait --pictures --record --record-limit --watch --runtime --shared-network --" ;;
    serve) words="--port --host --token --watch --wait --pictures --record --record-limit --runtime --shared-network --" ;;
    run) words="--runtime --shared-network --" ;;
    test) words="-j --repeat --update --shard --renderer --output --runtime --shared-network -- $(compgen -f -- "$word")" ;;
    record) words="show test" ;;
    apps | tools | doctor) words="--json" ;;
    call) words="--app --pictures --wait $([ "$COMP_CWORD" != 2 ] || velmoor tools 2>/dev/null | cut -d ' ' -f 1)" ;;
    *) words= ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words --help" -- "$word")
}
complete -F _velmoor velmoor
