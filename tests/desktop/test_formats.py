"""Every format in one request: each file becomes a post whose sound is as long as its source, to the sample. Runs
within tests/desktop/session; CADORA_BUILD names the build folder.
"""

import os
import pathlib
import struct
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from road import Helper, Outbox, Service, session_folder, sign_in, wait_for  # noqa: E402

BUILD = pathlib.Path(os.environ["CADORA_BUILD"])
FOLDER = session_folder()
TIMEOUT = 480  # seconds
RATE = 44100
# Not a whole number of any codec's frames.
SAMPLES = 300007

# How ffmpeg makes each file of the same music. A number is the length, where it isn't the music's: a stream that
# doesn't tell its encoder's delay and padding has them in its sound, and blocks of a fixed size are always full.
FORMATS = {
    "8 bit.wav": ["-c:a", "pcm_u8"],
    "16 bit.wav": ["-c:a", "pcm_s16le"],
    "24 bit.wav": ["-c:a", "pcm_s24le"],
    "32 bit.wav": ["-c:a", "pcm_s32le"],
    "float.wav": ["-c:a", "pcm_f32le"],
    "double.wav": ["-c:a", "pcm_f64le"],
    "rf64.wav": ["-c:a", "pcm_s16le", "-rf64", "always"],
    "blocks.wav": ["-c:a", "adpcm_ms", SAMPLES + 557],
    "big endian.aiff": ["-c:a", "pcm_s16be"],
    "compressed.aifc": ["-f", "aiff", "-c:a", "pcm_s16le"],
    "constant rate.mp3": ["-b:a", "320k"],
    "variable rate.mp3": ["-q:a", "0"],
    "no header.mp3": ["-b:a", "320k", "-write_xing", "0", 301824],
    "aac.m4a": ["-b:a", "320k"],
    "alac.m4a": ["-c:a", "alac"],
    "stream.aac": ["-b:a", "320k", 301056],
    "plain.caf": ["-c:a", "pcm_s16le"],
    "alac.caf": ["-c:a", "alac"],
    "plain.au": ["-c:a", "pcm_s16be"],
    "plain.flac": [],
    "vorbis.ogg": ["-c:a", "libvorbis", "-q:a", "9"],
    "sound of a film.mp4": ["-f", "lavfi", "-i", "testsrc=size=64x64:rate=10:duration=7", "-c:v", "mpeg4"],
}


class M4A:
    """What an M4A file says of its sound: the sound's place in the decoder's output."""

    def __init__(self, path):
        self.bytes = path.read_bytes()
        movie = self.child((0, len(self.bytes)), "moov")
        (self.timescale,) = struct.unpack_from(">I", self.bytes, self.child(movie, "mvhd")[0] + 12)
        edits = self.child(self.child(self.child(movie, "trak"), "edts"), "elst")[0]
        version_and_flags, count, self.duration, self.start = struct.unpack_from(">IIIi", self.bytes, edits)
        if (version_and_flags, count) != (0, 1):
            raise ValueError("not a single plain edit")

    def child(self, box, wanted):
        at, end = box
        while at < end:
            size, name = struct.unpack_from(">I4s", self.bytes, at)
            if name == wanted.encode():
                return at + 8, at + size
            at += size
        raise ValueError(f"there is no {wanted}")


def decoded_length(path):
    """The samples that the independent decoder gives within the file's edit."""
    raw = path.with_suffix(".raw")
    subprocess.run(["faad", "-q", "-g", "-f", "2", "-o", raw, path], check=True, capture_output=True)
    file = M4A(path)
    # The decoder swallows the first frame of 1024 samples, which only starts the overlap, and gives two channels.
    available = raw.stat().st_size // 4 - (file.start - 1024)
    return min(available, file.duration)


class FormatsTest(unittest.TestCase):
    def make(self, name, options):
        expected = SAMPLES
        if options and isinstance(options[-1], int):
            *options, expected = options
        inputs = []
        if "-i" in options:
            split = options.index("-i") + 2
            inputs, options = options[:split], options[split:]
        path = FOLDER / "home" / name
        subprocess.run(
            ["ffmpeg", "-nostdin", "-v", "error", *inputs, "-i", self.music, *options, path], check=True
        )
        return path, expected

    def test_every_format_in_one_request_becomes_a_post_of_its_length_to_the_sample(self):
        self.music = FOLDER / "music.wav"
        subprocess.run([BUILD / "bin/make-music", "--seconds", "7", FOLDER / "longer.wav"], check=True)
        subprocess.run(["sox", FOLDER / "longer.wav", self.music, "trim", "0", f"{SAMPLES}s"], check=True)
        files = {name: self.make(name, list(options)) for name, options in FORMATS.items()}

        service = Service(BUILD, FOLDER / "service")
        self.addCleanup(service.stop)
        helper = Helper(BUILD, service.origin, FOLDER / "logs")
        self.addCleanup(helper.stop)
        sign_in()
        helper.start()
        self.assertEqual(helper.send([path for path, _ in files.values()]), "")

        def settled():
            return len(service.posts()) >= len(files) and not {"staged", "transcoded", "uploaded"} & set(
                Outbox().states()
            )

        wait_for(settled, f"{len(files)} posts", TIMEOUT)
        posts = {}
        for post in service.posts():
            posts.setdefault(post["body"], []).append(post)
        # A format's title is its name without the ending.
        self.assertEqual(sorted(posts), sorted({pathlib.Path(name).stem for name in FORMATS}))
        for title, same in posts.items():
            expected = sorted(e for name, (_, e) in files.items() if pathlib.Path(name).stem == title)
            with self.subTest(title):
                audio = [service.audio(post, FOLDER / f"{post['post_id']}.m4a") for post in same]
                self.assertEqual([M4A(file).timescale for file in audio], [RATE] * len(same))
                self.assertEqual(sorted(decoded_length(file) for file in audio), expected)
                durations = sorted(post["duration"] * RATE for post in same)
                for duration, samples in zip(durations, expected):
                    self.assertAlmostEqual(duration, samples, delta=1)


if __name__ == "__main__":
    unittest.main(verbosity=2)
