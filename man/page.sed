# What the manual pages get after help2man has written them (GNU sed -E).
# An option name is never hyphenated at a line's end: \% at the start of a
# word keeps groff from breaking it.
s/\\-\\-([A-Za-z])/\\%\\-\\-\1/g
