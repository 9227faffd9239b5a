#pragma once

namespace cadora::dbus {

// How other programs of the session find this one. The path is the name's own form as a path, where
// org.freedesktop.Application is looked for.
inline constexpr char busName[] = "com.norvelant.cadora.mac";
inline constexpr char objectPath[] = "/com/norvelant/cadora/mac";
inline constexpr char servicesInterface[] = "com.norvelant.cadora.mac.Services";
inline constexpr char applicationInterface[] = "org.freedesktop.Application";

// The error of a request that the program refuses; its message is for the user.
inline constexpr char requestRefused[] = "com.norvelant.cadora.mac.Error.RequestRefused";

} // namespace cadora::dbus
