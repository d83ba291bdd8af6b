#!/bin/sh
# expect_refusal.sh PATTERN COMMAND...: the command must end with status 1 and a message that has the pattern, and
# leave no output behind.
set -u
pattern=$1
shift
rm -f refused.*
message=$("$@" 2>&1)
status=$?
echo "$message"
[ $status = 1 ] && echo "$message" | grep -q -e "$pattern" && ! ls refused.* 2>/dev/null
