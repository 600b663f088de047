" Vim compiler file for Kestrin: `:make' has the faults of the file in the quickfix list.

if exists('current_compiler')
  finish
endif
let current_compiler = 'kestrin'

" Below each fault stand its line and a mark, indented.
CompilerSet makeprg=kst\ check\ %:S
CompilerSet errorformat=%-G\ \ \ \ %.%#,%f:%l:%c:\ %tarning:\ %m,%f:%l:%c:\ %m,%f:%l:\ %m,kst\ check:\ %m,%f:\ %m
