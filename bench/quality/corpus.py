"""The corpus: sounds that are hard for a coder, made by formulas alone, the same every time."""

import numpy

SECONDS = 5


def _time(rate):
    return numpy.arange(int(SECONDS * rate)) / rate


def _filtered(noise, rate, low, high):
    spectrum = numpy.fft.rfft(noise)
    frequencies = numpy.fft.rfftfreq(len(noise), 1 / rate)
    return numpy.fft.irfft(spectrum * ((frequencies >= low) & (frequencies <= high)), len(noise))


def _normal(sound, peak=0.7):
    return sound * (peak / numpy.abs(sound).max())


def _stereo(left, right=None):
    return numpy.stack([left, left if right is None else right])


def _strike(rate, length, decay, random, low, high):
    return _filtered(random.normal(size=length), rate, low, high) * numpy.exp(-numpy.arange(length) / (decay * rate))


def _percussion(rate, random, spacing, decay):
    sound = numpy.zeros(int(SECONDS * rate))
    at = 0.0
    while at < SECONDS - 0.3:
        low = random.choice([80, 400, 2000, 5000])
        hit = _strike(rate, int(0.25 * rate), decay, random, low, min(low * 8, 0.45 * rate))
        start = int(at * rate)
        sound[start : start + len(hit)] += hit * random.uniform(0.3, 1) / numpy.abs(hit).max()
        at += spacing * random.uniform(0.7, 1.3)
    return sound


def _notes(rate, random, partials, decay, every):
    time = _time(rate)
    sound = numpy.zeros_like(time)
    for start in numpy.arange(0, SECONDS - 0.5, every):
        pitch = 110 * 2 ** (random.integers(0, 36) / 12)
        t = time[int(start * rate) :] - start
        for n in range(1, partials + 1):
            f = pitch * n * numpy.sqrt(1 + 0.0004 * n * n)
            if f < 0.45 * rate:
                sound[int(start * rate) :] += numpy.sin(2 * numpy.pi * f * t) * numpy.exp(-t * (decay + 0.4 * n)) / n
    return sound


def _strings(rate, random, players):
    time = _time(rate)
    sound = numpy.zeros_like(time)
    for pitch in (196.0, 246.9, 293.7, 392.0, 587.3):
        for _ in range(players):
            f = pitch * (1 + random.normal() * 0.003)
            vibrato = random.uniform(0.002, 0.006) * numpy.sin(2 * numpy.pi * random.uniform(4, 6.5) * time + random.uniform(0, 6))
            phase = 2 * numpy.pi * f * (time + numpy.cumsum(vibrato) / rate)
            for n in range(1, 25):
                if f * n < 0.42 * rate:
                    sound += numpy.sin(n * phase + random.uniform(0, 6)) / n**1.1
    return sound + 0.15 * _filtered(random.normal(size=len(time)), rate, 2000, 9000)


def _guitar(rate, random, drive):
    string = _notes(rate, random, 16, 0.6, 0.35)
    noise = _filtered(random.normal(size=len(string)), rate, 100, 8000)
    return numpy.tanh(drive * _normal(string)) + 0.03 * noise


def _speech(rate, random):
    time = _time(rate)
    pitch = 120 * (1 + 0.15 * numpy.sin(2 * numpy.pi * 0.7 * time) + 0.05 * numpy.sin(2 * numpy.pi * 3.1 * time))
    pulses = (numpy.diff(numpy.floor(numpy.cumsum(pitch) / rate), prepend=0) > 0).astype(float)
    sound = numpy.zeros_like(time)
    vowels = [(730, 1090, 2440), (270, 2290, 3010), (300, 870, 2240), (530, 1840, 2480)]
    for index, start in enumerate(numpy.arange(0, SECONDS, 0.25)):
        part = slice(int(start * rate), int((start + 0.25) * rate))
        formants = vowels[index % 4]
        if index % 3 == 2:
            voice = _filtered(random.normal(size=len(time[part])), rate, 3000, min(9000, 0.45 * rate)) * 0.3
        else:
            t = numpy.arange(int(0.03 * rate)) / rate
            response = sum(numpy.sin(2 * numpy.pi * f * t) * numpy.exp(-t * 90) / (i + 1) for i, f in enumerate(formants) if f < 0.45 * rate)
            voice = numpy.convolve(pulses[part], response)[: len(time[part])]
        sound[part] += voice * numpy.hanning(len(voice)) ** 0.3
    return sound


