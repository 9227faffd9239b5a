"""The whole program on its road: a real helper with its worker, keyring, bus and notification server, against the
stand-in of the service. Runs within tests/desktop/session; CADORA_BUILD names the build folder.
"""

import array
import os
import pathlib
import shutil
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from desktop import Panel, StatusItem  # noqa: E402
from road import Helper, Outbox, Service, forget_account, session_folder, sign_in, wait_for  # noqa: E402

BUILD = pathlib.Path(os.environ["CADORA_BUILD"])
FOLDER = session_folder()
SETTLE_TIMEOUT = 90  # seconds


def kind(request):
    """Which step of the road a request is."""
    for path, name in (("/api/posts/presign", "presign"), ("/api/posts/sync", "sync"), ("/store/", "put")):
        if request["path"].startswith(path):
            return name
    return request["path"]


def sample_count(path):
    """The samples that an independent decoder finds, per channel."""
    raw = subprocess.run(
        ["ffmpeg", "-v", "error", "-i", path, "-f", "s16le", "-c:a", "pcm_s16le", "-"], capture_output=True, check=True
    ).stdout
    return len(array.array("h", raw)) // 2


class RoadTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.service = Service(BUILD, FOLDER / "service")
        cls.addClassCleanup(cls.service.stop)
        cls.helper = Helper(BUILD, cls.service.origin, FOLDER / "logs")
        cls.addClassCleanup(cls.helper.stop)
        cls.outbox = Outbox()
        cls.music = FOLDER / "music"
        cls.music.mkdir()
        subprocess.run([BUILD / "bin/make-music", "--seconds", "4", cls.music / "take.wav"], check=True)
        for name in ("take.mp3", "take.flac"):
            subprocess.run(
                ["ffmpeg", "-v", "error", "-i", cls.music / "take.wav", cls.music / name], check=True
            )
        sign_in()

    def setUp(self):
        shutil.rmtree(self.outbox.folder, ignore_errors=True)
        self.service.mend()
        self.posts_before = {post["post_id"] for post in self.service.posts()}
        self.requests_before = len(self.service.requests())
        self.helper.start()
        self.addCleanup(self.stop_helper)

    def stop_helper(self):
        self.service.mend()
        self.helper.kill()

    # What came of this test alone.

    def posts(self):
        return [post for post in self.service.posts() if post["post_id"] not in self.posts_before]

    def steps(self):
        return [kind(request) for request in self.service.requests()[self.requests_before :]]

    def wait_for_posts(self, count):
        wait_for(lambda: len(self.posts()) >= count, f"{count} posts", SETTLE_TIMEOUT)

    def wait_for_rest(self):
        """Until nothing in the outbox has anything left to do."""

        def at_rest():
            return not {"staged", "transcoded", "uploaded"} & set(self.outbox.states())

        wait_for(at_rest, "the outbox at rest", SETTLE_TIMEOUT)

    def wait_for_state(self, state):
        wait_for(lambda: self.outbox.states() == [state], f"one item in state {state}", SETTLE_TIMEOUT)

    def wait_for_step(self, step):
        wait_for(lambda: step in self.steps(), f"a {step} request", SETTLE_TIMEOUT)

    def song(self, name, source="take.wav"):
        song = FOLDER / "home" / name
        shutil.copyfile(self.music / source, song)
        return song

    # The tests.

    def test_one_by_one_each_format_becomes_a_post_of_the_same_length(self):
        for source in ("take.wav", "take.mp3", "take.flac"):
            with self.subTest(source):
                before = len(self.posts())
                self.assertEqual(self.helper.send([self.song(f"one {source}", source)]), "")
                self.wait_for_posts(before + 1)
                wait_for(lambda: self.outbox.items() == [], "an empty outbox", SETTLE_TIMEOUT)
                self.check_post(self.posts(), f"one {source}", source)

    def test_three_formats_at_once_each_become_a_post_of_the_same_length(self):
        sources = ("take.wav", "take.mp3", "take.flac")
        self.assertEqual(self.helper.send([self.song(f"all {source}", source) for source in sources]), "")
        self.wait_for_posts(3)
        self.wait_for_rest()
        self.assertEqual(len(self.posts()), 3)
        for source in sources:
            # Every file has the same title, so the posts are told apart by nothing; each must fit.
            self.check_post(self.posts(), f"all {source}", source)

    def check_post(self, posts, name, source):
        title = pathlib.Path(name).stem
        matching = [post for post in posts if post["body"] == title]
        self.assertTrue(matching, f"no post has the title {title}")
        for post in matching:
            audio = self.service.audio(post, FOLDER / "audio.m4a")
            expected = sample_count(self.music / "take.wav")
            # An MP3 decoder may keep the encoder's padding; the rest is exact but for a last AAC frame.
            self.assertAlmostEqual(sample_count(audio), expected, delta=1152 + 1024)
            self.assertAlmostEqual(post["duration"], expected / 44100, delta=0.06)
            self.assertEqual(post["visibility"], "private")

    def test_killed_while_it_transcodes_it_sends_the_item_at_its_next_start(self):
        subprocess.run([BUILD / "bin/make-music", "--seconds", "240", FOLDER / "home/long.wav"], check=True)
        self.helper.send([FOLDER / "home/long.wav"])
        self.wait_for_state("staged")
        self.helper.kill()
        self.assertEqual(self.outbox.states(), ["staged"])
        self.helper.start()
        self.wait_for_posts(1)
        self.wait_for_rest()
        self.assertEqual(self.steps(), ["presign", "put", "sync"])

    def test_killed_while_it_waits_for_urls_it_resumes_after_the_transcoding(self):
        self.service.spoil(path="/api/posts/presign", stall=True)
        self.helper.send([self.song("presign.wav")])
        self.wait_for_step("presign")
        self.helper.kill()
        self.assertEqual(self.outbox.states(), ["transcoded"])
        recording = next(self.outbox.folder.glob("*/recording.m4a"))
        written = recording.stat().st_mtime_ns
        self.service.mend()
        self.service.spoil(path="/api/posts/sync", stall=True)
        self.helper.start()
        self.wait_for_step("sync")
        self.assertEqual(recording.stat().st_mtime_ns, written)
        self.service.mend()
        self.wait_for_posts(1)
        self.wait_for_rest()
        self.assertEqual(self.steps(), ["presign", "presign", "put", "sync"])

    def test_killed_while_it_uploads_it_uploads_again_under_fresh_urls(self):
        self.service.spoil(method="PUT", stall_after_request_bytes=1000)
        self.helper.send([self.song("put.wav")])
        self.wait_for_step("put")
        self.helper.kill()
        self.assertEqual(self.outbox.states(), ["transcoded"])
        self.service.mend()
        self.helper.start()
        self.wait_for_posts(1)
        self.wait_for_rest()
        self.assertEqual(self.steps(), ["presign", "put", "presign", "put", "sync"])

    def test_killed_while_it_syncs_it_only_syncs_again(self):
        self.service.spoil(path="/api/posts/sync", stall=True)
        self.helper.send([self.song("sync.wav")])
        self.wait_for_step("sync")
        self.helper.kill()
        self.assertEqual(self.outbox.states(), ["uploaded"])
        self.service.mend()
        self.helper.start()
        self.wait_for_posts(1)
        self.wait_for_rest()
        self.assertEqual(self.steps(), ["presign", "put", "sync", "sync"])
        self.assertEqual(len(self.posts()), 1)

    def sync_manually(self):
        """Chooses so in the menu, as the panel does."""
        panel = Panel()
        self.addCleanup(panel.stop)
        panel.start()
        StatusItem.wait(self.helper.process.pid).choose("Sync Manually")

    def test_killed_while_it_waits_for_a_sign_in_it_sends_the_item_when_asked_to(self):
        forget_account()
        self.addCleanup(sign_in)
        self.helper.send([self.song("deferred.wav")])
        self.wait_for_state("deferredAuth")
        self.helper.kill()
        sign_in()
        self.helper.start()
        self.assertEqual(self.outbox.states(), ["deferredAuth"])
        self.sync_manually()
        self.wait_for_posts(1)
        self.wait_for_rest()
        self.assertEqual(self.steps(), ["presign", "put", "sync"])

    def test_killed_after_a_failure_it_keeps_the_item_and_sends_it_when_asked_to(self):
        self.service.spoil(path="/api/posts/presign", status=500)
        self.helper.send([self.song("failed.wav")])
        self.wait_for_state("failed")
        self.helper.kill()
        self.service.mend()
        self.helper.start()
        self.helper.send([self.song("next.wav")])
        self.wait_for_posts(1)
        wait_for(lambda: len(self.outbox.items()) == 1, "the failed item alone", SETTLE_TIMEOUT)
        [item] = self.outbox.items()
        self.assertEqual((item["state"], item["lastError"], item["attempts"]), ("failed", "http(500)", 1))
        self.sync_manually()
        self.wait_for_posts(2)
        self.wait_for_rest()

    def test_what_is_no_music_fails_with_its_reason_and_does_not_hold_up_the_rest(self):
        rubbish = FOLDER / "home/rubbish.wav"
        rubbish.write_bytes(b"this is no sound " * 1000)
        self.helper.send([rubbish, self.song("after.wav")])
        self.wait_for_posts(1)
        self.wait_for_rest()
        failed = [item for item in self.outbox.items() if item["sourceFilename"] == "rubbish.wav"]
        self.assertEqual([item["state"] for item in failed], ["failed"])
        self.assertNotIn("error 1", failed[0]["lastError"])
        self.assertEqual([post["body"] for post in self.posts()], ["after"])

    def test_ten_files_in_one_request_are_ten_posts(self):
        names = [f"take {number}.wav" for number in range(10)]
        self.helper.send([self.song(name) for name in names])
        self.wait_for_posts(10)
        self.wait_for_rest()
        self.assertEqual(sorted(post["body"] for post in self.posts()), [pathlib.Path(n).stem for n in names])
        steps = self.steps()
        left = [(item["state"], item.get("lastError")) for item in self.outbox.items()]
        print(
            f"ten files: presign {steps.count('presign')}, put {steps.count('put')}, sync {steps.count('sync')}, "
            f"left in the outbox: {left}"
        )
        # Nothing is left but what a late pass recorded again after another had sent it.
        self.assertLessEqual(set(left), {("failed", 'missingURL("source")')})

    def test_a_second_start_hands_its_files_over_and_ends(self):
        second = subprocess.run([self.helper.program, self.song("second.wav")], capture_output=True, timeout=60)
        self.assertEqual(second.returncode, 0, second.stderr)
        self.wait_for_posts(1)
        self.wait_for_rest()
        self.assertEqual([post["body"] for post in self.posts()], ["second"])
        self.assertIsNone(self.helper.process.poll())

    def test_no_secret_stands_in_the_log(self):
        self.service.spoil(method="PUT", status=403)
        self.helper.send([self.song("secret.wav")])
        self.wait_for_state("failed")
        text = "\n".join(self.helper.log_lines()) + (self.outbox.folder / "outbox.json").read_text()
        for secret in ("local-token", "signature", "Bearer"):
            self.assertNotIn(secret, text)


if __name__ == "__main__":
    unittest.main(verbosity=2)
