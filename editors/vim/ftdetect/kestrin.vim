autocmd BufRead,BufNewFile *.kst setfiletype kestrin
