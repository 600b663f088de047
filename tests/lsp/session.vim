" A session of vim with the language server: what ALE shows and does, a line for each.
set nocompatible hidden noswapfile encoding=utf-8 viminfo=
let g:ale_lint_delay = 50
let g:ale_set_signs = 0
let g:ale_hover_to_preview = 1
let g:ale_linters = {'kestrin': ['kst']}
packadd ale

let s:told = []
function s:tell(what, value)
  call add(s:told, a:what . ': ' . (type(a:value) == v:t_string ? a:value : string(a:value)))
endfunction

function s:wait_for(condition)
  for _ in range(200)
    if a:condition() | return | endif
    sleep 50m
  endfor
  call s:tell('waited', 'in vain')
endfunction

function s:faults()
  return map(copy(ale#engine#GetLoclist(bufnr(''))), {_, one -> one.lnum . ':' . one.col . ':' . one.text})
endfunction

call ale#linter#Define('kestrin', {
  \ 'name': 'kst', 'lsp': 'stdio', 'executable': $KST,
  \ 'command': '%e lsp', 'project_root': {-> getcwd()}})
edit $KST_FILE
setlocal filetype=kestrin
ALELint
call s:wait_for({-> !empty(s:faults())})
call s:tell('faults', s:faults())

%s/(lost/(twice/
ALELint
call s:wait_for({-> empty(s:faults())})
call s:tell('mended', s:faults())

call cursor(4, 26)
ALEGoToDefinition
call s:wait_for({-> line('.') == 2})
call s:tell('definition', getpos('.')[1:2])

call cursor(4, 28)
ALEHover
call s:wait_for({-> bufnr('$') > 1})
call s:tell('hover', getbufline(bufnr('$'), 1, '$'))

call writefile(s:told, $KST_TOLD)
qall!
