#pragma once

#include <optional>
#include <string>

namespace cadora {

// Where an http or https URL leads, in a form that can be compared: two URLs have the same origin when
// scheme, host and port are equal, a default port being equal to the same port written out.
struct HTTPOrigin {
    std::string scheme;
    // Without the brackets of an IPv6 address.
    std::string host;
    int port = 0;

    // Absent for what this program doesn't send to: relative URLs, other schemes, URLs with a user name.
    static std::optional<HTTPOrigin> of(const std::string& url);

    // The machine itself, under any of its names for itself.
    bool isLoopback() const;

    // What an error text may show of the URL: the host, and the port unless it is the scheme's own.
    std::string authority() const;

    friend bool operator==(const HTTPOrigin&, const HTTPOrigin&) = default;
};

} // namespace cadora
