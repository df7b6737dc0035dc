#!/bin/sh
# interrupt.sh STHAL SCENARIO FOLDER: runs the scenario, interrupts its process group in the middle, and
# ends with its exit status; with 1 when it did not say so or left no report.
mkdir -p "$3"
rm -f "$3/report.html"
timeout --preserve-status -s INT 3 "$1" run "$2" --out "$3" --report "$3/report.html" >"$3/output"
status=$?
cat "$3/output"
[ "$status" -eq 77 ] && exit 77
grep -q '^interrupted' "$3/output" || { echo "nothing said of the interrupt" >&2; exit 1; }
grep -q 'interrupted' "$3/report.html" || { echo "no report" >&2; exit 1; }
exit "$status"
