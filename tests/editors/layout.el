;; Indents the files listed in $FILES; has $WIDE laid out, of which half a form stays as it is, and the
;; files of $FAULTY checked.
(require 'flymake)

(defun faults-of (file)
  (find-file file)
  (let ((found 'none))
    (kestrin-flymake (lambda (faults) (setq found faults)))
    (with-timeout (10) (while (eq found 'none) (accept-process-output nil 0.05)))
    (mapconcat
     (lambda (fault)
       (goto-char (flymake-diagnostic-beg fault))
       (format "%s:%d:%d:%s:%s\n" file (line-number-at-pos)
               (1+ (string-bytes (buffer-substring (line-beginning-position) (point))))
               (if (eq (flymake-diagnostic-type fault) :warning) "w" "")
               (flymake-diagnostic-text fault)))
     found "")))

(let ((inhibit-message t) (make-backup-files nil))
  (dolist (file (with-temp-buffer
                  (insert-file-contents (getenv "FILES"))
                  (split-string (buffer-string) "\n" t)))
    (find-file file)
    (indent-region (point-min) (point-max))
    (save-buffer))
  (find-file (getenv "WIDE"))
  (kestrin-format-buffer)
  (goto-char (point-max))
  (insert "(progn\n")
  (kestrin-format-buffer)
  (save-buffer)
  (let ((found (mapconcat #'faults-of (split-string (getenv "FAULTY") "\n" t) "")))
    (with-temp-file (getenv "FOUND") (insert found))))
