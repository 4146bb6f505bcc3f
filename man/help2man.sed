# What help2man reads of a tool's --help (GNU sed -E). help2man starts its
# OPTIONS section at an "Options:" line, so one goes before the first
# heading ("Line:") or option line; an "Exit status:" paragraph becomes
# the EXIT STATUS section.
0,/^([A-Z][^:]*:| +-.*)$/s//Options:\n\n&/
s/^Exit status: */*Exit status*\n\n/
