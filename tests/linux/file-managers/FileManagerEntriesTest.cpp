#include "hosts/linux/file-managers/FileManagerEntries.h"

#include "fakes/FakeUserDefaults.h"
#include "fakes/Recorders.h"
#include "fakes/TemporaryDirectory.h"

#include <doctest/doctest.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace cadora::test {

namespace {

namespace fs = std::filesystem;

constexpr const char* entryKey = "com.norvelant.cadora.mac - Send to Cadora - sendToCadora";
constexpr const char* systemActions = "<?xml version=\"1.0\"?>\n<actions>\n\n"
                                      "  <action>\n    <name>Open Terminal Here ተርሚናል</name>\n"
                                      "    <unique-id>1-1</unique-id>\n  </action>\n\n</actions>\n";

// A desktop in a folder of its own, and the entries in it.
struct Desktop {
    TemporaryDirectory folder;
    FakeUserDefaults defaults;
    FakeUserDefaults* status = nullptr;
    RecordingSystemLog systemLog;
    fs::path home = folder.path() / "home";
    fs::path config = home / "config";
    fs::path data = home / "data";
    fs::path sender = "/opt/cadora helper/bin/cadora-send";

    const fs::path thunar = config / "Thunar/uca.xml";
    const fs::path sendTo = data / "Thunar/sendto/cadora-helper.desktop";
    const fs::path nemo = data / "nemo/actions/cadora-helper.nemo_action";
    const fs::path dolphin = data / "kio/servicemenus/cadora-helper.desktop";
    const fs::path actions = data / "file-manager/actions/cadora-helper.desktop";
    const fs::path script = data / "nautilus/scripts/Send to Cadora";
    const fs::path cajaScript = config / "caja/scripts/Send to Cadora";
    const fs::path extension = data / "nautilus-python/extensions/cadora_helper.py";

    Desktop() {
        defaults.suites.emplace("pbs", std::make_unique<FakeUserDefaults>());
        status = defaults.suites["pbs"].get();
        fs::create_directories(config);
        fs::create_directories(data);
        folder.file("system/xdg/Thunar/uca.xml", systemActions);
        fs::create_directories(folder.path() / "system/share/nautilus-python/extensions");
    }

    void turn(std::int64_t contextMenu, std::int64_t servicesMenu) {
        status->set(
            "NSServicesStatus",
            PropertyDictionary{{entryKey, PropertyDictionary{{"enabled_context_menu", contextMenu},
                                                             {"enabled_services_menu", servicesMenu}}}});
    }
    void enable() { turn(1, 1); }
    void removeEntry() { status->set("NSServicesStatus", PropertyDictionary{}); }

    void refresh() {
        FileManagerEntries({config, data, {folder.path() / "system/xdg"}, {folder.path() / "system/share"}},
                           sender, defaults, systemLog)
            .refresh();
    }

    std::vector<fs::path> all() const {
        return {thunar, sendTo, nemo, dolphin, actions, script, cajaScript, extension};
    }

    // Everything in the home: the files with what is in them, and the folders.
    std::map<std::string, std::string> contents() const {
        std::map<std::string, std::string> result;
        for (const auto& item : fs::recursive_directory_iterator(home)) {
            result[item.path().string()] = item.is_directory() ? "(folder)" : readFile(item.path());
        }
        return result;
    }
};

bool contains(const fs::path& file, const std::string& text) {
    return readFile(file).find(text) != std::string::npos;
}

bool isExecutable(const fs::path& file) {
    return (fs::status(file).permissions() & fs::perms::owner_exec) != fs::perms::none;
}

} // namespace

