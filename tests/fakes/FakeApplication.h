#pragma once

#include "fakes/Trace.h"
#include "platform/Application.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cadora::test {

class FakeStatusItem : public StatusItem {
public:
    explicit FakeStatusItem(Trace sharedTrace = {}) : trace(std::move(sharedTrace)) {}

    Trace trace;
    std::string symbolName;
    std::string accessibilityDescription;
    std::string toolTip;
    std::optional<Menu> menu;
    MenuTarget* target = nullptr;
    Visibility visibility = Visibility::visible;

    void setButton(const std::string& symbol, const std::string& description,
                   const std::string& tip) override {
        trace.add("setButton");
        symbolName = symbol;
        accessibilityDescription = description;
        toolTip = tip;
    }
    void setMenu(Menu newMenu, MenuTarget& newTarget) override {
        trace.add("setMenu");
        menu = std::move(newMenu);
        target = &newTarget;
    }
    void setVisibility(Visibility newVisibility) override {
        trace.add(newVisibility == Visibility::visible ? "show status item" : "hide status item");
        visibility = newVisibility;
    }
};

class FakeWindow : public Window {
public:
    FakeWindow(WindowDescription windowDescription, WindowDelegate* windowDelegate, Trace sharedTrace = {})
        : trace(std::move(sharedTrace)), description(std::move(windowDescription)), delegate(windowDelegate) {
    }

    Trace trace;
    WindowDescription description;
    WindowDelegate* delegate;
    std::optional<ContentView> content;
    ViewTarget* target = nullptr;
    // The labels that were set after the content, in order.
    std::vector<Label> labelUpdates;
    bool isShown = false;
    // "center", "makeKeyAndOrderFront", "orderOut", "close", in order.
    std::vector<std::string> calls;

    void center() override { note("center"); }
    void makeKeyAndOrderFront() override {
        note("makeKeyAndOrderFront");
        isShown = true;
    }
    void orderOut() override {
        note("orderOut");
        isShown = false;
    }
    void close() override {
        note("close");
        isShown = false;
        if (delegate) {
            delegate->windowWillClose();
        }
    }
    void setContentView(ContentView newContent, ViewTarget& newTarget) override {
        trace.add("setContentView");
        content = std::move(newContent);
        target = &newTarget;
    }
    void updateLabel(const Label& label) override { labelUpdates.push_back(label); }

private:
    void note(const char* call) {
        calls.emplace_back(call);
        trace.add(call);
    }
};

// Remembers what it was asked; the test answers its alerts.
class FakeApplication : public Application {
public:
    Trace trace;
    ServicesProvider* provider = nullptr;
    // The names of the calls that change something, in order.
    std::vector<std::string> calls;
    std::vector<Alert> alerts;
    // Of the alert that is open.
    Completion<int> answerAlert;
    // The item made last; it belongs to whoever asked for it.
    FakeStatusItem* statusItem = nullptr;
    // The windows made so far, also those that nobody else holds any more.
    std::vector<std::shared_ptr<FakeWindow>> madeWindows;
    std::optional<ActivationPolicy> activationPolicy;
    std::filesystem::path bundle = "/opt/Cadora Helper";
    std::filesystem::path registrationTool = "/opt/Cadora Helper/register";

    void setActivationPolicy(ActivationPolicy policy) override {
        activationPolicy = policy;
        note("setActivationPolicy");
    }
    void setServicesProvider(ServicesProvider& servicesProvider) override {
        provider = &servicesProvider;
        note("setServicesProvider");
    }
    void updateDynamicServices() override { note("updateDynamicServices"); }
    void activateIgnoringOtherApps() override { note("activateIgnoringOtherApps"); }
    CancelAction runModal(Alert alert, Completion<int> completion) override {
        note("runModal");
        alerts.push_back(std::move(alert));
        answerAlert = std::move(completion);
        return nullptr;
    }
    std::unique_ptr<StatusItem> makeStatusItem() override {
        note("makeStatusItem");
        auto item = std::make_unique<FakeStatusItem>(trace);
        statusItem = item.get();
        return item;
    }
    std::shared_ptr<Window> makeWindow(const WindowDescription& description,
                                       WindowDelegate* delegate) override {
        note("makeWindow");
        madeWindows.push_back(std::make_shared<FakeWindow>(description, delegate, trace));
        return madeWindows.back();
    }
    std::vector<std::shared_ptr<Window>> windows() override {
        return {madeWindows.begin(), madeWindows.end()};
    }
    std::filesystem::path bundlePath() override { return bundle; }
    std::filesystem::path registrationToolPath() override { return registrationTool; }
    void terminate() override { note("terminate"); }

private:
    void note(const char* call) {
        calls.emplace_back(call);
        trace.add(call);
    }
};

} // namespace cadora::test
