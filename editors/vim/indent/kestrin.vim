" Vim indent file for Kestrin: as kst fmt lays out. What stands in a form is two columns deeper than
" its parenthesis; strings that are joined stand below each other.

if exists('b:did_indent')
  finish
endif
let b:did_indent = 1

setlocal indentexpr=KestrinIndent(v:lnum)
setlocal indentkeys=!^F,o,O
setlocal nolisp nosmartindent
let b:undo_indent = 'setlocal indentexpr< indentkeys< lisp< smartindent<'

if exists('*KestrinIndent')
  finish
endif

" A line without its comment, with its strings, which end there, as rows of quotes.
function s:Code(number) abort
  let l:line = getline(a:number)
  if stridx(l:line, '"') < 0 && stridx(l:line, '#') < 0
    return l:line
  endif
  return substitute(l:line, '"\%(\\.\|[^"\\]\)*"\=\|#.*',
        \ '\=submatch(0)[0] ==# "#" ? "" : repeat("\"", len(submatch(0)))', 'g')
endfunction

" Whether all parentheses have their partners in the line; not asked for forms that are very deep.
function s:IsBalanced(code) abort
  let l:code = a:code
  for l:round in range(20)
    if stridx(l:code, '(') < 0
      break
    endif
    let l:code = substitute(l:code, '([^()]*)', '', 'g')
  endfor
  return l:code !~# '[()]'
endfunction

" Goes back to the parenthesis that is open, or to a line in the same form, which is taken to stand
" where it belongs. A parenthesis that closes behind a comment stands below its partner.
function KestrinIndent(number) abort
  let l:depth = 0
  let l:closes = getline(a:number) =~# '^\s*)'
  for l:number in range(a:number - 1, 1, -1)
    let l:code = s:Code(l:number)
    for l:at in s:IsBalanced(l:code) ? [] : range(len(l:code) - 1, 0, -1)
      if l:code[l:at] ==# ')'
        let l:depth += 1
      elseif l:code[l:at] ==# '('
        let l:depth -= 1
        if l:depth < 0
          return s:InForm(l:number, l:at, l:closes)
        endif
      endif
    endfor
    if l:depth == 0 && !l:closes && l:code =~# '\S'
      return indent(l:number)
    endif
  endfor
  return 0
endfunction

function s:InForm(number, at, closes) abort
  if synIDattr(synID(a:number, a:at + 1, 1), 'name') =~# 'Remark'
    return -1
  endif
  let l:column = strdisplaywidth(strpart(getline(a:number), 0, a:at))
  let l:is_strings = getline(a:number)[a:at + 1:] =~# '^\s*"'
  return min([l:column + (a:closes ? 0 : l:is_strings ? 1 : 2), 80])
endfunction
