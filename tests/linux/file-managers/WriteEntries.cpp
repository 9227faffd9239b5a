// write-entries HOME SENDER: writes the file managers' entries into an empty home folder, for the tools that
// check what is in them. Below HOME, etc/ and share/ stand for the system's.

#include "hosts/linux/file-managers/FileManagerEntries.h"

#include "app/ServicesActivation.h"
#include "fakes/FakeUserDefaults.h"
#include "fakes/Recorders.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

int main(int argc, char** argv) {
    using namespace cadora;
    if (argc != 3) {
        std::fputs("usage: write-entries HOME SENDER\n", stderr);
        return EXIT_FAILURE;
    }
    const std::filesystem::path home = argv[1];
    std::filesystem::create_directories(home / "share/nautilus-python");
    std::filesystem::create_directories(home / "etc/Thunar");
    std::ofstream(home / "etc/Thunar/uca.xml") << "<actions>\n</actions>\n";

    test::FakeUserDefaults defaults;
    auto status = std::make_unique<test::FakeUserDefaults>();
    status->set(ServicesActivation::statusKey,
                PropertyDictionary{{ServicesActivation::entryKey, PropertyDictionary{}}});
    defaults.suites.emplace(ServicesActivation::suiteName, std::move(status));
    test::RecordingSystemLog log;
    FileManagerEntries({home / "config", home / "data", {home / "etc"}, {home / "share"}}, argv[2], defaults,
                       log)
        .refresh();
    for (const std::string& line : log.lines) {
        std::fprintf(stderr, "%s\n", line.c_str());
    }
    return log.lines.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}
