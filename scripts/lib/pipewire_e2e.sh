#!/usr/bin/env bash
# End-to-end test of the PipeWire plug-in: a private, headless PipeWire daemon (its own
# XDG_RUNTIME_DIR, a minimal configuration, no session bus, no session manager) with a dummy
# driver, a null audio sink as the loudspeaker and module-echo-cancel loading libspa-aec-sonvel.so
# through SPA_PLUGIN_DIR. One pw-play plays a generated two-channel file (microphone, reference)
# into the module's capture and sink streams, pw-record records its source together with the
# microphone, pw-link joins them.
# Checks: far-end-only echo reduced by at least 20 dB, near-end-only level within 2 dB, and no
# error or xrun in the daemon's log. Runs with the graph at 16000 Hz and at 48000 Hz, the module at
# 16000 Hz both times. Every process started here is ended by its pid, with a timeout.
# Usage: bash scripts/lib/pipewire_e2e.sh BUILD_DIR   (a native build with the plug-in built)
# Installs pipewire, pipewire-bin and libspa-0.2-dev when they are missing. A run whose miss the
# daemon's log explains by late clients or by the module dropping stream data (a busy machine) is
# repeated, up to three runs per rate.
# Environment: SONVEL_PW_AEC_LIBRARY overrides library.name (default aec/libspa-aec-sonvel),
#              SONVEL_PW_E2E_RATES the graph rates (default "16000 48000"),
#              SONVEL_PW_E2E_DEBUG the daemon's PIPEWIRE_DEBUG (default 3,mod.echo-cancel:4),
#              KEEP_WORK=1 keeps the working directory.
set -euo pipefail

build=${1:?usage: pipewire_e2e.sh BUILD_DIR}
build=$(cd "$build" && pwd)
plugin=$build/integrations/pipewire/libspa-aec-sonvel.so
signals=$build/integrations/pipewire/sonvel_pw_e2e_signals
aec_library=${SONVEL_PW_AEC_LIBRARY:-aec/libspa-aec-sonvel}
min_reduction_db=20
max_near_change_db=2

for f in "$plugin" "$signals"; do
  [ -e "$f" ] || { echo "pipewire_e2e: $f is missing (build the native configuration first)" >&2; exit 1; }
done
die() {
  echo "pipewire_e2e: $*" >&2
  exit 1
}
source "$(dirname "${BASH_SOURCE[0]}")/packages.sh"
ensure_packages pipewire pipewire-bin libspa-0.2-dev pkg-config
for tool in pipewire pw-play pw-record pw-link pw-cli pkg-config; do
  command -v "$tool" > /dev/null || die "'$tool' not found (apt-get install pipewire pipewire-bin libspa-0.2-dev)"
done
system_plugins=$(pkg-config --variable=plugindir libspa-0.2)

work=$(mktemp -d)
pids=()

# stop PID: SIGTERM, up to 5 s, then SIGKILL; the process is always reaped.
stop() {
  local pid=$1 i
  kill -0 "$pid" 2> /dev/null || { wait "$pid" 2> /dev/null || true; return 0; }
  kill -TERM "$pid" 2> /dev/null || true
  for i in $(seq 50); do
    kill -0 "$pid" 2> /dev/null || break
    sleep 0.1
  done
  kill -KILL "$pid" 2> /dev/null || true
  wait "$pid" 2> /dev/null || true
}

cleanup() {
  local pid
  for pid in "${pids[@]}"; do stop "$pid"; done
  pids=()
  if [ "${KEEP_WORK:-0}" = 1 ]; then echo "pipewire_e2e: working directory kept: $work"; else rm -rf "$work"; fi
}
trap cleanup EXIT

# wait_for SECONDS DESCRIPTION COMMAND...: polls COMMAND every 0.1 s.
wait_for() {
  local seconds=$1 what=$2 i
  shift 2
  for i in $(seq $((seconds * 10))); do
    "$@" > /dev/null 2>&1 && return 0
    sleep 0.1
  done
  echo "pipewire_e2e: timed out after ${seconds}s waiting for $what" >&2
  return 1
}

