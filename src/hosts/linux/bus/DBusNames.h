#pragma once

namespace cadora::dbus {

// How other programs of the session find this one. The path is the name's own form as a path, where
// org.freedesktop.Application is looked for.
inline constexpr char busName[] = "com.norvelant.cadora.mac";
inline constexpr char objectPath[] = "/com/norvelant/cadora/mac";
inline constexpr char servicesInterface[] = "com.norvelant.cadora.mac.Services";
inline constexpr char stagingInterface[] = "com.norvelant.cadora.mac.Staging";
inline constexpr char applicationInterface[] = "org.freedesktop.Application";

// The error of a request that the program refuses; its message is for the user.
inline constexpr char requestRefused[] = "com.norvelant.cadora.mac.Error.RequestRefused";

// The error of being opened where there is nothing to show windows on.
inline constexpr char noDisplay[] = "com.norvelant.cadora.mac.Error.NoDisplay";

// The action by which a start that has a display asks one without to leave its place to it.
inline constexpr char giveWayAction[] = "give-way";

// The entries of platform_data that hold a proof that the user did something, with which a program may come
// to the front: under Wayland, and under X11.
inline constexpr char activationToken[] = "activation-token";
inline constexpr char startupID[] = "desktop-startup-id";

} // namespace cadora::dbus
