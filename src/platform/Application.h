#pragma once

#include "base/URL.h"

#include <optional>
#include <string>
#include <vector>

namespace cadora {

// What another program handed over, readable during the call that brought it.
class Pasteboard {
public:
    virtual ~Pasteboard() = default;

    // All objects of the URL class, in order; empty when there is none.
    virtual std::vector<URL> readURLs() const = 0;
};

// Receives the calls of the desktop's "Send to Cadora" entries, on the main thread.
class ServicesProvider {
public:
    virtual ~ServicesProvider() = default;

    // A failure sets `error` to a message that the desktop may show; `userData` is what the entry carries.
    virtual void sendToCadora(const Pasteboard& pasteboard, const std::optional<std::string>& userData,
                              std::string& error) = 0;
};

// The running program as the desktop sees it. Main actor only.
class Application {
public:
    virtual ~Application() = default;

    // From now on the desktop's send requests go to the provider, which must outlive the application.
    virtual void setServicesProvider(ServicesProvider& provider) = 0;

    // Makes the desktop read the services' entries and their switches again.
    virtual void updateDynamicServices() = 0;
};

} // namespace cadora
