# Completes the command lines of starter and starter-check for bash.

_starter()
{
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
  # The shell splits --option=value at the equals sign.
  if [[ $cur == = ]]; then
    cur=
  elif [[ $prev == = ]]; then
    prev=${COMP_WORDS[COMP_CWORD - 2]}
  fi

  local options='--background --group --primary-group --reactor --threads --user -S -b -d -f -k -n -p -s -y'
  if [[ ${COMP_WORDS[0]##*/} == starter-check ]]; then
    options+=' --allow-warnings --compare-files --help --json --quiet --save-files --version'
  fi

  COMPREPLY=()
  case $prev in
    --reactor) mapfile -t COMPREPLY < <(compgen -W 'dev_poll priority select tp' -- "$cur") ;;
    --user) mapfile -t COMPREPLY < <(compgen -u -- "$cur") ;;
    --group | --primary-group) mapfile -t COMPREPLY < <(compgen -g -- "$cur") ;;
    -f) mapfile -t COMPREPLY < <(compgen -d -- "$cur" && compgen -f -X '!*.conf' -- "$cur") ;;
    -p | --compare-files | --save-files) mapfile -t COMPREPLY < <(compgen -f -- "$cur") ;;
    --threads | -S | -k | -s) ;; # nobody can guess these values
    *) mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur") ;;
  esac
}

complete -o filenames -F _starter starter starter-check
