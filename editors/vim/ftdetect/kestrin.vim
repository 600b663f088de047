autocmd BufRead,BufNewFile *.kst setfiletype kestrin
" Programs that are commands, such as "#!/usr/bin/env -S kst run".
autocmd BufRead * if !did_filetype() && getline(1) =~# '^#!.*\<\%(kst\|kestrin\)\>' | setfiletype kestrin | endif
