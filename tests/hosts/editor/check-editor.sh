#!/usr/bin/env bash
# Opens the editor in a real window under Xvfb and plays it with xdotool: the JACK standalone against a
# private dummy JACK server, or the LV2 UI in jalv.gtk3. Checks that the window shows the frame, that a
# dragged Control starts its slot (the lamp lights), that an effect picked from the menu reaches the slot
# (its header changes), and that a key frame placed on the Dictator page plays when the Dictator moves.
#
#   check-editor.sh jack <orvanto-jack> <content tree> <screenshot folder>
#   check-editor.sh lv2 <orvanto.lv2 bundle> <content tree> <screenshot folder>
#
# Exit status 77 means a tool is missing (CTest reports the test as skipped).
set -u

mode=${1:?mode}
plugin=${2:?plugin}
content=${3:?content tree}
shots=${4:?screenshot folder}

fail() {
    echo "FAIL: $*" >&2
    exit 1
}
skip() {
    echo "SKIP: $*" >&2
    exit 77
}

for tool in Xvfb xdotool import convert jackd; do
    command -v "$tool" >/dev/null || skip "$tool not installed (Debian packages xvfb, xdotool, imagemagick, jackd2)"
done
[ -e "$plugin" ] || fail "no plug-in at $plugin"
[ -d "$content" ] || fail "no content tree at $content"

work=$(mktemp -d "${TMPDIR:-/tmp}/orvanto-editor-XXXXXX") || fail "no temporary folder"
mkdir -p "$shots"
export HOME="$work/home" XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" XDG_CACHE_HOME="$work/cache"
export ORVANTO_CONTENT_SOURCE="$content"
mkdir -p "$HOME" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"

