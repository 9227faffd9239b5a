#pragma once

#include <string>

namespace cadora {

// Tells the user how each upload ended. Keeps nothing and reports nothing: where notifications are refused,
// they are not shown. Any thread.
//
// Ranks beside api/, below the rest of its folder: the queue reports through it, and it needs nothing but the
// platform. So nothing of app/ may be included here.
class Notifier {
public:
    static Notifier& shared();

    // Asks for permission to show notifications with sound; the answer changes nothing here.
    void requestAuthorization();

    // Shows one notification of its own, which replaces none.
    void post(const std::string& title, const std::string& body);

private:
    Notifier() = default;
};

} // namespace cadora
