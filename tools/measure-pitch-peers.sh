#!/usr/bin/env bash
# Pitch error and spurious energy of our transposing effects and of the pitch shifters packaged in Debian, by
# the same analysis: a 440 Hz sine at 48 kHz in, a 16384-sample Blackman-Harris window of the settled output,
# the peak interpolated between bins; spurious energy is everything outside the peak's main lobe, in dB below
# it. Prints a Markdown table. Not part of `make test`:
#
#   tools/measure-pitch-peers.sh [BUILD_DIR]
#
# The peers run in orvanto-lv2-impulse with --input. Guitarix's detune schedules work at start-up: a host
# without the worker feature (lv2apply) crashes on it or leaves it unconfigured, and at its defaults it mixes
# half the dry tone in (DRY 50), so it is measured fully wet.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
make --no-print-directory install-packages PACKAGES="mda-lv2 guitarix-lv2 rubberband-lv2 python3-numpy sox"
cmake --build "$build" --target orvanto-render orvanto-lv2-impulse >/dev/null
render="$build/tools/orvanto-render"
host="$build/tests/hosts/lv2/orvanto-lv2-impulse"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sox -n -r 48000 -b 32 -e floating-point -c 1 "$work/mono.wav" synth 4 sine 440 vol 0.5
sox -n -r 48000 -b 32 -e floating-point -c 2 "$work/stereo.wav" synth 4 sine 440 vol 0.5

# measure NAME SETTING SEMITONES FILE CHANNEL START_SECONDS
measure() {
  /usr/bin/python3 - "$@" <<'EOF'
import subprocess, sys
import numpy as np
name, setting, semitones, path, channel, start = sys.argv[1:]
channels = int(subprocess.run(["soxi", "-c", path], capture_output=True, text=True, check=True).stdout)
raw = subprocess.run(["sox", path, "-t", "f32", "-"], capture_output=True, check=True).stdout
x = np.frombuffer(raw, dtype=np.float32).reshape(-1, channels)[:, int(channel)].astype(np.float64)
size, rate = 16384, 48000.0
first = int(float(start) * rate)
t = 2.0 * np.pi * np.arange(size) / size
window = 0.35875 - 0.48829 * np.cos(t) + 0.14128 * np.cos(2 * t) - 0.01168 * np.cos(3 * t)
mag = np.abs(np.fft.rfft(window * x[first:first + size]))
k = 2 + int(np.argmax(mag[2:-2]))
a, b, c = np.log(np.maximum(mag[k - 1:k + 2], 1e-30))
hz = (k + 0.5 * (a - c) / (a - 2 * b + c)) * rate / size
energy = mag ** 2
energy[0] = 0.0
tone = energy[k - 5:k + 6].sum()
spurious = 10 * np.log10(tone / max(energy.sum() - tone, 1e-30))
wanted = 440.0 * 2.0 ** (float(semitones) / 12.0)
print(f"| {name} | {setting} | {float(semitones):+g} | {hz:.2f} | {1200 * np.log2(hz / wanted):+.2f} | {spurious:.1f} |")
EOF
}

echo "| shifter | setting | semitones | measured Hz | error (cents) | spurious (dB below the tone) |"
echo "|---|---|---|---|---|---|"
for st in 3 7 12 -12; do
  pitch=$(/usr/bin/python3 -c "print(0.5 + $st / 24)")
  "$render" "$work/mono.wav" -o "$work/reactor.wav" -q --tempo 60 --seed 1 --effect 1=Reactor \
    --option 1:0=Active --option 1:2=Looper --set "FX1 Parameter 2=0" --set "FX1 Parameter 3=0.5" \
    --set "FX1 Parameter 4=$pitch" --set "Control 1=1" --set "FX1 Dry Wet=1" >/dev/null
  measure "Orvanto Reactor" "Looper, 2 beats at 60 BPM" "$st" "$work/reactor.wav" 0 1.0
  "$render" "$work/mono.wav" -o "$work/delay.wav" -q --tempo 60 --seed 1 --effect "1=Pitch Delay" \
    --set "FX1 Parameter 3=0" --set "FX1 Parameter 4=$pitch" --set "Control 1=1" --set "FX1 Dry Wet=1" >/dev/null
  measure "Orvanto Pitch Delay" "first echo, no feedback" "$st" "$work/delay.wav" 0 2.0
done
for st in 3 7 12 -12; do
  "$host" "http://guitarix.sourceforge.net/plugins/gx_detune_#_detune_" "$work/gx.wav" 4 DETUNE="$st" DRY=0 \
    WET=100 LATENCY=0 --input="$work/mono.wav" >/dev/null
  measure "guitarix detune" "high quality, wet" "$st" "$work/gx.wav" 0 2.0
  for crisp in 3 0; do
    "$host" "http://breakfastquay.com/rdf/lv2-rubberband#mono" "$work/rb.wav" 4 semitones="$st" \
      crispness="$crisp" --input="$work/mono.wav" >/dev/null
    measure "Rubber Band mono" "crispness $crisp" "$st" "$work/rb.wav" 0 2.0
  done
done
# mda's Detune lowers the left and raises the right channel by up to 300 cents (its display's full scale).
"$host" "http://drobilla.net/plugins/mda/Detune" "$work/mda.wav" 4 detune=1 mix=1 --input="$work/stereo.wav" >/dev/null
measure "mda Detune" "full detune, right" 3 "$work/mda.wav" 1 2.0
measure "mda Detune" "full detune, left" -3 "$work/mda.wav" 0 2.0
