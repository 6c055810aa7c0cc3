# Usage: completion.zsh DIRECTORY LINE. Prints LINE as zsh completes it with the completion function in DIRECTORY. The
# shell that completes needs a terminal.
zmodload zsh/zpty
result=$(mktemp)

zpty shell zsh -f -i
zpty -w shell "fpath=(${(q)1} \$fpath); autoload -Uz compinit; compinit -u -D; setopt no_list_beep"
zpty -w shell "tell() { print -r -- \$BUFFER >|${(q)result} }; zle -N tell; bindkey '^I' complete-word '^X' tell"
zpty -w -n shell "$2"$'\t\x18'
until [[ -s $result ]]; do
  zpty -r -t shell output || sleep 0.01 # a full terminal would hold the shell back
done

cat $result
rm $result
zpty -d shell
