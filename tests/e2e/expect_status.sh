#!/bin/sh
# expect_status.sh STATUS COMMAND...: succeeds when the command ends with that exit status; 77, for
# "cannot run here", is passed on.
expected=$1
shift
"$@"
status=$?
[ "$status" -eq 77 ] && exit 77
[ "$status" -eq "$expected" ] && exit 0
echo "exit status $status instead of $expected: $*" >&2
exit 1
