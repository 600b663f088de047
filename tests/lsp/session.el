;; A session of Emacs with the language server: what eglot shows and does, a line for each.
;; Debian has eglot in a folder of its own, Emacs 29 in itself.
(let ((default-directory "/usr/share/emacs/site-lisp/elpa/"))
  (when (file-directory-p default-directory) (normal-top-level-add-subdirs-to-load-path)))
(require 'eglot)
(require 'xref)
(define-derived-mode kestrin-mode prog-mode "Kestrin")
(setq eglot-connect-timeout 60 eglot-sync-connect 60 eglot-send-changes-idle-time 0.05
      flymake-no-changes-timeout 0.05 eglot-autoshutdown nil make-backup-files nil
      xref-prompt-for-identifier nil)

(defun tell (what &rest values) (princ (format "%s: %s\n" what (mapconcat (lambda (v) (format "%s" v)) values " "))))

(defun wait-for (condition)
  (with-timeout (30 (tell "waited in vain"))
    (while (not (funcall condition)) (accept-process-output nil 0.05))))

(defun faults ()
  (mapcar (lambda (d) (format "%d:%s" (line-number-at-pos (flymake-diagnostic-beg d)) (flymake-diagnostic-text d)))
          (flymake-diagnostics)))

(find-file (pop command-line-args-left))
(kestrin-mode)
(add-to-list 'eglot-server-programs (list 'kestrin-mode (pop command-line-args-left) "lsp"))
(apply #'eglot (eglot--guess-contact))
(wait-for #'faults)
(tell "faults" (faults))

(search-forward "(lost")
(replace-match "(twice")
(eglot--signal-textDocument/didChange)
(wait-for (lambda () (null (faults))))
(tell "mended" (faults))

(goto-char (point-min))
(search-forward "(setq b (tw")
(xref-find-definitions "twice")
(tell "definition" (line-number-at-pos) (current-column))
(search-forward "twice")
(eglot-rename "double")
(let (case-fold-search)
  (tell "renamed" (how-many "double" (point-min)) (how-many "twice" (point-min))))

(goto-char (point-max))
(insert "(dou")
(eglot--signal-textDocument/didChange)
(completion-at-point)
(insert " b)")
(tell "completed" (buffer-substring (line-beginning-position) (point)))
(tell "hover" (eglot--dbind (contents) (jsonrpc-request (eglot-current-server) :textDocument/hover
                                                        (progn (search-backward "dou") (eglot--TextDocumentPositionParams)))
                (plist-get contents :value)))
(eglot-format)
(tell "laid out" (prin1-to-string (buffer-string)))
(set-buffer-modified-p nil)
