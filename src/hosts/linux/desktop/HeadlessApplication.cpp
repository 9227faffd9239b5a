#include "hosts/linux/desktop/HeadlessApplication.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <algorithm>
#include <utility>

namespace cadora {

namespace {

class UnseenStatusItem : public StatusItem {
    void setButton(const std::string&, const std::string&, const std::string&) override {}
    void setMenu(Menu, MenuTarget&) override {}
    void setVisibility(Visibility) override {}
};

class UnseenWindow : public Window {
public:
    explicit UnseenWindow(WindowDelegate* delegate) : delegate_(delegate) {}

    void center() override {}
    void makeKeyAndOrderFront() override {}
    void orderOut() override {}
    void close() override {
        if (delegate_) {
            delegate_->windowWillClose();
        }
    }
    void setContentView(ContentView, ViewTarget&) override {}
    void updateLabel(const Label&) override {}

private:
    WindowDelegate* delegate_;
};

class RefusingSession : public WebAuthenticationSession {
    void setPresentationContextProvider(PresentationContextProvider&) override {}
    bool start() override { return false; }
    void cancel() override {}
};

} // namespace

HeadlessApplication::HeadlessApplication(DBusApplication& services, FileManagerEntries& entries,
                                         std::filesystem::path bundle)
    : services_(services), entries_(entries), bundle_(std::move(bundle)) {}

CancelAction HeadlessApplication::runModal(Alert alert, Completion<int> completion) {
    const int buttons = std::max(1, static_cast<int>(alert.buttons.size()));
    const int answer = Alert::firstButtonReturn + buttons - 1;
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [completion = std::move(completion), answer] { completion(answer); },
        Qt::QueuedConnection);
    return nullptr;
}

std::unique_ptr<StatusItem> HeadlessApplication::makeStatusItem() {
    return std::make_unique<UnseenStatusItem>();
}

std::shared_ptr<Window> HeadlessApplication::makeWindow(const WindowDescription&, WindowDelegate* delegate) {
    return std::make_shared<UnseenWindow>(delegate);
}

void HeadlessApplication::terminate() {
    QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
}

std::shared_ptr<WebAuthenticationSession>
HeadlessWebAuthentication::makeSession(const URL&, const std::string&, CompletionHandler) {
    return std::make_shared<RefusingSession>();
}

} // namespace cadora
