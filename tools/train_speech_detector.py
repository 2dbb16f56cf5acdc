#!/usr/bin/python3
"""Trains Velmora's speech detector and writes src/measurement/SpeechModelWeights.cpp.

The detector judges the features of src/measurement/SpeechFeatures.cpp with a small neural
network (one hidden layer of tanh units, a logistic output). This script builds labelled
programmes from real recordings shipped in Debian packages (and synthetic voices), has
Velmora's own feature code measure them (the velmora-speech-features tool, built with
-DVELMORA_BUILD_TOOLS=ON), fits the network with numpy and writes its weights as C++.

    cmake -S . -B build -DVELMORA_BUILD_TOOLS=ON && cmake --build build --target velmora-speech-features
    /usr/bin/python3 tools/train_speech_detector.py build/tools/velmora-speech-features

Needs: python3-numpy, ffmpeg, espeak-ng and the recordings of pocketsphinx-testdata,
wesnoth-1.16-music, frozen-bubble-data, tuxtype-data, pingus-data, chromium-bsu-data,
lbreakout2-data, oxygen-sounds, sound-icons and sound-theme-freedesktop.

The recordings the tests evaluate on (EVALUATION below) are never used here: the tests build
their mixes from them, so what they measure is what the detector does on material it has not
seen.
"""
import os
import struct
import subprocess
import sys
import tempfile

import numpy as np

RATE = 16000
FRAME = 480  # 30 ms, the detector's decision grid
FEATURES = 39
HIDDEN = 24

PS = "/usr/share/pocketsphinx/test/data"
WESNOTH = "/usr/share/games/wesnoth/1.16/data/core/music"
FB = "/usr/share/games/frozen-bubble/snd"
TUX = "/usr/share/tuxtype/sounds"
FREEDESKTOP = "/usr/share/sounds/freedesktop/stereo"
PINGUS = "/usr/share/games/pingus/data/sounds"
# Pingus' sounds that are voices ("let's go", "oh no") are not effects.
PINGUS_EFFECTS = ("chink", "digger", "plop", "plop2", "splash", "tick", "ting")
BSU = "/usr/share/games/chromium-bsu/wav"
BSU_EFFECTS = ("boom", "exploBig", "exploPop", "exploStd", "life_add", "life_lose", "power")
LBREAKOUT = "/usr/share/games/lbreakout2/sounds"
# Its spoken cheers ("excellent", "damn") are voices.
LBREAKOUT_VOICES = ("dammit", "damn", "excellent", "verygood", "wontgiveup")
OXYGEN = "/usr/share/sounds"
SOUND_ICONS = "/usr/share/sounds/sound-icons"

# Kept for the tests (tests/measurement/SpeechEvaluationTests.cpp): never trained on.
EVALUATION = {
    "speech": [f"{PS}/librivox/sense_and_sensibility_01_austen_64kb-0920.wav",
               f"{PS}/librivox/sense_and_sensibility_01_austen_64kb-0930.wav",
               f"{PS}/cards/004.wav", f"{PS}/cards/005.wav",
               f"{PS}/goforward.raw", f"{PS}/numbers.raw", f"{PS}/something.raw"],
    "music": [f"{WESNOTH}/{n}.ogg" for n in ("battle-epic", "elvish-theme", "knalgan_theme",
                                             "the_king_is_dead", "frantic", "traveling_minstrels")]
    + [f"{FB}/frozen-mainzik-1p.ogg", f"{TUX}/chiptune2.ogg", f"{TUX}/amidst_the_raindrops.ogg"],
    "effects": [f"{TUX}/{n}.wav" for n in ("alarm", "bite", "buzz", "explosion", "laser", "pop",
                                           "splat", "tock", "run", "shieldsdown", "harp", "lose", "win")],
}

TRAIN_SPEECH = [f"{PS}/librivox/sense_and_sensibility_01_austen_64kb-{n}.wav" for n in ("0870", "0880", "0890")] + [
    f"{PS}/cards/00{n}.wav" for n in (1, 2, 3)]
