#!/usr/bin/env python3
"""Draws a run of the echo canceller: levels of the microphone, reference and output signals over
time, and under them the internal states from the block trace written by `sonvel-aec --trace`
(or by `sonvel-aec demo`).

    python3 tools/plot_trace.py DEMO_DIR [-o out.png]
    python3 tools/plot_trace.py --trace t.csv --mic mic.wav --ref ref.wav --out out.wav -o t.png

DEMO_DIR is a directory written by `sonvel-aec demo` (trace.csv, mic.wav, ref.wav, out.wav).
The audio files may be in any format the tool reads (16-bit, 32-bit or float WAV, FLAC ...); they
are optional: without them only the state panels are drawn. The front end's delay estimate, the
delay applied to the reference and the estimate's confidence get a panel of their own when the
trace carries them. Needs python3 with numpy, matplotlib and soundfile (Debian: python3-numpy,
python3-matplotlib, python3-soundfile).
"""
import argparse
import csv
import os
import sys

try:
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    import numpy as np
    import soundfile
except ImportError as missing:
    sys.exit(f"plot_trace: {missing}; install python3-numpy, python3-matplotlib and "
             "python3-soundfile")

WINDOW_S = 0.02  # level window

# Flags of the trace, drawn as lanes from top to bottom.
FLAGS = [
    ("far_active", "far end active"),
    ("near_active", "near-end level detector"),
    ("echo_state", "echo present"),
    ("near_state", "near-end speech"),
    ("diverged", "filter output discarded"),
    ("mute", "output muted"),
    ("comfort_noise", "comfort noise"),
    ("pass_through", "pass-through"),
]


def fail(message):
    sys.exit(f"plot_trace: {message}")


def read_audio(path):
    """Samples scaled to 16-bit units (first channel) and the rate, through libsndfile."""
    try:
        data, rate = soundfile.read(path, dtype="float64", always_2d=True)
    except (RuntimeError, OSError, soundfile.LibsndfileError) as e:
        fail(f"{path}: cannot read audio ({e})")
    return data[:, 0] * 32768.0, rate


def levels_dbfs(x, rate, shift_s=0.0):
    n = max(1, int(WINDOW_S * rate))
    blocks = len(x) // n
    e = (x[: blocks * n].reshape(blocks, n) ** 2).mean(axis=1)
    t = np.arange(blocks) * n / rate - shift_s
    return t, 10.0 * np.log10(np.maximum(e, 1e-3) / 32768.0**2)


