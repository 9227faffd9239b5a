"""That tools/check-house finds what it is there to find: each case breaks one rule in a copy of the sources."""

import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LINUX = "src/hosts/linux/"


class CheckHouse(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        shutil.copytree(ROOT / "src", self.root / "src")
        (self.root / "tests").mkdir()
        shutil.copy(ROOT / "ARCHITECTURE.md", self.root)

    def check(self):
        result = subprocess.run(
            [ROOT / "tools/check-house", self.root], capture_output=True, text=True, timeout=120, check=False
        )
        self.assertEqual(result.returncode != 0, result.stdout != "the house is in order\n", result.stderr)
        return result.stdout

    def add(self, path, line):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(line + "\n" + (file.read_text() if file.exists() else ""))

    def assert_finds(self, path, line, problem):
        self.add(path, line)
        self.assertEqual(self.check(), f"{path}: {problem}\n")

    def test_the_sources_keep_every_rule(self):
        self.assertEqual(self.check(), "the house is in order\n")

    def test_an_include_of_a_higher_rank_is_refused(self):
        self.assert_finds(
            "src/base/URL.cpp", '#include "upload/UploadQueue.h"',
            'includes "upload/UploadQueue.h", which stands above it',
        )

    def test_the_notifier_ranks_below_its_own_folder(self):
        self.assert_finds(
            "src/app/Notifier.cpp", '#include "app/Site.h"', 'includes "app/Site.h", which stands above it'
        )

    def test_the_core_includes_no_library_of_a_platform(self):
        self.assert_finds(
            "src/upload/Transcoder.cpp", "#include <unistd.h>", "includes <unistd.h>, which is not portable"
        )

    def test_headers_that_include_each_other_are_refused(self):
        self.add("src/base/Egg.h", '#include "base/Hen.h"')
        self.add("src/base/Hen.h", '#include "base/Egg.h"')
        self.assertEqual(self.check(), "src/: base/Egg.h includes base/Hen.h includes base/Egg.h\n")

    def test_one_host_includes_nothing_of_the_other(self):
        self.assert_finds(
            LINUX + "files/UserFile.cpp", '#include "hosts/macos/DurableFile.h"',
            'includes "hosts/macos/DurableFile.h" of another host',
        )

    def test_what_both_hosts_share_includes_neither(self):
        self.assert_finds(
            "src/hosts/posix/Programs.h", '#include "hosts/linux/system/PosixError.h"',
            'includes "hosts/linux/system/PosixError.h" of another host',
        )

    def test_a_room_includes_only_the_rooms_it_is_listed_with(self):
        self.assert_finds(
            LINUX + "keyring/LibsecretKeychain.cpp", '#include "hosts/linux/network/CurlURLSession.h"',
            'includes "hosts/linux/network/CurlURLSession.h": nothing leads from keyring to network',
        )

    def test_the_worker_includes_nothing_of_the_helper(self):
        self.assert_finds(
            LINUX + "media/worker/Export.cpp", '#include "hosts/linux/media/FfmpegMediaFramework.h"',
            'includes "hosts/linux/media/FfmpegMediaFramework.h": nothing leads from media/worker to media',
        )

    def test_a_header_that_a_room_keeps_to_itself_is_refused_elsewhere(self):
        self.assert_finds(
            LINUX + "main.cpp", '#include "hosts/linux/network/CurlTransfer.h"',
            'includes "hosts/linux/network/CurlTransfer.h", which network keeps to itself',
        )

    def test_a_file_outside_every_room_is_refused(self):
        self.assert_finds(
            LINUX + "attic/Chest.cpp", "#include <string>", "stands in no room of the Linux host"
        )

    def test_an_arrow_that_no_file_uses_is_told(self):
        sender = self.root / LINUX / "send/main.cpp"
        lines = [line for line in sender.read_text().splitlines() if "hosts/linux/files/" not in line]
        sender.write_text("\n".join(lines))
        self.assertIn(f"{LINUX}: the arrow from send to files is used by no file\n", self.check())

    def test_a_table_that_says_otherwise_than_the_map_is_told(self):
        table = self.root / "ARCHITECTURE.md"
        table.write_text(table.read_text().replace("| `keyring` | ", "| `safe` | "))
        self.assertEqual(
            self.check(), "ARCHITECTURE.md: the row of keyring is missing, or names other rooms than it includes\n"
        )

    def test_a_closure_inside_an_awaited_expression_is_refused(self):
        self.assert_finds(
            "src/upload/Transcoder.cpp", "Task<> f() { co_await run([&](int x) { return x; }); }",
            "has a closure inside a co_await expression",
        )

    def test_an_object_made_with_braces_inside_an_awaited_expression_is_refused(self):
        for number, expression in enumerate(
            [
                "co_await take(Pair{1, 2})",
                "co_await take({1, 2})",
                "use(Pair{1, 2}, co_await next())",
                "if (co_await take(Pair{1, 2})) { next(); }",
                "for (int i = 0; i < co_await take({1}); ++i) { next(); }",
                "Pair pair{co_await next(), 2}",
                "co_return Pair{co_await next(), 2}",
            ]
        ):
            with self.subTest(expression=expression):
                file = f"src/upload/Awaits{number}.cpp"
                self.add(file, f"Task<> f(Pair pair = {{1, 2}}) {{ Pair named{{1, 2}}; {expression}; }}")
                problem = f"{file}: makes an object with braces inside a co_await expression: "
                self.assertTrue(self.check().startswith(problem))
                (self.root / file).unlink()

    def test_an_object_made_with_braces_beside_an_awaited_expression_is_not_refused(self):
        self.add(
            "src/upload/Awaits.cpp",
            "struct Pair { int a; int b; };\n"
            "Task<> f() { Pair named{1, 2}; if (co_await take(named)) { next({1}); } else { co_await take(named); }\n"
            "for (const Pair& pair : {named}) { try { co_await take(pair); } catch (...) { use(Pair{1, 2}); } }\n"
            "while (co_await more()) { std::vector<int> v{1}; } const char c = '{'; co_await take(c);\n"
            "const auto work = [&] { use(Pair{1, 2}); }; co_await take(work); }\n",
        )
        self.assertEqual(self.check(), "the house is in order\n")


if __name__ == "__main__":
    unittest.main()
