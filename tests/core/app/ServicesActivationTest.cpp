#include "app/ServicesActivation.h"

#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

#include <cstdint>

using namespace cadora;
using test::TestPlatform;

namespace {

constexpr const char* entryKey = "com.norvelant.cadora.mac - Send to Cadora - sendToCadora";
constexpr std::int64_t on = 1;
constexpr std::int64_t off = 0;

struct Activation {
    explicit Activation(std::optional<PropertyDictionary> status = std::nullopt) {
        auto suite = std::make_unique<test::FakeUserDefaults>();
        pbs = suite.get();
        platform.userDefaults.suites["pbs"] = std::move(suite);
        if (status) {
            pbs->values.emplace("NSServicesStatus", PropertyValue(*std::move(status)));
        }
    }

    TestPlatform platform;
    test::FakeUserDefaults* pbs;
};

PropertyDictionary enabledEntry() {
    return {{"enabled_context_menu", on},
            {"enabled_services_menu", on},
            {"presentation_modes", PropertyDictionary{{"ContextMenu", on}, {"ServicesMenu", on}}}};
}

const PropertyDictionary otherEntry{{"enabled_services_menu", off}, {"key_equivalent", std::string("@s")}};
const std::vector<std::string> refreshed{"updateDynamicServices"};
const std::vector<std::string> written{"set NSServicesStatus"};

} // namespace

TEST_CASE("enabling without a dictionary makes one that holds exactly the entry, turned on") {
    Activation activation;
    ServicesActivation::enableIfNeeded();
    CHECK(activation.pbs->values.size() == 1);
    CHECK(activation.pbs->object("NSServicesStatus") ==
          PropertyValue(PropertyDictionary{{entryKey, enabledEntry()}}));
    CHECK(activation.platform.application.calls == refreshed);
    CHECK(activation.platform.userDefaults.values.empty());
}

TEST_CASE("enabling leaves the entries of other programs as they are") {
    Activation activation(PropertyDictionary{{"other - Send - send", otherEntry}});
    ServicesActivation::enableIfNeeded();
    CHECK(activation.pbs->object("NSServicesStatus") ==
          PropertyValue(PropertyDictionary{{"other - Send - send", otherEntry}, {entryKey, enabledEntry()}}));
    CHECK(activation.platform.application.calls == refreshed);
}

TEST_CASE("an entry that the user turned off stays off, and nothing is refreshed") {
    const PropertyDictionary status{{entryKey, PropertyDictionary{{"enabled_services_menu", off}}}};
    Activation activation(status);
    ServicesActivation::enableIfNeeded();
    CHECK(activation.pbs->object("NSServicesStatus") == PropertyValue(status));
    CHECK(activation.pbs->trace.steps().empty());
    CHECK(activation.platform.application.calls.empty());
}

TEST_CASE("a second start changes nothing") {
    Activation activation;
    ServicesActivation::enableIfNeeded();
    ServicesActivation::enableIfNeeded();
    CHECK(activation.pbs->trace.steps() == written);
    CHECK(activation.platform.application.calls == refreshed);
}

TEST_CASE("removing takes out the entry and leaves those of other programs") {
    Activation activation(
        PropertyDictionary{{"other - Send - send", otherEntry}, {entryKey, enabledEntry()}});
    ServicesActivation::remove();
    CHECK(activation.pbs->object("NSServicesStatus") ==
          PropertyValue(PropertyDictionary{{"other - Send - send", otherEntry}}));
    CHECK(activation.platform.application.calls == refreshed);
}

TEST_CASE("removing an entry that is absent writes the dictionary back unchanged and refreshes") {
    const PropertyDictionary status{{"other - Send - send", otherEntry}};
    Activation activation(status);
    ServicesActivation::remove();
    CHECK(activation.pbs->trace.steps() == written);
    CHECK(activation.pbs->object("NSServicesStatus") == PropertyValue(status));
    CHECK(activation.platform.application.calls == refreshed);
}

TEST_CASE("removing without a dictionary neither writes nor refreshes") {
    Activation activation;
    ServicesActivation::remove();
    CHECK(activation.pbs->trace.steps().empty());
    CHECK(activation.platform.application.calls.empty());
}

TEST_CASE("where the pasteboard server's preferences can't be opened, nothing happens") {
    TestPlatform platform;
    ServicesActivation::enableIfNeeded();
    ServicesActivation::remove();
    CHECK(platform.userDefaults.values.empty());
    CHECK(platform.application.calls.empty());
}
