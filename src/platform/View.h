#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace cadora {

// The content of a window as a value. Lengths are in points. A host renders it in one visit.

enum class FontWeight { regular, medium, semibold, bold };

// What a colour is for; the platform knows how it looks, in light and dark.
enum class ColorRole { label, secondaryLabel, tertiaryLabel, systemRed, systemGreen, windowBackground };

enum class ViewAction { signInTapped, openCadoraSite };

struct Font {
    double pointSize;
    FontWeight weight;

    friend bool operator==(const Font&, const Font&) = default;
};

struct EdgeInsets {
    double top = 0;
    double left = 0;
    double bottom = 0;
    double right = 0;

    friend bool operator==(const EdgeInsets&, const EdgeInsets&) = default;
};

enum class Visibility { visible, hidden };

// Centred text, wrapped at words into as many lines as it takes.
struct Label {
    std::string text;
    Font font;
    ColorRole color;
    Visibility visibility = Visibility::visible;
    double preferredMaxLayoutWidth = 380;
    // Names a label that changes while the window is open; empty for the others. Such a label announces its
    // changes to a screen reader.
    std::string identifier{};

    friend bool operator==(const Label&, const Label&) = default;
};

// The application's icon, scaled proportionally to fit.
struct ApplicationIcon {
    double width;
    double height;

    friend bool operator==(const ApplicationIcon&, const ApplicationIcon&) = default;
};

struct Spacer {
    double height;

    friend bool operator==(const Spacer&, const Spacer&) = default;
};

// A button without a border that reads as a link.
struct LinkButton {
    std::string title;
    ViewAction action;
    Font font;
    ColorRole tint;

    friend bool operator==(const LinkButton&, const LinkButton&) = default;
};

// The platform's Sign in with Apple button, of type sign-in and style black.
struct SignInWithAppleButton {
    ViewAction action;
    double width;
    double height;

    friend bool operator==(const SignInWithAppleButton&, const SignInWithAppleButton&) = default;
};

struct View;

// Views from top to bottom, each centred.
struct Stack {
    double spacing;
    std::vector<View> views;
    EdgeInsets edgeInsets{};
    std::optional<ColorRole> background{};
    double cornerRadius = 0;

    friend bool operator==(const Stack&, const Stack&);
};

struct View : std::variant<Label, ApplicationIcon, Spacer, LinkButton, SignInWithAppleButton, Stack> {
    using variant::variant;
};

inline bool operator==(const Stack& a, const Stack& b) {
    return a.spacing == b.spacing && a.views == b.views && a.edgeInsets == b.edgeInsets &&
           a.background == b.background && a.cornerRadius == b.cornerRadius;
}

// What fills a window: a stack held at the leading, trailing and top margins; the bottom margin is the least
// that stays below it.
struct ContentView {
    Stack stack;
    EdgeInsets margins{};

    friend bool operator==(const ContentView&, const ContentView&) = default;
};

// Receives what the user does with the views. Main actor only.
class ViewTarget {
public:
    virtual ~ViewTarget() = default;

    virtual void perform(ViewAction action) = 0;
};

} // namespace cadora
