#pragma once

#include "base/Completion.h"
#include "base/URL.h"
#include "platform/Alert.h"
#include "platform/StatusItem.h"
#include "platform/Window.h"

#include <filesystem>
#include <memory>
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
    enum class ActivationPolicy : int { regular = 0, accessory = 1, prohibited = 2 };

    virtual ~Application() = default;

    // An accessory has neither a Dock icon nor a menu bar of its own.
    virtual void setActivationPolicy(ActivationPolicy policy) = 0;

    // From now on the desktop's send requests go to the provider, which must outlive the application.
    virtual void setServicesProvider(ServicesProvider& provider) = 0;

    // Makes the desktop read the services' entries and their switches again.
    virtual void updateDynamicServices() = 0;

    // Brings the program to the front, whatever the user is working with.
    virtual void activateIgnoringOtherApps() = 0;

    // Shows the alert in front of the program's windows and completes with the answer: firstButtonReturn for
    // the first button, one more for each further one. The main actor goes on meanwhile; an alert that comes
    // while another is open waits for it.
    virtual CancelAction runModal(Alert alert, Completion<int> completion) = 0;

    // An item of variable length; it is visible from the start.
    virtual std::unique_ptr<StatusItem> makeStatusItem() = 0;

    // A window that is not shown yet. The delegate, which may be null, must outlive it.
    virtual std::shared_ptr<Window> makeWindow(const WindowDescription& description,
                                               WindowDelegate* delegate) = 0;

    // The windows that exist, in the desktop's order.
    virtual std::vector<std::shared_ptr<Window>> windows() = 0;

    // Where the program is installed: what uninstalling moves to the Trash.
    virtual std::filesystem::path bundlePath() = 0;

    // The tool with which the desktop learns of installed programs, and forgets one when it is run with "-u"
    // and the bundle's path. It may not exist.
    virtual std::filesystem::path registrationToolPath() = 0;

    // Ends the event loop soon after.
    virtual void terminate() = 0;
};

} // namespace cadora
