" Writes the names of the syntax groups at places: lines of $PLACES are "file<Tab>line<Tab>column".
set nocompatible encoding=utf-8 nomodeline noswapfile hidden synmaxcol=0
filetype plugin indent on
syntax on
let s:groups = []
for s:place in readfile($PLACES)
  let [s:file, s:line, s:column] = split(s:place, "\t")
  if s:file !=# expand('%:p')
    execute 'silent edit' fnameescape(s:file)
  endif
  call add(s:groups, synIDattr(synID(s:line, s:column, 1), 'name'))
endfor
call writefile(s:groups, $FOUND)
qall!