# Sounds whose names say they are spoken ("front left") are left out of the effects.
TRAIN_EFFECTS_EXCLUDE = ("audio-channel-",)
VOICES = ["en", "en-us", "fr", "de", "es", "it", "nl", "pt", "pl", "sv"]
VARIANTS = ["", "+m1", "+m3", "+f1", "+f2", "+f4", "+klatt2"]
TEXTS = [
    "The committee met again on Tuesday, and after a long discussion it was agreed that the bridge "
    "would be repaired before the winter. Nobody seemed very pleased, but nobody objected either.",
    "Il faisait encore nuit quand nous sommes partis. La route longeait la rivière, et au loin on "
    "apercevait déjà les lumières du village où nous devions passer la journée.",
    "Am nächsten Morgen war der Himmel klar, und die Kinder liefen hinunter zum See, um zu sehen, "
    "ob das Boot die Nacht überstanden hatte.",
    "Cuando llegamos a la estación, el tren ya se había ido, así que decidimos caminar hasta el "
    "pueblo siguiente y buscar un lugar donde comer.",
    "Numbers matter less than the story they tell: forty two percent of the listeners said they "
    "had changed their minds after the second programme.",
    "Well, I'm not sure. Maybe we should wait and see what happens next week? Honestly, I think "
    "it's too early to say anything at all.",
]


def decode(path, tmp):
    """Mono float32 at 16 kHz through the ffmpeg command-line tool."""
    args = ["ffmpeg", "-v", "error", "-nostdin"]
    if path.endswith(".raw"):
        args += ["-f", "s16le", "-ar", "16000", "-ac", "1"]
    args += ["-i", path, "-ac", "1", "-ar", str(RATE), "-f", "f32le", "-"]
    data = subprocess.run(args, check=True, capture_output=True).stdout
    return np.frombuffer(data, dtype=np.float32).astype(np.float64)


def espeak(voice, text, tmp, speed):
    out = os.path.join(tmp, "voice.wav")
    subprocess.run(["espeak-ng", "-v", voice, "-s", str(speed), "-w", out, text], check=True, capture_output=True)
    return decode(out, tmp)


def trim(x):
    """The stretch from the first to the last 30 ms frame within 25 dB of the loudest one: over the
    room noise of the quieter recordings."""
    n = len(x) // FRAME
    if n == 0:
        return x
    level = 10 * np.log10(np.mean(x[: n * FRAME].reshape(n, FRAME) ** 2, axis=1) + 1e-12)
    keep = np.nonzero(level >= level.max() - 25)[0]
    return x[keep[0] * FRAME:(keep[-1] + 1) * FRAME]


def rms(x):
    return np.sqrt(np.mean(x ** 2) + 1e-20)


def coloured_noise(n, kind, rng):
    white = rng.standard_normal(n)
    if kind == "white":
        return white
    spectrum = np.fft.rfft(white)
    f = np.maximum(np.fft.rfftfreq(n, 1 / RATE), 20.0)
    spectrum /= np.sqrt(f) if kind == "pink" else f
    return np.fft.irfft(spectrum, n)


def write_wav(path, x):
    data = x.astype("<f4").tobytes()
    with open(path, "wb") as f:
        f.write(b"RIFF" + struct.pack("<I", 36 + len(data)) + b"WAVEfmt ")
        f.write(struct.pack("<IHHIIHH", 16, 3, 1, RATE, RATE * 4, 4, 32))
        f.write(b"data" + struct.pack("<I", len(data)) + data)


def features(tool, x, tmp):
    wav, dump = os.path.join(tmp, "mix.wav"), os.path.join(tmp, "mix.f32")
    write_wav(wav, x)
    subprocess.run([tool, wav, dump], check=True)
    rows = np.fromfile(dump, dtype="<f4").reshape(-1, FEATURES + 1)
    return rows[:, :FEATURES], rows[:, FEATURES] > 0.5


