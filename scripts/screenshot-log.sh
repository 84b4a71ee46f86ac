#!/usr/bin/env bash
# screenshot-log.sh LOGFILE OUT.png [WIDTHxHEIGHT]: a picture of a log file as a browser shows it,
# taken by headless Chromium (Debian's package, installed if missing).
#
# A log's head carries three system reports of some hundred rows, and its entries come after them.
# So that one picture shows the head, every report and the first entries, each report table is
# folded into a box of a few rows (a browser would let it scroll); nothing else of the page changes,
# and the log file itself is only read. The default size is 1280x1300.
set -euo pipefail

if [ $# -lt 2 ] || [ $# -gt 3 ]; then
    echo "usage: $0 LOGFILE OUT.png [WIDTHxHEIGHT]" >&2
    exit 2
fi
log=$(realpath -e "$1")
out=$(realpath -m "$2")
size=${3:-1280x1300}
if ! [[ $size =~ ^([0-9]+)x([0-9]+)$ ]]; then
    echo "screenshot-log: size must be WIDTHxHEIGHT, not $size" >&2
    exit 2
fi
width=${BASH_REMATCH[1]}
height=${BASH_REMATCH[2]}

if ! command -v chromium >/dev/null 2>&1; then
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    echo "screenshot-log: installing chromium"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends chromium fonts-dejavu-core
fi

mkdir -p "$(dirname "$out")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The page that frames the log: the log keeps its own document (and its UTF-16 decoding, which
# Chromium takes from the byte-order mark), and gets one more style sheet once it has loaded.
url="file://$(printf '%s' "$log" | sed 's/%/%25/g; s/ /%20/g; s/"/%22/g; s/#/%23/g; s/?/%3F/g; s/&/%26/g; s/</%3C/g; s/>/%3E/g')"
cat >"$work/frame.html" <<EOF
<!DOCTYPE html>
<html>
<head>
<meta charset="utf-8">
<style>
html, body { margin: 0; height: 100%; overflow: hidden; background: white; }
iframe { border: 0; width: 100%; height: 100%; }
</style>
</head>
<body>
<iframe src="$url" onload="foldReports(this)"></iframe>
<script>
function foldReports(frame) {
    const style = frame.contentDocument.createElement('style');
    style.textContent = 'table.sysinfo { display: block; max-height: 9.6em; overflow-y: auto; '
        + 'border: 1px solid #D0D0E0; }';
    frame.contentDocument.head.appendChild(style);
}
</script>
</body>
</html>
EOF

# Chromium runs as root here only without its sandbox; its profile is thrown away, and what it says
# about the missing desktop bus is left out unless it fails.
chromium --headless --no-sandbox --disable-gpu --hide-scrollbars --no-first-run \
    --user-data-dir="$work/profile" --allow-file-access-from-files \
    --window-size="$width,$height" --virtual-time-budget=3000 \
    --screenshot="$out" "file://$work/frame.html" >"$work/chromium.log" 2>&1 || {
    cat "$work/chromium.log" >&2
    echo "screenshot-log: chromium failed" >&2
    exit 1
}
[ -s "$out" ] || {
    cat "$work/chromium.log" >&2
    echo "screenshot-log: chromium wrote no picture" >&2
    exit 1
}
echo "screenshot-log: $out"
