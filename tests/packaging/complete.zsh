# Types each line and a tab into an interactive zsh, and prints what its terminal shows:
#   complete.zsh FOLDER LINE...
zmodload zsh/zpty
folder=$1
shift
zpty shell zsh -f -i
zpty -w shell "fpath=($folder \$fpath); autoload -Uz compinit; compinit -u -D; PS1=; stty columns 200; print rea''dy"
zpty -r shell output '*ready*'
for line; do
  zpty -w -n shell "$line"$'\t'
  sleep 1
  zpty -w -n shell $'\x15'
  while zpty -r -t shell output; do print -r -- $output; done
done
zpty -d shell