def read_trace(path):
    not_trace = f"{path}: not a trace written by sonvel-aec"
    try:
        with open(path, newline="") as f:
            rows = list(csv.DictReader(f))
    except OSError as e:
        fail(f"{path}: {e.strerror}")
    except (UnicodeDecodeError, csv.Error):
        fail(not_trace)
    if not rows:
        fail(f"{path}: no rows")
    try:
        trace = {k: np.array([float(r[k]) for r in rows]) for k in rows[0]}
    except (TypeError, ValueError):
        fail(not_trace)
    if "time_s" not in trace:
        fail(not_trace)
    return trace


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("dir", nargs="?", help="directory written by 'sonvel-aec demo'")
    ap.add_argument("--trace", help="trace CSV")
    ap.add_argument("--mic", help="microphone WAV")
    ap.add_argument("--ref", help="reference WAV")
    ap.add_argument("--out", help="output WAV")
    ap.add_argument("--latency-ms", type=float, default=0.0,
                    help="delay of the output WAV to remove (18 for 'process' output without --align)")
    ap.add_argument("-o", "--png", help="PNG to write (default: next to the trace)")
    ap.add_argument("--title", default=None)
    a = ap.parse_args()
    if a.dir:
        if not os.path.isdir(a.dir):
            fail(f"{a.dir}: {'no such directory' if not os.path.exists(a.dir) else 'not a directory'}")
        a.trace = a.trace or os.path.join(a.dir, "trace.csv")
        a.mic = a.mic or os.path.join(a.dir, "mic.wav")
        a.ref = a.ref or os.path.join(a.dir, "ref.wav")
        a.out = a.out or os.path.join(a.dir, "out.wav")
    if not a.trace:
        ap.error("give a demo directory or --trace")
    png = a.png or os.path.splitext(a.trace)[0] + ".png"
    tr = read_trace(a.trace)
    t = tr["time_s"]
    for path in (a.mic, a.ref, a.out):
        if path and a.dir is None and not os.path.exists(path):
            fail(f"{path}: no such file")
    audio = [(path, label, colour, shift)
             for path, label, colour, shift in ((a.ref, "reference (loudspeaker)", "tab:orange", 0.0),
                                                (a.mic, "microphone", "tab:blue", 0.0),
                                                (a.out, "output", "tab:green", a.latency_ms / 1000.0))
             if path and os.path.isfile(path)]
    delays = "est_delay_ms" in tr

    panels = (["audio"] if audio else []) + ["levels", "flags", "gains"] + (["delay"] if delays else [])
    ratios = {"audio": 3, "levels": 2, "flags": 3, "gains": 2, "delay": 2}
    fig, axes = plt.subplots(len(panels), 1, figsize=(12, 2.0 + 2.0 * len(panels)), sharex=True,
                             gridspec_kw={"height_ratios": [ratios[p] for p in panels]})
    axes = dict(zip(panels, axes))
    if audio:
        ax = axes["audio"]
        for path, label, colour, shift in audio:
            x, rate = read_audio(path)
            tt, lv = levels_dbfs(x, rate, shift)
            ax.plot(tt, lv, color=colour, lw=0.8, label=label)
        ax.set_ylabel("level, dBFS\n(20 ms RMS)")
        ax.set_ylim(-90, 0)
        ax.legend(loc="lower left", ncol=3, fontsize=9)
        ax.grid(alpha=0.3)

    ax = axes["levels"]
    ax.plot(t, tr["far_level_dbfs"], color="tab:orange", lw=0.8, label="far-end block level")
    ax.plot(t, tr["near_level_dbfs"], color="tab:blue", lw=0.8, label="near-end block level")
    ax.set_ylabel("canceller's\nlevels, dBFS")
    ax.legend(loc="lower left", ncol=2, fontsize=9)
    ax.grid(alpha=0.3)

    ax = axes["flags"]
    for i, (key, label) in enumerate(FLAGS):
        base = len(FLAGS) - 1 - i
        ax.fill_between(t, base, base + 0.8 * tr[key], step="post", alpha=0.7, lw=0)
    ax.set_yticks([len(FLAGS) - 1 - i + 0.4 for i in range(len(FLAGS))])
    ax.set_yticklabels([label for _, label in FLAGS], fontsize=9)
    ax.set_ylim(-0.2, len(FLAGS))

    ax = axes["gains"]
    ax.plot(t, tr["band_gain"], lw=0.8, color="tab:purple", label="echo-band gain")
    ax.plot(t, tr["incoherence"], lw=0.8, color="tab:gray", label="mean incoherence")
    ax.set_ylim(0, 1.05)
    ax.set_ylabel("gain / incoherence")
    ax2 = ax.twinx()
    ax2.plot(t, tr["overdrive"], lw=1.0, color="tab:red", label="overdrive (right)")
    ax2.set_ylabel("overdrive")
    lines = ax.get_lines() + ax2.get_lines()
    ax.legend(lines, [l.get_label() for l in lines], loc="upper left", ncol=3, fontsize=9)
    ax.grid(alpha=0.3)

    if delays:
        ax = axes["delay"]
        est = np.where(tr["est_delay_ms"] >= 0, tr["est_delay_ms"], np.nan)
        ax.plot(t, est, lw=1.0, color="tab:blue", label="estimated echo delay")
        ax.plot(t, tr["applied_delay_ms"], lw=1.0, color="tab:green", label="delay applied")
        ax.set_ylabel("front end,\nms")
        ax2 = ax.twinx()
        ax2.plot(t, tr["delay_confidence"], lw=0.8, color="tab:gray", label="confidence (right)")
        ax2.set_ylim(0, 1.05)
        ax2.set_ylabel("confidence")
        lines = ax.get_lines() + ax2.get_lines()
        ax.legend(lines, [l.get_label() for l in lines], loc="lower right", ncol=3, fontsize=9)
        ax.grid(alpha=0.3)
    axes[panels[-1]].set_xlabel("time, s")

    fig.suptitle(a.title or f"sonvel-aec run: {os.path.basename(os.path.dirname(os.path.abspath(a.trace)))}")
    fig.tight_layout()
    try:
        fig.savefig(png, dpi=90)
    except OSError as e:
        fail(f"{png}: cannot write ({e.strerror})")
    print(f"wrote {png}")


if __name__ == "__main__":
    main()
