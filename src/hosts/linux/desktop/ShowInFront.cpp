#include "hosts/linux/desktop/ShowInFront.h"

#include <QApplication>
#include <QByteArray>
#include <QTimer>
#include <QWidget>

#include <xcb/xcb.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace cadora {

namespace {

constexpr const char* tokenVariable = "XDG_ACTIVATION_TOKEN";
constexpr const char* startupVariable = "DESKTOP_STARTUP_ID";

// What was kept is of no use to a window that something else brings, later.
constexpr auto activationLife = std::chrono::seconds(15);
constexpr auto focusPatience = std::chrono::milliseconds(500);

struct Kept {
    std::optional<xcb_timestamp_t> time;
    std::chrono::steady_clock::time_point since;
};
Kept kept;

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

xcb_screen_t* firstScreen(xcb_connection_t* connection) {
    return xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
}

// The time in milliseconds that the identifier of a start ends in, as "…_TIME12345".
std::optional<xcb_timestamp_t> timeIn(std::string_view startupID) {
    constexpr std::string_view mark = "_TIME";
    const std::size_t at = startupID.rfind(mark);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view digits = startupID.substr(at + mark.size());
    xcb_timestamp_t time = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), time);
    return error == std::errc() && end == digits.data() + digits.size() && time != 0 ? std::optional(time)
                                                                                     : std::nullopt;
}

// Tells every panel that the start has ended: a text in pieces of twenty bytes, by the startup protocol.
void tellStartEnded(xcb_connection_t* connection, std::string_view startupID) {
    std::string text = "remove: ID=\"";
    for (const char c : startupID) {
        text.append(c == '"' || c == '\\' ? 1 : 0, '\\').push_back(c);
    }
    text += '"';
    text += '\0';
    const xcb_window_t root = firstScreen(connection)->root;
    const xcb_window_t sender = xcb_generate_id(connection);
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, sender, root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 8;
    event.window = sender;
    event.type = atom(connection, "_NET_STARTUP_INFO_BEGIN");
    const xcb_atom_t more = atom(connection, "_NET_STARTUP_INFO");
    constexpr std::size_t piece = sizeof(event.data.data8);
    for (std::size_t at = 0; at < text.size(); at += piece) {
        std::memset(event.data.data8, 0, piece);
        std::memcpy(event.data.data8, text.data() + at, std::min(piece, text.size() - at));
        xcb_send_event(connection, 0, root, XCB_EVENT_MASK_PROPERTY_CHANGE,
                       reinterpret_cast<const char*>(&event));
        event.type = more;
    }
    xcb_destroy_window(connection, sender);
    xcb_flush(connection);
}

// As Qt asks for it, but with the time of the user's deed instead of that of this program's latest event.
void activateByTime(xcb_connection_t* connection, xcb_window_t window, xcb_timestamp_t time) {
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, atom(connection, "_NET_WM_USER_TIME"),
                        XCB_ATOM_CARDINAL, 32, 1, &time);
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atom(connection, "_NET_ACTIVE_WINDOW");
    event.data.data32[0] = 1; // from an application
    event.data.data32[1] = time;
    xcb_send_event(connection, 0, firstScreen(connection)->root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
    xcb_flush(connection);
}

std::string take(const char* variable) {
    const std::string value = qgetenv(variable).toStdString();
    qunsetenv(variable);
    return value;
}

} // namespace

Activation takeActivationOfStart() {
    return {take(tokenVariable), take(startupVariable)};
}

void keepActivation(const Activation& activation) {
    // Where Qt looks for it when a window asks for the keyboard.
    qputenv(tokenVariable, QByteArray::fromStdString(activation.waylandToken));
    kept = {timeIn(activation.x11StartupID), std::chrono::steady_clock::now()};
    if (xcb_connection_t* const connection = x11();
        connection != nullptr && !activation.x11StartupID.empty()) {
        tellStartEnded(connection, activation.x11StartupID);
    }
}

void showInFront(QWidget& window) {
    const bool isTooLate = std::chrono::steady_clock::now() - kept.since > activationLife;
    if (isTooLate) {
        qunsetenv(tokenVariable);
    }
    window.show();
    window.raise();
    window.activateWindow();
    if (xcb_connection_t* const connection = x11(); connection != nullptr && kept.time && !isTooLate) {
        activateByTime(connection, static_cast<xcb_window_t>(window.winId()), *kept.time);
    }
    QTimer::singleShot(focusPatience, &window, [&window] {
        if (window.isVisible() && QApplication::activeWindow() == nullptr) {
            QApplication::alert(&window);
        }
    });
}

} // namespace cadora
