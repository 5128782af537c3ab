# Completion for velbootstrapservice in bash. Options take their value after "=", which bash gives as a word of its
# own; the modes exclude each other, and some options belong to one mode only.

# The options that still make sense after the words that stand there already.
_velbootstrapservice_options() {
    local word mode=
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
            -start | -stop | -isrunning | -d) mode=$word ;;
            -h | -help) return ;;
        esac
    done
    case $mode in
        '') echo -start -stop -isrunning -d -help ;;
        -start) echo -testReadyTries= -testReadyInterval= ;;
        -stop) echo -testDeadTries= -testDeadInterval= ;;
    esac
    echo -java_home= -install_root= -config= -logconfig= -stdoutLog= -console
}

# _velbootstrapservice_value OPTION BEGINNING: completes the value of an option.
_velbootstrapservice_value() {
    case $1 in
        -stdoutLog) mapfile -t COMPREPLY < <(compgen -W "FATAL ERROR WARN INFO DEBUG" -- "$2") ;;
        # The values that hold when the option is absent.
        -testReadyTries | -testDeadTries) mapfile -t COMPREPLY < <(compgen -W 20 -- "$2") ;;
        -testReadyInterval | -testDeadInterval) mapfile -t COMPREPLY < <(compgen -W 6 -- "$2") ;;
        -config | -logconfig)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -d -- "$2"; compgen -f -X '!*.xml' -- "$2")
            ;;
        -java_home | -install_root)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -d -- "$2")
            ;;
    esac
}

_velbootstrapservice() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    if [[ $current == = ]]; then
        _velbootstrapservice_value "$before" ''
    elif [[ $before == = ]]; then
        _velbootstrapservice_value "${COMP_WORDS[COMP_CWORD - 2]}" "$current"
    else
        mapfile -t COMPREPLY < <(compgen -W "$(_velbootstrapservice_options)" -- "$current")
        # The value is typed right behind the "=".
        [[ ${COMPREPLY[0]-} != *= ]] || compopt -o nospace 2>/dev/null
    fi
}

complete -F _velbootstrapservice velbootstrapservice
