#include "app/WelcomeWindowController.h"

#include "api/AuthError.h"
#include "app/Site.h"
#include "auth/AccountChange.h"
#include "auth/AuthService.h"
#include "auth/KeychainStore.h"
#include "base/Deployment.h"
#include "platform/Platform.h"

#include <chrono>
#include <utility>

namespace cadora {

namespace {

constexpr auto confirmationTime = std::chrono::milliseconds(1400);

Stack instructionsBox() {
    return {.spacing = 6,
            .views = {Label{"How to send audio", {13, FontWeight::semibold}, ColorRole::label},
                      Label{"Right-click a file → Services → Send to Cadora",
                            {12, FontWeight::regular},
                            ColorRole::secondaryLabel},
                      Label{"Works with WAV · AIFF · MP3 · M4A · AAC · CAF · AU · FLAC",
                            {11, FontWeight::regular},
                            ColorRole::tertiaryLabel}},
            .edgeInsets = {.top = 14, .left = 16, .bottom = 14, .right = 16},
            .background = ColorRole::windowBackground,
            .cornerRadius = 10};
}

Stack accountNotice() {
    return {.spacing = 4,
            .views = {Label{"You need a Cadora account to use this helper. If you don't have an account, "
                            "please download the Cadora app first.",
                            {12, FontWeight::medium},
                            ColorRole::systemRed},
                      LinkButton{Site::domainName() + " →",
                                 ViewAction::openCadoraSite,
                                 {12, FontWeight::semibold},
                                 ColorRole::systemRed}}};
}

// Null when the controller is gone.
WelcomeWindowController* find(const std::weak_ptr<WelcomeWindowController>& reference) {
    return reference.lock().get();
}

} // namespace

ContentView WelcomeWindowController::makeContent() {
    statusLabel = Label{.text = "",
                        .font = {12, FontWeight::regular},
                        .color = ColorRole::secondaryLabel,
                        .visibility = Visibility::hidden,
                        .identifier = "statusLabel"};
    Stack stack{
        .spacing = 12,
        .views = {ApplicationIcon{88, 88},
                  Label{"Welcome to Cadora Helper", {22, FontWeight::bold}, ColorRole::label},
                  Label{"Push audio straight to your Cadora feed.",
                        {13, FontWeight::regular},
                        ColorRole::secondaryLabel},
                  Spacer{8}, instructionsBox(), accountNotice(), Spacer{8},
                  SignInWithAppleButton{ViewAction::signInTapped, 280, 40}, *statusLabel,
                  Label{"Cadora Helper runs quietly in your menu bar — look for the ◉ icon at the top of "
                        "your screen.",
                        {11, FontWeight::regular},
                        ColorRole::tertiaryLabel}}};
    return {std::move(stack), {.top = 28, .left = 32, .bottom = 24, .right = 32}};
}

void WelcomeWindowController::windowWillClose() {
    window.reset();
    statusLabel.reset();
}

void WelcomeWindowController::perform(ViewAction action) {
    switch (action) {
    case ViewAction::signInTapped:
        signInTapped();
        return;
    case ViewAction::openCadoraSite:
        Platform::current().workspace.openURL(URL::constant(deployment::siteOrigin()));
        return;
    }
}

void WelcomeWindowController::signInTapped() {
    if (statusLabel) {
        statusLabel->visibility = Visibility::visible;
    }
    updateStatus(ColorRole::secondaryLabel, "Opening Apple sign-in…");
    Platform::current().mainActor.start(signIn(self_));
}

Task<void> WelcomeWindowController::signIn(Reference reference) {
    WelcomeWindowController* controller = find(reference);
    if (controller == nullptr) {
        co_return;
    }
    const AccountChange change;
    std::exception_ptr error;
    try {
        co_await AuthService::shared().signInWithApple(controller->window);
    } catch (...) {
        error = std::current_exception();
    }
    if (error) {
        reportFailure(reference, error);
        co_return;
    }
    change.report();
    confirmSignIn(reference);
    const Platform& platform = Platform::current();
    OperationAwaiter<std::monostate> pause(platform.mainActor, [&](Completion<std::monostate> completion) {
        return platform.clock.sleep(confirmationTime, std::move(completion));
    });
    try {
        co_await pause;
    } catch (const CancellationError&) {
    }
    controller = find(reference);
    if (controller != nullptr) {
        controller->close();
    }
}

// The closure may let go of the controller.
void WelcomeWindowController::confirmSignIn(const Reference& reference) {
    const WelcomeWindowController* controller = find(reference);
    if (controller != nullptr && controller->onSignInComplete) {
        const auto complete = controller->onSignInComplete;
        complete();
    }
    if (WelcomeWindowController* remaining = find(reference)) {
        const auto email = KeychainStore::get(KeychainStore::Key::appleEmail);
        remaining->updateStatus(ColorRole::systemGreen,
                                "Signed in as " + email.value_or("your account") + " ✓");
    }
}

void WelcomeWindowController::reportFailure(const Reference& reference, const std::exception_ptr& error) {
    const bool noAccount = isNoAccount(error);
    if (!noAccount) {
        Platform::current().systemLog.log("[Cadora Helper] welcome sign-in failed: " + errorText(error));
    }
    if (WelcomeWindowController* controller = find(reference)) {
        controller->updateStatus(ColorRole::systemRed,
                                 noAccount ? "No Cadora account found for that Apple ID. Create your account "
                                             "in the Cadora app first — get it at " +
                                                 Site::domainName() + " — then sign in here."
                                           : "Sign-in didn't complete. Please try again.");
    }
}

void WelcomeWindowController::updateStatus(ColorRole color, std::string text) {
    if (!statusLabel) {
        return;
    }
    statusLabel->color = color;
    statusLabel->text = std::move(text);
    if (window) {
        window->updateLabel(*statusLabel);
    }
}

void WelcomeWindowController::close() {
    // Closing lets go of `window` while the window is still at it.
    if (const auto closing = window) {
        closing->close();
    }
}

} // namespace cadora
