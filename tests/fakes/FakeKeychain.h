#pragma once

#include "fakes/Trace.h"
#include "platform/Keychain.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cadora::test {

// A keychain in memory. A status that is set is what every call of that kind answers, and nothing changes.
class FakeKeychain : public Keychain {
public:
    // Of the calls that change something.
    Trace trace;
    std::map<std::pair<std::string, std::string>, std::string> items;
    std::optional<Status> copyStatus;
    std::optional<Status> updateStatus;
    std::optional<Status> addStatus;
    std::optional<Status> removeStatus;
    // The calls, for example "update cadoraToken".
    std::vector<std::string> calls;
    std::vector<KeychainQuery> queries;
    // Of the calls of add().
    std::vector<KeychainAccessibility> accessibilities;

    void store(const std::string& account, const std::string& value) { items[{service, account}] = value; }
    std::optional<std::string> stored(const std::string& account) const {
        const auto found = items.find({service, account});
        return found == items.end() ? std::nullopt : std::optional(found->second);
    }

    Status copyMatching(const KeychainQuery& query, std::string* data) override {
        record("copy", query);
        if (copyStatus) {
            return *copyStatus;
        }
        const auto found = items.find(key(query));
        if (found == items.end()) {
            return itemNotFound;
        }
        if (data != nullptr) {
            *data = found->second;
        }
        return success;
    }

    Status update(const KeychainQuery& query, const std::string& data) override {
        record("update", query);
        trace.add(calls.back());
        if (updateStatus) {
            return *updateStatus;
        }
        const auto found = items.find(key(query));
        if (found == items.end()) {
            return itemNotFound;
        }
        found->second = data;
        return success;
    }

    Status add(const KeychainQuery& query, const std::string& data,
               KeychainAccessibility accessibility) override {
        record("add", query);
        accessibilities.push_back(accessibility);
        trace.add(calls.back());
        if (addStatus) {
            return *addStatus;
        }
        return items.emplace(key(query), data).second ? success : duplicateItem;
    }

    Status remove(const KeychainQuery& query) override {
        record("remove", query);
        trace.add(calls.back());
        if (removeStatus) {
            return *removeStatus;
        }
        return items.erase(key(query)) == 1 ? success : itemNotFound;
    }

private:
    static constexpr const char* service = "com.norvelant.cadora.mac";
    static constexpr Status duplicateItem = -25299;

    static std::pair<std::string, std::string> key(const KeychainQuery& query) {
        return {query.service, query.account};
    }
    void record(const char* call, const KeychainQuery& query) {
        calls.push_back(std::string(call) + " " + query.account);
        queries.push_back(query);
    }
};

} // namespace cadora::test
