#pragma once

#include <string>

namespace cadora {

// Which program the desktop opens the URLs of the sign-in's scheme with. Any thread; calls read and write
// small files.
class URLSchemeOwnership {
public:
    enum class Claim {
        ifFree, // leaves another program's right alone
        always, // the user has decided
    };
    struct Owner {
        enum class Kind {
            thisProgram,
            anotherProgram, // `name` is what the desktop calls it
            nobody,         // it could not be made ours; `name` says why, for a person
        };
        Kind kind = Kind::nobody;
        std::string name;
    };

    virtual ~URLSchemeOwnership() = default;

    // Makes the scheme this program's as far as the claim allows, and says whose it is then.
    virtual Owner claim(Claim claim) = 0;
};

} // namespace cadora
