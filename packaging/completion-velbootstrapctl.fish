# Completion for velbootstrapctl in fish. Commands and options are those that the program's own help lists, so that what
# is new there is completed here.

# What may stand on the command line, with the help's words for it.
function __velbootstrapctl_words
    $argv --help 2>/dev/null | awk '
        /^[A-Z].*:$/ { listed = $0 == "Options:" || $0 == "Subcommands:" }
        listed && /^  [-a-z]/ { n = split($1, names, ","); for (i = 1; i <= n; i++) print names[i] }'
end

# The children of the instance, as the service reads its document.
function __velbootstrapctl_children
    $argv status --json 2>/dev/null | sed -n '/"children": \[/,/^  \]/s/^      "name": "\([^"\\]*\)",\{0,1\}$/\1/p'
end

function __velbootstrapctl
    set -l words (commandline -opc)
    set -l program $words[1]
    set -l command
    set -l instance
    set -l i 2
    while test $i -le (count $words)
        if test "$words[$i]" = --instance
            set i (math $i + 1)
            set instance --instance $words[$i]
        else if test -z "$command"; and not string match -q -- '-*' $words[$i]
            set command $words[$i]
        end
        set i (math $i + 1)
    end
    switch $words[-1]
        case --instance
            __fish_complete_directories (commandline -ct)
        case --html --prometheus
            __fish_complete_path (commandline -ct)
        case --level
            printf '%s\n' fatal error warn info debug
        case --since
            printf '%s\n' today yesterday 15m 6h 2d 1w
        case --child
            __velbootstrapctl_children $program $instance
        case '*'
            __velbootstrapctl_words $program $command
            switch "$command"
                case ping restart-child
                    __velbootstrapctl_children $program $instance
                case check simulate
                    __fish_complete_path (commandline -ct)
            end
    end
end

complete -c velbootstrapctl -f -a '(__velbootstrapctl)'
