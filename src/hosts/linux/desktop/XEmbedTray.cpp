#include "hosts/linux/desktop/XEmbedTray.h"

#include <QCoreApplication>
#include <QGuiApplication>

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

namespace cadora {

namespace {

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};

xcb_connection_t* x11() {
    const auto* const application = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return application ? application->connection() : nullptr;
}

xcb_atom_t atom(xcb_connection_t* connection, std::string_view name) {
    const auto cookie = xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data());
    const std::unique_ptr<xcb_intern_atom_reply_t, Free> reply(
        xcb_intern_atom_reply(connection, cookie, nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

} // namespace

XEmbedTray::XEmbedTray(std::function<void()> appeared) : appeared_(std::move(appeared)) {
    if (xcb_connection_t* const connection = x11()) {
        // Qt itself serves the first screen alone, as every current desktop does.
        selection_ = atom(connection, "_NET_SYSTEM_TRAY_S0");
        manager_ = atom(connection, "MANAGER");
        qApp->installNativeEventFilter(this);
    }
}

XEmbedTray::~XEmbedTray() {
    if (qApp) {
        qApp->removeNativeEventFilter(this);
    }
}

bool XEmbedTray::isPresent() const {
    xcb_connection_t* const connection = x11();
    if (connection == nullptr) {
        return false;
    }
    const std::unique_ptr<xcb_get_selection_owner_reply_t, Free> reply(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, selection_), nullptr));
    return reply && reply->owner != XCB_WINDOW_NONE;
}

bool XEmbedTray::nativeEventFilter(const QByteArray&, void* message, qintptr*) {
    constexpr unsigned sentByProgram = 0x80;
    const auto* const event = static_cast<const xcb_generic_event_t*>(message);
    if ((event->response_type & ~sentByProgram) == XCB_CLIENT_MESSAGE) {
        const auto* const notice = static_cast<const xcb_client_message_event_t*>(message);
        if (notice->type == manager_ && notice->data.data32[1] == selection_) {
            appeared_();
        }
    }
    return false;
}

} // namespace cadora
