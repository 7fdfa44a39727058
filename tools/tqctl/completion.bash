# Completes command lines of tqctl in bash; the program itself knows what may follow.
_tqctl() {
  mapfile -t COMPREPLY < <("${COMP_WORDS[0]}" __complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -o bashdefault -o default -F _tqctl tqctl
