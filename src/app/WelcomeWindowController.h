#pragma once

#include "base/Task.h"
#include "platform/Window.h"

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace cadora {

// The first-run window: says what the program does and how to send audio, and signs the user in. Its owner
// makes the window, and makes a fresh one when this one has been closed. Main actor only.
//
// The controller may go, or lose its window, while a sign-in is under way: the credentials are stored all the
// same, and what there is nobody to show to is left out.
class WelcomeWindowController : public WindowDelegate, public ViewTarget {
public:
    WelcomeWindowController() = default;
    WelcomeWindowController(const WelcomeWindowController&) = delete;
    WelcomeWindowController& operator=(const WelcomeWindowController&) = delete;

    // Called once after each successful sign-in, also when the window has been closed meanwhile.
    std::function<void()> onSignInComplete;

    // The welcome window while it exists: its delegate and its content's target are this controller.
    std::shared_ptr<Window> window;

    // The line under the sign-in button as it stands, while the window exists.
    std::optional<Label> statusLabel;

    // What a fresh window shows; its status line becomes `statusLabel`.
    ContentView makeContent();

    void windowWillClose() override;

    // Asked to sign in while a sign-in is under way, starts a second one.
    void perform(ViewAction action) override;

private:
    // Expires with the controller, which nobody owns through it.
    using Reference = std::weak_ptr<WelcomeWindowController>;

    static Task<void> signIn(Reference reference);
    static void confirmSignIn(const Reference& reference);
    static void reportFailure(const Reference& reference, const std::exception_ptr& error);

    void signInTapped();
    void updateStatus(ColorRole color, std::string text);
    void close();

    std::shared_ptr<WelcomeWindowController> self_{this, [](WelcomeWindowController*) {}};
};

} // namespace cadora
