" Vim filetype plugin for Kestrin: comments, names, the manual under K, `gq' by kst fmt, `:make' by
" kst check.

if exists('b:did_ftplugin')
  finish
endif
let b:did_ftplugin = 1

setlocal comments=:# commentstring=#\ %s
setlocal formatoptions-=t formatoptions+=croql
" All that may stand in a name: printed bytes but quote, parentheses, colon, at sign and '#'.
setlocal iskeyword=33,36-39,42-57,59-63,65-126
setlocal shiftwidth=2 softtabstop=2 expandtab
setlocal suffixesadd=.kst
setlocal define=^\\s*(\\s*defun
setlocal formatexpr=kestrin#Format()
nnoremap <buffer> <silent> K :<C-U>call kestrin#Doc(expand('<cword>'))<CR>
if !exists('current_compiler')
  compiler kestrin
endif

let b:undo_ftplugin = 'setlocal comments< commentstring< formatoptions< iskeyword< shiftwidth<'
      \ . ' softtabstop< expandtab< suffixesadd< define< formatexpr< makeprg< errorformat<'
      \ . ' | silent! nunmap <buffer> K'
