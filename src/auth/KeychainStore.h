#pragma once

#include <array>
#include <optional>
#include <string>

namespace cadora {

// The user's credentials in the system's keychain: one secret per account name under one service name. Being
// signed in means that Key::cadoraToken holds a value; nothing else records it. Nothing is cached. Any
// thread.
class KeychainStore {
public:
    KeychainStore() = delete;

    struct Key {
        static constexpr const char* cadoraToken = "cadoraToken";
        static constexpr const char* cadoraUserId = "cadoraUserId";
        static constexpr const char* appleUserId = "appleUserId";
        static constexpr const char* appleEmail = "appleEmail";

        static constexpr std::array<const char*, 4> all{cadoraToken, cadoraUserId, appleUserId, appleEmail};
    };

    // The stored text; absent when there is none or it can't be read, which are not told apart.
    static std::optional<std::string> get(const std::string& account);

    // Stores the text, or deletes the item when it is absent or not valid UTF-8. True on success; deleting
    // what isn't there is a success. On false, what was stored before may still be there.
    static bool set(const std::optional<std::string>& value, const std::string& account);
};

} // namespace cadora
