#pragma once

namespace cadora {

// The switch that makes the "Send to Cadora" entry show in the desktop's menus without the user having to
// turn it on. It lives in the preferences of the desktop's pasteboard server; where those can't be opened,
// nothing happens. Main actor only.
class ServicesActivation {
public:
    ServicesActivation() = delete;

    static constexpr const char* suiteName = "pbs";
    static constexpr const char* statusKey = "NSServicesStatus";
    static constexpr const char* entryKey = "com.norvelant.cadora.mac - Send to Cadora - sendToCadora";

    // Turns the entry on where there is no word of it yet. One that the user turned off stays off.
    static void enableIfNeeded();

    // Forgets the switch.
    static void remove();
};

} // namespace cadora
