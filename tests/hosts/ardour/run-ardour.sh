#!/usr/bin/env bash
# Orvanto in Ardour itself, without a GUI: a session with a stereo track fed by a test signal, Orvanto on it, a
# factory program chosen from Ardour's preset list and parameters set; exported, saved, closed, reopened and
# exported again. Both exports must match orvanto-render with the same settings, every value must come back,
# and the plug-in state Ardour saves after reopening must be the one it saved first.
#
#   run-ardour.sh FORMAT PLUGIN CONTENT RENDER COMPARE [ARDOUR-LIB]
#
# FORMAT is lv2, vst3 or vst2; PLUGIN the built bundle or library. Every step runs under a time limit, and a
# step that does not finish in time fails the test. Everything runs with a private home whose plug-in folders
# hold only the build. Exit status 77 means Ardour is not installed (CTest reports the test as skipped).
set -u

format=${1:?format}
plugin=${2:?plugin}
content=${3:?content tree}
render=${4:?orvanto-render}
compare=${5:?orvanto-wav-compare}
ardour=${6:-/usr/lib/ardour7}
here=$(cd "$(dirname "$0")" && pwd)

# The host block, the program and the parameters (index=value) set after it, for Ardour and the renderer alike:
# the program's Filter and Levelizer slots up (Controls 4 and 6), the master mix at 0.8, the Filter's cutoff
# moved.
block=512
program="Dub Throw"
settings=("3=1" "9=0.8" "99=0.6")
tolerance=1e-6
# The renderer sets the parameters at its first block, where the engine glides to them from the program's
# values; in Ardour they were set while the transport stood, so its first block starts on them. The exports
# are held against the renderer from the second block on.
from=$block

fail() {
    echo "FAIL: $*" >&2
    exit 1
}
skip() {
    echo "SKIP: $*" >&2
    exit 77
}

for tool in ardour7-lua; do
    command -v "$tool" >/dev/null || skip "$tool not installed (Debian package ardour)"
done
[ -e "$plugin" ] || fail "no plug-in at $plugin (build it first)"
[ -d "$content" ] || fail "no content tree at $content (build orvanto-content first)"
plugin=$(realpath "$plugin")
content=$(realpath "$content")

work=$(mktemp -d "${TMPDIR:-/tmp}/orvanto-ardour-XXXXXX") || fail "no temporary folder"
trap 'rm -rf "$work"' EXIT
trap 'exit 1' INT TERM
export HOME="$work/home"
export XDG_CONFIG_HOME="$HOME/.config"
export XDG_DATA_HOME="$HOME/.local/share"
export XDG_CACHE_HOME="$HOME/.cache"
export ORVANTO_CONTENT_SOURCE="$content"
export LV2_PATH="$HOME/.lv2"
export LXVST_PATH="$HOME/.vst"
out="$work/out"
session="$work/session"
mkdir -p "$HOME/.lv2" "$HOME/.vst3" "$HOME/.vst" "$XDG_CONFIG_HOME/ardour7/scripts" \
    "$XDG_CONFIG_HOME/ardour7/export" "$out"
cp "$here/orvanto-test-signal.lua" "$XDG_CONFIG_HOME/ardour7/scripts/"
# 32-bit float WAV of the master bus, named by folder.
cat >"$XDG_CONFIG_HOME/ardour7/export/orvanto-test.preset" <<'PRESET'
<?xml version="1.0" encoding="UTF-8"?>
<ExportPreset id="5d0c3f2e-7a41-4c86-9b1e-0f6a3c2d8e41" name="Orvanto test">
  <ExportFormat id="20b4ab09-6452-4cb3-bd66-b921cdbd2942"/>
  <ExportFilename>
    <Folder relative="0" path="/tmp"/>
    <Field name="label" enabled="1"/>
  </ExportFilename>
</ExportPreset>
PRESET

# Runs a step under a time limit; a step that outlives it has hung.
step() {
    local limit=$1 name=$2
    shift 2
    timeout --kill-after=5 "$limit" "$@" >"$work/$name.log" 2>&1
    local status=$?
    if [ "$status" -eq 124 ] || [ "$status" -eq 137 ]; then
        tail -n 20 "$work/$name.log"
        fail "$name did not finish within $limit s: it hangs"
    fi
    return "$status"
}

# Ardour's scanner indexes VST3 and VST2 plug-ins into the cache that the session then reads.
scan() {
    local scanner=$1
    [ -x "$ardour/$scanner" ] || skip "$ardour/$scanner not installed (Debian package ardour)"
    LD_LIBRARY_PATH="$ardour${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" step 60 scan "$ardour/$scanner" --force "$2" ||
        { cat "$work/scan.log"; fail "$scanner failed"; }
}