TEST_CASE("an enabled service has an entry in every file manager") {
    Desktop desktop;
    desktop.enable();
    desktop.refresh();
    for (const fs::path& file : desktop.all()) {
        CAPTURE(file.string());
        CHECK(contains(file, "cadora-send"));
        CHECK((file == desktop.script || file == desktop.cajaScript || file == desktop.extension ||
               contains(file, "=Send to Cadora\n") || contains(file, "<name>Send to Cadora</name>")));
    }
    CHECK(contains(desktop.thunar, "<command>&#39;/opt/cadora helper/bin/cadora-send&#39; %F</command>"));
    CHECK(contains(desktop.sendTo, "Exec=\"/opt/cadora helper/bin/cadora-send\" %F\n"));
    CHECK(contains(desktop.nemo, "Exec='/opt/cadora helper/bin/cadora-send' %U\n"));
    CHECK(contains(desktop.dolphin, "Exec=\"/opt/cadora helper/bin/cadora-send\" %U\n"));
    CHECK(contains(desktop.actions, "Exec=\"/opt/cadora helper/bin/cadora-send\" %U\n"));
    CHECK(contains(desktop.script, "exec '/opt/cadora helper/bin/cadora-send'\n"));
    CHECK(contains(desktop.cajaScript, "exec '/opt/cadora helper/bin/cadora-send'\n"));
    CHECK(contains(desktop.actions, "MimeTypes=audio/*;"));
    for (const fs::path& file : {desktop.sendTo, desktop.dolphin, desktop.actions}) {
        CHECK(contains(file, "TryExec=/opt/cadora helper/bin/cadora-send\n"));
    }
    CHECK(contains(desktop.extension, "SENDER = \"/opt/cadora helper/bin/cadora-send\"\n"));
    CHECK(isExecutable(desktop.dolphin));
    CHECK(isExecutable(desktop.script));
    CHECK(isExecutable(desktop.cajaScript));
    CHECK_FALSE(isExecutable(desktop.nemo));
    CHECK(desktop.systemLog.lines.empty());
}

TEST_CASE("each promised format has its types in the entries") {
    Desktop desktop;
    desktop.enable();
    desktop.refresh();
    for (const fs::path& file :
         {desktop.sendTo, desktop.nemo, desktop.dolphin, desktop.actions, desktop.extension}) {
        for (const char* const type :
             {"audio/x-wav;", "audio/vnd.wave;", "audio/x-aiff;", "audio/mpeg;", "audio/mp4;", "audio/aac;",
              "audio/x-caf;", "audio/basic;", "audio/flac;"}) {
            CAPTURE(file.string());
            CHECK(contains(file, type));
        }
    }
    CHECK(contains(desktop.thunar, "<audio-files/>"));
}

TEST_CASE("without the service's entry nothing is written") {
    Desktop desktop;
    const auto before = desktop.contents();
    desktop.refresh();
    desktop.removeEntry();
    desktop.refresh();
    CHECK(desktop.contents() == before);
    CHECK(desktop.defaults.values.empty());
}

TEST_CASE("defaults that can't be opened leave everything as it is") {
    Desktop desktop;
    desktop.enable();
    desktop.refresh();
    const auto before = desktop.contents();
    desktop.defaults.suites.clear();
    desktop.refresh();
    CHECK(desktop.contents() == before);
}

TEST_CASE("removing the service's entry leaves nothing behind, neither files nor folders nor a record") {
    Desktop desktop;
    const auto before = desktop.contents();
    desktop.enable();
    desktop.refresh();
    desktop.refresh();
    desktop.removeEntry();
    desktop.refresh();
    CHECK(desktop.contents() == before);
    CHECK(desktop.defaults.values.empty());
}

TEST_CASE("folders and files of others stay where entries are removed") {
    Desktop desktop;
    desktop.folder.file("home/data/nemo/actions/other.nemo_action", "[Nemo Action]\n");
    const auto before = desktop.contents();
    desktop.enable();
    desktop.refresh();
    desktop.folder.file("home/data/kio/servicemenus/other.desktop", "[Desktop Entry]\n");
    desktop.removeEntry();
    desktop.refresh();
    auto expected = before;
    expected[(desktop.data / "kio").string()] = "(folder)";
    expected[(desktop.data / "kio/servicemenus").string()] = "(folder)";
    expected[(desktop.data / "kio/servicemenus/other.desktop").string()] = "[Desktop Entry]\n";
    CHECK(desktop.contents() == expected);
}

