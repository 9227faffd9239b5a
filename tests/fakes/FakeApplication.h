#pragma once

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
    std::string symbolName;
    std::string accessibilityDescription;
    std::string toolTip;
    std::optional<Menu> menu;
    MenuTarget* target = nullptr;
    Visibility visibility = Visibility::visible;

    void setButton(const std::string& symbol, const std::string& description,
                   const std::string& tip) override {
        symbolName = symbol;
        accessibilityDescription = description;
        toolTip = tip;
    }
    void setMenu(Menu newMenu, MenuTarget& newTarget) override {
        menu = std::move(newMenu);
        target = &newTarget;
    }
    void setVisibility(Visibility newVisibility) override { visibility = newVisibility; }
};

class FakeWindow : public Window {
public:
    FakeWindow(WindowDescription windowDescription, WindowDelegate* windowDelegate)
        : description(std::move(windowDescription)), delegate(windowDelegate) {}

    WindowDescription description;
    WindowDelegate* delegate;
    std::optional<ContentView> content;
    ViewTarget* target = nullptr;
    // The labels that were set after the content, in order.
    std::vector<Label> labelUpdates;
    bool isShown = false;
    // "center", "makeKeyAndOrderFront", "orderOut", "close", in order.
    std::vector<std::string> calls;

    void center() override { calls.emplace_back("center"); }
    void makeKeyAndOrderFront() override {
        calls.emplace_back("makeKeyAndOrderFront");
        isShown = true;
    }
    void orderOut() override {
        calls.emplace_back("orderOut");
        isShown = false;
    }
    void close() override {
        calls.emplace_back("close");
        isShown = false;
        if (delegate) {
            delegate->windowWillClose();
        }
    }
    void setContentView(ContentView newContent, ViewTarget& newTarget) override {
        content = std::move(newContent);
        target = &newTarget;
    }
    void updateLabel(const Label& label) override { labelUpdates.push_back(label); }
};

// Remembers what it was asked; the test answers its alerts.
class FakeApplication : public Application {
public:
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
        calls.emplace_back("setActivationPolicy");
    }
    void setServicesProvider(ServicesProvider& servicesProvider) override {
        provider = &servicesProvider;
        calls.emplace_back("setServicesProvider");
    }
    void updateDynamicServices() override { calls.emplace_back("updateDynamicServices"); }
    void activateIgnoringOtherApps() override { calls.emplace_back("activateIgnoringOtherApps"); }
    CancelAction runModal(Alert alert, Completion<int> completion) override {
        calls.emplace_back("runModal");
        alerts.push_back(std::move(alert));
        answerAlert = std::move(completion);
        return nullptr;
    }
    std::unique_ptr<StatusItem> makeStatusItem() override {
        calls.emplace_back("makeStatusItem");
        auto item = std::make_unique<FakeStatusItem>();
        statusItem = item.get();
        return item;
    }
    std::shared_ptr<Window> makeWindow(const WindowDescription& description,
                                       WindowDelegate* delegate) override {
        calls.emplace_back("makeWindow");
        madeWindows.push_back(std::make_shared<FakeWindow>(description, delegate));
        return madeWindows.back();
    }
    std::vector<std::shared_ptr<Window>> windows() override {
        return {madeWindows.begin(), madeWindows.end()};
    }
    std::filesystem::path bundlePath() override { return bundle; }
    std::filesystem::path registrationToolPath() override { return registrationTool; }
    void terminate() override { calls.emplace_back("terminate"); }
};

} // namespace cadora::test
