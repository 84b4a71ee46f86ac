#!/usr/bin/env bash
# check-demo.sh ZMU_DEMO: runs the demo into a fresh directory and checks what it left there: a
# successful exit, at least two log files that it names and that exist (the rollover happened), and a
# first log that is UTF-16 behind its byte-order mark and opens with the form's head and the injected
# system reports.
set -euo pipefail
demo=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
    echo "check-demo: $*" >&2
    echo "---- demo output ----" >&2
    cat "$work/out.txt" >&2 || true
    exit 1
}

# The demo's settings are its own, and no window is shown.
status=0
env -u DISPLAY -u WAYLAND_DISPLAY -u ZMU_TRACE -u ZMU_REGISTRY_ROOT -u ZMU_BRAND_FILE -u TMPDIR \
    "$demo" "$work/logs" >"$work/out.txt" 2>&1 || status=$?
[ "$status" -eq 0 ] || fail "the demo exited with $status"

# "PATH  SIZE bytes" lines under the last heading.
mapfile -t logs < <(sed -n '/^== Log files written ==$/,/^$/p' "$work/out.txt" | sed -n 's/^\(\/.*\.html\)  [0-9][0-9]* bytes$/\1/p')
[ "${#logs[@]}" -ge 2 ] || fail "expected at least two log files, found ${#logs[@]}"
for log in "${logs[@]}"; do
    [ -s "$log" ] || fail "log file $log is missing or empty"
    case "$log" in "$work/logs/"*) ;; *) fail "log file $log lies outside the demo's directory" ;; esac
done

first=${logs[0]}
[ "$(head -c 2 "$first" | od -An -tx1 | tr -d ' \n')" = "fffe" ] || fail "$first does not start with the UTF-16 byte-order mark"
text=$(iconv -f UTF-16 -t UTF-8 "$first") || fail "$first is not UTF-16"
expect() {
    grep -qF -- "$1" <<<"$text" || fail "$first lacks $2: $1"
}
expect '<h2>Operating Environment</h2>' "the form's head"
# The injected reports: a row of the operating environment report, and one of the environment
# variables report (the demo sets ZMU_TRACE before the form is learned).
expect '<tr class="odd"><th>Platform</th><td>Linux</td></tr>' "the operating environment report"
expect '<th>ZMU_TRACE</th>' "the environment variables report"
expect "$work/logs/trace.log" "the value of ZMU_TRACE"
expect 'Pump P-101 started: 1450 rpm' "the first situation's entry"
expect '</html>' "the tail"
echo "check-demo: ${#logs[@]} log files, the first with its head, reports and entries"