started=()
stop_process() {
    local pid=$1
    kill -0 "$pid" 2>/dev/null || return 0
    kill -TERM "$pid" 2>/dev/null
    for _ in $(seq 50); do
        kill -0 "$pid" 2>/dev/null || return 0
        sleep 0.1
    done
    kill -KILL "$pid" 2>/dev/null
}
cleanup() {
    local i
    for ((i = ${#started[@]} - 1; i >= 0; i--)); do
        stop_process "${started[i]}"
    done
    wait 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# A private X server on the first free display it finds, and a private dummy JACK server.
exec 3>"$work/display"
Xvfb -displayfd 3 -screen 0 1400x900x24 -nolisten tcp >"$work/xvfb.log" 2>&1 &
started+=($!)
for _ in $(seq 100); do
    [ -s "$work/display" ] && break
    sleep 0.1
done
[ -s "$work/display" ] || fail "Xvfb did not start: $(cat "$work/xvfb.log")"
export DISPLAY=":$(head -n 1 "$work/display")"
export JACK_DEFAULT_SERVER="orvanto-editor-$$"
jackd --no-realtime -n "$JACK_DEFAULT_SERVER" -d dummy -r 48000 -p 256 >"$work/jackd.log" 2>&1 &
started+=($!)
sleep 1

case "$mode" in
jack)
    "$plugin" >"$work/app.log" 2>&1 &
    started+=($!)
    ;;
lv2)
    command -v jalv.gtk3 >/dev/null || skip "jalv.gtk3 not installed (Debian package jalv)"
    mkdir -p "$work/lv2"
    ln -s "$(realpath "$plugin")" "$work/lv2/orvanto.lv2"
    LV2_PATH="$work/lv2" jalv.gtk3 urn:amberforge:orvanto >"$work/app.log" 2>&1 &
    started+=($!)
    ;;
*)
    fail "unknown mode $mode"
    ;;
esac

# The frame is the 1200 x 700 window (jalv wraps it in a window of its own with a menu bar).
window=""
for _ in $(seq 150); do
    for candidate in $(xdotool search --onlyvisible --name "" 2>/dev/null); do
        geometry=$(xdotool getwindowgeometry "$candidate" 2>/dev/null | sed -n 's/.*Geometry: //p')
        if [ "$geometry" = "1200x700" ]; then
            window=$candidate
            break 2
        fi
    done
    sleep 0.1
done
[ -n "$window" ] || fail "no 1200x700 editor window appeared: $(cat "$work/app.log")"
sleep 0.5

shot() {
    import -window "$window" "$shots/$mode-$1.png" || fail "no screenshot"
}
# Mean red, green and blue of a region, as "r g b" from 0 to 255.
colour() {
    convert "$shots/$mode-$1.png" -crop "$2" +repage -scale 1x1\! -format '%[fx:int(255*r)] %[fx:int(255*g)] %[fx:int(255*b)]' info:
}
spread() {
    convert "$shots/$mode-$1.png" -format '%[fx:int(1000*standard_deviation)]' info:
}

shot open
[ "$(spread open)" -gt 50 ] || fail "the window is empty or one colour"
read -r r g b <<<"$(colour open 60x60+0+0)"
[ $((r + g + b)) -gt 0 ] && [ $((r + g + b)) -lt 200 ] || fail "the frame's corner is not the dark stage ($r $g $b)"

# Slot 1's lamp is dark; drag its Control up and it runs.
read -r r0 g0 b0 <<<"$(colour open 10x10+13+108)"
xdotool mousemove --window "$window" 75 156 mousedown 1
for y in 150 140 130 110 90 70; do
    xdotool mousemove --window "$window" 75 "$y"
    sleep 0.05
done
xdotool mouseup 1
sleep 0.6
shot dragged
read -r r1 g1 b1 <<<"$(colour dragged 10x10+13+108)"
[ "$g1" -gt $((g0 + 60)) ] || fail "slot 1 did not start: lamp $r0 $g0 $b0 -> $r1 $g1 $b1"

# Pick the first effect of the menu for slot 2: its header shows the new name.
before=$(convert "$shots/$mode-dragged.png" -crop 140x28+155+73 +repage -format '%#' info:)
xdotool mousemove --window "$window" 220 86 click 1
sleep 0.4
shot menu
xdotool mousemove --window "$window" 220 "$((72 + 30 + 2 + 9))" click 1
sleep 0.6
shot picked
after=$(convert "$shots/$mode-picked.png" -crop 140x28+155+73 +repage -format '%#' info:)
[ "$before" != "$after" ] || fail "slot 2's header did not change after the effect was picked"
# The Dictator page by its tab: row 3 cleared (the loaded preset may hold key frames), then a key frame placed
# at node 8 (cell 8 from the bottom, value 0.5) shows in slot 3's colour. Back on the main page, the Dictator at a quarter of its travel plays that row:
# Control 3 rises to 0.25 and slot 3 starts (its lamp lights), which only the engine's table can do.
xdotool mousemove --window "$window" 892 56 click 1
sleep 0.4
xdotool mousemove --window "$window" 342 444 click 1
sleep 0.4
shot dictator
read -r r0 g0 b0 <<<"$(colour dictator 40x8+320+276)"
xdotool mousemove --window "$window" 375 280 click 1
sleep 0.4
shot keyframe
read -r r1 g1 b1 <<<"$(colour keyframe 40x8+320+276)"
[ "$r1" -gt $((r0 + 80)) ] || fail "no key frame drawn in row 3: $r0 $g0 $b0 -> $r1 $g1 $b1"
xdotool mousemove --window "$window" 724 56 click 1
sleep 0.4
shot back
read -r r0 g0 b0 <<<"$(colour back 10x10+313+108)"
xdotool mousemove --window "$window" 744 35 click 1
sleep 0.8
shot played
read -r r1 g1 b1 <<<"$(colour played 10x10+313+108)"
[ "$g1" -gt $((g0 + 60)) ] || fail "the Dictator did not start slot 3 from its key frame: lamp $r0 $g0 $b0 -> $r1 $g1 $b1"
echo "PASS: $mode editor opened, a Control drag started its slot, an effect pick reached slot 2, a key frame played"
