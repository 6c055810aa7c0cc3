# Completes the command lines of starterctl for bash.

# Offers those first words of the lines on standard input that begin with the text. Names come from processes: compgen
# would expand what is in them, commands included.
_starterctl_offer()
{
  local name _
  while read -r name _; do
    [[ $name != "$1"* ]] || COMPREPLY+=("$name")
  done
}

_starterctl()
{
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
  local commands='debug health list load log-level reload remove restart resume services status suspend trace'
  local options='--force --help --json --or-signal --timeout --version -c -s'

  local i command='' chosen=()
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      -c | -s)
        chosen=("${COMP_WORDS[i]}" "${COMP_WORDS[i + 1]}")
        ((++i))
        ;;
      --timeout | --or-signal)
        [[ ${COMP_WORDS[i + 1]} == = ]] && ((++i)) # the shell splits --option=value at the equals sign
        ((++i))
        ;;
      -*) ;;
      *) command=${command:-${COMP_WORDS[i]}} ;;
    esac
  done

  COMPREPLY=()
  case $prev in
    -c)
      _starterctl_offer "$cur" < <("${COMP_WORDS[0]}" list 2>/dev/null)
      return
      ;;
    -s)
      mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      return
      ;;
    = | --timeout | --or-signal) return ;; # nobody can guess these values
  esac
  case $command in
    '') mapfile -t COMPREPLY < <(compgen -W "$commands $options" -- "$cur") ;;
    "$prev")
      case $command in
        suspend | resume | remove | restart)
          # The table has a heading. A process that hangs does not hold up the shell for long.
          _starterctl_offer "$cur" < <(
            "${COMP_WORDS[0]}" "${chosen[@]}" --timeout 2 services 2>/dev/null | tail -n +2
          )
          ;;
        log-level)
          mapfile -t COMPREPLY < <(
            compgen -W 'alert critical debug emergency error info notice warning' -- "$cur"
          )
          ;;
        debug) mapfile -t COMPREPLY < <(compgen -W 'off on' -- "$cur") ;;
        load) ;; # a directive is free text
        *) mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur") ;;
      esac
      ;;
    *) mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur") ;;
  esac
}

complete -o filenames -F _starterctl starterctl