TEST_CASE("either menu's switch takes the entries away, and switching on brings them back") {
    Desktop desktop;
    const auto before = desktop.contents();
    desktop.enable();
    desktop.refresh();
    const auto enabled = desktop.contents();
    for (const auto& [contextMenu, servicesMenu] : {std::pair{0, 1}, {1, 0}, {0, 0}}) {
        desktop.turn(contextMenu, servicesMenu);
        desktop.refresh();
        CHECK(desktop.contents() == before);
        desktop.enable();
        desktop.refresh();
        CHECK(desktop.contents() == enabled);
    }
}

TEST_CASE("what the user deleted stays away, until the service is removed and enabled again") {
    Desktop desktop;
    desktop.enable();
    desktop.refresh();
    const auto all = desktop.contents();
    for (const fs::path& file : desktop.all()) {
        CAPTURE(file.string());
        if (file == desktop.thunar) {
            std::ofstream(file) << systemActions;
        } else {
            fs::remove(file);
        }
        const auto without = desktop.contents();
        desktop.refresh();
        CHECK(desktop.contents() == without);
        desktop.turn(0, 0);
        desktop.refresh();
        desktop.enable();
        desktop.refresh();
        CHECK((file == desktop.thunar ? !contains(file, "cadora") : !fs::exists(file)));

        desktop.removeEntry();
        desktop.refresh();
        if (file == desktop.thunar) {
            // The list with the system's actions is the user's own since the user changed it.
            CHECK(readFile(file) == systemActions);
            fs::remove(file);
        }
        desktop.enable();
        desktop.refresh();
        CHECK(desktop.contents() == all);
    }
}

TEST_CASE("what the user changed about an entry stays, and goes when the service is removed") {
    Desktop desktop;
    const auto before = desktop.contents();
    desktop.enable();
    desktop.refresh();
    const std::string changed = readFile(desktop.nemo) + "Separator=true\n";
    std::ofstream(desktop.nemo) << changed;
    std::string list = readFile(desktop.thunar);
    list.replace(list.find("<icon>cadora-helper"), 19, "<icon>audio");
    std::ofstream(desktop.thunar) << list;
    desktop.refresh();
    CHECK(readFile(desktop.nemo) == changed);
    CHECK(readFile(desktop.thunar) == list);
    desktop.removeEntry();
    desktop.refresh();
    CHECK(desktop.contents() == before);
}

TEST_CASE("entries follow the sender to another place") {
    Desktop desktop;
    const auto before = desktop.contents();
    desktop.enable();
    desktop.refresh();
    desktop.sender = "/usr/lib/cadora-helper/bin/cadora-send";
    desktop.refresh();
    for (const fs::path& file : desktop.all()) {
        CAPTURE(file.string());
        CHECK(contains(file, "/usr/lib/cadora-helper/bin/cadora-send"));
        CHECK_FALSE(contains(file, "/opt/"));
    }
    desktop.removeEntry();
    desktop.refresh();
    CHECK(desktop.contents() == before);
}

