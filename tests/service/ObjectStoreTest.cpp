#include "service/ObjectStore.h"

#include "fakes/TemporaryDirectory.h"

#include <filesystem>
#include <string>
#include <string_view>

#include <doctest/doctest.h>

using cadora::service::isObjectName;
using cadora::service::ObjectStore;
using cadora::test::readFile;
using cadora::test::TemporaryDirectory;

namespace {

void put(ObjectStore& store, std::string_view content) {
    ObjectStore::Incoming incoming = store.receive("abcd1234", "audio");
    incoming.write(content);
    incoming.commit();
}

} // namespace

TEST_CASE("only letters, digits, hyphens and underscores name an object") {
    CHECK(isObjectName("abcd1234"));
    CHECK(isObjectName("waveform_smooth"));
    CHECK(isObjectName(std::string(64, 'a')));
    CHECK_FALSE(isObjectName(""));
    CHECK_FALSE(isObjectName(std::string(65, 'a')));
    CHECK_FALSE(isObjectName(".."));
    CHECK_FALSE(isObjectName("a/b"));
    CHECK_FALSE(isObjectName(std::string_view("a\0b", 3)));
    CHECK_FALSE(isObjectName("é"));
}

TEST_CASE("a committed object is there, whole, in a later run too") {
    const TemporaryDirectory folder;
    {
        ObjectStore store(folder.path());
        CHECK_FALSE(store.size("abcd1234", "audio"));
        put(store, "music");
    }
    const ObjectStore later(folder.path());
    CHECK(later.size("abcd1234", "audio") == 5);
    CHECK(readFile(later.path("abcd1234", "audio")) == "music");
    CHECK_FALSE(later.size("abcd1234", "waveform"));
    CHECK_FALSE(later.size("other", "audio"));
}

TEST_CASE("an object that is not committed leaves nothing and keeps the older one") {
    const TemporaryDirectory folder;
    ObjectStore store(folder.path());
    put(store, "first");
    {
        ObjectStore::Incoming broken = store.receive("abcd1234", "audio");
        broken.write(std::string_view("sec"));
    }
    CHECK(readFile(store.path("abcd1234", "audio")) == "first");
    CHECK(std::filesystem::is_empty(folder.path() / "incoming"));
}

TEST_CASE("of two objects on their way to one name the last committed stays") {
    const TemporaryDirectory folder;
    ObjectStore store(folder.path());
    ObjectStore::Incoming one = store.receive("abcd1234", "audio");
    ObjectStore::Incoming two = store.receive("abcd1234", "audio");
    one.write(std::string_view("one"));
    two.write(std::string_view("two"));
    two.commit();
    one.commit();
    CHECK(readFile(store.path("abcd1234", "audio")) == "one");
}

TEST_CASE("a start clears what an earlier run had half received") {
    const TemporaryDirectory folder;
    folder.file("incoming/half", "mus");
    const ObjectStore store(folder.path());
    CHECK(std::filesystem::is_empty(folder.path() / "incoming"));
}
