# try TITLE CHANGE...: runs a changed copy of the precompiled file, with $words, under $option.
option=-q words= from=refused.ksx
try() {
    echo "$1:"
    shift
    rm -f bad
    python3 change.py $from bad "$@"
    $KESTRIN $option bad $words >out 2>err
    status=$?
    # without the variables of the terminal
    [ $option = -sd ] && sed -n '/^Checking/,$p' out | grep -v ' Var_\(0.\|1[01]\) '
    [ $option = -q ] && cat out
    tail -n 1 err | cut -c 1-80
    echo "  status $status"
}
