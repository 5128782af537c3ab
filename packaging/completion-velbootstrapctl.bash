# Completion for velbootstrapctl in bash. Commands and options are those that the program's own help lists, so that what
# is new there is completed here.

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
    local program=$1 current=$2 before=$3 word command='' reply
    local -a instance=()
    local i
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $word == --instance ]]; then
            i=$((i + 1))
            instance=(--instance "${COMP_WORDS[i]}")
        elif [[ -z $command && $word != -* ]]; then
            command=$word
        fi
    done
    case $before in
        --instance) reply=$(compgen -d -- "$current") ;;
        --html | --prometheus) reply=$(compgen -f -- "$current") ;;
        --level) reply=$(compgen -W 'fatal error warn info debug' -- "$current") ;;
        --since) reply=$(compgen -W 'today yesterday 15m 6h 2d 1w' -- "$current") ;;
        --child) reply=$(compgen -W "$(_velbootstrapctl_children "$program" "${instance[@]}")" -- "$current") ;;
        *)
            reply=$(compgen -W "$(_velbootstrapctl_words "$program" ${command:+"$command"})" -- "$current")
            case $command in
                ping | restart-child)
                    reply+=$'\n'$(compgen -W "$(_velbootstrapctl_children "$program" "${instance[@]}")" -- "$current")
                    ;;
                check | simulate) reply+=$'\n'$(compgen -f -- "$current") ;;
            esac
            ;;
    esac
    mapfile -t COMPREPLY < <(grep . <<<"$reply" | sort -u)
}

complete -o filenames -F _velbootstrapctl velbootstrapctl