case "$format" in
lv2)
    ln -s "$plugin" "$HOME/.lv2/orvanto.lv2"
    id="urn:amberforge:orvanto"
    ;;
vst3)
    ln -s "$plugin" "$HOME/.vst3/orvanto.vst3"
    scan ardour-vst3-scanner "$HOME/.vst3/orvanto.vst3"
    id=$(sed -n 's/.*<VST3Info uid="\([0-9A-F]*\)".*/\1/p' "$XDG_CACHE_HOME"/ardour7/vst/*.v3i)
    ;;
vst2)
    ln -s "$plugin" "$HOME/.vst/orvanto.so"
    scan ardour-vst-scanner "$HOME/.vst/orvanto.so"
    id=$(sed -n 's/.*<VST2Info id="\([0-9]*\)".*/\1/p' "$XDG_CACHE_HOME"/ardour7/vst/*.v2i)
    # DPF's VST2 offers the host a single empty program, so the session keeps the plug-in's default state and
    # raises its Filter slot (Control 1) instead.
    program=""
    settings=("0=1" "9=0.8" "12=0.6")
    ;;
*) fail "unknown format $format" ;;
esac
[ -n "$id" ] || fail "Ardour's scanner did not index the plug-in"

session_step() {
    local mode=$1
    shift
    step 180 "$mode" ardour7-lua "$here/session.lua" "$mode" "$format" "$id" "$session" "$out" "$block" "$@"
    grep -q "^DONE$" "$work/$mode.log" || {
        grep -v "^\[WARNING\]\|^\[ERROR\]: Ignored format" "$work/$mode.log" | tail -n 20
        fail "the $mode step did not finish"
    }
}

export_of() {
    local files=("$out/$1"/*.wav)
    [ -f "${files[0]}" ] || fail "no export in $out/$1"
    echo "${files[0]}"
}

# The plug-in's state in a saved session: the chunk Ardour keeps for a VST, the state files it writes for LV2.
saved_state() {
    local snapshot=$1
    case "$format" in
    lv2)
        local folder
        folder=$(sed -n 's/.*<lv2 [^>]*state-dir="\([^"]*\)".*/\1/p' "$session/$snapshot.ardour" | head -n 1)
        [ -n "$folder" ] || return 1
        cat "$session"/plugins/*/"$folder"/state.ttl
        ;;
    *) awk '/<chunk[ >]/,/<\/chunk>/' "$session/$snapshot.ardour" ;;
    esac
}

session_step create "$program" "${settings[@]}"
input=$(export_of input)
first=$(export_of first)

render_args=("$input" -o "$out/reference.wav" --block "$block" --tempo 120 --quiet)
[ -n "$program" ] && render_args+=(--preset "$content/Global Presets/$program.afog")
for s in "${settings[@]}"; do
    render_args+=(--set "$s")
done
step 120 render "$render" "${render_args[@]}" || { cat "$work/render.log"; fail "orvanto-render failed"; }

step 30 compare-first "$compare" "$first" "$out/reference.wav" "$from" "$tolerance" "$input" ||
    { cat "$work/compare-first.log"; fail "the first export does not match orvanto-render"; }
echo "first export against orvanto-render: $(cat "$work/compare-first.log")"

session_step reopen
second=$(export_of second)
step 30 compare-second "$compare" "$second" "$out/reference.wav" "$from" "$tolerance" "$input" ||
    { cat "$work/compare-second.log"; fail "the export after reopening does not match orvanto-render"; }
echo "export after reopening against orvanto-render: $(cat "$work/compare-second.log")"

[ "$(wc -l <"$out/values-created.txt")" -eq 253 ] || fail "not 253 values written"
diff "$out/values-created.txt" "$out/values-reopened.txt" ||
    fail "the values after reopening are not the values saved"
echo "all 253 values came back"

saved_state orvanto >"$out/state-created" || fail "no plug-in state in the saved session"
saved_state reopened >"$out/state-reopened" || fail "no plug-in state in the session saved after reopening"
[ -s "$out/state-created" ] || fail "the saved plug-in state is empty"
cmp -s "$out/state-created" "$out/state-reopened" || {
    diff "$out/state-created" "$out/state-reopened" | head -n 20
    fail "the plug-in state saved after reopening differs from the state saved first"
}
echo "OK: Orvanto ($format) in Ardour: program, parameters, exports and reopened session agree"
