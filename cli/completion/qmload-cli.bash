# bash completion for qmload-cli.
# The subcommands and their options are read from the program's own --help, so
# they follow the program as it changes; serial ports come from "qmload-cli
# ports", images are .alf files.

# The options in the help of "$@" (a program and maybe a subcommand), one a line;
# "-o,--output" gives both names.
_qmload_cli_options() {
  "$@" --help 2>/dev/null | sed -n 's/^  \(-[^ ]*\).*/\1/p' | tr ',' '\n'
}

_qmload_cli_subcommands() {
  "$1" --help 2>/dev/null | sed -n '/^Subcommands:/,$ s/^  \([a-z0-9-]*\) .*/\1/p'
}

_qmload_cli_ports() {
  "$1" ports --json 2>/dev/null | grep -o '"port":"[^"]*"' | sed 's/^"port":"//; s/"$//'
}

# Sets COMPREPLY to the words of the list in $1 that start with $2.
_qmload_cli_reply() {
  mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

# Sets COMPREPLY to files (only those matching the pattern $2, if given) and
# folders starting with $1.
_qmload_cli_files() {
  compopt -o filenames 2>/dev/null
  if [ -n "${2:-}" ]; then
    mapfile -t COMPREPLY < <(compgen -f -X "!$2" -- "$1"; compgen -d -- "$1")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$1")
  fi
}

_qmload_cli() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
  local prog=${COMP_WORDS[0]} sub= i
  COMPREPLY=()
  # The first word that is not an option is the subcommand: the program's own
  # options take no value.
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      -*) ;;
      *) sub=${COMP_WORDS[i]}; break ;;
    esac
  done

  if [ -z "$sub" ]; then
    if [[ $cur == -* ]]; then
      _qmload_cli_reply "$(_qmload_cli_options "$prog")" "$cur"
    else
      _qmload_cli_reply "$(_qmload_cli_subcommands "$prog")" "$cur"
    fi
    return 0
  fi

  case $prev in
    --port) _qmload_cli_reply "$(_qmload_cli_ports "$prog")" "$cur"; return 0 ;;
    --baud) _qmload_cli_reply "auto 9600 19200 38400 115200 921600" "$cur"; return 0 ;;
    --framing) _qmload_cli_reply "fast gap" "$cur"; return 0 ;;
    --id) return 0 ;;
    -o | --output | --map | --cfg | --object | --res | --funcs | --template)
      _qmload_cli_files "$cur"
      return 0
      ;;
  esac

  if [[ $cur == -* ]]; then
    _qmload_cli_reply "$(_qmload_cli_options "$prog" "$sub")" "$cur"
  elif [ "$sub" = info ] || [ "$sub" = flash ]; then
    _qmload_cli_files "$cur" '*.alf'
  fi
  return 0
}

complete -F _qmload_cli qmload-cli
