#!/usr/bin/env bash
# Loads a built plug-in format in a real host and checks what the host sees of it: two audio inputs, two
# audio outputs, MIDI in and MIDI out.
#
#   check-format.sh vst3 <orvanto.vst3 bundle> <content tree> <ardour lib dir>
#   check-format.sh vst2 <orvanto-vst2.so> <content tree> <ardour lib dir>
#   check-format.sh jack <orvanto-jack> <content tree>
#
# Every process runs with a private home and the compiled factory content, so the user's own settings are never
# read or written. Exit status 77 means a host tool is missing (CTest reports the test as skipped).
set -u

mode=${1:?mode}
plugin=${2:?plugin}
content=${3:?content tree}
ardour=${4:-/usr/lib/ardour7}

fail() {
    echo "FAIL: $*" >&2
    exit 1
}
skip() {
    echo "SKIP: $*" >&2
    exit 77
}

[ -e "$plugin" ] || fail "no plug-in at $plugin (build it first)"
[ -d "$content" ] || fail "no content tree at $content (build orvanto-content first)"

work=$(mktemp -d "${TMPDIR:-/tmp}/orvanto-format-XXXXXX") || fail "no temporary folder"
export HOME="$work/home"
export XDG_CONFIG_HOME="$work/config"
export XDG_DATA_HOME="$work/data"
export XDG_CACHE_HOME="$work/cache"
export ORVANTO_CONTENT_SOURCE="$content"
mkdir -p "$HOME" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"

# Processes we started, ended last-started first: TERM, a bounded wait, then KILL.
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

# The value of one attribute of the first element named $2 in the XML file $1.
attribute() {
    sed -n "s/.*<$2 [^>]*\b$3=\"\([^\"]*\)\".*/\1/p" "$1" | head -n 1
}

# Ardour's scanner indexes the plug-in into its cache, the file Ardour itself reads to list it.
check_ardour_scan() {
    local scanner=$1 element=$2 pattern=$3
    [ -x "$ardour/$scanner" ] || skip "$ardour/$scanner not installed (Debian package ardour)"
    LD_LIBRARY_PATH="$ardour${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" \
        timeout 60 "$ardour/$scanner" --force --verbose "$plugin" >"$work/scan.log" 2>&1
    local status=$?
    cat "$work/scan.log"
    [ "$status" -eq 0 ] || fail "$scanner exited with $status"
    grep -q "Found Plugin: .*Orvanto" "$work/scan.log" || fail "$scanner did not report Orvanto"

    local caches
    mapfile -t caches < <(find "$XDG_CACHE_HOME" -type f -name "$pattern")
    [ "${#caches[@]}" -eq 1 ] || fail "expected one $pattern cache file, found ${#caches[@]}"
    local cache=${caches[0]}
    local key expected actual
    for key in name=Orvanto n_inputs=2 n_outputs=2 n_midi_inputs=1 n_midi_outputs=1; do
        expected=${key#*=}
        actual=$(attribute "$cache" "$element" "${key%%=*}")
        [ "$actual" = "$expected" ] || fail "$element ${key%%=*} is '$actual', expected '$expected'"
    done
    echo "OK: $element in $(basename "$cache"): 2 in, 2 out, MIDI in and out"
}

# The port list as "name|direction|type" lines, sorted; only the client's own ports.
jack_ports() {
    timeout 5 jack_lsp -s "$JACK_DEFAULT_SERVER" -p -t "$1:" 2>/dev/null | awk '
        /^[^ \t]/ { if (name != "") print name "|" dir "|" type; name = $0; dir = ""; type = "" }
        /properties:/ { dir = ($0 ~ /input/) ? "input" : (($0 ~ /output/) ? "output" : "?") }
        /^\t/ && !/properties:/ { sub(/^\t/, ""); type = $0 }
        END { if (name != "") print name "|" dir "|" type }' | sort
}

check_jack() {
    local tool
    for tool in jackd jack_lsp jack_wait; do
        command -v "$tool" >/dev/null || skip "$tool not installed (Debian package jackd2)"
    done
    # A server of our own, under a short name: jackd2's jack_lsp crashes on names much past 16 characters.
    export JACK_DEFAULT_SERVER="orv$$-$((RANDOM % 1000))"
    export JACK_NO_START_SERVER=1
    export JACK_NO_AUDIO_RESERVATION=1

    jackd --name "$JACK_DEFAULT_SERVER" --no-realtime -d dummy -r 48000 -p 512 >"$work/jackd.log" 2>&1 &
    started+=($!)
    if ! timeout 10 jack_wait -s "$JACK_DEFAULT_SERVER" -w -t 10 >/dev/null 2>&1; then
        cat "$work/jackd.log"
        fail "jackd did not start"
    fi

    "$plugin" >"$work/plugin.log" 2>&1 &
    local plugin_pid=$!
    started+=("$plugin_pid")

    local expected actual=""
    expected=$(printf '%s\n' \
        "Orvanto:audio_in_1|input|32 bit float mono audio" \
        "Orvanto:audio_in_2|input|32 bit float mono audio" \
        "Orvanto:audio_out_1|output|32 bit float mono audio" \
        "Orvanto:audio_out_2|output|32 bit float mono audio" \
        "Orvanto:events-in|input|8 bit raw midi" \
        "Orvanto:midi-out|output|8 bit raw midi" | sort)
    local deadline=$((SECONDS + 10))
    while ((SECONDS < deadline)); do
        actual=$(jack_ports Orvanto)
        [ "$actual" = "$expected" ] && break
        kill -0 "$plugin_pid" 2>/dev/null || break
        sleep 0.1
    done
    echo "$actual"
    if [ "$actual" != "$expected" ]; then
        cat "$work/plugin.log"
        fail "the standalone's JACK ports are not two audio in, two audio out, MIDI in and MIDI out"
    fi

    # A few seconds of running audio: it must still be there, with the same ports.
    sleep 3
    kill -0 "$plugin_pid" 2>/dev/null || {
        cat "$work/plugin.log"
        fail "orvanto-jack stopped while running"
    }
    [ "$(jack_ports Orvanto)" = "$expected" ] || fail "the ports changed while running"

    # Asked to quit, it closes its instance cleanly, which writes the settings into the private home.
    kill -TERM "$plugin_pid"
    local status=""
    for _ in $(seq 100); do
        if ! kill -0 "$plugin_pid" 2>/dev/null; then
            wait "$plugin_pid"
            status=$?
            break
        fi
        sleep 0.1
    done
    [ -n "$status" ] || fail "orvanto-jack did not quit within 10 s of SIGTERM"
    [ "$status" -eq 0 ] || {
        cat "$work/plugin.log"
        fail "orvanto-jack exited with $status"
    }
    [ -f "$XDG_CONFIG_HOME/Orvanto/Orvanto.conf" ] || fail "no settings written into the private home"
    echo "OK: orvanto-jack on server $JACK_DEFAULT_SERVER"
}

case "$mode" in
vst3) check_ardour_scan ardour-vst3-scanner VST3Info "*.v3i" ;;
vst2) check_ardour_scan ardour-vst-scanner VST2Info "*.v2i" ;;
jack) check_jack ;;
*) fail "unknown mode $mode" ;;
esac
