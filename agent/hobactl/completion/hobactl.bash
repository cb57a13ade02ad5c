# SPDX-License-Identifier: Apache-2.0
# bash completion for hobactl. Commands, their arguments and paths of the state database are asked of
# the running agent.

# Candidates hold what the shell would take for patterns: they go in as they are, line by line.
_hobactl_ask() {
   mapfile -t COMPREPLY < <( hobactl "${socket[@]}" --timeout 2 complete "$@" 2>/dev/null )
}

_hobactl_words() {
   mapfile -t COMPREPLY < <( compgen -W "$1" -- "$cur" )
}

# Behind a command's first words, of which no option is one.
_hobactl_next() {
   _hobactl_ask --command "$1" -- "$cur"
}

_hobactl() {
   # Words as blanks separate them: the shell's own end at colons and equal signs, too.
   local words cur prev
   read -ra words <<< "${COMP_LINE:0:COMP_POINT}"
   [[ ${COMP_LINE:0:COMP_POINT} == *[[:space:]] ]] && words+=( '' )
   cur=${words[-1]} prev=${words[-2]}
   local options='--socket --json --timeout --help --version'
   local i command='' place=0 typed=() socket=()
   for (( i = 1; i < ${#words[@]} - 1; ++i )); do
      case ${words[i]} in
         --socket) socket=( --socket "${words[++i]}" ) ;;
         --timeout|--handle|--levels|--text|--last|--enable|--tree|--export|--dump) (( ++i )) ;;
         -*) ;;
         *) [[ -n $command ]] && (( ++place )) || command=${words[i]}
            typed+=( "${words[i]}" ) ;;
      esac
   done
   COMPREPLY=()
   case $prev in
      --socket|--export) compopt -o default 2>/dev/null; return ;;
      --tree) _hobactl_words 'on off 1'; return ;;
      --dump) _hobactl_next 'show tables'; return ;;
      --timeout|--handle|--levels|--last|--enable) return ;;
   esac
   if [[ $cur == -* ]]; then
      [[ $command == get ]] && options+=' --configuration'
      [[ $command == set ]] && options+=' --text'
      [[ "${typed[*]}" == 'show tables' ]] && options+=' --dump'
      [[ $command == trace ]] && options+=' --handle --levels --text --last --follow --handles --enable --tree --export'
      _hobactl_words "$options"
   elif [[ -z $command ]]; then
      _hobactl_next ''
      # Without an agent, what needs none.
      [[ -n ${COMPREPLY[*]} ]] || _hobactl_words 'get set del list watch apply show help trace'
   else
      case $command:$place in
         get:0|set:0|del:0|list:0|watch:0) _hobactl_ask -- "${cur:-/}" ;;
         help:*) _hobactl_next "${typed[*]:1}" ;;
         apply:0) compopt -o default 2>/dev/null; return ;;
         trace:*) ;;
         *) _hobactl_next "${typed[*]}" ;;
      esac
      # A file, which the agent does not look for.
      [[ "${typed[*]}" =~ ^(sim pcap|sim macs|import)$ && -z ${COMPREPLY[*]} ]] && compopt -o default 2>/dev/null
   fi
   # More may follow without a blank.
   [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == *[/=] ]] && compopt -o nospace 2>/dev/null
   # The shell replaces what stands behind the last of its own breaks only.
   local behind=${cur##*[$COMP_WORDBREAKS]}
   COMPREPLY=( "${COMPREPLY[@]#"${cur%"$behind"}"}" )
}

complete -F _hobactl hobactl