# has_port NAME: a port of that name (node:port) is in the graph.
has_port() { timeout 5 pw-link -io | grep -qx "$1"; }

link() {
  timeout 10 pw-link "$1" "$2" || { echo "pipewire_e2e: cannot link $1 -> $2" >&2; return 1; }
}

# The daemon's configuration for one graph rate.
write_config() {
  local rate=$1 latency=$2
  cat << CONF
context.properties = {
    core.daemon = true
    core.name = pipewire-0
    support.dbus = false
    link.max-buffers = 16
    default.clock.rate = $rate
    default.clock.allowed-rates = [ $rate ]
    default.clock.min-quantum = 16
    clock.power-of-two-quantum = false
    log.level = 3
}
context.spa-libs = {
    audio.convert.* = audioconvert/libspa-audioconvert
    support.* = support/libspa-support
}
context.modules = [
    { name = libpipewire-module-protocol-native }
    { name = libpipewire-module-profiler }
    { name = libpipewire-module-metadata }
    { name = libpipewire-module-spa-node-factory }
    { name = libpipewire-module-client-node }
    { name = libpipewire-module-access args = { } }
    { name = libpipewire-module-adapter }
    { name = libpipewire-module-link-factory }
    { name = libpipewire-module-echo-cancel
        args = {
            library.name = $aec_library
            audio.rate = 16000
            audio.channels = 1
            audio.position = [ MONO ]
            $latency
            aec.args = { ref-delay = auto dc-block = on }
            capture.props = { adapter.auto-port-config = { mode = dsp position = preserve } }
            source.props = { node.name = e2e-ec-source adapter.auto-port-config = { mode = dsp position = preserve } }
            sink.props = { node.name = e2e-ec-sink adapter.auto-port-config = { mode = dsp position = preserve } }
            playback.props = { adapter.auto-port-config = { mode = dsp position = preserve } }
        }
    }
]
stream.properties = {
    adapter.auto-port-config = { mode = dsp position = preserve }
}
context.objects = [
    { factory = spa-node-factory
        args = {
            factory.name = support.node.driver
            node.name = e2e-dummy-driver
            priority.driver = 20000
        }
    }
    { factory = adapter
        args = {
            factory.name = support.null-audio-sink
            node.name = e2e-speaker
            media.class = Audio/Sink
            audio.position = [ MONO ]
            adapter.auto-port-config = { mode = dsp position = preserve }
        }
    }
]
CONF
}

