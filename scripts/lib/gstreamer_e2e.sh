# End-to-end test of the GStreamer element with gst-launch-1.0 on generated WAV files.
# Usage: bash scripts/lib/gstreamer_e2e.sh BUILD_DIR   (a build with the tool and the plug-in)
#
# - File pipelines (wavparse into mic_sink and ref_sink, wavenc after the element) at 16000 and
#   8000 Hz, with default and explicit parameters: the output equals `sonvel-aec process` with the
#   same options sample for sample, after the latencies (the element's output lags the
#   microphone by the stream's latency, 2 frames + 1 block = 448 / 224 samples).
# - A reference shorter than the microphone (its end of stream: silence) and a microphone shorter
#   than the reference (the output ends with it), both against the tool.
# - A 48 kHz pipeline through audioresample.
# - Refused property values and negotiation failures give clear messages.
# Every process runs under a time limit and is ended by its process id.
set -euo pipefail

build=${1:?usage: gstreamer_e2e.sh BUILD_DIR}
build=$(cd "$build" && pwd)
tool=$build/tools/sonvel-aec
plugin_dir=$build/integrations/gstreamer
[ -x "$tool" ] || { echo "gstreamer_e2e: $tool not built" >&2; exit 1; }
[ -f "$plugin_dir/libgstsonvelaec.so" ] || { echo "gstreamer_e2e: plug-in not built in $plugin_dir" >&2; exit 1; }
command -v gst-launch-1.0 > /dev/null || { echo "gstreamer_e2e: gst-launch-1.0 missing" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export GST_PLUGIN_PATH=$plugin_dir
export GST_REGISTRY=$work/registry.bin
failures=0

fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

# bounded SECONDS LOG CMD...: runs CMD with its output in LOG; ends it by its pid (TERM, then
# KILL) when it outlives SECONDS. Returns CMD's status (124 on a timeout).
bounded() {
  local limit=$1 log=$2
  shift 2
  "$@" > "$log" 2>&1 &
  local pid=$! waited=0
  while kill -0 "$pid" 2> /dev/null; do
    if [ "$waited" -ge $((limit * 10)) ]; then
      kill -TERM "$pid" 2> /dev/null || true
      sleep 1
      kill -KILL "$pid" 2> /dev/null || true
      wait "$pid" 2> /dev/null || true
      echo "timed out after ${limit}s: $*" >> "$log"
      return 124
    fi
    sleep 0.1
    waited=$((waited + 1))
  done
  wait "$pid"
}

launch() { # launch LOG PIPELINE...
  local log=$1
  shift
  bounded 60 "$log" gst-launch-1.0 -q "$@"
}

# raw WAV OUT: the samples of a WAV file as raw bytes.
raw() {
  launch "$work/raw.log" filesrc location="$1" ! wavparse ! filesink location="$2" ||
    { cat "$work/raw.log" >&2; return 1; }
}

samples() { echo $(($(stat -c %s "$1") / 2)); }

# same A SKIP_A B SKIP_B COUNT: COUNT samples of raw files A and B agree after skipping.
same() {
  cmp -s -i $((2 * $2)):$((2 * $4)) -n $((2 * $5)) "$1" "$3"
}

# The element's lag behind the microphone (the stream's: two frames and a block) and the tool's
# (the core's: one frame and a block, also when it runs the front end through the stream).
frame_of() { echo $(($1 / 100)); }
block_of() { echo $(($1 == 16000 ? 128 : 64)); }
element_latency() { echo $((2 * $(frame_of "$1") + $(block_of "$1"))); }
tool_latency() { echo $(($(frame_of "$1") + $(block_of "$1"))); }
# The front-end options are compared when the tool has them.
if "$tool" process --help 2>&1 | grep -q -- '--ref-delay'; then
  tool_has_frontend=1
else
  tool_has_frontend=0
fi

# compare NAME RATE MIC REF "TOOL OPTIONS" "ELEMENT PROPERTIES": runs both and checks the output
# against the tool's without --align (shifted by the difference of the lags) and with --align
# (the element's output after its latency).
compare() {
  local name=$1 rate=$2 mic=$3 ref=$4 opts=$5 props=$6
  local dir=$work/$name
  mkdir -p "$dir"
  # shellcheck disable=SC2086
  if ! bounded 60 "$dir/tool.log" "$tool" process "$mic" "$ref" -o "$dir/tool.wav" -q $opts ||
     ! bounded 60 "$dir/tool_align.log" "$tool" process "$mic" "$ref" -o "$dir/tool_align.wav" -q --align $opts; then
    fail "$name: sonvel-aec process failed"; cat "$dir/tool.log" >&2; return
  fi
  # shellcheck disable=SC2086
  if ! launch "$dir/gst.log" filesrc location="$mic" ! wavparse ! a.mic_sink \
       filesrc location="$ref" ! wavparse ! a.ref_sink \
       sonvelaec name=a $props ! wavenc ! filesink location="$dir/gst.wav"; then
    fail "$name: pipeline failed"; cat "$dir/gst.log" >&2; return
  fi
  raw "$dir/tool.wav" "$dir/tool.raw" && raw "$dir/tool_align.wav" "$dir/tool_align.raw" &&
    raw "$dir/gst.wav" "$dir/gst.raw" && raw "$mic" "$dir/mic.raw" || { fail "$name: no raw"; return; }
  local n lat offset
  n=$(samples "$dir/mic.raw")
  lat=$(element_latency "$rate")
  offset=$((lat - $(tool_latency "$rate")))
  if [ "$(samples "$dir/gst.raw")" != "$n" ]; then
    fail "$name: element gave $(samples "$dir/gst.raw") samples for $n"
  elif ! same "$dir/tool.raw" 0 "$dir/gst.raw" "$offset" $((n - offset)); then
    fail "$name: element output differs from the tool's (no --align, element $offset samples later)"
  elif ! same "$dir/tool_align.raw" 0 "$dir/gst.raw" "$lat" $((n - lat)); then
    fail "$name: element output after $lat samples differs from the tool's with --align"
  else
    echo "ok: $name ($n samples equal to the tool's, latency $lat samples)"
  fi
}

# Signals: the tool's demonstration conversation at both rates, cut versions, a 48 kHz copy and a
# stereo one.
for rate in 16000 8000; do
  bounded 60 "$work/demo$rate.log" "$tool" demo --rate "$rate" --out "$work/demo$rate" ||
    { cat "$work/demo$rate.log" >&2; exit 1; }
done
d16=$work/demo16000
d8=$work/demo8000
cut_wav() { # cut_wav IN SECONDS OUT RATE
  raw "$1" "$work/cut.raw"
  head -c $((2 * $4 * $2)) "$work/cut.raw" > "$work/cut_short.raw"
  launch "$work/cut.log" filesrc location="$work/cut_short.raw" ! \
    rawaudioparse format=pcm pcm-format=s16le sample-rate="$4" num-channels=1 ! wavenc ! \
    filesink location="$3" || { cat "$work/cut.log" >&2; exit 1; }
}
cut_wav "$d16/ref.wav" 7 "$work/ref16_short.wav" 16000
cut_wav "$d16/mic.wav" 9 "$work/mic16_short.wav" 16000

compare default16 16000 "$d16/mic.wav" "$d16/ref.wav" "" ""
compare default8 8000 "$d8/mic.wav" "$d8/ref.wav" "" ""
compare params16 16000 "$d16/mic.wav" "$d16/ref.wav" \
  "--suppression-level 2 --comfort-noise off --start-part 1 --coh-threshold 22000 --coh-band 8,17 --band-edges 5,17,28,32,45,56 --band-shifts 11,12,16,14,15,12,16 --clamp-bins 5,10" \
  "u8NlpLevel=2 u8CnEnable=0 u8StartPart=1 s16CohThr=22000 s16CohBinLo=8 s16CohBinHi=17 as16BandEdge=5,17,28,32,45,56 as16BandShift=11,12,16,14,15,12,16 s16ClampBinLo=5 s16ClampBinHi=10"
compare params8 8000 "$d8/mic.wav" "$d8/ref.wav" "--high-freq-mode 1 --hf-band 20,60" \
  "u8HighFreqMode=1 s16HfBinLo=20 s16HfBinHi=60"
compare short_ref 16000 "$d16/mic.wav" "$work/ref16_short.wav" "" ""
compare short_mic 16000 "$work/mic16_short.wav" "$d16/ref.wav" "" ""
if [ "$tool_has_frontend" = 1 ]; then
  compare frontend16 16000 "$d16/mic.wav" "$d16/ref.wav" "--ref-delay 40 --dc-block" \
    "ref-delay=40 dc-block=true"
  compare auto16 16000 "$d16/mic.wav" "$d16/ref.wav" "--ref-delay auto --drift auto" \
    "ref-delay=auto drift=auto"
else
  echo "note: the tool has no --ref-delay yet; the front-end options are compared once it has"
fi

# 48 kHz through audioresample, in and out.
for f in mic ref; do
  launch "$work/up.log" filesrc location="$d16/$f.wav" ! wavparse ! audioresample ! \
    audio/x-raw,rate=48000 ! wavenc ! filesink location="$work/${f}48.wav" ||
    { cat "$work/up.log" >&2; exit 1; }
done
if launch "$work/r48.log" filesrc location="$work/mic48.wav" ! wavparse ! audioresample ! a.mic_sink \
     filesrc location="$work/ref48.wav" ! wavparse ! audioresample ! a.ref_sink \
     sonvelaec name=a ! audioresample ! audio/x-raw,rate=48000 ! wavenc ! \
     filesink location="$work/out48.wav"; then
  raw "$work/out48.wav" "$work/out48.raw"
  raw "$work/mic48.wav" "$work/mic48.raw"
  got=$(samples "$work/out48.raw")
  want=$(samples "$work/mic48.raw")
  if [ $((got > want ? got - want : want - got)) -gt 480 ]; then
    fail "48 kHz: $got output samples for $want input samples"
  elif cmp -s "$work/out48.raw" <(head -c $((2 * got)) /dev/zero); then
    fail "48 kHz: the output is silent"
  else
    echo "ok: 48 kHz through audioresample ($got samples)"
  fi
else
  fail "48 kHz pipeline failed"; cat "$work/r48.log" >&2
fi

# Refused values: a warning naming the field and its range; the pipeline still runs.
# (gst-launch prints warnings only without -q)
if bounded 60 "$work/refused.log" gst-launch-1.0 filesrc location="$d16/mic.wav" ! wavparse ! a.mic_sink \
     filesrc location="$d16/ref.wav" ! wavparse ! a.ref_sink \
     sonvelaec name=a u8NlpLevel=3 ref-delay=900 ! fakesink &&
   grep -q 'u8NlpLevel = 3 refused at 16000 Hz: allowed 0..2' "$work/refused.log" &&
   grep -q 'ref-delay = "900" refused: allowed auto, off or 0..500 (ms)' "$work/refused.log"; then
  echo "ok: refused values are warnings naming the field and range"
else
  fail "refused values"; cat "$work/refused.log" >&2
fi

# Negotiation failures: the pipeline fails with the element's explanation.
launch "$work/stereo.log" audiotestsrc num-buffers=10 ! audio/x-raw,rate=16000,channels=2 ! \
  wavenc ! filesink location="$work/stereo.wav" || { cat "$work/stereo.log" >&2; exit 1; }
refuse() { # refuse NAME EXPECTED MIC REF
  if launch "$work/$1.log" filesrc location="$3" ! wavparse ! a.mic_sink \
       filesrc location="$4" ! wavparse ! a.ref_sink sonvelaec name=a ! fakesink; then
    fail "$1: the pipeline ran"
  elif grep -q "$2" "$work/$1.log"; then
    echo "ok: $1 refused ($2)"
  else
    fail "$1: no message '$2'"; cat "$work/$1.log" >&2
  fi
}
refuse stereo "mic_sink: takes mono audio, got 2 channels" "$work/stereo.wav" "$d16/ref.wav"
refuse rate48 "ref_sink: takes 8000 or 16000 Hz, got 48000 Hz" "$d16/mic.wav" "$work/ref48.wav"
refuse mismatch "both inputs must have the same rate" "$d16/mic.wav" "$d8/ref.wav"

if [ "$failures" -gt 0 ]; then
  echo "gstreamer_e2e: $failures failure(s)" >&2
  exit 1
fi
echo "gstreamer_e2e: all passed"
