# Completes the command line of starter-trace for bash.

_starter_trace()
{
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
  # The shell splits --option=value at the equals sign.
  if [[ $cur == = ]]; then
    cur=
  elif [[ $prev == = ]]; then
    prev=${COMP_WORDS[COMP_CWORD - 2]}
  fi

  COMPREPLY=()
  case $prev in
    --debug-dir) mapfile -t COMPREPLY < <(compgen -d -- "$cur") ;;
    --unit | -u)
      mapfile -t COMPREPLY < <(compgen -W "$(systemctl list-units --all --plain --no-legend 'starter@*' 2>/dev/null |
        cut -d ' ' -f 1)" -- "$cur")
      ;;
    --since) mapfile -t COMPREPLY < <(compgen -W 'now today yesterday' -- "$cur") ;;
    *)
      if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--all --debug-dir --help --journal --json --since --unit --version -u' \
          -- "$cur")
      else
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      fi
      ;;
  esac
}

complete -o filenames -F _starter_trace starter-trace
