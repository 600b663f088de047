source /work/w-editors/build/release/editors/completion/kst.bash; source /work/w-editors/build/release/editors/completion/kestrin.bash; kst() { echo "<$*>"; }; kestrin() { echo "<$*>"; }; echo re''ady
kst check 
kst check --json 
kst doc strtran 
kst fmt --check README.md 
kestrin --versions 
kestrin -q sieve
