#compdef velbootstrapctl
# Completion for velbootstrapctl in zsh. Commands and options are those that the program's own help lists, so that what is
# new there is completed here.

# _velbootstrapctl_words PROGRAM [COMMAND]: what may stand on the command line.
_velbootstrapctl_words() {
    "$@" --help 2>/dev/null | awk '
        /^[A-Z].*:$/ { listed = $0 == "Options:" || $0 == "Subcommands:" }
        listed && /^  [-a-z]/ { n = split($1, names, ","); for (i = 1; i <= n; i++) print names[i] }'
}

# The children of the instance, as the service reads its document.
_velbootstrapctl_children() {
    "$@" status --json 2>/dev/null | sed -n '/"children": \[/,/^  \]/s/^      "name": "\([^"\\]*\)",\{0,1\}$/\1/p'
}

_velbootstrapctl() {
    local program=$words[1] command='' word
    local -a instance
    local -i i
    for ((i = 2; i < CURRENT; i++)); do
        word=$words[i]
        if [[ $word == --instance ]]; then
            ((i++))
            instance=(--instance $words[i])
        elif [[ -z $command && $word != -* ]]; then
            command=$word
        fi
    done
    case $words[CURRENT-1] in
        --instance) _files -/ ; return ;;
        --html | --prometheus) _files ; return ;;
        --level) compadd fatal error warn info debug ; return ;;
        --since) compadd today yesterday 15m 6h 2d 1w ; return ;;
        --child) compadd -- ${(f)"$(_velbootstrapctl_children $program $instance)"} ; return ;;
    esac
    compadd -- ${(f)"$(_velbootstrapctl_words $program $command)"}
    case $command in
        ping | restart-child) compadd -- ${(f)"$(_velbootstrapctl_children $program $instance)"} ;;
        check | simulate) _files ;;
    esac
}

# Read by a shell that completes nothing it only defines the functions.
(( ! ${+compstate} )) || _velbootstrapctl "$@"
