# What help2man reads of a tool's --help (GNU sed -E). help2man starts its
# OPTIONS section at an "Options:" line, so one goes before the first
# heading ("Line:") or option line; an "Exit status:" paragraph becomes
# the EXIT STATUS section.
0,/^([A-Z][^:]*:| +-.*)$/s//Options:\n\n&/
s/^Exit status: */*Exit status*\n\n/
# rvpoll's note on the commissioning scan is indented under its last
# option, --scan-all, on a terminal; on the page it is a paragraph of its
# own, not more of --scan-all's description.
s/^ +(The timeout fits each baud rate)/\n\1/
/^ +(Progress goes to standard error|Ctrl-C stops and lists)/s/^ +//
