# Completion of kestrin's command line in bash: the one option, the program, its arguments.

_kestrin_program()
{
    mapfile -t COMPREPLY < <(compgen -d -- "$1"; compgen -f -X '!*.ks[tx]' -- "$1")
}

_kestrin()
{
    local word=${COMP_WORDS[COMP_CWORD]} options='-h --help -V --versions -q --quiet -c
        --compile2disk -cm --compileMinimized2disk -sd --showDebugInfo'
    COMPREPLY=()
    case $COMP_CWORD,${COMP_WORDS[1]} in
        1,-*) mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word") ;;
        *,-h | *,--help | *,-V | *,--versions) ;;
        1,* | 2,-*) _kestrin_program "$word" ;;
        *) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    esac
}

complete -o filenames -F _kestrin kestrin
