# SPDX-License-Identifier: Apache-2.0
# bash completion for hobactl. Paths of the state database are asked of the running agent.

_hobactl_ask() {
   local socket=() i
   for (( i = 1; i < COMP_CWORD; ++i )); do
      if [[ ${COMP_WORDS[i]} == --socket ]]; then
         socket=( --socket "${COMP_WORDS[i + 1]}" )
      fi
   done
   hobactl "${socket[@]}" --timeout 2 complete "$@" 2>/dev/null
}

_hobactl_paths() {
   # Candidates hold what the shell would take for patterns: they go in as they are, line by line.
   mapfile -t COMPREPLY < <( _hobactl_ask -- "${1:-/}" )
   if (( ${#COMPREPLY[@]} == 1 )) && [[ ${COMPREPLY[0]} == */ ]]; then
      compopt -o nospace 2>/dev/null
   fi
}

_hobactl() {
   local cur prev words cword
   if declare -F _get_comp_words_by_ref >/dev/null; then
      _get_comp_words_by_ref -n : cur prev words cword # addresses have colons
   else
      cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
      words=( "${COMP_WORDS[@]}" ) cword=$COMP_CWORD
   fi
   local commands='get set del list watch apply show logs verify sim types help trace'
   local options='--socket --json --timeout --help'
   local i command='' place=0 typed=()
   for (( i = 1; i < cword; ++i )); do
      case ${words[i]} in
         --socket|--timeout|--handle|--levels|--text|--last|--enable|--tree|--export|--dump) (( ++i )) ;;
         -*) ;;
         *) [[ -n $command ]] && (( ++place )) || command=${words[i]}
            typed+=( "${words[i]}" ) ;;
      esac
   done
   COMPREPLY=()
   case $prev in
      --socket|--export) compopt -o default 2>/dev/null; return ;;
      --tree) mapfile -t COMPREPLY < <( compgen -W 'on off 1' -- "$cur" ); return ;;
      --dump) mapfile -t COMPREPLY < <( compgen -W "$( _hobactl_ask --command 'show tables' )" -- "$cur" ); return ;;
      --timeout|--handle|--levels|--last|--enable) return ;;
   esac
   if [[ $cur == -* ]]; then
      [[ $command == get ]] && options+=' --configuration'
      [[ $command == set ]] && options+=' --text'
      [[ "${typed[*]}" == 'show tables' ]] && options+=' --dump'
      [[ $command == trace ]] && options+=' --handle --levels --text --last --follow --handles --enable --tree --export'
      mapfile -t COMPREPLY < <( compgen -W "$options" -- "$cur" )
   elif [[ -z $command ]]; then
      mapfile -t COMPREPLY < <( compgen -W "$commands" -- "$cur" )
   else
      case $command:$place in
         get:0|set:0|del:0|list:0|watch:0) _hobactl_paths "$cur" ;;
         help:*) mapfile -t COMPREPLY < <( compgen -W "$( _hobactl_ask --command "${typed[*]:1}" )" -- "$cur" ) ;;
         show:*|logs:*|verify:*|sim:*)
            mapfile -t COMPREPLY < <( compgen -W "$( _hobactl_ask --command "${typed[*]}" )" -- "$cur" ) ;;
         apply:0) compopt -o default 2>/dev/null; return ;;
      esac
   fi
   if declare -F __ltrim_colon_completions >/dev/null; then
      __ltrim_colon_completions "$cur"
   fi
}

complete -F _hobactl hobactl