def frame_labels(mask, frames):
    n = min(frames, len(mask) // FRAME)
    labels = np.zeros(frames, dtype=bool)
    labels[:n] = mask[: n * FRAME].reshape(n, FRAME).mean(axis=1) >= 0.5
    return labels


class Sources:
    def __init__(self, tmp, rng):
        self.rng = rng
        self.speech = [trim(decode(p, tmp)) for p in TRAIN_SPEECH]
        for i, voice in enumerate(VOICES):
            for j, variant in enumerate(VARIANTS):
                text = TEXTS[(i + j) % len(TEXTS)]
                self.speech.append(trim(espeak(voice + variant, text, tmp, 140 + 15 * ((i + j) % 4))))
        evaluation = set(EVALUATION["music"])
        music = sorted(os.path.join(WESNOTH, n) for n in os.listdir(WESNOTH) if n.endswith(".ogg"))
        music += [f"{FB}/introzik.ogg", f"{FB}/frozen-mainzik-2p.ogg", f"{TUX}/tuxi.ogg",
                  f"{BSU}/music_game.wav", f"{BSU}/music_menu.wav"]
        self.music_names = [p for p in music if p not in evaluation]
        self.music = [decode(p, tmp) for p in self.music_names]
        effects = sorted(os.path.join(FREEDESKTOP, n) for n in os.listdir(FREEDESKTOP)
                         if not n.startswith(TRAIN_EFFECTS_EXCLUDE))
        effects += sorted(os.path.join(FB, n) for n in os.listdir(FB) if "zik" not in n)
        effects += [f"{PINGUS}/{n}.wav" for n in PINGUS_EFFECTS]
        effects += [f"{BSU}/{n}.wav" for n in BSU_EFFECTS]
        effects += sorted(os.path.join(LBREAKOUT, n) for n in os.listdir(LBREAKOUT)
                          if n.endswith(".wav") and n[:-4] not in LBREAKOUT_VOICES)
        effects += sorted(os.path.join(OXYGEN, n) for n in os.listdir(OXYGEN) if n.startswith("Oxygen-"))
        effects += sorted(os.path.join(SOUND_ICONS, n) for n in os.listdir(SOUND_ICONS) if n.endswith(".wav"))
        self.effects_names = effects
        self.effects = [decode(p, tmp) for p in effects]

    def voice(self):
        x = self.speech[self.rng.integers(len(self.speech))]
        # A slightly different speaker: the same recording played 8 % slower or faster.
        speed = self.rng.uniform(0.92, 1.08)
        positions = np.arange(0, len(x) - 1, speed)
        return np.interp(positions, np.arange(len(x)), x)

    def music_excerpt(self, n):
        x = self.music[self.rng.integers(len(self.music))]
        if len(x) <= n:
            x = np.tile(x, n // len(x) + 1)
        start = self.rng.integers(len(x) - n + 1)
        return x[start:start + n].copy()

    def synthetic_effect(self):
        """An impact, a noise burst, a beep or a chirp: events the recordings have too few of."""
        rng = self.rng
        n = int(rng.uniform(0.1, 2.5) * RATE)
        t = np.arange(n) / RATE
        kind = rng.integers(4)
        if kind == 0:  # impact or explosion: coloured noise with a fast attack and a decay
            x = coloured_noise(n, ["white", "pink", "brown"][rng.integers(3)], rng)
            x *= np.exp(-t / rng.uniform(0.05, 0.8))
        elif kind == 1:  # noise bursts at a random rate, like steps, rain or a machine
            x = coloured_noise(n, ["white", "pink"][rng.integers(2)], rng)
            rate = rng.uniform(1.5, 12)
            x *= np.exp(-np.mod(t, 1 / rate) / rng.uniform(0.01, 0.1))
        elif kind == 2:  # beeps and alarms
            f = rng.uniform(300, 3000)
            x = np.sign(np.sin(2 * np.pi * f * t)) if rng.random() < 0.5 else np.sin(2 * np.pi * f * t)
            x *= (np.mod(t, rng.uniform(0.1, 0.6)) < rng.uniform(0.05, 0.3))
        else:  # chirps and sweeps
            f0, f1 = rng.uniform(100, 1500), rng.uniform(200, 4000)
            phase = 2 * np.pi * np.cumsum(f0 + (f1 - f0) * np.mod(t * rng.uniform(0.5, 4), 1)) / RATE
            x = np.sin(phase) + 0.3 * np.sin(2 * phase)
        return x

    def effects_bed(self, n):
        out = np.zeros(n)
        at = 0
        while at < n:
            if self.rng.random() < 0.4:
                e = self.synthetic_effect()
            else:
                e = self.effects[self.rng.integers(len(self.effects))]
                # The same sound pitched up or down.
                speed = self.rng.uniform(0.6, 1.6)
                e = np.interp(np.arange(0, len(e) - 1, speed), np.arange(len(e)), e)
            e = e * self.rng.uniform(0.2, 1.0) / (np.abs(e).max() + 1e-9)
            take = min(len(e), n - at)
            out[at:at + take] += e[:take]
            at += take + int(self.rng.uniform(0.0, 1.5) * RATE)
        return out

    def ambience(self, n):
        kind = ["white", "pink", "brown"][self.rng.integers(3)]
        return coloured_noise(n, kind, self.rng)


def programme(src, kind, seconds=40.0):
    """One labelled programme: samples and, per sample, whether speech is being spoken."""
    rng = src.rng
    n = int(seconds * RATE)
    speech = np.zeros(n)
    mask = np.zeros(n, dtype=bool)
    if kind in ("speech", "speech+music", "speech+noise", "speech+effects", "documentary"):
        at = int(rng.uniform(0.0, 2.0) * RATE)
        gap = (2.0, 5.0) if kind == "documentary" else (0.3, 3.0)
        while at < n:
            v = src.voice()
            v = v / rms(v) * 0.1
            take = min(len(v), n - at)
            speech[at:at + take] = v[:take]
            mask[at:at + take] = True
            at += take + int(rng.uniform(*gap) * RATE)
    if kind == "speech":
        bed = src.ambience(n) * 10 ** (rng.uniform(-80, -50) / 20)
        x = speech * 10 ** (rng.uniform(-12, 6) / 20) + bed * 0.1
    elif kind in ("speech+music", "speech+noise", "speech+effects"):
        bed = {"speech+music": src.music_excerpt, "speech+noise": src.ambience,
               "speech+effects": src.effects_bed}[kind](n)
        bed = bed / rms(bed) * 0.1 * 10 ** (-rng.uniform(6, 24) / 20)
        x = speech + bed
    elif kind == "documentary":
        # The bed is ducked under the voice and swells between the lines.
        bed = src.music_excerpt(n)
        bed = bed / rms(bed) * 0.1
        duck = np.where(np.convolve(mask, np.ones(RATE // 2) / (RATE // 2), mode="same") > 0, 1.0, 0.0)
        duck = np.convolve(duck, np.ones(RATE // 4) / (RATE // 4), mode="same")
        low, high = -rng.uniform(10, 22), rng.uniform(-4, 4)
        gain = 10 ** ((duck * low + (1 - duck) * high) / 20)
        x = speech + bed * gain
    elif kind == "music":
        x = src.music_excerpt(n)
        x = x / rms(x) * 0.1 * 10 ** (rng.uniform(-12, 6) / 20)
    elif kind == "effects":
        x = src.effects_bed(n) + src.ambience(n) * 10 ** (rng.uniform(-75, -30) / 20)
    else:  # noise and ambience
        x = src.ambience(n) * 10 ** (rng.uniform(-40, -15) / 20)
    return np.clip(x, -1.0, 1.0), mask


def fit(x, y, rng, epochs=80):
    mean = x.mean(axis=0)
    scale = 1.0 / np.maximum(x.std(axis=0), 1e-6)
    z = (x - mean) * scale
    w1 = rng.standard_normal((HIDDEN, FEATURES)) * np.sqrt(1.0 / FEATURES)
    b1 = np.zeros(HIDDEN)
    w2 = rng.standard_normal(HIDDEN) * np.sqrt(1.0 / HIDDEN)
    b2 = 0.0
    params = [w1, b1, w2, np.array([b2])]
    moments = [np.zeros_like(p) for p in params]
    squares = [np.zeros_like(p) for p in params]
    # Whatever their share of the frames, a frame wrongly called speech costs half as much again
    # as a missed one: music and effects must not pass for dialogue.
    weight = np.where(y, 0.4 / max(y.mean(), 1e-6), 0.6 / max(1 - y.mean(), 1e-6))
    step, batch, t = 0.003, 256, 0
    for epoch in range(epochs):
        order = rng.permutation(len(z))
        for start in range(0, len(z), batch):
            idx = order[start:start + batch]
            zb, yb, wb = z[idx], y[idx], weight[idx]
            h = np.tanh(zb @ params[0].T + params[1])
            p = 1 / (1 + np.exp(-(h @ params[2] + params[3][0])))
            g = (p - yb) * wb / len(idx)
            grads = [None] * 4
            grads[2] = h.T @ g + 1e-4 * params[2]
            grads[3] = np.array([g.sum()])
            gh = np.outer(g, params[2]) * (1 - h ** 2)
            grads[0] = gh.T @ zb + 1e-4 * params[0]
            grads[1] = gh.sum(axis=0)
            t += 1
            for i in range(4):
                moments[i] = 0.9 * moments[i] + 0.1 * grads[i]
                squares[i] = 0.999 * squares[i] + 0.001 * grads[i] ** 2
                mhat = moments[i] / (1 - 0.9 ** t)
                vhat = squares[i] / (1 - 0.999 ** t)
                params[i] -= step * mhat / (np.sqrt(vhat) + 1e-8)
    return mean, scale, params


def predict(model, x):
    mean, scale, (w1, b1, w2, b2) = model
    h = np.tanh(((x - mean) * scale) @ w1.T + b1)
    return 1 / (1 + np.exp(-(h @ w2 + b2[0])))


def floats(values, per_line=8):
    items = [f"{v:.9g}f" for v in np.asarray(values, dtype=np.float64).ravel()]
    lines = [", ".join(items[i:i + per_line]) for i in range(0, len(items), per_line)]
    return "{\n        " + ",\n        ".join(lines) + "}"


def write_weights(path, model, src, report):
    mean, scale, (w1, b1, w2, b2) = model
    sources = "\n".join(f"//   {p}" for p in TRAIN_SPEECH + src.music_names + src.effects_names)
    voices = ", ".join(VOICES)
    held = "\n".join(f"//   {p}" for group in EVALUATION.values() for p in group)
    text = f"""// Generated by tools/train_speech_detector.py: do not edit, train again.
//
// Trained on programmes mixed from these recordings (Debian packages pocketsphinx-testdata,
// wesnoth-1.16-music, frozen-bubble-data, tuxtype-data, pingus-data, chromium-bsu-data,
// lbreakout2-data, oxygen-sounds, sound-icons, sound-theme-freedesktop):
{sources}
// with speech synthesised by espeak-ng ({voices}; variants {", ".join(v or "default" for v in VARIANTS)}),
// generated white, pink and brown noise, impacts, bursts, beeps and chirps, each voice also played
// 8 % slower or faster and each effect pitched up or down.
//
// Held out for the evaluation in the tests, never trained on:
{held}
//
{report}
#include "measurement/SpeechDetector.h"

namespace velmora {{

const SpeechModelWeights speechModelWeights = {{
    {floats(mean)},
    {floats(scale)},
    {floats(w1)},
    {floats(b1)},
    {floats(w2)},
    {b2[0]:.9g}f,
}};

}}  // namespace velmora
"""
    with open(path, "w") as f:
        f.write(text)


def main():
    if len(sys.argv) < 2:
        sys.exit("usage: train_speech_detector.py <velmora-speech-features> [output.cpp]")
    tool = sys.argv[1]
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    output = sys.argv[2] if len(sys.argv) > 2 else os.path.join(root, "src/measurement/SpeechModelWeights.cpp")
    rng = np.random.default_rng(1770)
    kinds = (["speech"] * 8 + ["speech+music"] * 24 + ["speech+noise"] * 6 + ["speech+effects"] * 6
             + ["documentary"] * 16 + ["music"] * 40 + ["effects"] * 45 + ["noise"] * 8)
    with tempfile.TemporaryDirectory() as tmp:
        src = Sources(tmp, rng)
        xs, ys, groups = [], [], []
        for i, kind in enumerate(kinds):
            x, mask = programme(src, kind)
            f, audible = features(tool, x, tmp)
            labels = frame_labels(mask, len(f))
            keep = audible  # silence is decided before the network
            xs.append(f[keep])
            ys.append(labels[keep])
            groups.append(np.full(keep.sum(), i))
    x, y, g = np.concatenate(xs), np.concatenate(ys), np.concatenate(groups)
    # Every fifth programme checks the fit; the weights written come from all of them.
    check = g % 5 == 4
    model = fit(x[~check], y[~check], rng)
    p = predict(model, x[check])
    # The detector decides on the mean probability over a few frames (SpeechDetector.h); this
    # is the single frame's score, on programmes left out of this fit.
    right = np.mean((p >= 0.5) == y[check]) * 100
    report = f"// Held-out programmes: {right:.1f} % of frames right at 0.5."
    print(report)
    model = fit(x, y, rng)
    write_weights(output, model, src, report)
    print("wrote", output)


if __name__ == "__main__":
    main()
