" What kst does for the files of Kestrin in vim.

" For 'formatexpr': lays lines out by kst fmt. They stay as they are if they can't be taken apart, such
" as half a form.
function kestrin#Format() abort
  if mode() =~# '[iR]'
    return 1
  endif
  let l:last = v:lnum + v:count - 1
  let l:lines = getline(v:lnum, l:last)
  let l:laid_out = systemlist('kst fmt -', l:lines)
  if v:shell_error
    echohl ErrorMsg | echomsg get(l:laid_out, 0, 'kst fmt: status ' . v:shell_error) | echohl None
    return 0
  endif
  " Forms within others stay as deep as they are.
  let l:indent = matchstr(l:lines[0], '^\s*')
  call map(l:laid_out, 'empty(v:val) ? "" : l:indent . v:val')
  if l:laid_out ==# l:lines
    return 0
  endif
  call append(l:last, l:laid_out)
  silent execute v:lnum . ',' . l:last . 'delete _'
  return 0
endfunction

" What the manual says of a word, in a window of its own.
function kestrin#Doc(word) abort
  let l:text = systemlist('kst doc ' . shellescape(a:word))
  if v:shell_error
    echohl ErrorMsg | echomsg get(l:text, 0, 'kst doc: status ' . v:shell_error) | echohl None
    return
  endif
  new
  setlocal buftype=nofile bufhidden=wipe noswapfile nobuflisted
  call setline(1, l:text)
  setlocal nomodifiable nomodified
endfunction
