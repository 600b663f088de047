# Completion of kst's command line in bash: the verb, its options, its files. What there is to
# complete is asked of kst itself.

_kst()
{
    local word=${COMP_WORDS[COMP_CWORD]} asked=(kst --help)
    [ "$COMP_CWORD" -eq 1 ] || asked=(kst "${COMP_WORDS[1]}" --help)
    COMPREPLY=()
    case $COMP_CWORD,$word in
        1,* | *,-*)
            local known
            known=$("${asked[@]}" 2>/dev/null | sed -n 's/^  \([a-z-][a-z-]*\) .*/\1/p')
            mapfile -t COMPREPLY < <(compgen -W "$known" -- "$word")
            ;;
        *) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    esac
}

complete -o filenames -F _kst kst
