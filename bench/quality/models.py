"""Two models of what the ear hears of the difference between a sound and its copy.

The first is the noise-to-mask ratio of the basic version of ITU-R BS.1387-1 (PEAQ), annex 2: the outer and
middle ear (2.1.4, eq. 7), 109 bands of a quarter of a Bark (2.1.5), internal noise (2.1.6, eq. 13), spreading over
frequency (2.1.7, eq. 14 to 19), spreading over time (2.1.8, eq. 20 to 22), the masking offset (2.1.10, eq. 25)
and the total noise-to-mask ratio (4.5, eq. 60 to 62).

The second is simpler and stricter, after J. D. Johnston, "Transform coding of audio signals using perceptual noise
criteria" (IEEE JSAC 6, 1988): whole critical bands in short blocks, the spreading function of Schroeder, Atal and Hall,
and an offset between that of a tone (14.5 + i dB) and that of noise (5.5 dB) by the spectral flatness.
"""

import numpy

FULL_SCALE = 92.0  # dB SPL of a full-scale sine


def bark(frequency):
    return 7 * numpy.arcsinh(frequency / 650)


def frequency_of(barks):
    return 650 * numpy.sinh(barks / 7)


def ear_weight(frequency):
    """The outer and middle ear, and the threshold in quiet below them, in dB."""
    f = numpy.maximum(frequency, 20) / 1000
    return -0.6 * 3.64 * f**-0.8 + 6.5 * numpy.exp(-0.6 * (f - 3.3) ** 2) - 1e-3 * f**3.6


