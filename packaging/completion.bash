# Completion of kestrin's command line in bash: the one option, the program, its arguments.

_kestrin_program()
{
    local name
    mapfile -t COMPREPLY < <(compgen -d -S / -- "$1")
    while IFS= read -r name; do COMPREPLY+=("$name"); done < <(compgen -f -X '!*.ks[tx]' -- "$1")
}

_kestrin()
{
    local word=${COMP_WORDS[COMP_CWORD]} options='-h --help -V --versions -q --quiet -c
        --compile2disk -cm --compileMinimized2disk -sd --showDebugInfo'
    case $COMP_CWORD,${COMP_WORDS[1]} in
        1,-*) mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word") ;;
        1,* | 2,-*) _kestrin_program "$word" ;;
        *) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    esac
}

complete -o filenames -o nospace -F _kestrin kestrin