run_case() {
  local rate=$1 latency=${2:-} dir=$work/graph-$rate
  mkdir -p "$dir/runtime" "$dir/config" "$dir/plugins/aec"
  chmod 700 "$dir/runtime"
  # Our plug-in first, then the system's plugins (SPA_PLUGIN_DIR takes a list).
  ln -s "$plugin" "$dir/plugins/aec/libspa-aec-sonvel.so"
  write_config "$rate" "$latency" > "$dir/config/pipewire.conf"

  echo "== graph at $rate Hz, module at 16000 Hz${latency:+, $latency}"
  local log=$dir/daemon.log
  export XDG_RUNTIME_DIR=$dir/runtime PIPEWIRE_RUNTIME_DIR=$dir/runtime PIPEWIRE_REMOTE=pipewire-0
  export SPA_PLUGIN_DIR=$dir/plugins:$system_plugins
  unset DBUS_SESSION_BUS_ADDRESS PIPEWIRE_DEBUG PIPEWIRE_CONFIG_DIR
  # The module's own debug messages say when it drops or pads one of its streams.
  PIPEWIRE_DEBUG=${SONVEL_PW_E2E_DEBUG:-3,mod.echo-cancel:4} pipewire -c "$dir/config/pipewire.conf" > "$log" 2>&1 &
  local daemon=$!
  pids+=("$daemon")
  if ! wait_for 10 "the daemon's socket" test -S "$dir/runtime/pipewire-0" ||
     ! wait_for 10 "the echo-cancel source" has_port e2e-ec-source:capture_MONO; then
    fail_case "$log"
    return 1
  fi
  timeout 5 pw-link -io > "$dir/ports-before.txt" || true

  # The recorder takes the canceller's output (FL) and the microphone as the module gets it (FR).
  pw-record --rate 16000 --channels 2 --channel-map FL,FR --format s16 --target 0 \
    -P '{ node.name = e2e-recorder adapter.auto-port-config = { mode = dsp position = preserve } }' \
    "$dir/out.wav" > "$dir/record.log" 2>&1 &
  local recorder=$!
  pids+=("$recorder")
  pw-play --target 0 \
    -P '{ node.name = e2e-player adapter.auto-port-config = { mode = dsp position = preserve } }' \
    "$work/pair.wav" > "$dir/play.log" 2>&1 &
  local player=$!
  pids+=("$player")
  if ! wait_for 10 "the recorder's ports" has_port e2e-recorder:input_FR ||
     ! wait_for 10 "the player's ports" has_port e2e-player:output_FR ||
     ! link e2e-ec-source:capture_MONO e2e-recorder:input_FL ||
     ! link e2e-player:output_FL e2e-recorder:input_FR ||
     ! link e2e-player:output_FL echo-cancel-capture:input_MONO ||
     ! link e2e-player:output_FR e2e-ec-sink:playback_MONO ||
     ! link echo-cancel-playback:output_MONO e2e-speaker:playback_MONO; then
    timeout 5 pw-link -io >&2 || true
    fail_case "$log"
    return 1
  fi
  # The file lasts 15 s; allow three times that.
  local i
  for i in $(seq 450); do
    kill -0 "$player" 2> /dev/null || break
    sleep 0.1
  done
  if kill -0 "$player" 2> /dev/null; then
    echo "pipewire_e2e: pw-play did not finish within 45 s" >&2
    fail_case "$log"
    return 1
  fi
  sleep 1
  kill -INT "$recorder" 2> /dev/null || true
  stop "$recorder"
  stop "$player"
  stop "$daemon"
  pids=()

  if grep -v '^\[D\]' "$log" | grep -E '^\[E\]|xrun'; then
    echo "pipewire_e2e: the daemon's log shows errors or xruns" >&2
    fail_case "$log"
    return 1
  fi
  local late
  late=$(grep -cE 'client too slow|^\[D\].*(ringbuffer xrun|out of (capture|sink) buffers)' "$log" || true)
  [ "$late" = 0 ] || echo "note: late clients or module stream drops: $late (a busy machine)"
  if ! "$signals" measure "$work/pair.wav" "$dir/out.wav" "$min_reduction_db" "$max_near_change_db"; then
    # A client that misses its cycle makes the module drop part of one of its streams, which moves
    # the echo against the reference; such a run says little about the canceller: try again.
    if [ "$late" != 0 ]; then
      echo "note: the drops can explain the miss; running again"
      return 2
    fi
    fail_case "$log"
    return 1
  fi
}

fail_case() {
  echo "---- daemon log ($1) ----" >&2
  cat "$1" >&2 || true
  echo "---- end of daemon log ----" >&2
}

"$signals" generate "$work/pair.wav"
status=0
for rate in ${SONVEL_PW_E2E_RATES:-16000 48000}; do
  for attempt in 1 2 3; do
    result=0
    # First with the 10 ms blocks the plug-in asks for; when a busy machine spoiled that run, with
    # 40 ms blocks (the module hands four frames per call), whose longer cycles miss less often.
    latency=
    [ $attempt = 1 ] || latency="node.latency = 640/16000"
    run_case "$rate" "$latency" || result=$?
    for pid in "${pids[@]}"; do stop "$pid"; done
    pids=()
    rm -rf "$work/graph-$rate.$attempt"
    mv "$work/graph-$rate" "$work/graph-$rate.$attempt"
    [ $result = 2 ] || break
  done
  if [ $result != 0 ]; then
    [ $result = 2 ] && fail_case "$work/graph-$rate.$attempt/daemon.log"
    status=1
  fi
done
[ $status = 0 ] && echo "pipewire_e2e: passed at graph rates 16000 and 48000 Hz"
exit $status
