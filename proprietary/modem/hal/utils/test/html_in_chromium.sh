#!/bin/sh
# The HTML report as a browser shows it: headless Chromium loads the page of
# LOG and what its timeline says it drew is compared with COUNTS ("fired=17
# stopped=8 ..."). Exits 77, for a skip, when Chromium is not installed.
# Usage: html_in_chromium.sh "TOOL" LOG DIR COUNTS
tool=$1 log=$2 dir=$3 counts=$4
browser=$(command -v chromium || command -v chromium-browser) || {
  echo "chromium is not installed: skipped"
  exit 77
}
rm -rf "$dir" && mkdir -p "$dir" || exit 1
# shellcheck disable=SC2086 # TOOL may start with an emulator
$tool log "$log" --html "$dir/report.html" >/dev/null || exit 1
timeout 60 "$browser" --headless --disable-gpu --no-sandbox --user-data-dir="$dir/profile" \
  --dump-dom "file://$dir/report.html" >"$dir/dom.html" 2>"$dir/chromium.err" || {
  echo "chromium failed or took over 60 s:"; cat "$dir/chromium.err"; exit 1
}
timeline=$(grep -o '<div id="timeline"[^>]*>' "$dir/dom.html")
echo "$timeline"
for count in $counts; do
  case $timeline in
    *"data-drawn-${count%=*}=\"${count#*=}\""*) ;;
    *) echo "expected data-drawn-$count"; exit 1 ;;
  esac
done
