#include "hosts/macos/AppKitView.h"

#include "hosts/macos/FoundationText.h"

#import <AuthenticationServices/AuthenticationServices.h>
#import <QuartzCore/QuartzCore.h>

@implementation CadoraViewTarget {
    cadora::ViewTarget* _target;
}

- (instancetype)initWithTarget:(cadora::ViewTarget*)target {
    if (self = [super init]) {
        _target = target;
    }
    return self;
}

- (void)signInTapped {
    _target->perform(cadora::ViewAction::signInTapped);
}

- (void)openCadoraSite {
    _target->perform(cadora::ViewAction::openCadoraSite);
}

@end

// A stack on a coloured layer. The colour is asked for again whenever the view's appearance changes, since a
// layer's colour knows nothing of light and dark.
@interface CadoraBackedStackView : NSStackView
@property(strong) NSColor* layerColor;
@end

@implementation CadoraBackedStackView

- (BOOL)wantsUpdateLayer {
    return YES;
}

- (void)updateLayer {
    self.layer.backgroundColor = self.layerColor.CGColor;
}

@end

namespace cadora {

namespace {

NSColor* nsColor(ColorRole role) {
    switch (role) {
    case ColorRole::label:
        return [NSColor labelColor];
    case ColorRole::secondaryLabel:
        return [NSColor secondaryLabelColor];
    case ColorRole::tertiaryLabel:
        return [NSColor tertiaryLabelColor];
    case ColorRole::systemRed:
        return [NSColor systemRedColor];
    case ColorRole::systemGreen:
        return [NSColor systemGreenColor];
    case ColorRole::windowBackground:
        return [NSColor windowBackgroundColor];
    }
    return [NSColor labelColor];
}

NSFontWeight nsFontWeight(FontWeight weight) {
    switch (weight) {
    case FontWeight::regular:
        return NSFontWeightRegular;
    case FontWeight::medium:
        return NSFontWeightMedium;
    case FontWeight::semibold:
        return NSFontWeightSemibold;
    case FontWeight::bold:
        return NSFontWeightBold;
    }
    return NSFontWeightRegular;
}

NSFont* nsFont(const Font& font) {
    return [NSFont systemFontOfSize:font.pointSize weight:nsFontWeight(font.weight)];
}

SEL selectorOf(ViewAction action) {
    switch (action) {
    case ViewAction::signInTapped:
        return @selector(signInTapped);
    case ViewAction::openCadoraSite:
        return @selector(openCadoraSite);
    }
    return nullptr;
}

void fixWidth(NSView* view, double width) {
    [view.widthAnchor constraintEqualToConstant:width].active = YES;
}

void fixHeight(NSView* view, double height) {
    [view.heightAnchor constraintEqualToConstant:height].active = YES;
}

struct Renderer {
    CadoraViewTarget* target;
    IdentifiedLabels* labels;

    NSView* operator()(const Label& label) const {
        NSTextField* const field = [NSTextField labelWithString:@""];
        apply(label, field);
        if (!label.identifier.empty()) {
            labels[nsString(label.identifier)] = field;
        }
        return field;
    }

    NSView* operator()(const ApplicationIcon& icon) const {
        NSImageView* const view = [[NSImageView alloc] initWithFrame:NSZeroRect];
        view.image = [[NSApplication sharedApplication] applicationIconImage];
        view.imageScaling = NSImageScaleProportionallyUpOrDown;
        fixWidth(view, icon.width);
        fixHeight(view, icon.height);
        return view;
    }

    NSView* operator()(const Spacer& spacer) const {
        NSView* const view = [[NSView alloc] initWithFrame:NSZeroRect];
        fixHeight(view, spacer.height);
        return view;
    }

    NSView* operator()(const LinkButton& link) const {
        NSButton* const button = [NSButton buttonWithTitle:nsString(link.title)
                                                    target:target
                                                    action:selectorOf(link.action)];
        button.bordered = NO;
        button.contentTintColor = nsColor(link.tint);
        button.font = nsFont(link.font);
        return button;
    }

    NSView* operator()(const SignInWithAppleButton& signIn) const {
        ASAuthorizationAppleIDButton* const button =
            [ASAuthorizationAppleIDButton buttonWithType:ASAuthorizationAppleIDButtonTypeSignIn
                                                   style:ASAuthorizationAppleIDButtonStyleBlack];
        button.target = target;
        button.action = selectorOf(signIn.action);
        fixWidth(button, signIn.width);
        fixHeight(button, signIn.height);
        return button;
    }

    NSView* operator()(const Stack& stack) const {
        NSStackView* const view = stack.background ? backedStack(stack, *stack.background)
                                                   : [[NSStackView alloc] initWithFrame:NSZeroRect];
        view.orientation = NSUserInterfaceLayoutOrientationVertical;
        view.alignment = NSLayoutAttributeCenterX;
        view.spacing = stack.spacing;
        view.edgeInsets = NSEdgeInsetsMake(stack.edgeInsets.top, stack.edgeInsets.left,
                                           stack.edgeInsets.bottom, stack.edgeInsets.right);
        for (const View& inner : stack.views) {
            [view addArrangedSubview:render(inner)];
        }
        return view;
    }

    NSView* render(const View& view) const {
        NSView* const result = std::visit(*this, static_cast<const View::variant&>(view));
        result.translatesAutoresizingMaskIntoConstraints = NO;
        return result;
    }

    static NSStackView* backedStack(const Stack& stack, ColorRole background) {
        CadoraBackedStackView* const view = [[CadoraBackedStackView alloc] initWithFrame:NSZeroRect];
        view.layerColor = nsColor(background);
        view.wantsLayer = YES;
        view.layer.cornerRadius = stack.cornerRadius;
        return view;
    }
};

} // namespace

NSView* render(const ContentView& content, CadoraViewTarget* target, IdentifiedLabels* labels) {
    // The container itself is laid out by its window.
    NSView* const container = [[NSView alloc] initWithFrame:NSZeroRect];
    NSView* const stack = Renderer{target, labels}.render(content.stack);
    [container addSubview:stack];
    [NSLayoutConstraint activateConstraints:@[
        [stack.leadingAnchor constraintEqualToAnchor:container.leadingAnchor constant:content.margins.left],
        [stack.trailingAnchor constraintEqualToAnchor:container.trailingAnchor
                                             constant:-content.margins.right],
        [stack.topAnchor constraintEqualToAnchor:container.topAnchor constant:content.margins.top],
        [stack.bottomAnchor constraintLessThanOrEqualToAnchor:container.bottomAnchor
                                                     constant:-content.margins.bottom],
    ]];
    return container;
}

void apply(const Label& label, NSTextField* field) {
    field.stringValue = nsString(label.text);
    field.font = nsFont(label.font);
    field.textColor = nsColor(label.color);
    field.alignment = NSTextAlignmentCenter;
    field.lineBreakMode = NSLineBreakByWordWrapping;
    field.maximumNumberOfLines = 0;
    field.preferredMaxLayoutWidth = label.preferredMaxLayoutWidth;
    field.hidden = label.visibility == Visibility::hidden;
}

} // namespace cadora