TEST_CASE("the sender may have any printable name") {
    Desktop desktop;
    desktop.sender = "/home/mü \"x\" $a `b` \\c 100%U it's <&>/cadora-send";
    desktop.enable();
    desktop.refresh();
    CHECK(contains(desktop.thunar, "&#39;/home/m&#252; &#34;x&#34; $a `b` \\c 100%%U "
                                   "it&#39;\\&#39;&#39;s &#60;&#38;&#62;/cadora-send&#39; %F"));
    CHECK(contains(desktop.dolphin,
                   R"(Exec="/home/mü \\"x\\" \\$a \\`b\\` \\\\c 100%%U it's <&>/cadora-send" %U)"));
    CHECK(contains(desktop.script, R"(exec '/home/mü "x" $a `b` \c 100%U it'\''s <&>/cadora-send')"));
    CHECK(contains(desktop.extension, R"(SENDER = "/home/mü \"x\" $a `b` \\c 100%U it's <&>/cadora-send")"));
}

TEST_CASE("a sender whose name no entry can hold has none, and the log says so") {
    for (const char* const name : {"/home/\xff/cadora-send", "/home/a\nb/cadora-send", "cadora-send"}) {
        Desktop desktop;
        const auto before = desktop.contents();
        desktop.sender = name;
        desktop.enable();
        desktop.refresh();
        CHECK(desktop.contents() == before);
        CHECK(desktop.systemLog.lines.size() == 1);
    }
}

TEST_CASE("the user's own list of Thunar's actions keeps every other byte") {
    for (const std::string list :
         {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<actions>\n<action><name>é &amp; ü</name>"
          "<unique-id>1-2</unique-id></action>\n</actions>\n",
          "<actions>\r\n\t<action>\r\n\t</action><!-- </actions> -->\r\n\t</actions> \r\n<!-- end -->",
          "<?xml version=\"1.0\" "
          "encoding=\"ISO-8859-1\"?><actions><action><name>caf\xe9</name></action></actions>",
          "<!DOCTYPE actions [<!ELEMENT actions (action)+>]>\n<actions></actions>\n"}) {
        Desktop desktop;
        desktop.folder.file("home/config/Thunar/uca.xml", list);
        const auto before = desktop.contents();
        desktop.enable();
        desktop.refresh();
        const std::string with = readFile(desktop.thunar);
        const std::size_t begin = with.find("<action>\n\t<icon>cadora-helper");
        REQUIRE(begin != std::string::npos);
        const std::size_t end = with.find("</action>\n", begin) + 10;
        CHECK(with.substr(0, begin) + with.substr(end) == list);
        desktop.removeEntry();
        desktop.refresh();
        CHECK(desktop.contents() == before);
    }
}

TEST_CASE("actions that the user added to the system's stay when ours goes") {
    Desktop desktop;
    desktop.enable();
    desktop.refresh();
    CHECK(contains(desktop.thunar, "Open Terminal Here"));
    std::string list = readFile(desktop.thunar);
    const std::string added = "<action><name>mine</name><unique-id>9-9</unique-id></action>\n";
    list.insert(list.find("</actions>"), added);
    std::ofstream(desktop.thunar) << list;
    desktop.removeEntry();
    desktop.refresh();
    std::string expected = systemActions;
    expected.insert(expected.find("</actions>"), added);
    CHECK(readFile(desktop.thunar) == expected);
}

TEST_CASE("where Thunar is not installed no list of actions takes the place of a later one") {
    Desktop desktop;
    fs::remove(desktop.folder.path() / "system/xdg/Thunar/uca.xml");
    desktop.enable();
    desktop.refresh();
    CHECK_FALSE(fs::exists(desktop.thunar));
    CHECK(fs::exists(desktop.nemo));
    // Once it is installed, its entry comes by itself.
    desktop.folder.file("system/xdg/Thunar/uca.xml", systemActions);
    desktop.refresh();
    CHECK(contains(desktop.thunar, "cadora-send"));
}

TEST_CASE("a malformed list of Thunar's actions is never touched, only logged") {
    for (const std::string list :
         {"", "<actions>", "<actions></actions><actions></actions>", "<html></html>", "not xml",
          "<actions><action><name>&undefined;</name></action></actions>"}) {
        Desktop desktop;
        desktop.folder.file("home/config/Thunar/uca.xml", list);
        desktop.enable();
        desktop.refresh();
        CHECK(readFile(desktop.thunar) == list);
        CHECK(contains(desktop.nemo, "cadora-send"));
        CHECK(desktop.systemLog.lines ==
              std::vector<std::string>{"[Cadora Helper] file managers: “uca.xml” is not a list of Thunar’s "
                                       "actions, and was left alone"});
    }
}

TEST_CASE("a list of actions that was damaged meanwhile is left alone, and cleaned once it is whole") {
    Desktop desktop;
    const auto before = desktop.contents();
    desktop.enable();
    desktop.refresh();
    const std::string whole = readFile(desktop.thunar);
    std::ofstream(desktop.thunar) << whole.substr(0, whole.size() / 2);
    desktop.removeEntry();
    desktop.refresh();
    CHECK(readFile(desktop.thunar) == whole.substr(0, whole.size() / 2));
    std::ofstream(desktop.thunar) << whole;
    desktop.refresh();
    CHECK(desktop.contents() == before);
}

TEST_CASE("a list of actions that is a link stays one") {
    Desktop desktop;
    const fs::path target = desktop.folder.file("dotfiles/uca.xml", "<actions>\n</actions>\n");
    fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_directories(desktop.thunar.parent_path());
    fs::create_symlink(target, desktop.thunar);
    desktop.enable();
    desktop.refresh();
    CHECK(fs::is_symlink(desktop.thunar));
    CHECK(contains(target, "cadora-send"));
    CHECK(fs::status(target).permissions() == (fs::perms::owner_read | fs::perms::owner_write));
    desktop.removeEntry();
    desktop.refresh();
    CHECK(fs::is_symlink(desktop.thunar));
    CHECK(readFile(target) == "<actions>\n</actions>\n");
}

TEST_CASE("a script of the same name that isn't ours is left alone") {
    Desktop desktop;
    desktop.folder.file("home/data/nautilus/scripts/Send to Cadora", "#!/bin/sh\nmine\n");
    desktop.enable();
    desktop.refresh();
    CHECK(readFile(desktop.script) == "#!/bin/sh\nmine\n");
    desktop.removeEntry();
    desktop.refresh();
    CHECK(readFile(desktop.script) == "#!/bin/sh\nmine\n");
}

TEST_CASE("entries whose record was lost are taken on, not doubled") {
    Desktop desktop;
    desktop.enable();
    desktop.refresh();
    const auto all = desktop.contents();
    desktop.defaults.values.clear();
    desktop.refresh();
    CHECK(desktop.contents() == all);
    desktop.removeEntry();
    desktop.refresh();
    for (const fs::path& file : desktop.all()) {
        CHECK_FALSE(contains(file, "cadora"));
    }
}

TEST_CASE("what the file managers wrote about the entries goes with them") {
    Desktop desktop;
    desktop.folder.file("home/config/kservicemenurc", "[Show]\nother=false\n\n[Other]\nsendToCadora=1\n");
    const auto before = desktop.contents();
    desktop.enable();
    desktop.refresh();
    desktop.folder.file("home/config/kservicemenurc",
                        "[Show]\nother=false\nsendToCadora=false\n\n[Other]\nsendToCadora=1\n");
    desktop.folder.file("home/data/nautilus-python/extensions/__pycache__/cadora_helper.cpython-311.pyc",
                        "x");
    desktop.removeEntry();
    desktop.refresh();
    CHECK(desktop.contents() == before);
}

TEST_CASE("an entry that can't be written is logged, and the others are written") {
    Desktop desktop;
    // A file where a folder is needed.
    desktop.folder.file("home/data/nemo", "");
    desktop.enable();
    desktop.refresh();
    CHECK(desktop.systemLog.lines.size() == 1);
    CHECK(fs::exists(desktop.dolphin));
    // It is written as soon as it can be.
    fs::remove(desktop.data / "nemo");
    desktop.refresh();
    CHECK(fs::exists(desktop.nemo));
}

TEST_CASE("without the extension's host there is the script alone") {
    Desktop desktop;
    fs::remove_all(desktop.folder.path() / "system/share/nautilus-python");
    desktop.enable();
    desktop.refresh();
    CHECK(fs::exists(desktop.script));
    CHECK_FALSE(fs::exists(desktop.extension));
}

} // namespace cadora::test
