# Makes big sources of the kind that $1 names, runs them and prints the ends of what they say. Deep nests may give their value
# or, where the stack is too small for them, the report of a pass: both are "value or report".
many() { head -c "$1" /dev/zero | tr '\0' "$2"; }
repeat() { yes "$2" | head -n "$1" | tr -d '\n'; }
try() {
    $KESTRIN -q p.kst >out 2>err
    echo "$1: status $?, $(tail -c 50 out), $(grep -v '^==[0-9]*==\|^False pos\|^For details' err | tail -c 53)"
}
deep() {
    $KESTRIN -q p.kst >out 2>err
    case "$?$(cat out)" in
    "0$2") echo "$1: value or report" ;;
    1) grep -q 'out of memory' err && grep -q 'Module=kestrin, Function=.*Location=12[0-7]\.' err &&
        echo "$1: value or report" || tail -c 300 err ;;
    *) tail -c 300 out err ;;
    esac
}
N=1000000
nests() {
many $N '(' >p.kst; try 'opened'
many $N ')' >p.kst; try 'closed'
(many $N '('; many $N ')') >p.kst; try 'empty lists in lists'
(echo '(rem '; many $N '('; many $N ')'; echo ') 5') >p.kst; try 'in a comment'
(repeat 300000 '((rem a) '; echo 'rem b'; repeat 300000 ')'; echo ' 6') >p.kst; try 'comments in front of words'
repeat $N '()' >p.kst; try 'side by side'
(repeat $N '(progn '; echo 1; many $N ')') >p.kst; deep 'statements' 1
(repeat $N '(+ 1 '; echo 1; many $N ')') >p.kst; deep 'operands' 1000001
(repeat $N '(setq a (if 1 '; echo 1; repeat $N ' 2))') >p.kst; deep 'conditions' 1
(repeat 200 '(defun '; echo 1; repeat 200 ')') >p.kst; try 'definitions'
(i=0; while [ $i -lt 3000 ]; do echo "(defun f$i (progn "; i=$((i + 1)); done; echo '1'; repeat 3000 '))'; echo ' 7') >p.kst
try 'definitions in definitions'
}
sizes() {
(printf '(len "'; many 10000000 a; echo '")') >p.kst; try 'a line of 10 MB'
(printf '(len "x") '; many 10000000 ' '; echo '4 # c'; many 10000000 '#') >p.kst; try 'blanks and comments'
many 1000001 '"' >p.kst; try 'quotes'
(printf '(len "'; many 1000000 '\\'; echo '")') >p.kst; try 'backslashes'
n=$(many 100000 n); echo "(setq $n 3) (defun f$n (ineg \$1)) (f$n $n)" >p.kst; try 'names of 100,000 bytes'
echo "(iadd 1 $n:)" >p.kst; try 'a bad name of 100,000 bytes'
many 100000 9 >p.kst; try 'digits'
(printf 0.; many 100000 1) >p.kst; try 'a fraction'
(i=0; while [ $i -lt 20000 ]; do echo "(setq v$i $i) (defun f$i (progn v$i))"; i=$((i + 1)); done; echo v19999) >p.kst
try 'many names'
}
recursion() {
echo '(defun f (f)) (f)' >p.kst; try 'endless recursion'
echo '(defun f (iadd 1 (f (iadd $1 1)))) (f 1)' >p.kst; try 'endless recursion with arguments'
echo '(defun f (if (== $1 0) 0 (iadd 1 (f (-- $1))))) (f 100000)' >p.kst; try 'recursion 100,000 deep'
}
"$1"