def signals():
    """Name, rate and samples (channel, time) of each."""
    def random():
        return numpy.random.default_rng(7)

    rate = 44100
    time = _time(rate)
    pan = numpy.array([[1.0], [0.25]])
    tones = sum(numpy.sin(2 * numpy.pi * f * time) for f in (440, 1760.5, 5011, 9973))
    music = _notes(rate, random(), 12, 1.0, 0.2) + 0.5 * _percussion(rate, random(), 0.25, 0.03)
    left, right = _strings(rate, numpy.random.default_rng(1), 3), _strings(rate, numpy.random.default_rng(2), 3)
    yield "speech", rate, _stereo(_normal(_speech(rate, random())))
    yield "percussion, dense", rate, _stereo(_normal(_percussion(rate, random(), 0.05, 0.02)), _normal(_percussion(rate, numpy.random.default_rng(8), 0.06, 0.02)))
    yield "percussion, sparse", rate, _stereo(_normal(_percussion(rate, random(), 0.5, 0.05)))
    yield "claps, dense", rate, _stereo(_normal(_percussion(rate, numpy.random.default_rng(3), 0.025, 0.006)))
    yield "massed strings", rate, _stereo(_normal(left), _normal(right))
    yield "string solo", rate, _stereo(_normal(_strings(rate, random(), 1)))
    yield "guitar, noisy", rate, _stereo(_normal(_guitar(rate, random(), 2)), _normal(_guitar(rate, numpy.random.default_rng(9), 2)))
    yield "guitar, distorted", rate, _stereo(_normal(_guitar(rate, random(), 12)))
    yield "piano", rate, _stereo(_normal(_notes(rate, random(), 20, 0.8, 0.4)))
    yield "harpsichord", rate, _stereo(_normal(_notes(rate, numpy.random.default_rng(5), 60, 2.0, 0.18)))
    yield "pure tones", rate, _stereo(_normal(tones))
    yield "sweep", rate, _stereo(_normal(numpy.sin(2 * numpy.pi * (100 * time + 7900 / SECONDS / 2 * time**2))))
    yield "panned pair", rate, _normal(music)[None] * pan + _normal(_guitar(rate, random(), 4), 0.5)[None] * pan[::-1]
    yield "wide noise", rate, _normal(random().normal(size=(2, len(time))), 0.7)
    yield "limited master", rate, _stereo(numpy.clip(2.5 * _normal(music + 0.3 * left), -0.94, 0.94), numpy.clip(2.5 * _normal(music + 0.3 * right), -0.94, 0.94))
    yield "silence to loud", rate, _stereo(_normal(music) * numpy.clip(time / SECONDS * 1.2 - 0.2, 0, 1) ** 3)
    yield "mono piano", rate, _normal(_notes(rate, random(), 20, 0.8, 0.4))[None]
    yield "telephone", 8000, _normal(_speech(8000, random()))[None]
    yield "music at 22 kHz", 22050, _stereo(_normal(_notes(22050, random(), 20, 0.8, 0.2)))
    yield "strings at 48 kHz", 48000, _stereo(_normal(_strings(48000, random(), 2)))
    yield "percussion at 96 kHz", 96000, _stereo(_normal(_percussion(96000, random(), 0.1, 0.02)))
    yield "piano at 192 kHz", 192000, _stereo(_normal(_notes(192000, random(), 20, 0.8, 0.4)))
