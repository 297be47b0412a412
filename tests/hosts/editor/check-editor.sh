#!/usr/bin/env bash
# Opens the editor in a real window under Xvfb and plays it with xdotool: the JACK standalone against a
# private dummy JACK server, the LV2 UI in jalv.gtk3, or the CLAP, VST2 or VST3 editor embedded by our own
# editor host. Checks that the window shows the frame, that a dragged Control starts its slot (the lamp
# lights), that an effect picked from the menu reaches the slot (its header changes), that a step drawn on the
# modulator page reaches the LFO, and that a key frame placed on the Dictator page plays when the Dictator
# moves; then reads the engine back: with JACK and LV2 the Control's value as the engine sends it on its MIDI
# out, and with LV2, CLAP, VST2 and VST3 Control 1, the slots' effects and slot 1's LFO from the states saved
# as the editor opened and at the end (jalv's File menu, or our host).
#
#   check-editor.sh jack <orvanto-jack> <content tree> <screenshot folder> <orvanto-preset>
#   check-editor.sh lv2 <orvanto.lv2 bundle> <content tree> <screenshot folder> <orvanto-preset>
#   check-editor.sh clap|vst2|vst3 <plug-in file> <content tree> <screenshot folder> <orvanto-preset> \
#       <editor host>
#
# Exit status 77 means a tool is missing (CTest reports the test as skipped).
set -u

mode=${1:?mode}
plugin=${2:?plugin}
content=${3:?content tree}
shots=${4:?screenshot folder}
preset_tool=${5:?orvanto-preset}
editor_host=${6:-}

fail() {
    echo "FAIL: $*" >&2
    exit 1
}
skip() {
    echo "SKIP: $*" >&2
    exit 77
}

for tool in Xvfb xdotool import convert jackd jack_lsp jack_connect jack_midi_dump; do
    command -v "$tool" >/dev/null || skip "$tool not installed (Debian packages xvfb, xdotool, imagemagick, jackd2)"
done
[ -e "$plugin" ] || fail "no plug-in at $plugin"
[ -d "$content" ] || fail "no content tree at $content"

work=$(mktemp -d "${TMPDIR:-/tmp}/orvanto-editor-XXXXXX") || fail "no temporary folder"
mkdir -p "$shots"
export HOME="$work/home" XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" XDG_CACHE_HOME="$work/cache"
export ORVANTO_CONTENT_SOURCE="$content"
mkdir -p "$HOME" "$XDG_CONFIG_HOME/Orvanto" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"
# The engine reports its Controls on its MIDI out when the user's settings say so.
printf '[Orvanto]\nMIDI out=1\n' >"$XDG_CONFIG_HOME/Orvanto/Orvanto.conf"

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
clap | vst2 | vst3)
    [ -x "$editor_host" ] || fail "no editor host at $editor_host"
    "$editor_host" "$mode" "$plugin" "$work/engine" >"$work/app.log" 2>&1 &
    host_pid=$!
    started+=($host_pid)
    ;;
*)
    fail "unknown mode $mode"
    ;;
esac

# JACK and LV2: what the engine sends on its MIDI out goes to a MIDI monitor.
if [ "$mode" = jack ] || [ "$mode" = lv2 ]; then
    jack_midi_dump >"$work/midi.log" 2>&1 &
    started+=($!)
    midi_out=""
    for _ in $(seq 100); do
        midi_out=$(jack_lsp -p -t 2>/dev/null | paste - - - | awk -F'\t' '/output/ && /midi/ {print $1}' |
            grep -v '^system' | head -n 1)
        [ -n "$midi_out" ] && jack_lsp 2>/dev/null | grep -q '^midi-monitor:input' && break
        sleep 0.1
    done
    [ -n "$midi_out" ] || fail "the plug-in shows no MIDI out port"
    jack_connect "$midi_out" midi-monitor:input || fail "cannot connect $midi_out to the monitor"
fi

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

# LV2: jalv saves the plug-in's state through its File menu into a folder, the engine's image as the base64
# value of DPF's state key "chunk".
jalv_save() {
    local top dialog
    top=$(xdotool search --onlyvisible --name '^Orvanto$' | head -n 1)
    [ -n "$top" ] || fail "no jalv window"
    xdotool mousemove --window "$top" 20 10 click 1
    sleep 0.7
    xdotool mousemove --window "$top" 45 38 click 1
    for _ in $(seq 50); do
        dialog=$(xdotool search --onlyvisible --name '^Save State$' 2>/dev/null | head -n 1)
        [ -n "$dialog" ] && break
        sleep 0.1
    done
    [ -n "$dialog" ] || fail "jalv shows no Save State dialog"
    xdotool windowfocus "$dialog"
    sleep 0.3
    xdotool type --delay 15 "$work/jalv-$1"
    sleep 0.3
    xdotool key --window "$dialog" Return
    for _ in $(seq 50); do
        [ -s "$work/jalv-$1/state.ttl" ] && break
        sleep 0.1
    done
    sed -n 's/.*<urn:distrho:chunk> "\([^"]*\)".*/\1/p' "$work/jalv-$1/state.ttl" | base64 -d >"$work/$1.afog" ||
        fail "jalv saved no engine image"
    sleep 0.3
}

