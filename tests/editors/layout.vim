" Indents the files listed in $FILES; has $WIDE laid out, of which half a form stays as it is, and the
" files of $FAULTY checked.
set nocompatible encoding=utf-8 nomodeline noswapfile hidden
filetype plugin indent on
syntax on
for s:file in readfile($FILES)
  execute 'silent edit' fnameescape(s:file)
  silent normal! gg=G
  silent write
endfor
execute 'silent edit' fnameescape($WIDE)
silent normal! gggqG
call append('$', '(progn')
silent normal! Ggqq
silent write
let s:found = []
for s:file in split($FAULTY, "\n")
  execute 'silent edit' fnameescape(s:file)
  silent make!
  for s:fault in getqflist()
    call add(s:found, join([bufname(s:fault.bufnr), s:fault.lnum, s:fault.col, s:fault.type, s:fault.text], ':'))
  endfor
endfor
call writefile(s:found, $FOUND)
qall!