def blocks(samples, size, hop):
    count = max(1, (len(samples) - size) // hop + 1)
    padded = numpy.pad(samples, (0, max(0, size - len(samples))))
    return numpy.lib.stride_tricks.sliding_window_view(padded, size)[::hop][:count]


def spectra(samples, size, hop):
    window = numpy.hanning(size + 1)[:-1] * numpy.sqrt(8 / 3)
    scale = 10 ** (FULL_SCALE / 20) * 2 / size * numpy.sqrt(3 / 8) * 2 / numpy.sqrt(2)
    return numpy.fft.rfft(blocks(samples, size, hop) * window, axis=1) * scale


def grouping(frequencies, edges):
    """How much of each bin belongs to each band."""
    width = frequencies[1]
    low, high = frequencies - width / 2, frequencies + width / 2
    overlap = numpy.minimum(high[:, None], edges[None, 1:]) - numpy.maximum(low[:, None], edges[None, :-1])
    return numpy.maximum(overlap, 0) / width


class BasicEarModel:
    """BS.1387's cells: noise against mask, per frame and band, as ratios of power."""

    RESOLUTION = 0.25  # Bark
    name = "BS.1387"

    def __init__(self, rate):
        self.size = 2 ** round(numpy.log2(rate * 2048 / 48000))
        self.hop = self.size // 2
        self.rate = rate
        frequencies = numpy.arange(self.size // 2 + 1) * rate / self.size
        low, high = bark(80.0), bark(min(18000.0, 0.45 * rate))
        count = int(numpy.ceil((high - low) / self.RESOLUTION))
        edges = frequency_of(numpy.minimum(low + numpy.arange(count + 1) * self.RESOLUTION, high))
        self.centres = frequency_of((bark(edges[1:]) + bark(edges[:-1])) / 2)
        self.groups = grouping(frequencies, edges)
        self.weight = 10 ** (ear_weight(frequencies) / 20)
        self.internal = 10 ** (0.1456 * (self.centres / 1000) ** -0.8)
        barks = numpy.arange(count) * self.RESOLUTION
        self.offset = 10 ** (numpy.where(barks <= 12, 3.0, 0.25 * barks) / 10)
        tau = 0.008 + 100 / self.centres * (0.03 - 0.008)
        self.decay = numpy.exp(-self.hop / rate / tau)

    def _spread(self, energy):
        count = energy.shape[1]
        distance = (numpy.arange(count)[None, :] - numpy.arange(count)[:, None]) * self.RESOLUTION  # from j to k
        spread = numpy.zeros_like(energy)
        reference = self._spread_frame(numpy.ones(count), distance)
        for index, frame in enumerate(energy):
            spread[index] = self._spread_frame(frame, distance) / reference
        return spread

    def _spread_frame(self, frame, distance):
        level = 10 * numpy.log10(frame)
        upper = numpy.minimum(-24 - 230 / self.centres + 0.2 * level, -3)
        slope = numpy.where(distance < 0, 27 * distance, upper[:, None] * distance)
        shape = 10 ** (slope / 10)
        shape *= (frame / shape.sum(axis=1))[:, None]
        return (shape**0.4).sum(axis=0) ** 2.5

    def mask(self, reference):
        weighted = numpy.abs(spectra(reference, self.size, self.hop)) * self.weight
        energy = numpy.maximum(weighted**2 @ self.groups, 1e-12) + self.internal
        spread = self._spread(energy)
        smeared = spread.copy()
        for index in range(1, len(spread)):
            smeared[index] = self.decay * smeared[index - 1] + (1 - self.decay) * spread[index]
        return numpy.maximum(smeared, spread) / self.offset, weighted

    def cells(self, reference, copy):
        mask, weighted = self.mask(reference)
        other = numpy.abs(spectra(copy, self.size, self.hop)) * self.weight
        noise = (weighted - other) ** 2 @ self.groups
        return noise / mask


class CriticalBandModel:
    """Johnston's: noise against threshold, per short block and critical band."""

    name = "Johnston"
    EDGES = numpy.array([0, 100, 200, 300, 400, 510, 630, 770, 920, 1080, 1270, 1480, 1720, 2000, 2320, 2700, 3150,
                         3700, 4400, 5300, 6400, 7700, 9500, 12000, 15500])

    def __init__(self, rate):
        self.size = 2 ** round(numpy.log2(rate * 512 / 48000))
        self.hop = self.size // 2
        self.rate = rate
        edges = self.EDGES[self.EDGES < 0.45 * rate].astype(float)
        frequencies = numpy.arange(self.size // 2 + 1) * rate / self.size
        # At this resolution the lowest bands hold no bin of their own.
        edges = numpy.concatenate([edges[:1], edges[1:][edges[1:] >= 1.5 * frequencies[1]]])
        self.centres = (edges[1:] + edges[:-1]) / 2
        self.groups = grouping(frequencies, edges)
        barks = numpy.array([numpy.interp(c, self.EDGES, numpy.arange(25)) for c in self.centres])
        d = barks[None, :] - barks[:, None] + 0.474
        self.spreading = 10 ** ((15.81 + 7.5 * d - 17.5 * numpy.sqrt(1 + d**2)) / 10)
        self.spreading /= self.spreading.sum(axis=0)
        self.barks = barks
        f = numpy.maximum(self.centres, 20) / 1000
        self.quiet = 10 ** ((3.64 * f**-0.8 - 6.5 * numpy.exp(-0.6 * (f - 3.3) ** 2) + 1e-3 * f**4) / 10)

    def cells(self, reference, copy):
        ours = spectra(reference, self.size, self.hop)
        power = numpy.abs(ours) ** 2
        flatness = numpy.log10(power + 1e-9).mean(axis=1) * 10 - 10 * numpy.log10(power.mean(axis=1) + 1e-9)
        tonality = numpy.clip(flatness / -60, 0, 1)[:, None]
        offset = tonality * (14.5 + self.barks) + (1 - tonality) * 5.5
        spread = (power @ self.groups) @ self.spreading
        threshold = numpy.maximum(spread * 10 ** (-offset / 10), self.quiet)
        noise = numpy.abs(ours - spectra(copy, self.size, self.hop)) ** 2 @ self.groups
        return noise / threshold


MODELS = (BasicEarModel, CriticalBandModel)


def measure(model, reference, copy):
    """The cells of all channels, one below the other in time, loudness aligned beforehand."""
    return [model.cells(a, b) for a, b in zip(reference, copy)]


def summary(cells):
    """Mean noise to mask in dB over what sounds, and the share of cells above the mask."""
    joined = numpy.concatenate(cells)
    frames = joined.mean(axis=1)
    return 10 * numpy.log10(frames.mean() + 1e-12), float((joined > 1).mean())
