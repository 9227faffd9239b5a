#pragma once

#include <QAbstractNativeEventFilter>

#include <functional>

namespace cadora {

// The older kind of tray, which embeds windows of X11. Everywhere else it is never there. Main thread only.
class XEmbedTray : public QAbstractNativeEventFilter {
public:
    // `appeared` is called each time one begins to serve.
    explicit XEmbedTray(std::function<void()> appeared);
    XEmbedTray(const XEmbedTray&) = delete;
    XEmbedTray& operator=(const XEmbedTray&) = delete;
    ~XEmbedTray() override;

    bool isPresent() const;

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

private:
    std::function<void()> appeared_;
    // The names of X11's; 0 where there is no X11.
    unsigned selection_ = 0;
    unsigned manager_ = 0;
};

} // namespace cadora