shot open
[ "$(spread open)" -gt 50 ] || fail "the window is empty or one colour"
read -r r g b <<<"$(colour open 60x60+0+0)"
[ $((r + g + b)) -gt 0 ] && [ $((r + g + b)) -lt 200 ] || fail "the frame's corner is not the dark stage ($r $g $b)"
[ "$mode" = lv2 ] && jalv_save opened

# Slot 1's lamp is dark; drag its Control up and it lights: running, or pending on the grid where the host
# plays no audio.
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
[ $((r1 + g1)) -gt $((r0 + g0 + 60)) ] || fail "slot 1 did not start: lamp $r0 $g0 $b0 -> $r1 $g1 $b1"
if [ "$mode" = jack ] || [ "$mode" = lv2 ]; then
    # Control 1 is CC 1 of the engine's MIDI out: its last value is where the drag left the Control.
    cc1=$(grep -io 'b0 01 [0-9a-f][0-9a-f]' "$work/midi.log" | tail -n 1 | awk '{print $3}')
    [ -n "$cc1" ] && [ $((16#$cc1)) -gt 20 ] || fail "the engine did not report Control 1 moved (CC 1: '${cc1}')"
fi

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
# The modulator page by its tab: LFO 1 of slot 1 set to its step waveform (the 14th word of its menu, which
# opens below it), then its first step drawn near the top of the step view that replaced the wave view.
xdotool mousemove --window "$window" 808 56 click 1
sleep 0.4
xdotool mousemove --window "$window" 120 159 click 1
sleep 0.4
xdotool mousemove --window "$window" 40 415 click 1
sleep 0.4
xdotool mousemove --window "$window" 30 192 click 1
sleep 0.4
shot steps
xdotool mousemove --window "$window" 724 56 click 1
sleep 0.4
if [ "$mode" = lv2 ]; then
    jalv_save closed
fi
# The Dictator rewrites every Control it plays, so it moves after the state is saved; our editor host saves
# only as it exits, so there the key frame is left to the other formats.
if [ "$editor_host" = "" ]; then
    # The Dictator page by its tab: row 3 cleared (the loaded preset may hold key frames), then a key frame
    # placed at node 8 (cell 8 from the bottom, value 0.5) shows in slot 3's colour. Back on the main page, the
    # Dictator at a quarter of its travel plays that row: Control 3 rises to 0.25 and slot 3 starts (its lamp
    # lights), which only the engine's table can do.
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
    # Lit green when the slot runs, amber while it waits for the grid (a host whose transport stands).
    [ "$g1" -gt $((g0 + 40)) ] || fail "the Dictator did not start slot 3 from its key frame: lamp $r0 $g0 $b0 -> $r1 $g1 $b1"
fi
if [ "$editor_host" != "" ]; then
    kill -TERM "$host_pid"
    wait "$host_pid" || fail "the editor host failed: $(cat "$work/app.log")"
    # The format's state holds the engine's own image under the key "chunk", in base64.
    for state in opened closed; do
        tr '\377\000' '\n\n' <"$work/engine-$state.state" | sed -n '/^chunk$/{n;p;q}' | base64 -d \
            >"$work/$state.afog" || fail "no engine image in the $state state"
    done
fi
if [ -s "$work/opened.afog" ]; then
    slot_effects() {
        "$preset_tool" info "$work/$1.afog" >"$work/$1.json" || fail "the $1 engine image does not read"
        grep -o '"effect": "[^"]*"' "$work/$1.json"
    }
    mapfile -t opened < <(slot_effects opened)
    mapfile -t closed < <(slot_effects closed)
    [ "${#opened[@]}" -eq 8 ] && [ "${#closed[@]}" -eq 8 ] || fail "the saved states do not describe eight slots"
    [ "${closed[0]}" = "${opened[0]}" ] && [ "${closed[1]}" != "${opened[1]}" ] ||
        fail "slot effects before and after the pick: ${opened[*]} / ${closed[*]}"
    lfo=$(grep -o '"lfo1": {[^}]*}' "$work/closed.json" | head -1)
    waveform=$(echo "$lfo" | sed 's/.*"waveform": \([0-9]*\).*/\1/')
    step=$(echo "$lfo" | sed 's/.*"steps": \[\([^,]*\),.*/\1/')
    [ "$waveform" = 13 ] && awk -v v="$step" 'BEGIN { exit !(v > 0.8) }' ||
        fail "slot 1's LFO 1 after the step edit: waveform '$waveform', first step '$step'"
    control=$(grep -o '"controls": \[[^],]*' "$work/closed.json" | sed 's/.*\[//')
    awk -v v="$control" 'BEGIN { exit !(v > 0.15) }' || fail "the engine's Control 1 is '$control' after the drag"
elif [ "$mode" != jack ]; then
    fail "no engine image was saved"
fi
echo "PASS: $mode editor opened, a Control drag started its slot and the engine has it, an effect pick reached slot 2"
